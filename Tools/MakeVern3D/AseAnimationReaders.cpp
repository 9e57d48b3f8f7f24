// Transform animation: Bezier position keys and TCB rotation keys, with times in milliseconds
// and the position tangents turned into absolute Bezier control points.
#include "AseParser.h"
#include "Messages.h"
#include "NumberScan.h"

namespace {

// Scans that fail leave the field as it was (zero): these readers do not report bad values.
void ScanIntQuietly(const std::string& text, int32_t* value) { ScanInt(text, value); }
void ScanFloatQuietly(const std::string& text, float* value) { ScanFloat(text, value); }

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

void AseParser::ReadTmAnimation(std::string& symbol, TransformNode& node)
{
    std::vector<PositionKey> positions;
    std::vector<RotationKey> rotations;
    const Block result = ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword == "*NODE_NAME") {
            NextSymbol(keyword);
            if (!node.name.empty() && node.name != keyword)
                Warning(kMessageForeignNodeName, keyword.c_str(), node.name.c_str());
        } else if (keyword == "*CONTROL_POS_BEZIER") {
            positions.clear();
            ReadBezierPositionKeys(keyword, positions);
        } else if (keyword == "*CONTROL_ROT_TCB") {
            rotations.clear();
            ReadTcbRotationKeys(keyword, rotations);
        } else {
            return Keyword::NotMine;
        }
        return Keyword::Handled;
    });
    if (result == Block::MissingBrace)
        return;

    for (size_t k = 0; k + 1 < positions.size(); ++k) {
        const uint32_t interval = static_cast<uint32_t>(positions[k + 1].time) - static_cast<uint32_t>(positions[k].time);
        const double scale = TangentScale(interval, ticksPerFrame, frameSpeed);
        positions[k].outTangent = ControlPoint(positions[k].position, scale, positions[k].outTangent);
        positions[k + 1].inTangent = ControlPoint(positions[k + 1].position, scale, positions[k + 1].inTangent);
    }
    node.positionKeys = std::move(positions);
    node.rotationKeys = std::move(rotations);
}

void AseParser::ReadBezierPositionKeys(std::string& symbol, std::vector<PositionKey>& keys)
{
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*CONTROL_BEZIER_POS_KEY")
            return Keyword::NotMine;
        PositionKey key;
        int32_t ticks = 0;
        NextSymbol(keyword);
        ScanIntQuietly(keyword, &ticks);
        key.time = TicksToMilliseconds(ticks);
        for (Vector3* vector : {&key.position, &key.inTangent, &key.outTangent}) {
            for (float* component : {&vector->x, &vector->y, &vector->z}) {
                NextSymbol(keyword);
                ScanFloatQuietly(keyword, component);
            }
        }
        SkipValues(keyword, 1);
        keys.push_back(key);
        return Keyword::Handled;
    });
}

void AseParser::ReadTcbRotationKeys(std::string& symbol, std::vector<RotationKey>& keys)
{
    ReadBlock(symbol, [&](std::string& keyword) {
        if (keyword != "*CONTROL_TCB_ROT_KEY")
            return Keyword::NotMine;
        RotationKey key;
        int32_t ticks = 0;
        NextSymbol(keyword);
        ScanIntQuietly(keyword, &ticks);
        key.time = TicksToMilliseconds(ticks);
        for (float* value : {&key.axis.x, &key.axis.y, &key.axis.z, &key.angle}) {
            NextSymbol(keyword);
            ScanFloatQuietly(keyword, value);
        }
        SkipValues(keyword, 5);
        keys.push_back(key);
        return Keyword::Handled;
    });
}
