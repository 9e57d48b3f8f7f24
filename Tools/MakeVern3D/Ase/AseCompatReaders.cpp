// -compat: what other exporters write and the classic rules refuse or drop. Cameras, lights and
// groups become transform nodes, sampled controllers become keys, parents may come later in the
// file, objects without a material get a default one, and missing scene timing takes 3ds Max's
// defaults. Each departure is said as a warning where it happens.
#include "Ase/AseParser.h"
#include "Parser/NumberScan.h"

#include <cmath>
#include <utility>

namespace {

constexpr int32_t kDefaultFrameSpeed = 30;
constexpr int32_t kDefaultTicksPerFrame = 160;

// Scale samples closer than this to the first one count as an unchanged scale.
constexpr float kScaleTolerance = 1e-4f;

}  // namespace

bool AseParser::NextSymbolStartsWith(std::string_view prefix)
{
    if (HasError() || !text || cursor >= textSize)
        return false;
    const uint32_t savedCursor = cursor;
    const int32_t savedLine = line;
    const int32_t savedColumn = column;
    const std::string_view savedLast = lastSymbol;
    // A look at the end of the text does not yet say that it closes open blocks.
    const bool savedClosedSaid = std::exchange(blocksClosedAtEnd, true);
    std::string_view next;
    const bool matches = NextSymbolView(next) && next.substr(0, prefix.size()) == prefix;
    blocksClosedAtEnd = savedClosedSaid;
    cursor = savedCursor;
    line = savedLine;
    column = savedColumn;
    lastSymbol = savedLast;
    return matches;
}

void AseParser::TakeDefaultTiming()
{
    if (frameSpeed == -1) {
        frameSpeed = kDefaultFrameSpeed;
        Warning(kMessageDefaultTiming, "SCENE_FRAMESPEED", kDefaultFrameSpeed);
    }
    if (ticksPerFrame == -1) {
        ticksPerFrame = kDefaultTicksPerFrame;
        Warning(kMessageDefaultTiming, "SCENE_TICKSPERFRAME", kDefaultTicksPerFrame);
    }
}

void AseParser::ReadCameraOrLight(std::string& symbol, const char* kind)
{
    auto owner = std::make_unique<TransformNode>();
    TransformNode& node = *owner;
    std::unique_ptr<BaseNode> holder = std::move(owner);
    bool parentRecord = false;
    bool transformRead = false;
    bool targetSaid = false;
    // A target camera or spot light carries its target's transform and keys in the same block,
    // after its own; the target is not a node of ours.
    auto dropTarget = [&](const std::string& targetName) {
        if (!targetSaid && ShowRepeated(kMessageTargetDropped.id))
            Warning(kMessageTargetDropped, targetName, node.name);
        targetSaid = true;
    };

    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword == "*NODE_TM") {
            if (!transformRead) {
                transformRead = true;
                ReadNodeTM(keyword, node);
            } else {
                TransformNode target;
                ReadNodeTM(keyword, target);
                dropTarget(target.name);
            }
            return Keyword::Handled;
        }
        if (keyword == "*TM_ANIMATION") {
            TransformNode animated;
            std::string animatedName;
            ReadTmAnimation(keyword, animated, &animatedName);
            if (animatedName.empty() || animatedName == node.name) {
                node.positionKeys = std::move(animated.positionKeys);
                node.rotationKeys = std::move(animated.rotationKeys);
            } else {
                dropTarget(animatedName);
            }
            return Keyword::Handled;
        }
        if (ReadObjectKeyword(keyword, node, holder, parentRecord) == Keyword::Handled)
            return Keyword::Handled;
        static constexpr const char* kOneValue[] = {
            "*CAMERA_TYPE",    "*LIGHT_TYPE",      "*LIGHT_SHADOWS",     "*LIGHT_USELIGHT",
            "*LIGHT_SPOTSHAPE", "*LIGHT_USEGLOBAL", "*LIGHT_ABSMAPBIAS", "*LIGHT_OVERSHOOT",
        };
        for (const char* word : kOneValue) {
            if (keyword == word) {
                SkipValues(keyword, 1);
                return Keyword::Handled;
            }
        }
        if (keyword == "*CAMERA_SETTINGS" || keyword == "*LIGHT_SETTINGS") {
            // Lens and light values have no place in our format: the block is passed over quietly.
            const Block settingsBlock = ReadBlock(keyword, [&](std::string& value) {
                return value == BlockEnd() ? Keyword::NotMine : Keyword::Handled;
            });
            return settingsBlock == Block::MissingBrace ? Keyword::ReturnNow : Keyword::Handled;
        }
        return Keyword::NotMine;
    });
    if (result != Block::Ended)
        return;
    if (ShowRepeated(kMessageNodeFromObject.id))
        Warning(kMessageNodeFromObject, kind, node.name);
    if (!parentRecord)
        LinkNode(scene.root.get(), std::move(holder));
}

void AseParser::ReadGroupAsNode(std::string& symbol)
{
    NextSymbol(symbol);
    auto group = std::make_unique<TransformNode>();
    TransformNode& node = *group;
    node.name = symbol;
    // Linked before its contents are read, so that they can name it as their parent. Its objects
    // keep their world transforms: the group's own stays the identity unless the block gives one.
    if (ShowRepeated(kMessageNodeFromGroup.id))
        Warning(kMessageNodeFromGroup, node.name);
    LinkNode(scene.root.get(), std::move(group));
    ReadGroupContents(symbol, &node);
}

void AseParser::SayTrackSampled(const std::string& track, const std::string& owner, size_t keyCount)
{
    if (!ShowRepeated(kMessageSampledTrack.id))
        return;
    if (keyCount == 1)
        Warning(kMessageSampledTrackOneKey, track, owner);
    else
        Warning(kMessageSampledTrack, track, owner, static_cast<uint32_t>(keyCount));
}

void AseParser::ReadPositionSamples(std::string& symbol, std::vector<PositionKey>& keys, const std::string& owner)
{
    const std::string track = symbol;
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*CONTROL_POS_SAMPLE")
            return Keyword::NotMine;
        PositionKey key;
        int32_t ticks = 0;
        NextSymbol(keyword);
        ScanInt(keyword, &ticks);
        for (float* value : {&key.position.x, &key.position.y, &key.position.z}) {
            NextSymbol(keyword);
            if (!ScanKeyValue(keyword, value))
                return Keyword::ReturnNow;
        }
        key.time = TicksToMilliseconds(ticks);
        keys.push_back(key);
        return Keyword::Handled;
    });
    // Straight lines between the samples: control points at one and two thirds, so that the
    // Bezier curve passes every sample at its time and moves evenly in between.
    for (size_t k = 0; k < keys.size(); ++k) {
        keys[k].inTangent = keys[k].position;
        keys[k].outTangent = keys[k].position;
    }
    for (size_t k = 0; k + 1 < keys.size(); ++k) {
        const Vector3& a = keys[k].position;
        const Vector3& b = keys[k + 1].position;
        keys[k].outTangent = {a.x + (b.x - a.x) / 3.0f, a.y + (b.y - a.y) / 3.0f, a.z + (b.z - a.z) / 3.0f};
        keys[k + 1].inTangent = {b.x - (b.x - a.x) / 3.0f, b.y - (b.y - a.y) / 3.0f, b.z - (b.z - a.z) / 3.0f};
    }
    SayTrackSampled(track, owner, keys.size());
}

void AseParser::ReadRotationSamples(std::string& symbol, std::vector<RotationKey>& keys, const std::string& owner)
{
    // A rotation sample, like a TCB key of this format, turns from the sample before it; the
    // first one is the node's orientation, which its transform already holds.
    const std::string track = symbol;
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*CONTROL_ROT_SAMPLE")
            return Keyword::NotMine;
        RotationKey key;
        int32_t ticks = 0;
        NextSymbol(keyword);
        ScanInt(keyword, &ticks);
        for (float* value : {&key.axis.x, &key.axis.y, &key.axis.z, &key.angle}) {
            NextSymbol(keyword);
            if (!ScanKeyValue(keyword, value))
                return Keyword::ReturnNow;
        }
        key.time = TicksToMilliseconds(ticks);
        keys.push_back(key);
        return Keyword::Handled;
    });
    SayTrackSampled(track, owner, keys.size());
}

void AseParser::ReadScaleSamples(std::string& symbol, const std::string& owner)
{
    // Our keys hold no scale: the node keeps the scale of its transform. A scale that changes
    // over time is therefore lost, and said so.
    bool first = true;
    bool changes = false;
    float firstScale[3] = {};
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*CONTROL_SCALE_SAMPLE")
            return Keyword::NotMine;
        float scale[3] = {};
        SkipValues(keyword, 1);  // the time
        for (float& value : scale) {
            NextSymbol(keyword);
            ScanFloatOrWindowsSpecial(keyword, &value);
        }
        SkipValues(keyword, 4);  // the axis of the scale and its angle
        for (int i = 0; i < 3; ++i) {
            if (first)
                firstScale[i] = scale[i];
            else if (!(std::fabs(scale[i] - firstScale[i]) <= kScaleTolerance))
                changes = true;
        }
        first = false;
        return Keyword::Handled;
    });
    if (changes && ShowRepeated(kMessageScaleNotKept.id))
        Warning(kMessageScaleNotKept, owner);
}

void AseParser::LinkLaterParents()
{
    // Parents may themselves wait for a parent: link what can be linked until nothing moves.
    bool linked = true;
    while (linked && !laterParents.empty()) {
        linked = false;
        for (auto entry = laterParents.begin(); entry != laterParents.end();) {
            BaseNode* parent = nodeIndex.Find(entry->parentName);
            if (!parent) {
                ++entry;
                continue;
            }
            // Said at the line of the record.
            if (reporter.ShowRepeated(kMessageParentLater.id, entry->line))
                reporter.Warning(entry->line, kMessageParentLater, entry->parentName, entry->node->name);
            LinkNode(parent, std::move(entry->node));
            entry = laterParents.erase(entry);
            linked = true;
        }
    }
    if (!laterParents.empty()) {
        // A parent that never came (or a loop of objects naming each other): the classic error,
        // at the line of the record, where reading is taken to have stopped.
        const LaterParent& missing = laterParents.front();
        line = missing.line;
        Error(kMessageParentNotFound, missing.parentName, missing.node->name);
    }
    laterParents.clear();
}

void AseParser::GiveDefaultMaterials()
{
    int32_t defaultMaterial = -1;
    std::vector<BaseNode*> pending{scene.root.get()};
    while (!pending.empty()) {
        BaseNode* node = pending.back();
        pending.pop_back();
        for (const auto& child : node->Children())
            pending.push_back(child.get());
        auto* meshNode = dynamic_cast<MeshNode*>(node);
        if (!meshNode || meshNode->materialRef != -1)
            continue;
        if (defaultMaterial == -1) {
            scene.textureSets.push_back(std::make_unique<TextureSet>());
            scene.materialProperties.push_back(std::make_unique<MaterialProperties>());
            MaterialTableEntry entry;
            entry.slot.textureSetIndex = static_cast<int32_t>(scene.textureSets.size() - 1);
            entry.slot.propertiesIndex = static_cast<int32_t>(scene.materialProperties.size() - 1);
            scene.materialTable.push_back(std::move(entry));
            defaultMaterial = static_cast<int32_t>(scene.materialTable.size() - 1);
        }
        meshNode->materialRef = defaultMaterial;
    }
}
