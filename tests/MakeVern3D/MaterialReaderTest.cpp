// Materials and maps: what the reader's tables hold and what the written texture table says.
#include "support/AseTestParse.h"
#include "support/RandomScenes.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using asetest::ParseAse;

std::string Map(const char* kind, const std::string& bitmap)
{
    return std::string("*") + kind + " {\n*MAP_NAME \"m\"\n*MAP_CLASS \"Bitmap\"\n*MAP_SUBNO 1\n*MAP_AMOUNT 1.0\n*BITMAP \"" +
           bitmap + "\"\n*MAP_TYPE Screen\n*UVW_U_OFFSET 0.0\n*UVW_V_OFFSET 0.0\n*UVW_U_TILING 1.0\n*UVW_V_TILING 1.0\n"
           "*UVW_ANGLE 0.0\n*UVW_BLUR 1.0\n*UVW_BLUR_OFFSET 0.0\n*UVW_NOUSE_AMT 1.0\n*UVW_NOISE_SIZE 1.0\n"
           "*UVW_NOISE_LEVEL 1\n*UVW_NOISE_PHASE 0.0\n*BITMAP_FILTER Pyramidal\n}\n";
}

std::string Material(int number, const std::string& body)
{
    return "*MATERIAL " + std::to_string(number) + " {\n*MATERIAL_NAME \"mat" + std::to_string(number) +
           "\"\n*MATERIAL_CLASS \"Standard\"\n" + body + "}\n";
}

std::string MaterialList(const std::string& materials) { return "*MATERIAL_LIST {\n*MATERIAL_COUNT 1\n" + materials + "}\n"; }

using Entries = std::vector<std::pair<uint32_t, std::string>>;

// The texture table of the written file.
std::vector<Entries> TextureTable(const asetest::Parsed& parsed)
{
    vern3d::Scene scene;
    std::string error;
    EXPECT_TRUE(vern3d::DecodeFile(parsed.output, &scene, &error)) << error;
    std::vector<Entries> table;
    for (const auto& set : scene.textureSets) {
        table.emplace_back();
        for (const auto& entry : set)
            table.back().emplace_back(entry.flags, entry.fileName);
    }
    return table;
}

TEST(Materials, TextureTableOfTheWrittenFile)
{
    struct Case { const char* what; std::string materials; std::vector<Entries> table; };
    const Case cases[] = {
        {"equal diffuse maps share one set, whatever their sides",
         Material(0, Map("MAP_DIFFUSE", "C:\\maps\\wood.tga")) +
             Material(1, "*MATERIAL_TWOSIDED\n" + Map("MAP_DIFFUSE", "D:\\other\\wood.tga")),
         {{{0, "wood.tga"}}}},
        {"diffuse and opacity of one file give one entry with flags 1",
         Material(0, Map("MAP_DIFFUSE", "leaf.tga") + Map("MAP_OPACITY", "dir\\leaf.tga")), {{{1, "leaf.tga"}}}},
        {"forward slashes do not separate", Material(0, Map("MAP_DIFFUSE", "textures/stone/wall.jpg")),
         {{{0, "textures/stone/wall.jpg"}}}},
        {"after an opacity map every later map carries bit 0",
         Material(0, Map("MAP_OPACITY", "a.tga") + Map("MAP_DIFFUSE", "b.tga")), {{{1, "a.tga"}, {1, "b.tga"}}}},
        {"additive rewrites the entries before it, later maps take 3",
         Material(0, Map("MAP_DIFFUSE", "a.tga") + "*MATERIAL_XP_TYPE Additive\n" + Map("MAP_DIFFUSE", "b.tga")),
         {{{3, "a.tga"}, {3, "b.tga"}}}},
        {"a map without bitmap adds an empty entry", Material(0, "*MAP_DIFFUSE {\n*MAP_NAME \"x\"\n}\n"), {{{0, ""}}}},
        {"sets without entries match, whatever their sides", Material(0, "*MATERIAL_TWOSIDED\n") + Material(1, ""), {{}}},
        {"entries in another order are another set", Material(0, Map("MAP_DIFFUSE", "a") + Map("MAP_OPACITY", "b")) +
             Material(1, Map("MAP_OPACITY", "b") + Map("MAP_DIFFUSE", "a")),
         {{{0, "a"}, {1, "b"}}, {{1, "b"}, {1, "a"}}}},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(MaterialList(c.materials));
        ASSERT_FALSE(parsed.Failed()) << c.what << ": " << parsed.ErrorText();
        EXPECT_EQ(TextureTable(parsed), c.table) << c.what;
        if (&c != &cases[0])
            continue;
        // The materials that share a set keep their own properties and sides.
        const Scene& read = parsed.scene;
        ASSERT_EQ(read.materialTable.size(), 2u);
        const auto& [first, second] = std::tie(read.materialTable[0].slot, read.materialTable[1].slot);
        EXPECT_EQ(std::tuple(read.textureSets.size(), read.materialProperties.size(), first.propertiesIndex, second.propertiesIndex,
                             second.textureSetIndex), std::tuple(1u, 2u, 0, 1, 0));
        EXPECT_EQ(std::pair(first.twoSided, second.twoSided), std::pair(false, true));
    }
}

TEST(Materials, ColoursTransparencyAndSelfIllumination)
{
    struct Case { std::string body; std::array<float, 4> diffuse, ambient, specular, emissive; };
    const Case cases[] = {
        {"", {1, 1, 1, 1}, {1, 1, 1, 1}, {0, 0, 0, 0}, {0, 0, 0, 0}},
        {"*MATERIAL_TRANSPARENCY 0.25\n", {1, 1, 1, 0.75f}, {1, 1, 1, 0.75f}, {0, 0, 0, 0.75f}, {0, 0, 0, 0.75f}},
        {"*MATERIAL_SELFILLUM 0.5\n*MATERIAL_DIFFUSE 0.2 0.4 0.6\n", {0.2f, 0.4f, 0.6f, 1},
         {1, 1, 1, 1}, {0, 0, 0, 0}, {0.5f * 0.2f, 0.5f * 0.4f, 0.5f * 0.6f, 0}},
        {"*MATERIAL_DIFFUSE 0.2 0.4 0.6\n*MATERIAL_SELFILLUM 0.5\n*MATERIAL_AMBIENT 0.1 0.2 0.3\n"
         "*MATERIAL_SPECULAR 0.9 0.8 0.7\n*MATERIAL_SHINE 0.1\n",
         {0.2f, 0.4f, 0.6f, 1}, {0.1f, 0.2f, 0.3f, 1}, {0.9f, 0.8f, 0.7f, 0}, {0.5f * 0.2f, 0.5f * 0.4f, 0.5f * 0.6f, 0}},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(MaterialList(Material(0, c.body + "*MATERIAL_SHINESTRENGTH 0.3\n")));
        ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
        const MaterialProperties& p = *parsed.scene.materialProperties.at(0);
        EXPECT_EQ(std::tuple(std::to_array(p.diffuse), std::to_array(p.ambient), std::to_array(p.specular), std::to_array(p.emissive)),
                  std::tuple(c.diffuse, c.ambient, c.specular, c.emissive)) << c.body;
        EXPECT_EQ(std::pair(p.size, p.shineStrength), std::pair(80, 0.3f));
    }
}

TEST(Materials, SubMaterialsRegisterBeforeTheirParent)
{
    std::string subs = "*NUMSUBMTLS 3\n";
    for (int m = 0; m < 3; ++m)
        subs += "*SUBMATERIAL " + std::to_string(m) + " {\n*MATERIAL_DIFFUSE " + std::to_string(m) +
                " 0 0\n" + Map("MAP_DIFFUSE", "s" + std::to_string(m)) + "}\n";
    // A sub-material nested in a sub-material is registered under the same top-level material.
    subs += "*SUBMATERIAL 4 {\n*SUBMATERIAL 1 {\n*MATERIAL_DIFFUSE 7 0 0\n}\n}\n";
    const auto parsed = ParseAse(MaterialList(Material(2, "*MATERIAL_DIFFUSE 9 0 0\n" + subs)));
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    const Scene& read = parsed.scene;
    std::vector<float> order;
    for (const auto& p : read.materialProperties)
        order.push_back(p->diffuse[0]);
    EXPECT_EQ(order, (std::vector<float>{0, 1, 2, 7, 1, 9}));  // sub 4 keeps the default diffuse

    // Materials 0 and 1 were never given: their slots name the first set and record.
    ASSERT_EQ(read.materialTable.size(), 3u);
    for (const MaterialTableEntry& gap : {std::cref(read.materialTable[0]), std::cref(read.materialTable[1])})
        EXPECT_EQ(std::tuple(gap.slot.textureSetIndex, gap.slot.propertiesIndex, gap.subMaterials != nullptr), std::tuple(0, 0, false));
    const MaterialTableEntry& entry = read.materialTable[2];
    EXPECT_EQ(entry.slot.propertiesIndex, 5);
    ASSERT_TRUE(entry.subMaterials);
    std::vector<std::pair<int, int>> slots;  // properties and set
    for (const auto& sub : *entry.subMaterials)
        slots.emplace_back(sub.propertiesIndex, sub.textureSetIndex);
    // Slot 1 taken over by the nested one, slot 3 a gap.
    EXPECT_EQ(slots, (std::vector<std::pair<int, int>>{{0, 0}, {3, 3}, {2, 2}, {0, 0}, {4, 3}}));
    EXPECT_EQ(read.textureSets.size(), 4u);  // s0, s1, s2 and the empty one
}

TEST(Materials, WarningsAndErrors)
{
    struct Case { std::string body; int line; const char* kind; std::string text; };
    const Case cases[] = {
        {"*MATERIAL_CLASS \"Shellac\"\n", 6, "warning", "Unknown material class 'Shellac'.\n"},
        {"*MAP_BUMP {\n*BITMAP \"b.tga\"\n}\n", 6, "warning", "Unknown map type '*MAP_BUMP'.\n"},
        {"*MAP_DIFFUSE {\n*MAP_CLASS \"Checker\"\n}\n", 7, "warning", "Unknown map class 'Checker'.\n"},
        {"*MATERIAL_XP_TYPE Glow\n", 6, "warning", "Unknown XP type 'Glow' in material 'mat0'.\n"},
        {"*MATERIAL_DIFFUSE 0.1 x 0.3\n", 6, "error", "Symbol 'x' could not scanned.\n"},
        {"*SUBMATERIAL -1 {\n}\n", 6, "error", "Material number -1 is out of range (0 to 65535).\n"},
        {"*MAP_OPACITY \"x\"\n", 6, "error", "Aspected symbol '{' but found symbol 'x'.\n"},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(MaterialList(Material(0, c.body)));
        EXPECT_EQ(std::string(c.kind) == "error" ? parsed.ErrorText() : parsed.printed, parsed.At(c.line, c.kind) + c.text);
    }
    // The material number itself: not an integer, or beyond our bound. Nothing is registered.
    for (const char* number : {"x", "2000000000"}) {
        const auto parsed = ParseAse(std::string("*MATERIAL_LIST {\n*MATERIAL ") + number + " {\n}\n}\n");
        EXPECT_EQ(parsed.ErrorText().rfind(parsed.At(2, "error"), 0), 0u) << parsed.ErrorText();
        EXPECT_TRUE(parsed.scene.materialTable.empty());
    }
}

// The first equal set wins: a literal scan over the sets found so far, against the reader's table.
TEST(Materials, SharingMatchesTheLiteralScanOnRandomMaterials)
{
    randomscenes::Random random(7);
    for (int round = 0; round < 20; ++round) {
        std::string materials;
        std::vector<Entries> literal;
        std::vector<int> expectedIndex;
        const int count = random.Int(1, 40);
        for (int n = 0; n < count; ++n) {
            std::string body;
            Entries entries;
            uint32_t xp = 0;
            for (int map = random.Int(0, 2); map > 0; --map) {
                const bool opacity = random.Chance(1.0 / 3);
                const std::string file = "t" + std::to_string(random.Int(0, 3));
                body += Map(opacity ? "MAP_OPACITY" : "MAP_DIFFUSE", file);
                xp |= opacity ? 1u : 0u;
                const auto same = std::ranges::find(entries, file, &Entries::value_type::second);
                if (same != entries.end())
                    same->first = xp;
                else
                    entries.emplace_back(xp, file);
            }
            materials += Material(n, body);
            expectedIndex.push_back(static_cast<int>(std::ranges::find(literal, entries) - literal.begin()));
            if (expectedIndex.back() == static_cast<int>(literal.size()))
                literal.push_back(entries);
        }
        const auto parsed = ParseAse(MaterialList(materials));
        ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
        EXPECT_EQ(TextureTable(parsed), literal);
        for (int n = 0; n < count; ++n)
            EXPECT_EQ(parsed.scene.materialTable[static_cast<size_t>(n)].slot.textureSetIndex, expectedIndex[n]);
    }
}

}  // namespace
