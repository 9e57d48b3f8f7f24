// What a node's transform keys mean: the local transform at a time, and how the writer fills the
// rotation keys' matrices.
//
// Evaluation, for a node whose local transform (its NodeInfo matrix) is L:
// - Rotation, with two keys or more: before or at the first key, the upper-left 3x3 of key 0's
//   matrix; between keys i-1 and i, key i's matrix turned about key i's axis by -e * angle_i,
//   with s the fraction of the interval and e = 3s^2(1 - s) + s^3 (easing in and out); after
//   the last key, the last key's matrix turned by its whole angle, negated.
// - Position, with two keys or more: before the first key the first key's position, after the
//   last the last's, between keys the cubic Bezier point of position_(j-1), outTangent_(j-1),
//   inTangent_j, position_j; it becomes the translation (row 3).
// - A kind with fewer than two keys leaves its share of L as it stands.
// Key times are milliseconds compared unsigned; the keys are searched in list order for the first
// whose time is not earlier than the time asked, so keys are expected in ascending order.
// The results are bit for bit those the converter uses when it writes a file (float32 maths of
// Vern3DMath.h, in a fixed order).
//
// Contract: pure functions over the caller's keys and matrices; nothing allocates, reports or
// keeps state, so they may be called from any thread on data no thread writes. Nothing is
// checked: any key values give some matrix (possibly not-a-number), never undefined behaviour.
#pragma once

#include "vern/Vern3DLayout.h"

#include <cstdint>
#include <span>

namespace vern3d {

// Overwrites the parts of `local` that the keys define at `time` and leaves the rest: rows 0..2
// when there are two rotation keys or more (only their upper-left 3x3 before the first key), the
// translation when there are two position keys or more. Starting from the node's local transform
// L gives the node's local transform at `time`; the converter keeps one matrix per node and
// evaluates it again and again, which gives the same bits.
void EvaluateKeys(std::span<const PositionKey> positionKeys, std::span<const RotationKey> rotationKeys, uint32_t time,
                  Matrix& local);

// The local transform at `time` of a node whose local transform is `local`.
Matrix LocalTransformAt(const Matrix& local, std::span<const PositionKey> positionKeys,
                        std::span<const RotationKey> rotationKeys, uint32_t time);

// The writer's side: fills the keys' matrices from the node's local transform. Keys 0 and 1 get
// `local`; key k >= 2 gets key k-1's matrix with rows 0..2 turned by key k-1's rotation (angle
// negated) and row 3 carried over. The rotation of key 0 is never applied.
void AccumulateRotationKeys(const Matrix& local, std::span<RotationKey> rotationKeys);

}  // namespace vern3d
