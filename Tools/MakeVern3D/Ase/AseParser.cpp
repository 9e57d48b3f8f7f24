#include "AseParser.h"

#include "Messages.h"
#include "NumberScan.h"

#include <algorithm>
#include <cmath>
#include <iterator>

AseParser::AseParser() = default;
AseParser::~AseParser() = default;

HRESULT AseParser::ParseFile(const std::string& sourceName, const std::string& outputName)
{
    frameSpeed = -1;
    ticksPerFrame = -1;
    textureSets.clear();
    materialProperties.clear();
    materialTable.clear();
    textureSetIndex.clear();
    createdListEntries = 0;
    nodeIndex.Clear();
    laterParents.clear();
    root.reset();
    root = std::make_unique<BaseNode>("root node - " + sourceName);
    nodeIndex.Add(root.get());
    blockDepth = 0;
    zeroTimeBaseWarned = false;
    writeFailed = false;
    unnumberedMaterialSaid = false;
    nonFiniteUnused = false;
    repeats.clear();
    closeBlocksAtEnd = settings.compat;
    joinNanPayloads = settings.compat;
    return BaseParser::ParseFile(sourceName, outputName);
}

void AseParser::HandleSymbol(std::string& symbol)
{
    if (symbol == "*3DSMAX_ASCIIEXPORT")
        ReadVersion(symbol);
    else if (symbol == "*COMMENT")
        NextSymbol(symbol);
    else if (symbol == "*MATERIAL_LIST")
        ReadMaterialList(symbol);
    else if (symbol == "*SCENE")
        ReadScene(symbol);
    else if (symbol == "*GEOMOBJECT")
        ReadGeomObject(symbol);
    else if (symbol == "*HELPEROBJECT")
        ReadHelperObject(symbol);
    else if (symbol == "*GROUP" && settings.compat)
        ReadGroupAsNode(symbol);
    else if (symbol == "*GROUP")
        ReadGroup(symbol);
    else if (symbol == "*CAMERAOBJECT" && settings.compat)
        ReadCameraOrLight(symbol, "Camera");
    else if (symbol == "*LIGHTOBJECT" && settings.compat)
        ReadCameraOrLight(symbol, "Light");
    else
        BaseParser::HandleSymbol(symbol);
}

bool AseParser::EnterBlock()
{
    if (blockDepth >= kMaxBlockDepth) {
        Error(kMessageNestingTooDeep, kMaxBlockDepth);
        return false;
    }
    ++blockDepth;
    BlockOpened();
    return true;
}

bool AseParser::ReadInt(std::string&, int32_t* value)
{
    // Values are scanned where they stand in the text; only a failure copies the symbol.
    std::string_view text;
    if (!NextSymbolView(text))
        text = LastSymbol();
    if (ScanInt(text, value))
        return true;
    Error(kMessageCouldNotScan, std::string(text).c_str());
    return false;
}

namespace {

const char* UseName(AseParser::ValueUse use)
{
    switch (use) {
    case AseParser::ValueUse::Position: return "vertex position";
    case AseParser::ValueUse::TextureCoordinate: return "texture coordinate";
    case AseParser::ValueUse::Transform: return "transform row";
    case AseParser::ValueUse::Key: return "key";
    case AseParser::ValueUse::NotWritten: break;
    }
    return "value";
}

}  // namespace

bool AseParser::ReadFloat(std::string&, float* value, ValueUse use)
{
    std::string_view text;
    if (!NextSymbolView(text))
        text = LastSymbol();
    if (!settings.compat) {
        if (ScanFloat(text, value))
            return true;
    } else if (ScanFloatOrWindowsSpecial(text, value)) {
        if (std::isfinite(*value))
            return true;
        if (use == ValueUse::NotWritten) {
            nonFiniteUnused = true;
            return true;
        }
        Error(kMessageNonFiniteValue, std::string(text).c_str(), UseName(use));
        return false;
    }
    Error(kMessageCouldNotScan, std::string(text).c_str());
    return false;
}

bool AseParser::ScanKeyValue(std::string_view text, float* value)
{
    if (!settings.compat) {
        ScanFloat(text, value);
        return true;
    }
    if (!ScanFloatOrWindowsSpecial(text, value) || std::isfinite(*value))
        return true;
    Error(kMessageNonFiniteValue, std::string(text).c_str(), UseName(ValueUse::Key));
    return false;
}

bool AseParser::ShowRepeated(MessageId id)
{
    auto entry = std::find_if(repeats.begin(), repeats.end(), [id](const Repeats& r) { return r.id == id; });
    if (entry == repeats.end())
        entry = repeats.insert(repeats.end(), Repeats{id});
    if (++entry->count == kShownRepeats + 1)
        entry->firstHiddenLine = line;
    return entry->count <= kShownRepeats;
}

void AseParser::ReportRepeats()
{
    // What the count line says of the warnings it stands for, in the singular and the plural.
    struct Words {
        MessageId id;
        const char* one;
        const char* many;
    };
    static constexpr Words kWords[] = {
        {kMessageDefaultMaterial, "object without a material", "objects without a material"},
        {kMessageFaceNormalsOnly, "normal list without corner normals", "normal lists without corner normals"},
        {kMessageNodeFromObject, "camera, light or bone read as a transform node",
         "cameras, lights and bones read as transform nodes"},
        {kMessageNodeFromGroup, "group read as a transform node", "groups read as transform nodes"},
        {kMessageTargetDropped, "target not kept", "targets not kept"},
        {kMessageParentLater, "object linked to a later parent", "objects linked to a later parent"},
        {kMessageSampledTrack, "sampled track made into keys", "sampled tracks made into keys"},
        {kMessageScaleNotKept, "object whose scale changes over time", "objects whose scale changes over time"},
        {kMessageNoEdgeFlags, "face list without edge flags", "face lists without edge flags"},
        {kMessageNonFiniteUnused, "list with unused values that are not finite numbers",
         "lists with unused values that are not finite numbers"},
        {kMessageWeldToleranceShrunk, "mesh welded within a smaller tolerance", "meshes welded within a smaller tolerance"},
    };
    const int32_t endLine = line;
    for (const Repeats& entry : repeats) {
        if (entry.count <= kShownRepeats)
            continue;
        const uint32_t hidden = entry.count - kShownRepeats;
        const auto words =
            std::find_if(std::begin(kWords), std::end(kWords), [&](const Words& w) { return w.id == entry.id; });
        if (words == std::end(kWords))
            continue;
        // Said at the first warning that was not printed.
        line = entry.firstHiddenLine;
        Warning(kMessageMoreOfTheSame, hidden, hidden == 1 ? words->one : words->many);
    }
    line = endLine;
    repeats.clear();
}

void AseParser::BlocksClosedAtEnd(int32_t outermostLine)
{
    Warning(kMessageBlocksClosedAtEnd, outermostLine);
}

void AseParser::SkipValues(std::string&, int count)
{
    std::string_view skipped;
    for (int i = 0; i < count; ++i)
        NextSymbolView(skipped);
}

int32_t AseParser::TicksToMilliseconds(int32_t ticks)
{
    if (settings.compat && (frameSpeed == -1 || ticksPerFrame == -1))
        TakeDefaultTiming();
    const uint32_t base = static_cast<uint32_t>(ticksPerFrame) * static_cast<uint32_t>(frameSpeed);
    if (base == 0) {
        // No time base: every key falls on time 0. Said once per file.
        if (!zeroTimeBaseWarned) {
            zeroTimeBaseWarned = true;
            Warning(kMessageZeroTimeBase);
        }
        return 0;
    }
    return static_cast<int32_t>(static_cast<uint32_t>(ticks) * 1000u / base);
}

void AseParser::LinkNode(BaseNode* parent, std::unique_ptr<BaseNode> node)
{
    BaseNode* raw = node.get();
    parent->AddChild(std::move(node));
    nodeIndex.Add(raw);
}

void AseParser::RenameNode(BaseNode& node, const std::string& name)
{
    if (node.Parent())
        nodeIndex.Rename(&node, name);
    node.name = name;
    node.nameCut = LastSymbolCut();  // the name was just read
}

void AseParser::ReadVersion(std::string& symbol)
{
    int32_t version = 0;
    // A keyword where the number should stand: the line holds no version (a Maya exporter).
    if (settings.compat && NextSymbolStartsWith("*")) {
        Warning(kMessageVersionMissing);
        return;
    }
    if (!ReadInt(symbol, &version))
        return;
    if (version < 200)
        Warning(kMessageOldVersion);
}

void AseParser::ReadScene(std::string& symbol)
{
    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword == "*SCENE_FILENAME" || keyword == "*SCENE_FIRSTFRAME" || keyword == "*SCENE_LASTFRAME") {
            SkipValues(keyword, 1);
        } else if (keyword == "*SCENE_FRAMESPEED") {
            if (!ReadInt(keyword, &frameSpeed))
                return Keyword::ReturnNow;
        } else if (keyword == "*SCENE_TICKSPERFRAME") {
            if (!ReadInt(keyword, &ticksPerFrame))
                return Keyword::ReturnNow;
        } else if (keyword == "*SCENE_BACKGROUND_STATIC" || keyword == "*SCENE_AMBIENT_STATIC") {
            SkipValues(keyword, 3);
        } else {
            return Keyword::NotMine;
        }
        return Keyword::Handled;
    });
    if (result != Block::Ended)
        return;
    if (settings.compat)
        TakeDefaultTiming();
    if (frameSpeed == -1)
        Error(kMessageMissingSymbol, "SCENE_FRAMESPEED");
    if (ticksPerFrame == -1)
        Error(kMessageMissingSymbol, "SCENE_TICKSPERFRAME");
}

void AseParser::ReadGroup(std::string& symbol)
{
    NextSymbol(symbol);  // the group's name
    ReadGroupContents(symbol, nullptr);
}

void AseParser::ReadGroupContents(std::string& symbol, TransformNode* groupNode)
{
    NextSymbol(symbol);  // its "{", taken on trust
    if (!EnterBlock())
        return;
    bool more = NextSymbol(symbol);
    while (more && !errorFlag) {
        if (symbol == BlockBegin())
            SkipBlock(symbol);
        else if (symbol == BlockEnd())
            break;
        else if (groupNode && symbol == "*NODE_TM")
            ReadNodeTM(symbol, *groupNode);
        else
            HandleSymbol(symbol);
        more = NextSymbol(symbol);
    }
    LeaveBlock();
}
