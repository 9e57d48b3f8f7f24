// The switches of ours: -compat for what other exporters write, -batch for build pipelines, -uri
// for absolute paths. Without them the classic rules hold (the rest of the suite shows that); the
// corpus under -compat is in ConverterTest.
#include "CommandLine.h"
#include "Scene/BaseNode.h"
#include "support/AseTestParse.h"
#include "support/TestFiles.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <utility>

// Settings are given by designated initializers: the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

using namespace std::string_literals;
const std::string kCorpus = MAKEVERN3D_SHARED_CORPUS;

asetest::Parsed ParseCompat(const std::string& text, bool compat = true) { return asetest::ParseAse(text, {.compat = compat}); }

// A parent that comes after its child is linked at the end of the file; one that never comes is
// the classic error, at the line of the record. Without -compat both are the classic error.
std::string Helper(const std::string& name, const std::string& parent = "")
{
    return "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n" + (parent.empty() ? "" : "*NODE_PARENT \"" + parent + "\"\n") + "}\n";
}

TEST(Compat, LaterParentsAreLinkedWhenTheFileEnds)
{
    const std::string later = Helper("child", "late") + Helper("late", "later") + Helper("later");
    const std::string never = Helper("child", "nobody") + Helper("x");
    struct Case { const std::string* text; bool compat; std::string error; };  // error empty: converted
    const Case cases[] = {
        {&later, true, ""}, {&later, false, "(3) error: Can not found parent object 'late' of object 'child'.\n"},
        {&never, true, "(3) error: Can not found parent object 'nobody' of object 'child'.\n"},
    };
    for (const Case& c : cases) {
        const asetest::Parsed parsed = ParseCompat(*c.text, c.compat);
        EXPECT_EQ(parsed.Failed() ? parsed.ErrorText().substr(parsed.source.size()) : "", c.error);
        if (!c.error.empty())
            continue;
        BaseNode* child = parsed.Root()->FindNode("child");
        ASSERT_TRUE(child && child->Parent());
        EXPECT_EQ(std::pair(child->Parent()->name, child->Parent()->Parent()->name), std::pair("late"s, "later"s));
    }
}

// ---- Real-world exports: a small scene per cause

const std::string kMaterial = "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n";

// A triangle object; `vertex1` is the text of its second vertex, `extra` comes after its mesh
// lists inside *MESH, `object` after *NODE_NAME.
std::string Triangle(const std::string& vertex1 = "1 0 0", const std::string& extra = "", const std::string& object = "")
{
    return "*GEOMOBJECT {\n*NODE_NAME \"Tri\"\n" + object + "*MATERIAL_REF 0\n*MESH {\n*MESH_VERTEX_LIST {\n"
           "*MESH_VERTEX 0 0 0 0\n*MESH_VERTEX 1 " + vertex1 + "\n*MESH_VERTEX 2 0 1 0\n}\n*MESH_FACE_LIST {\n"
           "*MESH_FACE 0: A: 0 B: 1 C: 2 AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING 1 *MESH_MTLID 0\n}\n" + extra + "}\n}\n";
}

// Each converts with -compat into a file that decodes, with its warning; without -compat it
// fails as it always did, and one line on standard error says that -compat converts it.
TEST(Compat, RealWorldCausesConvertWithTheirWarning)
{
    const std::string bone = "*HELPEROBJECT {\n*NODE_NAME \"Bone01\"\n*HELPER_CLASS \"Bone\"\n*NODE_TM {\n*TM_ROW3 1 2 3\n}\n"
                             "*BOUNDINGBOX_MIN -1 -1 -1\n}\n";
    const std::string triangle = Triangle();
    struct Case { std::string text, warning, error; };  // the warning with -compat, the error without
    const Case cases[] = {
        {bone + kMaterial + Triangle("1 0 0", "", "*NODE_PARENT \"Bone01\"\n"),
         "(8) warning: Bone 'Bone01' is read as a transform node.\n", "(3) error: Unknown helper class 'Bone'.\n"},
        {kMaterial + triangle.substr(0, triangle.size() - 4),
         "(17) warning: The file ends inside a block begun on line 5; the blocks still open are closed there.\n",
         "(17) error: Could not read next char.\n"},
        {kMaterial + Triangle("1 0 0", "*MESH_NORMALS {\n*MESH_FACENORMAL 0 -nan(ind) -nan(ind) -nan(ind)\n"
                                       "*MESH_VERTEXNORMAL 0 -nan(ind) -1.#IND 1.#QNAN\n*MESH_VERTEXNORMAL 1 nan inf -1.#INF\n"
                                       "*MESH_VERTEXNORMAL 2 0 0 1\n}\n"),
         "(22) warning: The normal list holds values that are not finite numbers; they are not used.\n",
         "(18) error: Symbol '(' could not scanned.\n"},
        {kMaterial + Triangle("1 0 0", "*MESH_NORMALS {\n*MESH_FACENORMAL 0 0 0 1\n*MESH_FACENORMAL 0 0 0 1\n}\n"),  // said once a list
         "(18) warning: Face normals come without corner normals; the corners take their face's normal.\n",
         "(19) error: Aspected symbol '*MESH_VERTEXNORMAL' but found symbol '*MESH_FACENORMAL'.\n"},
        {"*MATERIAL_LIST {\n*MATERIAL {\n*SUBMATERIAL {\n}\n}\n}\n" + triangle,
         "(2) warning: '*MATERIAL' without a number takes 0, the next in order; so do the later ones of this list.\n",
         "(2) error: Symbol '{' could not scanned.\n"},
    };
    testfiles::ScratchDirectory directory;
    for (const Case& c : cases) {
        directory.Write("scene.ase", c.text);
        const auto compat = testfiles::Run(directory.Path(), MAKEVERN3D_EXE, {"-compat", "-batch", "scene.ase"});
        EXPECT_EQ(compat.exitCode, 0) << compat.output;
        EXPECT_NE(compat.output.find("scene.ase" + c.warning + "File successful compiled.\n"), std::string::npos) << compat.output;
        vern3d::Scene scene;
        std::string error;
        EXPECT_TRUE(vern3d::DecodeFile(directory.File("scene.vern3D"), &scene, &error)) << error;
        if (&c == &cases[0]) {  // the bone: a transform node with its transform, the parent of the triangle
            ASSERT_EQ(scene.nodes.size(), 3u);
            const auto& [bone, tri] = std::tie(scene.nodes[1], scene.nodes[2]);
            EXPECT_EQ(std::tuple(bone.name, bone.hasMesh, tri.name, tri.parent), std::tuple("Bone01", false, "Tri", 1u));
            const auto& m = bone.info.matrix;
            EXPECT_EQ((std::array<float, 3>{m(3, 0), m(3, 1), m(3, 2)}), (std::array<float, 3>{1, 2, 3}));
        }
        std::filesystem::remove(directory.File("scene.vern3D"));
        const auto plain = testfiles::Run(directory.Path(), MAKEVERN3D_EXE, {"-batch", "scene.ase"});
        EXPECT_EQ(plain.exitCode, 2) << plain.output;
        EXPECT_NE(plain.output.find("scene.ase" + c.error + "Note: 'scene.ase' converts with -compat, which reads what failed here.\n"),
                  std::string::npos) << plain.output;
        EXPECT_FALSE(testfiles::Exists(directory.File("scene.vern3D")));
    }
}

// Where a value that is not a finite number would be written, -compat refuses the file with
// file and line; such a file gets no note without -compat either. A texture vertex's w is never
// written: it is only said.
TEST(Compat, NonFiniteValuesThatWouldBeWrittenAreErrors)
{
    const std::string key = "*TM_ANIMATION {\n*CONTROL_POS_BEZIER {\n*CONTROL_BEZIER_POS_KEY 0 0 1.#INF 0 0 0 0 0 0 0 0\n}\n}\n";
    const std::string sample = "*TM_ANIMATION {\n*CONTROL_POS_TRACK {\n*CONTROL_POS_SAMPLE 0 0 0 -nan(ind)\n}\n}\n";
    struct Case { std::string text, report; };  // the error, or the warning of a file that converts
    const Case cases[] = {
        {Triangle("1.#QNAN 0 0"), "(11) error: Value '1.#QNAN' of a vertex position is not a finite number; it cannot be converted.\n"},
        {Triangle("1 0 -nan(ind)"), "(11) error: Value '-nan(ind)' of a vertex position is not a finite number; it cannot be converted.\n"},
        {Triangle("1 0 0", "*MESH_TVERTLIST {\n*MESH_TVERT 0 0 -1.#IND 0\n}\n"),
         "(18) error: Value '-1.#IND' of a texture coordinate is not a finite number; it cannot be converted.\n"},
        {Triangle("1 0 0", "", "*NODE_TM {\n*TM_ROW0 inf 0 0\n}\n"),
         "(8) error: Value 'inf' of a transform row is not a finite number; it cannot be converted.\n"},
        {Triangle("1 0 0", "", key), "(9) error: Value '1.#INF' of a key is not a finite number; it cannot be converted.\n"},
        {Triangle("1 0 0", "", sample), "(9) error: Value '-nan(ind)' of a key is not a finite number; it cannot be converted.\n"},
        {Triangle("1 0 0", "*MESH_TVERTLIST {\n*MESH_TVERT 0 0 0 1.#QNAN\n}\n"),
         "(19) warning: The texture vertex list holds values that are not finite numbers; they are not used.\n"},
    };
    for (const Case& c : cases) {
        const asetest::Parsed parsed = ParseCompat(kMaterial + c.text);
        EXPECT_EQ((parsed.Failed() ? parsed.ErrorText() : parsed.printed).substr(parsed.source.size()), c.report);
    }
}

// Materials and sub-materials without a number take the one after the material before them.
TEST(Compat, MaterialsWithoutNumbersTakeTheNextInOrder)
{
    const asetest::Parsed parsed = ParseCompat("*MATERIAL_LIST {\n*MATERIAL 2 {\n*SUBMATERIAL 1 {\n}\n*SUBMATERIAL {\n}\n}\n*MATERIAL 0 {\n}\n*MATERIAL {\n}\n}\n");
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    // Registered in this order: sub-materials 1 and 2 of material 2, materials 2, 0 and 1.
    const auto& table = parsed.scene.materialTable;
    ASSERT_EQ(table.size(), 3u);
    ASSERT_TRUE(table[2].subMaterials && table[2].subMaterials->size() == 3u);
    EXPECT_EQ(std::tuple(table[1].slot.propertiesIndex, table[2].slot.propertiesIndex, (*table[2].subMaterials)[2].propertiesIndex),
              std::tuple(4, 2, 1));
    EXPECT_EQ(parsed.printed, parsed.At(5) + "'*SUBMATERIAL' without a number takes 2, the next in order; so do the later ones of this list.\n");
}

// A warning that comes once per object is printed three times, then once as a count at the
// first one not printed; counts and numbers of keys take the singular where they are 1.
TEST(Compat, RepeatedWarningsBecomeACount)
{
    for (const int count : {3, 4, 6}) {
        std::string objects;
        for (int i = 0; i < count; ++i)
            objects += "*GEOMOBJECT {\n*NODE_NAME \"o" + std::to_string(i) + "\"\n}\n";
        const asetest::Parsed parsed = ParseCompat(objects);
        std::string expected;
        for (int i = 0; i < 3; ++i)
            expected += parsed.At(3 + 3 * i) + "Object 'o" + std::to_string(i) + "' has no material; it gets a default material.\n";
        if (count > 3)
            expected += parsed.At(12) + (count == 4 ? "... and 1 more object" : "... and 3 more objects") + " without a material.\n";
        EXPECT_EQ(parsed.printed, expected);
    }
    // Faces without edge flags are said once a list, however many of its faces lack them.
    std::string flagless;
    for (int i = 0; i < 4; ++i)
        flagless += "*GEOMOBJECT {\n*NODE_NAME \"f" + std::to_string(i) + "\"\n*MESH {\n*MESH_NUMVERTEX 3\n*MESH_NUMFACES 2\n"
                    "*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 0 0 0\n*MESH_VERTEX 1 1 0 0\n*MESH_VERTEX 2 0 1 0\n}\n"
                    "*MESH_FACE_LIST {\n*MESH_FACE 0: A: 0 B: 1 C: 2 *MESH_SMOOTHING 1 *MESH_MTLID 0\n"
                    "*MESH_FACE 1: A: 0 B: 2 C: 1 *MESH_SMOOTHING 1 *MESH_MTLID 0\n}\n}\n*MATERIAL_REF 0\n}\n";
    const asetest::Parsed flags = ParseCompat(flagless);
    std::string said;
    for (int i = 0; i < 3; ++i)
        said += flags.At(12 + 17 * i) + "Faces come without edge flags; they are taken as 0.\n";
    EXPECT_EQ(flags.printed, said + flags.At(63) + "... and 1 more face list without edge flags.\n");
    const asetest::Parsed sampled = ParseCompat(asetest::kScene + "*HELPEROBJECT {\n*NODE_NAME \"h\"\n*TM_ANIMATION {\n"
                                                                  "*CONTROL_POS_TRACK {\n*CONTROL_POS_SAMPLE 0 1 2 3\n}\n}\n}\n");
    EXPECT_EQ(sampled.printed, sampled.At(10) + "Sampled track '*CONTROL_POS_TRACK' of 'h' becomes 1 key.\n");
    // Links to later parents are said when the file has ended, each at the line of its record.
    std::string later;
    for (int i = 0; i < 4; ++i)
        later += Helper("c" + std::to_string(i), "p");
    const asetest::Parsed linked = ParseCompat(later + Helper("p"));
    std::string expected;
    for (int i = 0; i < 3; ++i)
        expected += linked.At(3 + 4 * i) + "Parent 'p' of object 'c" + std::to_string(i) +
                    "' comes later in the file; the object is linked to it at the end.\n";
    EXPECT_EQ(linked.printed, expected + linked.At(15) + "... and 1 more object linked to a later parent.\n");
}

// ---- Sampled tracks: the keys made from them give the samples back at the sample times

struct Samples {
    std::vector<std::pair<uint32_t, std::array<double, 4>>> positions, rotations;  // rotations: axis, angle
    int blocks = 0;
};

// Samples per animated name, read from the text by lines, with times in milliseconds.
std::map<std::string, Samples> ReadSamples(const std::string& text)
{
    std::map<std::string, Samples> samples;
    std::istringstream lines(text);
    std::string name;
    bool nameFollows = false;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string keyword;
        uint32_t ticks = 0;
        words >> keyword;
        const uint32_t time = keyword.ends_with("_SAMPLE") && words >> ticks ? ticks * 1000u / (160u * 30u) : 0;
        if (keyword == "*TM_ANIMATION") {
            nameFollows = true;
        } else if (keyword == "*NODE_NAME" && std::exchange(nameFollows, false)) {
            name = line.substr(line.find('"') + 1, line.rfind('"') - line.find('"') - 1);
            ++samples[name].blocks;
        } else if (keyword == "*CONTROL_POS_SAMPLE" || keyword == "*CONTROL_ROT_SAMPLE") {
            std::array<double, 4> v{};
            words >> v[0] >> v[1] >> v[2] >> v[3];  // a position's fourth stays 0
            (keyword.starts_with("*CONTROL_POS") ? samples[name].positions : samples[name].rotations).push_back({time, v});
        }
    }
    return samples;
}

using Basis = std::array<std::array<double, 3>, 3>;

// The rows of the orientation that turns by `angle` about `axis` (Rodrigues' formula). The
// files' *TM_ROTAXIS and *TM_ROTANGLE give their *TM_ROW0..2 this way.
Basis Turn(const std::array<double, 4>& r)
{
    const double length = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]);
    const double u[3] = {r[0] / length, r[1] / length, r[2] / length};
    const double c = std::cos(r[3]), s = std::sin(r[3]);
    const double k[3][3] = {{0, -u[2], u[1]}, {u[2], 0, -u[0]}, {-u[1], u[0], 0}};
    Basis m{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i][j] = (i == j ? c : 0.0) + s * k[i][j] + (1 - c) * u[i] * u[j];
    return m;
}

TEST(Compat, SampledTracksGiveTheirSamplesBack)
{
    for (const char* file : {"RotatingCube.ASE", "anim.ASE", "anim2.ASE", "MotionCaptureROM.ase", "CameraRollAnim.ase",
                             "CameraRollAnimWithChildObject.ase", "TargetCameraAnim.ase"}) {
        const std::string text = testfiles::ReadText(kCorpus + "/" + file);
        const asetest::Parsed parsed = ParseCompat(text);
        ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
        size_t checked = 0;
        for (const auto& [name, samples] : ReadSamples(text)) {
            auto* node = dynamic_cast<TransformNode*>(parsed.Root()->FindNode(name));
            if (samples.blocks != 1 || !node)
                continue;  // a camera's target, which is not kept, or a name used twice
            TransformTrack& track = node->track;
            if (samples.positions.size() >= 2) {
                for (const auto& [time, p] : samples.positions) {
                    track.Evaluate(time);
                    for (int i = 0; i < 3; ++i)
                        EXPECT_NEAR(track.matrix(3, i), p[i], 1e-4) << file << " " << name << " at " << time;
                }
                checked += samples.positions.size();
            }
            if (samples.rotations.size() < 2)
                continue;
            // The first sample is the node's orientation at time 0 (as its transform, to the
            // file's four decimals); each later one turns from the one before, about an axis of
            // the parent's space, so it applies after the orientation so far.
            Basis orientation{};
            const Basis first = Turn(samples.rotations[0].second);
            for (int i = 0; i < 3; ++i) {
                const auto& m = track.rotationKeys[0].matrix;
                const double length = std::sqrt(m(i, 0) * m(i, 0) + m(i, 1) * m(i, 1) + m(i, 2) * m(i, 2));
                for (int j = 0; j < 3; ++j) {
                    orientation[i][j] = m(i, j);
                    EXPECT_NEAR(m(i, j) / length, first[i][j], 2e-3) << file << " " << name;
                }
            }
            for (size_t k = 0; k < samples.rotations.size(); ++k) {
                const auto& [time, r] = samples.rotations[k];
                const Basis turn = Turn(r), before = orientation;
                for (int i = 0; i < 3 && k > 0; ++i)
                    for (int j = 0; j < 3; ++j)
                        orientation[i][j] = before[i][0] * turn[0][j] + before[i][1] * turn[1][j] + before[i][2] * turn[2][j];
                track.Evaluate(time);
                for (int i = 0; i < 3; ++i)
                    for (int j = 0; j < 3; ++j)
                        EXPECT_NEAR(track.matrix(i, j), orientation[i][j], 1e-4) << file << " " << name << " at " << time;
            }
            checked += samples.rotations.size();
        }
        EXPECT_GT(checked, 40u) << file;
    }
}

// ---- -uri

// Under -uri a "file:" name is a path (the corpus test converts from absolute ones this way).
TEST(Uri, FileNamesGiveAbsolutePaths)
{
    const char* const cases[][2] = {
        {"file:/a/b.ase", "/a/b.ase"}, {"file:///a/b c.ase", "/a/b c.ase"}, {"file:b.ase", "b.ase"}, {"b.ase", "b.ase"}};
    for (const auto& [name, path] : cases)
        EXPECT_EQ(PathFromName(name, true), path) << name;
    EXPECT_EQ(PathFromName("file:/a/b.ase", false), "file:/a/b.ase");
}

}  // namespace
