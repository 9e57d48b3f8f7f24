// What keys mean: rotation keys ease between orientations, position keys follow their Bezier
// curves, times compare unsigned, and the writer's accumulated key matrices carry each turn on.
// Expected values are worked out by hand (angles about z, control points on straight lines).
#include "vern/Vern3DAnimation.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace vern3d;

RotationKey Turn(int32_t time, Vector3 axis, float angle) { return {time, axis, angle, Matrix::Identity()}; }

TEST(EvaluateKeys, RotationEasesBetweenKeysAndLeavesTheTranslation)
{
    const float angle = 1.2f;
    const RotationKey keys[] = {Turn(0, {0, 0, 1}, 0.7f), Turn(1000, {0, 0, 1}, angle)};
    const struct { uint32_t time; float turn; } cases[] = {  // turn: about z, relative to key 0's orientation
        {500, -0.5f * angle},      // eased 3s^2(1 - s) + s^3 = 0.5
        {250, -0.15625f * angle},  // 3 (1/16)(3/4) + 1/64
        {0, 0.0f},                 // at the first key: key 0's orientation, its own turn never applied
        {1000, -angle},
        {5000, -angle},            // after the last key: its whole turn
    };
    for (const auto& c : cases) {
        Matrix local = Matrix::Identity();
        local(3, 0) = 9.0f;
        EvaluateKeys({}, keys, c.time, local);
        EXPECT_NEAR(local(0, 0), std::cos(c.turn), 1e-6f) << c.time;
        EXPECT_NEAR(local(0, 1), std::sin(c.turn), 1e-6f) << c.time;
        EXPECT_NEAR(local(1, 0), -std::sin(c.turn), 1e-6f) << c.time;
        EXPECT_NEAR(local(2, 2), 1.0f, 1e-6f) << c.time;
        EXPECT_EQ(local(3, 0), 9.0f) << c.time;  // rotation keys never touch the translation
    }
}

TEST(EvaluateKeys, PositionFollowsTheBezierCurve)
{
    // Control points at one and two thirds of the straight line: the curve is the line.
    const PositionKey keys[] = {{100, {0, 0, 0}, {0, 0, 0}, {1, 2, 0}}, {200, {3, 6, 0}, {2, 4, 0}, {9, 9, 9}}};
    const struct { uint32_t time; float x, y; } cases[] = {{150, 1.5f, 3.0f}, {125, 0.75f, 1.5f}, {50, 0, 0}, {100, 0, 0}, {900, 3, 6}};
    for (const auto& c : cases) {
        const Matrix local = LocalTransformAt(Matrix::Identity(), keys, {}, c.time);
        EXPECT_NEAR(local(3, 0), c.x, 1e-6f) << c.time;
        EXPECT_NEAR(local(3, 1), c.y, 1e-6f) << c.time;
        EXPECT_EQ(local(3, 3), 1.0f);
        EXPECT_EQ(local(0, 0), 1.0f);  // position keys never touch the rotation
    }
    // One key of a kind leaves that share of the local transform as it stands.
    Matrix local = Matrix::Identity();
    local(3, 2) = 7.0f;
    const RotationKey single = Turn(0, {0, 0, 1}, 2.0f);
    EvaluateKeys(std::span(keys, 1), std::span(&single, 1), 10, local);
    EXPECT_EQ(local.m, (Matrix{{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 7, 1}}).m);
    // A negative time is a huge unsigned one: every earlier time finds that key first.
    const PositionKey late[] = {{-1, {5, 0, 0}, {}, {}}, {10, {6, 0, 0}, {}, {}}};
    EXPECT_EQ(LocalTransformAt(Matrix::Identity(), late, {}, 20)(3, 0), 5.0f);
}

TEST(AccumulateRotationKeys, EachKeyHoldsTheOrientationAtTheKeyBefore)
{
    Matrix local = Matrix::Identity();
    local(3, 0) = 4.0f;
    RotationKey keys[] = {Turn(0, {0, 0, 1}, 0.3f), Turn(100, {0, 0, 1}, 0.5f), Turn(200, {1, 0, 0}, 0.25f),
                          Turn(300, {0, 0, 1}, 0.0f)};
    AccumulateRotationKeys(local, keys);
    EXPECT_EQ(keys[0].matrix.m, local.m);
    EXPECT_EQ(keys[1].matrix.m, local.m);  // key 0's turn is never applied
    // Key 2: turned by key 1's 0.5 about z, negated; key 3: then by key 2's 0.25 about x, negated.
    const float c = std::cos(0.5f), s = std::sin(0.5f), c2 = std::cos(0.25f), s2 = std::sin(0.25f);
    const float key2[12] = {c, -s, 0, 0, s, c, 0, 0, 0, 0, 1, 0};
    const float key3[12] = {c, -s * c2, s * s2, 0, s, c * c2, -c * s2, 0, 0, s2, c2, 0};
    for (int i = 0; i < 12; ++i) {
        EXPECT_NEAR(keys[2].matrix.m[i], key2[i], 1e-6f) << i;
        EXPECT_NEAR(keys[3].matrix.m[i], key3[i], 1e-6f) << i;
    }
    EXPECT_EQ(keys[3].matrix(3, 0), 4.0f);  // row 3 carried from key to key
    EXPECT_EQ(keys[3].matrix(3, 3), 1.0f);
}

}  // namespace
