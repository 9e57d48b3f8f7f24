// Transform animation as glTF wants it: local translation, rotation and scale at sample times.
//
// The local matrix at a time comes from the vern3D library's key evaluation (the one the converter
// uses), over what the file stores: the node's local matrix and its keys with their accumulated
// orientation matrices. Nothing here interpolates keys a second way.
#pragma once

#include "vern/Vern3DDecoder.h"

#include <array>
#include <cstdint>
#include <vector>

namespace vern3d {

// Translation, rotation (unit quaternion x, y, z, w) and scale for glTF's column vectors,
// from a row-major matrix for row vectors.
struct Trs {
    std::array<float, 3> translation{};
    std::array<float, 4> rotation{0.0f, 0.0f, 0.0f, 1.0f};
    std::array<float, 3> scale{1.0f, 1.0f, 1.0f};
};

// Exact for rotation and scale (a negative determinant goes to the x scale); axes that are not
// at right angles (shear) are straightened, which glTF's TRS cannot express.
Trs Decompose(const std::array<float, 16>& matrix);

struct TransformSamples {
    std::vector<uint32_t> times;  // milliseconds, strictly ascending
    std::vector<Trs> values;
};

// Whether the keys move the node at all: evaluation uses a key list only when it has two keys.
bool HasMovingKeys(const Animation& animation);

// The sample times: every key time of a list that moves the node and a fixed step between the
// first and the last of them (at most `maxSamples` in all). Key times below 0 are left out.
std::vector<uint32_t> SampleTimes(const Animation& animation, uint32_t stepMilliseconds, size_t maxSamples);

// The node's local transform at each time, evaluated as the converter evaluates it.
TransformSamples SampleTransform(const std::array<float, 16>& localMatrix, const Animation& animation,
                                 const std::vector<uint32_t>& times);

// Row-major local matrices at each time, for tests and for checking the decomposition.
std::vector<std::array<float, 16>> EvaluateLocal(const std::array<float, 16>& localMatrix, const Animation& animation,
                                                 const std::vector<uint32_t>& times);

}  // namespace vern3d
