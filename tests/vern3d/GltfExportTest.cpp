// The glTF export on hand-built scenes: matrices and their decomposition, world positions, the
// converter's key evaluation in the animation channels, morph targets, winding and texture space.
#include "GltfExport.h"
#include "GltfWorld.h"
#include "TransformSampling.h"
#include "Vern3DBuilder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

using namespace vern3d;
using namespace vern3dtest;
using gltfworld::Mat;

// Row-major row-vector matrix of scale S, then a right-hand turn by `angle` about a unit
// axis, then translation T: p' = ((p S) R) + T.
std::array<float, 16> RowMatrix(std::array<double, 3> scale, std::array<double, 3> axis, double angle,
                                std::array<double, 3> translation)
{
    // Column-vector rotation (Rodrigues); the row-vector form is its transpose.
    const double c = std::cos(angle), s = std::sin(angle), t = 1 - c;
    const double x = axis[0], y = axis[1], z = axis[2];
    const double r[3][3] = {{t * x * x + c, t * x * y - s * z, t * x * z + s * y},
                            {t * x * y + s * z, t * y * y + c, t * y * z - s * x},
                            {t * x * z - s * y, t * y * z + s * x, t * z * z + c}};
    std::array<float, 16> m{};
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            m[4 * row + column] = static_cast<float>(scale[row] * r[column][row]);
    for (int column = 0; column < 3; ++column)
        m[12 + column] = static_cast<float>(translation[column]);
    m[15] = 1;
    return m;
}

TEST(GltfExport, DecompositionRebuildsTheMatrix)
{
    const double third = 1 / std::sqrt(3.0);
    const struct {
        std::array<double, 3> scale, axis;
        double angle;
    } cases[] = {
        {{1, 1, 1}, {0, 0, 1}, 0},
        {{2, 3, 4}, {0, 0, 1}, 1.0},
        {{1, 1, 1}, {1, 0, 0}, std::numbers::pi},  // trace -1: the branch without w
        {{0.5, 0.5, 0.5}, {third, -third, -third}, 4.1888},
        {{-1, 2, 1}, {0, 1, 0}, 2.5},  // mirrored
        {{1, 1, -3}, {third, third, third}, -0.7},
    };
    for (const auto& c : cases) {
        const std::array<float, 16> matrix = RowMatrix(c.scale, c.axis, c.angle, {1, -2, 3});
        const Trs trs = Decompose(matrix);
        tinygltf::Node node;
        node.translation.assign(trs.translation.begin(), trs.translation.end());
        node.rotation.assign(trs.rotation.begin(), trs.rotation.end());
        node.scale.assign(trs.scale.begin(), trs.scale.end());
        const Mat rebuilt = gltfworld::LocalMatrix(node);
        for (int i = 0; i < 16; ++i)  // the same floats, read column-major
            EXPECT_NEAR(rebuilt[i], matrix[i], 1e-5) << "angle " << c.angle << " element " << i;
    }
}

TEST(GltfExport, WorldPositionsEqualThoseOfTheFile)
{
    MeshShape mesh;
    mesh.header = {40, 0, 1, 1, 3, 1, {}, 1};
    mesh.batches = {{28, 0, 0, 1, 0, 3, 0}};
    mesh.triangles = {{7, {0, 2, 1}, 0}};
    FrameShape frame;
    frame.vertices = {{{0, 0, 0}, {0, 0, 1}, ~0u, 0, 0.1f, 0.9f},
                      {{1, 0, 0}, {0, 0, 1}, ~0u, 0, 0.8f, 0.9f},
                      {{0, 1, 0}, {0, 0, 1}, ~0u, 0, 0.1f, 0.2f}};
    mesh.frames = {frame};
    Animation keys;  // moving keys: the helper is written with translation, rotation and scale
    keys.positionKeys = {{0, {4, 5, 6}, {4, 5, 6}, {4, 5, 6}}, {1000, {7, 5, 6}, {7, 5, 6}, {7, 5, 6}}};

    NodeShape root{"root", {}, nullptr, nullptr, {}};
    root.info.flags = 1;
    NodeShape helper{"helper", InfoFor(Matrix{RowMatrix({2, 2, 2}, {0, 0, 1}, 0.5, {4, 5, 6})}), &keys, nullptr, {}};
    helper.children.push_back({"box", InfoFor(Matrix{RowMatrix({1, 3, 1}, {1, 0, 0}, -1.2, {0, 0, 10})}), nullptr, &mesh, {}});
    root.children.push_back(helper);
    Scene scene;
    std::string error;
    ASSERT_TRUE(Decode(BuildFile(root, {{{0, "wood.tga"}}}), &scene, &error)) << error;

    tinygltf::Model model;
    ASSERT_TRUE(BuildGltf(scene, ExportOptions{}, &model, &error)) << error;
    ASSERT_EQ(model.nodes.size(), 3u);
    EXPECT_TRUE(model.nodes[1].matrix.empty());  // animated: TRS
    EXPECT_EQ(model.nodes[2].matrix.size(), 16u);
    const auto world = gltfworld::WorldMatrices(model);
    const auto expected = gltfworld::Vern3DWorldPositions(scene, 2);
    const auto actual = gltfworld::GltfWorldPositions(model, world, 2);
    ASSERT_EQ(actual.size(), 3u);
    for (size_t v = 0; v < 3; ++v)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(actual[v][c], expected[v][c], 1e-5 * std::max(1.0, std::abs(expected[v][c])));

    // Corners 0, 2, 1 as stored are drawn 0, 1, 2; u and v as stored.
    const tinygltf::Primitive& primitive = model.meshes.at(0).primitives.at(0);
    EXPECT_EQ(gltfworld::ReadIndices(model, primitive.indices), (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(gltfworld::ReadFloats(model, primitive.attributes.at("TEXCOORD_0")),
              (std::vector<float>{0.1f, 0.9f, 0.8f, 0.9f, 0.1f, 0.2f}));
    EXPECT_EQ(model.images.at(0).uri, "wood.tga");
}

// Sampled values at a time, from the exported channels of node `node`.
std::vector<float> ChannelAt(const tinygltf::Model& model, int node, const std::string& path, float seconds)
{
    for (const tinygltf::AnimationChannel& channel : model.animations.at(0).channels) {
        if (channel.target_node != node || channel.target_path != path)
            continue;
        const tinygltf::AnimationSampler& sampler = model.animations[0].samplers[channel.sampler];
        const auto times = gltfworld::ReadFloats(model, sampler.input);
        const auto values = gltfworld::ReadFloats(model, sampler.output);
        const size_t width = values.size() / times.size();
        for (size_t i = 0; i < times.size(); ++i)
            if (std::abs(times[i] - seconds) < 1e-6f)
                return std::vector<float>(values.begin() + i * width, values.begin() + (i + 1) * width);
    }
    return {};
}

TEST(GltfExport, ChannelsFollowTheConvertersKeyEvaluation)
{
    // Position control points on the line at thirds: halfway in time is halfway in space.
    // Rotation keys at 0 and 990 ms, angle a at the second: at 495 ms the node has turned by
    // -a/2 about z (eased 3s^2 - 2s^3 = 0.5), from the orientation of key 0.
    const float a = 1.2f;
    Animation keys;
    keys.positionKeys = {{0, {0, 0, 0}, {0, 0, 0}, {1, 0, 0}}, {990, {3, 0, 0}, {2, 0, 0}, {3, 0, 0}}};
    keys.rotationKeys = {{0, {0, 0, 1}, 0.7f, kIdentity}, {990, {0, 0, 1}, a, kIdentity}};
    NodeShape root{"root", {}, nullptr, nullptr, {}};
    root.info.flags = 1;
    root.children.push_back({"spinner", InfoFor(kIdentity), &keys, nullptr, {}});
    Scene scene;
    std::string error;
    ASSERT_TRUE(Decode(BuildFile(root, {}), &scene, &error)) << error;
    tinygltf::Model model;
    ASSERT_TRUE(BuildGltf(scene, ExportOptions{}, &model, &error)) << error;

    const auto middle = ChannelAt(model, 1, "translation", 0.495f);
    ASSERT_EQ(middle.size(), 3u);
    EXPECT_NEAR(middle[0], 1.5f, 1e-5f);
    const auto turn = ChannelAt(model, 1, "rotation", 0.495f);
    ASSERT_EQ(turn.size(), 4u);
    const double half = -a / 4.0;  // half of the -a/2 turn
    const double sign = turn[3] < 0 ? -1 : 1;
    EXPECT_NEAR(turn[2], sign * std::sin(half), 1e-5);
    EXPECT_NEAR(turn[3], sign * std::cos(half), 1e-5);
    const auto start = ChannelAt(model, 1, "rotation", 0.0f);  // key 0's own rotation is never applied
    ASSERT_EQ(start.size(), 4u);
    EXPECT_NEAR(std::abs(start[3]), 1.0, 1e-6);
    const auto end = ChannelAt(model, 1, "scale", 0.99f);
    EXPECT_EQ(end, (std::vector<float>{1, 1, 1}));
    // Sample times: both keys and the fixed step between, at most the limit.
    EXPECT_EQ(SampleTimes(keys, 33, 10000).size(), 31u);
    EXPECT_EQ(SampleTimes(keys, 33, 5).size(), 5u);
}

TEST(GltfExport, StoredFramesBecomeMorphTargetsWithOneHotWeights)
{
    MeshShape mesh;
    mesh.header = {40, kComponentPosition, 1, 1, 3, 5, {}, 1};
    mesh.batches = {{28, 0, 0, 1, 0, 3, 0}};
    mesh.triangles = {{7, {0, 2, 1}, 0}};
    FrameShape frame;
    frame.header.time = 100;
    frame.vertices = {{{0, 0, 0}, {0, 0, 1}, ~0u, 0, 0, 0}, {{1, 0, 0}, {0, 0, 1}, ~0u, 0, 0, 0},
                      {{0, 1, 0}, {0, 0, 1}, ~0u, 0, 0, 0}};
    FrameShape later = frame;
    later.header.time = 400, later.header.delta = 100;
    later.vertices[1].position = {1, 0, 2};
    mesh.frames = {frame, later};
    NodeShape root{"root", {}, nullptr, nullptr, {}};
    root.info.flags = 1;
    root.children.push_back({"waver", InfoFor(kIdentity), nullptr, &mesh, {}});
    Scene scene;
    std::string error;
    ASSERT_TRUE(Decode(BuildFile(root, {{}}), &scene, &error)) << error;
    tinygltf::Model model;
    ASSERT_TRUE(BuildGltf(scene, ExportOptions{}, &model, &error)) << error;

    const tinygltf::Primitive& primitive = model.meshes.at(0).primitives.at(0);
    ASSERT_EQ(primitive.targets.size(), 1u);
    EXPECT_EQ(gltfworld::ReadFloats(model, primitive.targets[0].at("POSITION")),
              (std::vector<float>{0, 0, 0, 0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(primitive.targets[0].count("NORMAL"), 0u);  // normals are not stored per frame
    EXPECT_EQ(model.meshes[0].weights, (std::vector<double>{0}));
    EXPECT_EQ(ChannelAt(model, 1, "weights", 0.1f), (std::vector<float>{0}));
    EXPECT_EQ(ChannelAt(model, 1, "weights", 0.4f), (std::vector<float>{1}));
    EXPECT_EQ(model.materials.at(0).alphaMode, "OPAQUE");

    ExportOptions few;
    few.maxMorphTargets = 0;  // weights grow with the square of the targets: a bound, and a reason
    EXPECT_FALSE(BuildGltf(scene, few, &model, &error));
    EXPECT_EQ(error, "node 'waver' has 2 stored frames; the export makes at most 0 morph targets");
}

}  // namespace
