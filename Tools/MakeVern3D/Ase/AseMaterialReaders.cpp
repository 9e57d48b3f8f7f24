// Materials and their maps. Every material and sub-material gives one property record and one
// texture set; equal texture sets are stored once and shared. A material number indexes the
// material table, a sub-material number the slots of its top-level material.
#include "Ase/AseParser.h"
#include "FilePath.h"
#include "resources/Messages.h"

#include <cstring>

namespace {

// The identity of a texture set for sharing: its entries in order (flags and file name), not
// its two-sided flag.
std::string TextureSetKey(const TextureSet& set)
{
    std::string key;
    for (const TextureEntry& entry : set.entries) {
        const uint32_t flags = static_cast<uint32_t>(entry.flags);
        const uint64_t length = entry.fileName.size();
        key.append(reinterpret_cast<const char*>(&flags), sizeof flags);
        key.append(reinterpret_cast<const char*>(&length), sizeof length);
        key.append(entry.fileName);
    }
    return key;
}

MaterialSlot& SlotOf(MaterialTableEntry& entry, int32_t subNumber)
{
    if (subNumber < 0)
        return entry.slot;
    if (!entry.subMaterials)
        entry.subMaterials = std::make_unique<std::vector<MaterialSlot>>();
    if (entry.subMaterials->size() <= static_cast<size_t>(subNumber))
        entry.subMaterials->resize(static_cast<size_t>(subNumber) + 1);
    return (*entry.subMaterials)[static_cast<size_t>(subNumber)];
}

}  // namespace

bool AseParser::ReadMaterialNumber(std::string& symbol, int32_t* number, int32_t inOrder)
{
    // -compat: a writer that numbers materials by their order may leave the numbers out.
    if (compat && NextSymbolStartsWith(BlockBegin())) {
        *number = inOrder;
        if (!unnumberedMaterialSaid)
            Warning(kMessageMaterialWithoutNumber, symbol, inOrder);
        unnumberedMaterialSaid = true;
    } else if (!ReadInt(symbol, number)) {
        return false;
    }
    if (*number >= 0 && *number <= kMaxMaterialNumber)
        return true;
    Error(kMessageMaterialNumberRange, *number, kMaxMaterialNumber);
    return false;
}

void AseParser::ReadMaterialList(std::string& symbol)
{
    // A material without its number (under -compat) takes the one after the material before it.
    int32_t nextNumber = 0;
    unnumberedMaterialSaid = false;
    // The colours and amounts of a material are read and kept, but never written.
    ReadListNotingUnused("material list", [&] {
        ReadBlock(symbol, [&](std::string& keyword) {
            if (keyword == "*MATERIAL_COUNT") {
                SkipValues(keyword, 1);
                return Keyword::Handled;
            }
            if (keyword != "*MATERIAL")
                return Keyword::NotMine;
            auto set = std::make_unique<TextureSet>();
            auto properties = std::make_unique<MaterialProperties>();
            int32_t number = 0;
            if (!ReadMaterialNumber(keyword, &number, nextNumber))
                return Keyword::ReturnNow;
            nextNumber = number + 1;
            ReadMaterial(keyword, *set, *properties, number);
            RegisterProperties(std::move(properties), number, -1);
            RegisterTextureSet(std::move(set), number, -1);
            return Keyword::Handled;
        });
    });
}

void AseParser::ReadMaterial(std::string& symbol, TextureSet& textureSet, MaterialProperties& properties,
                             int32_t materialNumber)
{
    std::string name;
    float selfIllumination = 0.0f;
    int32_t xpType = 0;
    int32_t nextSubNumber = 0;

    auto readColour = [&](std::string& keyword, float* rgba) {
        for (int component = 0; component < 3; ++component)
            if (!ReadFloat(keyword, &rgba[component], ValueUse::NotWritten))
                return Keyword::ReturnNow;
        return Keyword::Handled;
    };
    auto skip = [&](std::string& keyword, int count) {
        SkipValues(keyword, count);
        return Keyword::Handled;
    };

    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword == "*MATERIAL_NAME") {
            NextSymbol(keyword);
            name = keyword;
            return Keyword::Handled;
        }
        if (keyword == "*MATERIAL_CLASS") {
            NextSymbol(keyword);
            if (keyword != "Multi-/Unterobjekt" && keyword != "Standard")
                Warning(kMessageUnknownMaterialClass, keyword);
            return Keyword::Handled;
        }
        if (keyword == "*MATERIAL_AMBIENT")
            return readColour(keyword, properties.ambient);
        if (keyword == "*MATERIAL_DIFFUSE")
            return readColour(keyword, properties.diffuse);
        if (keyword == "*MATERIAL_SPECULAR")
            return readColour(keyword, properties.specular);
        if (keyword == "*MATERIAL_SHINE") {
            float dropped = 0.0f;
            return ReadFloat(keyword, &dropped, ValueUse::NotWritten) ? Keyword::Handled : Keyword::ReturnNow;
        }
        if (keyword == "*MATERIAL_SHINESTRENGTH")
            return ReadFloat(keyword, &properties.shineStrength, ValueUse::NotWritten) ? Keyword::Handled
                                                                                       : Keyword::ReturnNow;
        if (keyword == "*MATERIAL_TRANSPARENCY") {
            float transparency = 0.0f;
            if (!ReadFloat(keyword, &transparency, ValueUse::NotWritten))
                return Keyword::ReturnNow;
            const float alpha = 1.0f - transparency;
            properties.diffuse[3] = properties.ambient[3] = properties.specular[3] = properties.emissive[3] = alpha;
            return Keyword::Handled;
        }
        if (keyword == "*MATERIAL_WIRESIZE" || keyword == "*NUMSUBMTLS")
            return skip(keyword, 1);
        if (keyword == "*SUBMATERIAL") {
            auto subSet = std::make_unique<TextureSet>();
            auto subProperties = std::make_unique<MaterialProperties>();
            int32_t subNumber = 0;
            if (!ReadMaterialNumber(keyword, &subNumber, nextSubNumber))
                return Keyword::ReturnNow;
            nextSubNumber = subNumber + 1;
            // Nested sub-materials are registered under the same top-level material.
            ReadMaterial(keyword, *subSet, *subProperties, materialNumber);
            RegisterProperties(std::move(subProperties), materialNumber, subNumber);
            RegisterTextureSet(std::move(subSet), materialNumber, subNumber);
            return Keyword::Handled;
        }
        if (keyword == "*MATERIAL_SHADING" || keyword == "*MATERIAL_XP_FALLOFF")
            return skip(keyword, 1);
        if (keyword == "*MATERIAL_XP_TYPE") {
            NextSymbol(keyword);
            if (keyword == "Additive") {
                xpType = 3;
                for (TextureEntry& entry : textureSet.entries)
                    entry.flags = 3;
            } else if (keyword != "Filter") {
                Warning(kMessageUnknownXpType, keyword, name);
            }
            return Keyword::Handled;
        }
        if (keyword == "*MATERIAL_SELFILLUM")
            return ReadFloat(keyword, &selfIllumination, ValueUse::NotWritten) ? Keyword::Handled : Keyword::ReturnNow;
        if (keyword == "*MATERIAL_FALLOFF")
            return skip(keyword, 1);
        if (keyword == "*MATERIAL_SOFTEN")
            return Keyword::Handled;
        if (keyword.compare(0, 5, "*MAP_") == 0) {
            ReadMap(keyword, textureSet, xpType);
            return Keyword::Handled;
        }
        if (keyword == "*MATERIAL_TWOSIDED") {
            textureSet.twoSided = true;
            return Keyword::Handled;
        }
        return Keyword::NotMine;
    });
    if (result == Block::ReturnedEarly)
        return;
    // Self-illumination scales the diffuse colour as it stands when the block ends.
    for (int component = 0; component < 3; ++component)
        properties.emissive[component] = selfIllumination * properties.diffuse[component];
}

void AseParser::ReadMap(std::string& symbol, TextureSet& textureSet, int32_t& xpType)
{
    const bool opacity = symbol == "*MAP_OPACITY";
    if (!opacity && symbol != "*MAP_DIFFUSE") {
        // The caller's loop meets the map's "{" next and skips the whole block.
        Warning(kMessageUnknownMapType, symbol);
        return;
    }
    static constexpr const char* kSkippedOnce[] = {
        "*MAP_SUBNO",     "*MAP_AMOUNT",      "*MAP_TYPE",        "*UVW_U_OFFSET",    "*UVW_V_OFFSET",
        "*UVW_U_TILING",  "*UVW_V_TILING",    "*UVW_ANGLE",       "*UVW_BLUR",        "*UVW_BLUR_OFFSET",
        "*UVW_NOUSE_AMT", "*UVW_NOISE_SIZE",  "*UVW_NOISE_LEVEL", "*UVW_NOISE_PHASE", "*BITMAP_FILTER",
    };
    TextureEntry entry;
    bool sameFile = false;
    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword == "*MAP_NAME") {
            NextSymbol(keyword);
            return Keyword::Handled;
        }
        if (keyword == "*MAP_CLASS") {
            NextSymbol(keyword);
            if (keyword != "Bitmap")
                Warning(kMessageUnknownMapClass, keyword);
            return Keyword::Handled;
        }
        if (keyword == "*BITMAP") {
            NextSymbol(keyword);
            FilePath path(keyword);
            entry.fileName = path.GetFileName();
            if (opacity)
                xpType |= 1;
            entry.flags = xpType;
            // A file already in the set is not added again; its entries take the new flags.
            for (TextureEntry& earlier : textureSet.entries) {
                if (earlier.fileName == entry.fileName) {
                    earlier.flags = xpType;
                    sameFile = true;
                }
            }
            return Keyword::Handled;
        }
        for (const char* skipped : kSkippedOnce) {
            if (keyword == skipped) {
                SkipValues(keyword, 1);
                return Keyword::Handled;
            }
        }
        return Keyword::NotMine;
    });
    if (result == Block::Ended && !sameFile)
        textureSet.entries.push_back(std::move(entry));
}

void AseParser::RegisterProperties(std::unique_ptr<MaterialProperties> properties, int32_t materialNumber,
                                   int32_t subNumber)
{
    scene.materialProperties.push_back(std::move(properties));
    const auto index = static_cast<int32_t>(scene.materialProperties.size() - 1);
    if (scene.materialTable.size() <= static_cast<size_t>(materialNumber))
        scene.materialTable.resize(static_cast<size_t>(materialNumber) + 1);
    SlotOf(scene.materialTable[static_cast<size_t>(materialNumber)], subNumber).propertiesIndex = index;
}

void AseParser::RegisterTextureSet(std::unique_ptr<TextureSet> textureSet, int32_t materialNumber, int32_t subNumber)
{
    // The first equal set wins; a hash of the entries finds it without comparing every set.
    const bool twoSided = textureSet->twoSided;
    const auto [found, inserted] =
        textureSetIndex.try_emplace(TextureSetKey(*textureSet), static_cast<int32_t>(scene.textureSets.size()));
    const int32_t index = found->second;
    if (inserted)
        scene.textureSets.push_back(std::move(textureSet));
    if (scene.materialTable.size() <= static_cast<size_t>(materialNumber))
        scene.materialTable.resize(static_cast<size_t>(materialNumber) + 1);
    MaterialSlot& slot = SlotOf(scene.materialTable[static_cast<size_t>(materialNumber)], subNumber);
    slot.textureSetIndex = index;
    slot.twoSided = twoSided;
}
