#include "vern/Vern3DAnimation.h"

#include "vern/Vern3DMath.h"

namespace vern3d {

namespace {

// The first key, in list order, whose time is not earlier than `time` (times compared unsigned).
template <typename Key>
size_t FirstKeyNotBefore(std::span<const Key> keys, uint32_t time)
{
    size_t index = 0;
    while (index < keys.size() && static_cast<uint32_t>(keys[index].time) < time)
        ++index;
    return index;
}

// Where `time` lies between two keys, 0..1; the earlier key is strictly before `time`, so the
// interval is never zero.
template <typename Key>
float Fraction(const Key& before, const Key& after, uint32_t time)
{
    const uint32_t elapsed = time - static_cast<uint32_t>(before.time);
    const int32_t interval = static_cast<int32_t>(static_cast<uint32_t>(after.time) - static_cast<uint32_t>(before.time));
    return static_cast<float>(elapsed) / static_cast<float>(interval);
}

}  // namespace

void EvaluateKeys(std::span<const PositionKey> positionKeys, std::span<const RotationKey> rotationKeys, uint32_t time,
                  Matrix& local)
{
    const size_t rotationCount = rotationKeys.size();
    if (rotationCount >= 2) {
        const size_t i = FirstKeyNotBefore(rotationKeys, time);
        if (i == rotationCount) {
            const RotationKey& last = rotationKeys[rotationCount - 1];
            MultiplyRotation(local, last.matrix, AxisAngleMatrix(last.axis, -last.angle));
        } else if (i == 0) {
            for (int row = 0; row < 3; ++row)
                for (int column = 0; column < 3; ++column)
                    local(row, column) = rotationKeys[0].matrix(row, column);
        } else {
            const RotationKey& key = rotationKeys[i];
            const float s = Fraction(rotationKeys[i - 1], key, time);
            // Eases in and out: 3s^2(1 - s) + s^3.
            const float eased = 3.0f * s * s * (1.0f - s) + s * s * s;
            MultiplyRotation(local, key.matrix, AxisAngleMatrix(key.axis, -eased * key.angle));
        }
    }

    const size_t positionCount = positionKeys.size();
    if (positionCount >= 2) {
        const size_t j = FirstKeyNotBefore(positionKeys, time);
        Vector3 position;
        if (j == positionCount) {
            position = positionKeys[positionCount - 1].position;
        } else if (j == 0) {
            position = positionKeys[0].position;
        } else {
            const PositionKey& from = positionKeys[j - 1];
            const PositionKey& to = positionKeys[j];
            const float s = Fraction(from, to, time);
            const float u = 1.0f - s;
            const float w0 = u * u * u;
            const float w1 = 3.0f * u * u * s;
            const float w2 = 3.0f * u * s * s;
            const float w3 = s * s * s;
            position.x = w0 * from.position.x + w1 * from.outTangent.x + w2 * to.inTangent.x + w3 * to.position.x;
            position.y = w0 * from.position.y + w1 * from.outTangent.y + w2 * to.inTangent.y + w3 * to.position.y;
            position.z = w0 * from.position.z + w1 * from.outTangent.z + w2 * to.inTangent.z + w3 * to.position.z;
        }
        local(3, 0) = position.x;
        local(3, 1) = position.y;
        local(3, 2) = position.z;
    }
}

Matrix LocalTransformAt(const Matrix& local, std::span<const PositionKey> positionKeys,
                        std::span<const RotationKey> rotationKeys, uint32_t time)
{
    Matrix result = local;
    EvaluateKeys(positionKeys, rotationKeys, time, result);
    return result;
}

void AccumulateRotationKeys(const Matrix& local, std::span<RotationKey> rotationKeys)
{
    if (!rotationKeys.empty())
        rotationKeys[0].matrix = local;
    // Key k holds the orientation at key k - 1: keys 0 and 1 both hold the local transform, and
    // each later key adds the previous key's turn. Row 3 is carried over from the previous key.
    for (size_t k = 1; k < rotationKeys.size(); ++k) {
        Matrix orientation = rotationKeys[k - 1].matrix;
        if (k >= 2) {
            const RotationKey& previous = rotationKeys[k - 1];
            const Matrix turn = AxisAngleMatrix(previous.axis, -previous.angle);
            Matrix turned = orientation;
            MultiplyRotation(turned, orientation, turn);
            orientation = turned;
        }
        rotationKeys[k].matrix = orientation;
    }
}

}  // namespace vern3d
