#include "Scene/BaseNode.h"
#include "support/AseTestParse.h"

#include <gtest/gtest.h>

namespace {

using asetest::kScene;
using asetest::ParseAse;

std::string AnimatedHelper(const std::string& animation)
{
    return "*HELPEROBJECT {\n*NODE_NAME \"H\"\n*HELPER_CLASS \"Dummy\"\n*TM_ANIMATION {\n" + animation + "}\n}\n";
}

const TransformNode& FirstNode(const asetest::Parsed& parsed) { return asetest::Child<TransformNode>(parsed); }

// Two keys from 0 to 3 along x: ticks become milliseconds, and the inner tangents control points
// a third of the time between the keys away (in ticks); the outer ones stay as read.
TEST(AnimationKeys, TicksBecomeMillisecondsAndTangentsControlPoints)
{
    // `third`: the control points' distance, within `tolerance`.
    struct Case { const char* what; std::string before, after; int32_t ticks[2], times[2]; float third, tolerance; int warningLine; };
    const std::string zero = "*SCENE {\n*SCENE_FRAMESPEED 0\n*SCENE_TICKSPERFRAME 160\n}\n";
    const Case cases[] = {
        // One third of 100 ms in ticks is 160, up to the single-precision constants.
        {"30 x 160", kScene, "", {0, 480}, {0, 100}, 160.00002f, 0, 0},
        // Before any scene both values are -1: f = 3000 x (-1) x (-1) x 0.001 x (1/3), close to 1.
        {"before the scene", "", kScene, {2, 5}, {2000, 5000}, 1, 1e-6f, 0},
        {"a time base of 0: time 0 and one warning", zero, "", {100, 200}, {0, 0}, 0, 0, 10},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string lines = "*CONTROL_BEZIER_POS_KEY " + std::to_string(c.ticks[0]) + " 0 0 0 7 0 0 1 0 0 0\n" +
                                  "*CONTROL_BEZIER_POS_KEY " + std::to_string(c.ticks[1]) + " 3 0 0 -1 0 0 5 5 5 0\n";
        auto parsed = ParseAse(c.before + AnimatedHelper("*CONTROL_POS_BEZIER {\n" + lines + "}\n") + c.after);
        ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
        EXPECT_EQ(parsed.printed, c.warningLine ? parsed.At(c.warningLine) + "The scene's frame speed times its ticks per "
                                                                             "frame is 0; key and frame times are set to 0.\n"
                                                : "");
        const auto& keys = FirstNode(parsed).positionKeys;
        ASSERT_EQ(keys.size(), 2u);
        EXPECT_EQ(std::tuple(keys[0].time, keys[1].time, keys[0].inTangent.x, keys[1].outTangent.x),
                  std::tuple(c.times[0], c.times[1], 7.0f, 5.0f));
        EXPECT_NEAR(keys[0].outTangent.x, c.third, c.tolerance);
        EXPECT_NEAR(keys[1].inTangent.x, 3.0f - c.third, c.tolerance);
    }
    // Under -compat a file without timing takes 3ds Max's 30 frames of 160 ticks a second.
    ConvertSettings compat;
    compat.compat = true;
    auto defaults = ParseAse(AnimatedHelper("*CONTROL_POS_BEZIER {\n*CONTROL_BEZIER_POS_KEY 4800 0 0 0 0 0 0 0 0 0 0\n}\n"), compat);
    EXPECT_EQ(FirstNode(defaults).positionKeys.at(0).time, 1000);
    EXPECT_NE(defaults.printed.find("'SCENE_FRAMESPEED'; 30 is taken."), std::string::npos) << defaults.printed;
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
    ASSERT_EQ(std::tuple(node.positionKeys.size(), node.rotationKeys.size()), std::tuple(1u, 1u));
    // A single key keeps its tangents.
    EXPECT_EQ(std::pair(node.positionKeys[0].position.y, node.positionKeys[0].outTangent.x), std::pair(2.0f, 0.0f));
    EXPECT_EQ(std::pair(node.rotationKeys[0].time, node.rotationKeys[0].angle), std::pair(66, 0.5f));

    auto rotationOnly = ParseAse(kScene + AnimatedHelper("*CONTROL_ROT_TCB {\n*CONTROL_TCB_ROT_KEY 0 1 0 0 1 0 0 0 0 0\n}\n"));
    EXPECT_EQ(std::tuple(FirstNode(rotationOnly).positionKeys.size(), FirstNode(rotationOnly).rotationKeys.size()), std::tuple(0u, 1u));
}

TEST(AnimationKeys, ForeignNodeNamesAndOtherControllers)
{
    auto parsed = ParseAse(kScene + AnimatedHelper("*NODE_NAME \"Other\"\n*CONTROL_SCALE_BEZIER {\n*X 1\n}\n"));
    EXPECT_EQ(parsed.printed, parsed.At(9) + "Found node name 'Other' but expected 'H'.\n" + parsed.At(10) +
                                  "Do not know what symbol '*CONTROL_SCALE_BEZIER' means.\n");
    EXPECT_EQ(FirstNode(parsed).name, "H");

    auto unnamed = ParseAse("*HELPEROBJECT {\n*TM_ANIMATION {\n*NODE_NAME \"X\"\n}\n}\n");
    EXPECT_EQ(std::pair(unnamed.printed, FirstNode(unnamed).name), std::pair(std::string(), std::string()));

    auto noBrace = ParseAse(kScene + AnimatedHelper("*CONTROL_POS_BEZIER\n"));
    EXPECT_EQ(noBrace.ErrorText(), noBrace.At(10, "error") + "Aspected symbol '{' but found symbol '}'.\n");
}

// ---- Preparation and evaluation

using asetest::AddNode;

TEST(Prepare, AccumulatesRotationKeysWithAOneKeyShiftRelativeToTheParent)
{
    // Directly under the root the local transform is the world transform; the keys are
    // accumulated from it (the turned keys: tests/FileFormats/vern/Vern3DAnimationTest.cpp).
    BaseNode root("root");
    TransformNode& node = AddNode(root, "n");
    node.world(3, 0) = 4.0f;
    node.rotationKeys = {{0, {0, 0, 1}, 0.3f, {}}, {100, {0, 0, 1}, 0.5f, {}}, {200, {1, 0, 0}, 0.25f, {}}};
    // Under a transform parent it is relative to the parent.
    TransformNode& parent = AddNode(root, "p");
    parent.world(3, 1) = 10.0f;
    TransformNode& child = AddNode(parent, "c");
    child.world(3, 1) = 12.0f;
    child.rotationKeys = {{5, {0, 1, 0}, 1.0f, {}}};
    root.Prepare();

    EXPECT_EQ(node.track.matrix.m, node.world.m);
    EXPECT_EQ(node.rotationKeys[1].matrix.m, node.world.m);
    EXPECT_NE(node.rotationKeys[2].matrix.m, node.world.m);
    ASSERT_EQ(node.track.rotationKeys.size(), 3u);
    EXPECT_EQ(node.track.rotationKeys[2].matrix.m, node.rotationKeys[2].matrix.m);
    EXPECT_EQ(child.track.matrix(3, 1), 2.0f);
    EXPECT_EQ(child.rotationKeys[0].matrix.m, child.track.matrix.m);
    // With its one key the child's world transform comes back at any time.
    for (uint32_t time : {0u, 123456u})
        for (size_t i = 0; i < 16; ++i)
            EXPECT_NEAR(child.GetTransform(time).m[i], child.world.m[i], 1e-5f) << time << " " << i;
}

TEST(LastKeyTime, LatestOverTheSubtreeFromTheLastEntries)
{
    BaseNode root("root");
    EXPECT_EQ(root.GetLastKeyTime(), 0u);
    TransformNode& helper = AddNode(root, "h");
    helper.positionKeys = {{900, {}, {}, {}}, {300, {}, {}, {}}};  // the last entry counts
    helper.rotationKeys = {{200, {0, 0, 1}, 0.1f, {}}};
    AddNode<MeshNode>(helper, "m").frames.push_back(std::make_unique<Mesh>());
    static_cast<MeshNode&>(*helper.Children()[0]).frames[0]->time = 450;
    EXPECT_EQ(root.GetLastKeyTime(), 450u);  // keys count only once prepared
    root.Prepare();
    EXPECT_EQ(helper.GetLastKeyTime(), 450u);
    helper.track.rotationKeys.back().time = -5;  // compared unsigned
    EXPECT_EQ(root.GetLastKeyTime(), 0xFFFFFFFBu);
}

}  // namespace
