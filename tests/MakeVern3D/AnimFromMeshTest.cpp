#include "Scene/BaseNode.h"
#include "support/AseTestParse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <numbers>

namespace {

using Triangle = std::vector<Vector3>;
using Frames = std::vector<std::pair<int32_t, Triangle>>;
using Turn = std::function<Vector3(const Vector3&)>;

// P0, P1, P2 with a = unit(P2 - P1) = x and b = unit(P2 - P0) = y.
const Triangle kBase = {{0, -1, 0}, {-1, 0, 0}, {0, 0, 0}};
const Turn kNoTurn = [](const Vector3& p) { return p; };

std::array<float, 3> Xyz(const Vector3& v) { return {v.x, v.y, v.z}; }

void ExpectNear(const Vector3& actual, const Vector3& expected, float tolerance)
{
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
    EXPECT_NEAR(actual.z, expected.z, tolerance);
}

Triangle Moved(const Triangle& triangle, const Turn& turn, const Vector3& offset)
{
    Triangle moved;
    for (const Vector3& p : triangle)
        moved.push_back(Add(turn(p), offset));
    return moved;
}

MeshNode& AddMesh(BaseNode& root, const std::string& name, const Frames& frames)
{
    MeshNode& node = asetest::AddNode<MeshNode>(root, name);
    for (const auto& [time, vertices] : frames) {
        node.frames.push_back(std::make_unique<Mesh>());
        node.frames.back()->time = time;
        node.frames.back()->vertices = vertices;
    }
    return node;
}

TEST(AnimFromMesh, SingleFrameGivesItsBasisAndReplacesKeysFacesAndFrames)
{
    BaseNode root("root");
    MeshNode& node = AddMesh(root, "Box", {{40, Moved(kBase, kNoTurn, {1, 2, 3})}});
    node.positionKeys.resize(3);  // as if read from *TM_ANIMATION
    node.rotationKeys.resize(5);
    node.mesh.vertices = {{1, 1, 1}, {2, 2, 2}};
    node.mesh.faces.resize(4);
    Reporter reporter;
    node.CreateAnimFromMesh(reporter, 1);
    EXPECT_FALSE(reporter.HasError());

    // Rows nrm = e0 x e1, e1 = unit(P1 - P2), nrm x e1, then P2; worked out by hand.
    const std::array<float, 16> world = {0, 0, -1, 0, -1, 0, 0, 0, 0, 1, 0, 0, 1, 2, 3, 1};
    EXPECT_EQ(node.world.m, world);
    ASSERT_EQ(node.positionKeys.size(), 1u);
    const PositionKey& key = node.positionKeys[0];
    EXPECT_EQ(key.time, 40);
    for (const Vector3& point : {key.position, key.inTangent, key.outTangent})
        EXPECT_EQ(Xyz(point), (std::array<float, 3>{1, 2, 3}));
    ASSERT_EQ(node.rotationKeys.size(), 2u);
    for (const RotationKey& turn : node.rotationKeys)
        EXPECT_EQ(std::tuple(turn.time, Xyz(turn.axis), turn.angle), std::tuple(40, (std::array<float, 3>{0, 0, 1}), 0.0f));
    EXPECT_TRUE(node.frames.empty());
    EXPECT_TRUE(node.mesh.faces.empty());
    EXPECT_EQ(node.mesh.vertices.size(), 2u);
}

TEST(AnimFromMesh, TranslationKeepsTheOrientationAndPutsTangentsAtThirds)
{
    BaseNode root("root");
    MeshNode& node = AddMesh(root, "Box", {{0, kBase}, {100, Moved(kBase, kNoTurn, {10, 0, 0})},
                                           {300, Moved(kBase, kNoTurn, {10, -6, 0})}});
    Reporter reporter;
    node.CreateAnimFromMesh(reporter, 1);

    // Steps (10, 0, 0) and (0, -6, 0) times the float32 1/3 (0.333333343): 10 * 1/3 rounds to
    // 3.33333349 (10.0f / 3.0f would be 3.33333325), -6 * 1/3 to -2.
    struct Expected { int32_t time; std::array<float, 3> position, in, out; };
    const Expected keys[] = {
        {0, {0, 0, 0}, {0, 0, 0}, {3.33333349f, 0, 0}},
        {100, {10, 0, 0}, {6.66666651f, 0, 0}, {10, -2, 0}},
        {300, {10, -6, 0}, {10, -4, 0}, {10, -6, 0}},
    };
    ASSERT_EQ(node.positionKeys.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const PositionKey& key = node.positionKeys[i];
        EXPECT_EQ(std::tuple(key.time, Xyz(key.position), Xyz(key.inTangent), Xyz(key.outTangent)),
                  std::tuple(keys[i].time, keys[i].position, keys[i].in, keys[i].out)) << i;
    }
    const int32_t rotationTimes[] = {0, 100, 300, 300};
    ASSERT_EQ(node.rotationKeys.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        const RotationKey& key = node.rotationKeys[i];
        EXPECT_EQ(std::tuple(key.time, Xyz(key.axis), key.angle), std::tuple(rotationTimes[i], std::array<float, 3>{0, 0, 1}, 0.0f))
            << i;
    }
}

TEST(AnimFromMesh, EvaluationAtEachFrameTimeReproducesThatFrame)
{
    // Frame i is the first frame turned i times and moved. Frame 0's vertices, carried into the
    // node's space by its world and out by the transform evaluated at frame i's time, must land
    // on frame i's vertices. Each turn is written out as its effect on coordinates; the keys
    // store it as a turn by a negative angle.
    struct Case { const char* name; Triangle first; Turn turn; Vector3 axis; float angle; };
    const float k = 0.577350269f;  // 1 / sqrt(3)
    const float kPi = std::numbers::pi_v<float>;
    const Case cases[] = {
        {"90 degrees about z", kBase, [](const Vector3& p) { return Vector3{-p.y, p.x, p.z}; }, {0, 0, 1}, -kPi / 2},
        // a = y and b = z: the x axis is not in the triangle's plane.
        {"90 degrees about x", {{0, 0, -1}, {0, -1, 0}, {0, 0, 0}},
         [](const Vector3& p) { return Vector3{p.x, -p.z, p.y}; }, {1, 0, 0}, -kPi / 2},
        {"120 degrees about (1,1,1)", kBase, [](const Vector3& p) { return Vector3{p.z, p.x, p.y}; }, {k, k, k}, -kPi * 2 / 3},
    };
    const int32_t times[] = {0, 100, 250};
    const Vector3 offsets[] = {{0, 0, 0}, {2, 0, 0}, {2, 4, -1}};

    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Frames frames;
        Triangle shape = test.first;
        for (size_t i = 0; i < 3; ++i) {
            frames.emplace_back(times[i], Moved(shape, kNoTurn, offsets[i]));
            shape = Moved(shape, test.turn, {0, 0, 0});
        }
        BaseNode root("root");
        MeshNode& node = AddMesh(root, "Box", frames);
        Reporter reporter;
        node.CreateAnimFromMesh(reporter, 1);
        ASSERT_EQ(node.rotationKeys.size(), 4u);
        for (size_t i = 1; i < 4; ++i)  // the closing key keeps the last turn's axis, by angle 0
            ExpectNear(node.rotationKeys[i].axis, test.axis, 1e-6f);
        EXPECT_NEAR(node.rotationKeys[1].angle, test.angle, 1e-6f);
        EXPECT_EQ(node.rotationKeys[3].time, 250);
        EXPECT_EQ(node.rotationKeys[3].angle, 0.0f);
        root.Prepare();

        const Matrix toBody = Inverse(node.world);
        for (uint32_t time : {0u, 100u, 250u, 1000u}) {  // 1000: after the last frame
            SCOPED_TRACE(time);
            const Matrix transform = node.GetTransform(time);
            const Triangle& expected = frames[std::min<size_t>(time / 100, 2)].second;
            for (size_t v = 0; v < 3; ++v)
                ExpectNear(TransformPoint(TransformPoint(frames[0].second[v], toBody), transform), expected[v], 1e-5f);
        }
    }
}

TEST(AnimFromMesh, FailuresReportAndChangeNothing)
{
    // Message 15 without frames; message 20 for a frame of fewer than three vertices, wherever it is.
    struct Case { const char* name; Frames frames; std::string message; };
    const Case cases[] = {
        {"no frames", {}, "mesh animation is a mesh animation necessary. This error appears in object 'Box'."},
        {"short first frame", {{0, {{0, 0, 0}, {1, 0, 0}}}, {10, kBase}},
         "every frame needs three vertices. Object: Box Frame: 0\n"},
        {"empty later frame", {{0, kBase}, {10, kBase}, {20, {}}},
         "every frame needs three vertices. Object: Box Frame: 2\n"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        BaseNode root("root");
        MeshNode& node = AddMesh(root, "Box", test.frames);
        node.world(3, 0) = 7.0f;
        node.positionKeys.resize(2);
        node.rotationKeys.resize(1);
        node.mesh.faces.resize(3);
        Reporter reporter;
        node.CreateAnimFromMesh(reporter, 1);
        EXPECT_TRUE(reporter.HasError());
        EXPECT_NE(reporter.ErrorText().find(test.message), std::string::npos) << reporter.ErrorText();
        EXPECT_EQ(std::tuple(node.world(3, 0), node.positionKeys.size(), node.rotationKeys.size(), node.mesh.faces.size()),
                  std::tuple(7.0f, 2u, 1u, 3u));
        EXPECT_EQ(node.frames.size(), test.frames.size());
    }
}

TEST(AnimFromMesh, AsADirectiveItReportsAtTheGivenLineAndTheCommandsGoOn)
{
    // The second directive finds no frames: the first used them. A failure stops no later command.
    BaseNode root("root");
    AddMesh(root, "convert(createanimfrommesh,delete)Gone", {});
    MeshNode& node = AddMesh(root, "convert(createanimfrommesh,createanimfrommesh)Box", {{0, kBase}, {50, kBase}});
    Reporter reporter;
    reporter.BeginFile("f.ase");
    root.ApplyNameDirectives(reporter, 9);
    EXPECT_EQ(node.positionKeys.size(), 2u);  // the first directive did its work
    EXPECT_EQ(root.Children().size(), 1u);    // the delete behind the failure still ran
    EXPECT_EQ(reporter.ErrorText(), "f.ase(9) error: For creating a matrix animation from a mesh animation is a mesh "
                                    "animation necessary. This error appears in object "
                                    "'convert(createanimfrommesh,createanimfrommesh)Box'.");
}

}  // namespace
