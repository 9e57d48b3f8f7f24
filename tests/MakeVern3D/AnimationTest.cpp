#include "Scene/BaseNode.h"
#include "support/AseTestParse.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using asetest::ParseAse;

const std::string kScene = "*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n";

std::string AnimatedHelper(const std::string& animation, const std::string& name = "H")
{
    return "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n*HELPER_CLASS \"Dummy\"\n*TM_ANIMATION {\n" + animation + "}\n}\n";
}

const TransformNode& FirstNode(const asetest::Parsed& parsed)
{
    return static_cast<const TransformNode&>(*parsed.Root()->Children().at(0));
}

TEST(AnimationKeys, TicksBecomeMillisecondsAndTangentsControlPoints)
{
    auto parsed = ParseAse(kScene + AnimatedHelper("*CONTROL_POS_BEZIER {\n"
                                                   "*CONTROL_BEZIER_POS_KEY 0 0 0 0 0 0 0 1 0 0 0\n"
                                                   "*CONTROL_BEZIER_POS_KEY 480 3 0 0 -1 0 0 5 5 5 0\n}\n"));
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    const auto& keys = FirstNode(parsed).positionKeys;
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].time, 0);
    EXPECT_EQ(keys[1].time, 100);
    // One third of 100 ms in ticks is 160, up to the single-precision constants.
    EXPECT_EQ(keys[0].outTangent.x, 160.00002f);
    EXPECT_EQ(keys[0].inTangent.x, 0.0f);  // the first in-tangent stays as read
    EXPECT_EQ(keys[1].inTangent.x, 3.0f - 160.00002f);
    EXPECT_EQ(keys[1].outTangent.x, 5.0f);  // the last out-tangent stays as read
}

TEST(AnimationKeys, KeysBeforeTheSceneUseATimeBaseOfOne)
{
    auto parsed = ParseAse(AnimatedHelper("*CONTROL_POS_BEZIER {\n*CONTROL_BEZIER_POS_KEY 2 1 1 1 0 0 0 1 0 0 0\n"
                                          "*CONTROL_BEZIER_POS_KEY 5 1 1 1 0 0 0 0 0 0 0\n}\n") + kScene);
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    const auto& keys = FirstNode(parsed).positionKeys;
    EXPECT_EQ(keys[0].time, 2000);
    EXPECT_EQ(keys[1].time, 5000);
    // f = 3000 * (-1) * (-1) * 0.001 * (1/3), close to 1.
    EXPECT_NEAR(keys[0].outTangent.x, 2.0f, 1e-6f);
}

TEST(AnimationKeys, BlocksReplaceAndOnlyTheirKindIsSet)
{
    auto parsed = ParseAse(kScene + AnimatedHelper("*NODE_NAME \"H\"\n*CONTROL_POS_BEZIER {\n"
                                                   "*CONTROL_BEZIER_POS_KEY 0 9 9 9 0 0 0 0 0 0 0\n}\n"
                                                   "*CONTROL_POS_BEZIER {\n*CONTROL_BEZIER_POS_KEY 160 1 2 3 0 0 0 0 0 0 0\n}\n"
                                                   "*CONTROL_ROT_TCB {\n*CONTROL_TCB_ROT_KEY 320 0 0 1 0.5 0 0 0 0 0\n}\n"));
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    EXPECT_EQ(parsed.printed, "");  // the same node name draws no warning
    const auto& node = FirstNode(parsed);
    ASSERT_EQ(node.positionKeys.size(), 1u);
    EXPECT_EQ(node.positionKeys[0].position.y, 2.0f);
    EXPECT_EQ(node.positionKeys[0].outTangent.x, 0.0f);  // a single key keeps its tangents
    ASSERT_EQ(node.rotationKeys.size(), 1u);
    EXPECT_EQ(node.rotationKeys[0].time, 66);
    EXPECT_EQ(node.rotationKeys[0].angle, 0.5f);

    auto rotationOnly = ParseAse(kScene + AnimatedHelper("*CONTROL_ROT_TCB {\n*CONTROL_TCB_ROT_KEY 0 1 0 0 1 0 0 0 0 0\n}\n"));
    EXPECT_TRUE(FirstNode(rotationOnly).positionKeys.empty());
    EXPECT_EQ(FirstNode(rotationOnly).rotationKeys.size(), 1u);
}

TEST(AnimationKeys, ForeignNodeNamesAndOtherControllers)
{
    auto parsed = ParseAse(kScene + AnimatedHelper("*NODE_NAME \"Other\"\n*CONTROL_SCALE_BEZIER {\n*X 1\n}\n"));
    EXPECT_EQ(parsed.printed, parsed.At(9) + "Found node name 'Other' but expected 'H'.\n" + parsed.At(10) +
                                  "Do not know what symbol '*CONTROL_SCALE_BEZIER' means.\n");
    EXPECT_EQ(FirstNode(parsed).name, "H");

    auto unnamed = ParseAse("*HELPEROBJECT {\n*TM_ANIMATION {\n*NODE_NAME \"X\"\n}\n}\n");
    EXPECT_EQ(unnamed.printed, "");
    EXPECT_EQ(FirstNode(unnamed).name, "");

    auto noBrace = ParseAse(kScene + AnimatedHelper("*CONTROL_POS_BEZIER\n"));
    EXPECT_EQ(noBrace.ErrorText(), noBrace.At(10, "error") + "Aspected symbol '{' but found symbol '}'.\n");
}

TEST(AnimationKeys, ZeroTimeBaseGivesTimeZeroAndOneWarning)
{
    auto parsed = ParseAse("*SCENE {\n*SCENE_FRAMESPEED 0\n*SCENE_TICKSPERFRAME 160\n}\n" +
                           AnimatedHelper("*CONTROL_POS_BEZIER {\n*CONTROL_BEZIER_POS_KEY 100 0 0 0 0 0 0 1 0 0 0\n"
                                          "*CONTROL_BEZIER_POS_KEY 200 0 0 0 0 0 0 0 0 0 0\n}\n"));
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    const auto& keys = FirstNode(parsed).positionKeys;
    EXPECT_EQ(keys[0].time, 0);
    EXPECT_EQ(keys[1].time, 0);
    EXPECT_EQ(keys[0].outTangent.x, 0.0f);
    EXPECT_EQ(parsed.printed,
              parsed.At(10) + "The scene's frame speed times its ticks per frame is 0; key and frame times are set to 0.\n");
}

// ---- Preparation and evaluation

RotationKey Turn(int32_t time, Vector3 axis, float angle)
{
    RotationKey key;
    key.time = time;
    key.axis = axis;
    key.angle = angle;
    return key;
}

PositionKey At(int32_t time, Vector3 position, Vector3 before, Vector3 after)
{
    return {time, position, before, after};
}

void ExpectMatrixNear(const Matrix& actual, const Matrix& expected, float tolerance = 1e-5f)
{
    for (size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(actual.m[i], expected.m[i], tolerance) << "element " << i;
}

bool SameMatrix(const Matrix& a, const Matrix& b) { return a.m == b.m; }

TEST(Prepare, AccumulatesRotationKeysWithAOneKeyShift)
{
    BaseNode root("root");
    auto owned = std::make_unique<TransformNode>("n");
    TransformNode& node = *owned;
    root.AddChild(std::move(owned));
    node.world(3, 0) = 4.0f;
    node.rotationKeys = {Turn(0, {0, 0, 1}, 0.3f), Turn(100, {0, 0, 1}, 0.5f), Turn(200, {1, 0, 0}, 0.25f)};
    root.Prepare();
    // Directly under the root the local transform is the world transform; the keys are
    // accumulated from it (the turned keys: tests/FileFormats/vern/Vern3DAnimationTest.cpp).
    EXPECT_TRUE(SameMatrix(node.track.matrix, node.world));
    EXPECT_TRUE(SameMatrix(node.rotationKeys[1].matrix, node.world));
    EXPECT_FALSE(SameMatrix(node.rotationKeys[2].matrix, node.world));
    ASSERT_EQ(node.track.rotationKeys.size(), 3u);
    EXPECT_TRUE(SameMatrix(node.track.rotationKeys[2].matrix, node.rotationKeys[2].matrix));
}

TEST(Prepare, LocalTransformIsRelativeToATransformParent)
{
    BaseNode root("root");
    auto parentOwned = std::make_unique<TransformNode>("p");
    TransformNode& parent = *parentOwned;
    parent.world(3, 1) = 10.0f;
    auto childOwned = std::make_unique<TransformNode>("c");
    TransformNode& child = *childOwned;
    child.world(3, 1) = 12.0f;
    child.rotationKeys = {Turn(5, {0, 1, 0}, 1.0f)};
    parent.AddChild(std::move(childOwned));
    root.AddChild(std::move(parentOwned));
    root.Prepare();
    EXPECT_EQ(child.track.matrix(3, 1), 2.0f);
    EXPECT_TRUE(SameMatrix(child.rotationKeys[0].matrix, child.track.matrix));
    // Without keys the world transform comes back at any time.
    ExpectMatrixNear(child.GetTransform(0), child.world);
    ExpectMatrixNear(child.GetTransform(123456), child.world);
}

TEST(LastKeyTime, LatestOverTheSubtreeFromTheLastEntries)
{
    BaseNode root("root");
    EXPECT_EQ(root.GetLastKeyTime(), 0u);
    auto helper = std::make_unique<TransformNode>("h");
    helper->positionKeys = {At(900, {}, {}, {}), At(300, {}, {}, {})};  // the last entry counts
    helper->rotationKeys = {Turn(200, {0, 0, 1}, 0.1f)};
    auto mesh = std::make_unique<MeshNode>("m");
    auto frame = std::make_unique<Mesh>();
    frame->time = 450;
    mesh->frames.push_back(std::move(frame));
    TransformNode* helperNode = helper.get();
    helper->AddChild(std::move(mesh));
    root.AddChild(std::move(helper));
    EXPECT_EQ(root.GetLastKeyTime(), 450u);  // keys count only once prepared
    root.Prepare();
    EXPECT_EQ(helperNode->GetLastKeyTime(), 450u);
    helperNode->track.rotationKeys.back().time = -5;  // compared unsigned
    EXPECT_EQ(root.GetLastKeyTime(), 0xFFFFFFFBu);
}

}  // namespace
