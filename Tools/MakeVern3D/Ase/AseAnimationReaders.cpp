// Transform animation: Bezier position keys and TCB rotation keys, with times in milliseconds
// and the position tangents turned into absolute Bezier control points.
#include "Ase/AseParser.h"
#include "Parser/NumberScan.h"
#include "resources/Messages.h"

#include <array>

namespace {

// Scans that fail leave the field as it was (zero): these readers do not report bad values.
void ScanIntQuietly(const std::string& text, int32_t* value) { ScanInt(text, value); }

// One third of the interval between two keys, in ticks, with the single-precision constants the
// format has always used for 1/1000 and 1/3.
double TangentScale(uint32_t milliseconds, int32_t ticksPerFrame, int32_t frameSpeed)
{
    return static_cast<double>(milliseconds) * static_cast<double>(ticksPerFrame) *
           static_cast<double>(frameSpeed) * static_cast<double>(0.001f) * static_cast<double>(1.0f / 3.0f);
}

Vector3 ControlPoint(const Vector3& position, double scale, const Vector3& tangent)
{
    return {static_cast<float>(position.x + scale * tangent.x),
            static_cast<float>(position.y + scale * tangent.y),
            static_cast<float>(position.z + scale * tangent.z)};
}

}  // namespace

void AseParser::ReadTmAnimation(std::string& symbol, TransformNode& node, std::string* animatedName)
{
    std::vector<PositionKey> positions;
    std::vector<RotationKey> rotations;
    std::string blockName;
    bool sampledPositions = false;  // their control points are made already
    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        const std::string& owner = node.name.empty() ? blockName : node.name;
        if (keyword == "*NODE_NAME") {
            NextSymbol(keyword);
            blockName = keyword;
            if (!node.name.empty() && node.name != keyword)
                Warning(kMessageForeignNodeName, keyword, node.name);
        } else if (keyword == "*CONTROL_POS_BEZIER") {
            positions.clear();
            ReadBezierPositionKeys(keyword, positions);
            sampledPositions = false;
        } else if (keyword == "*CONTROL_ROT_TCB") {
            rotations.clear();
            ReadTcbRotationKeys(keyword, rotations);
        } else if (compat && keyword == "*CONTROL_POS_TRACK") {
            positions.clear();
            ReadPositionSamples(keyword, positions, owner);
            sampledPositions = true;
        } else if (compat && keyword == "*CONTROL_ROT_TRACK") {
            rotations.clear();
            ReadRotationSamples(keyword, rotations, owner);
        } else if (compat && keyword == "*CONTROL_SCALE_TRACK") {
            ReadScaleSamples(keyword, owner);
        } else {
            return Keyword::NotMine;
        }
        return Keyword::Handled;
    });
    if (result == Block::MissingBrace)
        return;
    if (animatedName)
        *animatedName = blockName;

    for (size_t k = 0; !sampledPositions && k + 1 < positions.size(); ++k) {
        const uint32_t interval = static_cast<uint32_t>(positions[k + 1].time) - static_cast<uint32_t>(positions[k].time);
        const double scale = TangentScale(interval, ticksPerFrame, frameSpeed);
        positions[k].outTangent = ControlPoint(positions[k].position, scale, positions[k].outTangent);
        positions[k + 1].inTangent = ControlPoint(positions[k + 1].position, scale, positions[k + 1].inTangent);
    }
    node.positionKeys = std::move(positions);
    node.rotationKeys = std::move(rotations);
}

namespace {

// The values of a key line after its time, in file order.
std::array<float*, 9> KeyValues(PositionKey& key)
{
    return {&key.position.x, &key.position.y, &key.position.z, &key.inTangent.x, &key.inTangent.y,
            &key.inTangent.z, &key.outTangent.x, &key.outTangent.y, &key.outTangent.z};
}

std::array<float*, 4> KeyValues(RotationKey& key)
{
    return {&key.axis.x, &key.axis.y, &key.axis.z, &key.angle};
}

}  // namespace

template <typename Key>
void AseParser::ReadKeyList(std::string& symbol, const char* keyName, int skipped, std::vector<Key>& keys)
{
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != keyName)
            return Keyword::NotMine;
        Key key;
        int32_t ticks = 0;
        NextSymbol(keyword);
        ScanIntQuietly(keyword, &ticks);
        key.time = TicksToMilliseconds(ticks);
        for (float* value : KeyValues(key)) {
            NextSymbol(keyword);
            if (!ScanKeyValue(keyword, value))
                return Keyword::ReturnNow;
        }
        SkipValues(keyword, skipped);
        keys.push_back(key);
        return Keyword::Handled;
    });
}

// Time, position, in-tangent, out-tangent, and one value not used.
void AseParser::ReadBezierPositionKeys(std::string& symbol, std::vector<PositionKey>& keys)
{
    ReadKeyList(symbol, "*CONTROL_BEZIER_POS_KEY", 1, keys);
}

// Time, axis, angle, and five values not used (tension, continuity, bias, ease in and out).
void AseParser::ReadTcbRotationKeys(std::string& symbol, std::vector<RotationKey>& keys)
{
    ReadKeyList(symbol, "*CONTROL_TCB_ROT_KEY", 5, keys);
}
