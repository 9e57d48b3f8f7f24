// Animation preparation (local transform, accumulated rotation-key orientations) and evaluation
// of a node's local transform at a time.
#include "BaseNode.h"

void TransformNode::PrepareNode(OpenPath& path)
{
    // The parent's record decides whether the local transform is relative to a parent world;
    // asking for it has the same effect on the ancestors' bounds as any other request.
    Matrix parentWorld = Matrix::Identity();
    if (parent) {
        path.MergeAncestors(path.Size() - 1);
        if (parent->IsTransformNode())
            parentWorld = static_cast<TransformNode*>(parent)->world;
    }
    const Matrix local = Multiply(world, Inverse(parentWorld));
    track.matrix = local;

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

    track.positionKeys.insert(track.positionKeys.end(), positionKeys.begin(), positionKeys.end());
    track.rotationKeys.insert(track.rotationKeys.end(), rotationKeys.begin(), rotationKeys.end());
}

namespace {

// The first key, in list order, whose time is not earlier than `time` (times compared unsigned).
template <typename Key>
size_t FirstKeyNotBefore(const std::vector<Key>& keys, uint32_t time)
{
    size_t index = 0;
    while (index < keys.size() && static_cast<uint32_t>(keys[index].time) < time)
        ++index;
    return index;
}

// Where `time` lies between two keys, 0..1; the earlier key is strictly before `time`.
template <typename Key>
float Fraction(const Key& before, const Key& after, uint32_t time)
{
    const uint32_t elapsed = time - static_cast<uint32_t>(before.time);
    const int32_t interval = static_cast<int32_t>(static_cast<uint32_t>(after.time) - static_cast<uint32_t>(before.time));
    return static_cast<float>(elapsed) / static_cast<float>(interval);
}

}  // namespace

void TransformTrack::Evaluate(uint32_t time)
{
    const size_t rotationCount = rotationKeys.size();
    if (rotationCount >= 2) {
        const size_t i = FirstKeyNotBefore(rotationKeys, time);
        if (i == rotationCount) {
            const RotationKey& last = rotationKeys[rotationCount - 1];
            MultiplyRotation(matrix, last.matrix, AxisAngleMatrix(last.axis, -last.angle));
        } else if (i == 0) {
            for (int row = 0; row < 3; ++row)
                for (int column = 0; column < 3; ++column)
                    matrix(row, column) = rotationKeys[0].matrix(row, column);
        } else {
            const RotationKey& key = rotationKeys[i];
            const float s = Fraction(rotationKeys[i - 1], key, time);
            // Eases in and out: 3s^2(1 - s) + s^3.
            const float eased = 3.0f * s * s * (1.0f - s) + s * s * s;
            MultiplyRotation(matrix, key.matrix, AxisAngleMatrix(key.axis, -eased * key.angle));
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
        matrix(3, 0) = position.x;
        matrix(3, 1) = position.y;
        matrix(3, 2) = position.z;
    }
}
