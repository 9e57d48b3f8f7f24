#include "Ase/AseParser.h"

#include "Parser/NumberScan.h"

#include <algorithm>
#include <cmath>

AseParser::AseParser(Reporter& reporter, bool compat, uint32_t threads, size_t listPartBytes)
    : BaseParser(reporter), compat(compat), listThreads(std::max(threads, 1u)), listPartBytes(listPartBytes)
{
    closeBlocksAtEnd = compat;
    joinNanPayloads = compat;
}

AseParser::~AseParser() = default;

HRESULT AseParser::Read(const std::string& sourceName, Scene& read)
{
    scene = Scene{};
    scene.root = std::make_unique<BaseNode>("root node - " + sourceName);
    nodeIndex.Clear();
    nodeIndex.Add(scene.root.get());
    textureSetIndex.clear();
    laterParents.clear();
    frameSpeed = -1;
    ticksPerFrame = -1;
    blockDepth = 0;
    zeroTimeBaseWarned = false;
    unnumberedMaterialSaid = false;
    nonFiniteUnused = false;
    ParseFile(sourceName);
    read = std::move(scene);
    return loadStatus;
}

HRESULT AseParser::Load(const std::string& sourceName)
{
    const HRESULT status = BaseParser::Load(sourceName);
    loadStatus = status;
    scene.lists.bound = static_cast<uint64_t>(textSize) + ListBudget::kSlack;
    return status;
}

void AseParser::Finish()
{
    if (compat && !HasError()) {
        LinkLaterParents();
        GiveDefaultMaterials();
    }
    if (compat)
        reporter.SayRepeats(kMessageMoreOfTheSame, RepeatWords);
    scene.endLine = line;
    // The text is not needed once it has been read; the render meshes need the room.
    BaseParser::Finish();
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
    else if (symbol == "*GROUP" && compat)
        ReadGroupAsNode(symbol);
    else if (symbol == "*GROUP")
        ReadGroup(symbol);
    else if (symbol == "*CAMERAOBJECT" && compat)
        ReadCameraOrLight(symbol, "Camera");
    else if (symbol == "*LIGHTOBJECT" && compat)
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
    Error(kMessageCouldNotScan, text);
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
    if (!compat) {
        if (ScanFloat(text, value))
            return true;
    } else if (ScanFloatOrWindowsSpecial(text, value)) {
        if (std::isfinite(*value))
            return true;
        if (use == ValueUse::NotWritten) {
            nonFiniteUnused = true;
            return true;
        }
        Error(kMessageNonFiniteValue, text, UseName(use));
        return false;
    }
    Error(kMessageCouldNotScan, text);
    return false;
}

bool AseParser::ScanKeyValue(std::string_view text, float* value)
{
    if (!compat) {
        ScanFloat(text, value);
        return true;
    }
    if (!ScanFloatOrWindowsSpecial(text, value) || std::isfinite(*value))
        return true;
    Error(kMessageNonFiniteValue, text, UseName(ValueUse::Key));
    return false;
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
    if (compat && (frameSpeed == -1 || ticksPerFrame == -1))
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
    if (compat && NextSymbolStartsWith("*")) {
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
    if (compat)
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
    while (more && !HasError()) {
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
