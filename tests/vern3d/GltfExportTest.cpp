// The glTF export on hand-built scenes: matrices and their decomposition, the converter's key
// evaluation in the animation channels, morph targets, winding and texture space. World positions
// are compared with the file's in Vern3dToolTest, over the corpus.
#include "GltfExport.h"
#include "GltfWorld.h"
#include "TextEncoding.h"
#include "TransformSampling.h"
#include "support/TestFiles.h"
#include "support/Vern3DBuilder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
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

tinygltf::Model Export(const Scene& scene, std::vector<std::string>* notes = nullptr, const ExportOptions& options = {})
{
    tinygltf::Model model;
    std::string error;
    EXPECT_TRUE(BuildGltf(scene, options, &model, &error, notes)) << error;
    return model;
}

TEST(GltfExport, DecompositionRebuildsTheMatrix)
{
    const double third = 1 / std::sqrt(3.0);
    const struct { std::array<double, 3> scale, axis; double angle; } cases[] = {
        {{1, 1, 1}, {0, 0, 1}, 0}, {{2, 3, 4}, {0, 0, 1}, 1.0},
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

// Static nodes: translation, rotation and scale where the matrix is those within the tolerance
// (4 decimals are), a matrix where the validator takes it (a shear beside a large translation, as
// the validator compares column sums), else straightened with a note. The expected forms are the
// validator's verdicts on these matrices exported as they stand.
TEST(GltfExport, NodesAreTranslationRotationAndScaleWhereTheyCanBe)
{
    const struct { std::array<float, 16> matrix; bool keptAsMatrix, straightened; } cases[] = {
        {{-0.0514f, -0.8752f, -0.4810f, 0, -0.2477f, 0.4777f, -0.8429f, 0, 0.9675f, 0.0758f, -0.2413f, 0, 0, 0, 0, 1},
         false, false},
        {{1, 0, 0, 0, 0.5f, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, false, true},
        {{1, 0, 0, 0, 0.5f, 1, 0, 0, 0, 0, 1, 0, 100, 200, 300, 1}, true, false},
        {{1, 0, 0, 0.5f, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, false, true},  // projective: no glTF matrix
    };
    NodeShape root = Root({});
    for (const auto& c : cases)
        root.children.push_back({"n" + std::to_string(root.children.size() + 1), InfoFor(Matrix{c.matrix}), nullptr, nullptr, {}});
    std::vector<std::string> notes;
    const tinygltf::Model model = Export(BuildScene(root, {}), &notes);
    std::vector<std::string> expectedNotes;
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const tinygltf::Node& node = model.nodes.at(i + 1);
        EXPECT_EQ(node.matrix.size(), cases[i].keptAsMatrix ? 16u : 0u);
        EXPECT_EQ(node.rotation.size(), cases[i].keptAsMatrix ? 0u : 4u);
        if (cases[i].straightened)
            expectedNotes.push_back("node 'n" + std::to_string(i + 1) +
                                    "': its matrix has no translation, rotation and scale within 0.001; it is written "
                                    "straightened");
        if (cases[i].straightened || cases[i].keptAsMatrix)
            continue;
        const Mat local = gltfworld::LocalMatrix(node);
        for (int k = 0; k < 16; ++k)
            EXPECT_NEAR(local[k], cases[i].matrix[k], 2e-4) << k;  // the 4 decimals, straightened
    }
    EXPECT_EQ(notes, expectedNotes);
}

// A matrix glTF cannot hold fails the export with the node's name, and nothing is written.
TEST(GltfExport, NonFiniteTransformsFailTheExport)
{
    std::array<float, 16> matrix = RowMatrix({1, 1, 1}, {0, 0, 1}, 0, {0, 0, 0});
    matrix[13] = std::nanf("");
    const testfiles::ScratchDirectory directory;
    std::string error;
    EXPECT_FALSE(ExportGltf(BuildScene(Root({{"bad", InfoFor(Matrix{matrix}), nullptr, nullptr, {}}}), {}),
                            directory.File("out.glb"), {}, &error));
    EXPECT_EQ(error, "node 'bad': its matrix is not finite");
    // So do keys that give a transform that is not finite.
    Animation keys;
    keys.positionKeys = {{0, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, {990, {std::nanf(""), 0, 0}, {0, 0, 0}, {0, 0, 0}}};
    EXPECT_FALSE(ExportGltf(BuildScene(Root({Child("keyed", &keys)}), {}), directory.File("out.glb"), {}, &error));
    EXPECT_EQ(error, "node 'keyed': its keys give a transform that is not finite");
    // And so does a stored frame's vertex that is not finite, the first one too.
    FrameShape frame;
    frame.vertices = {{{0, 0, 0}, {0, 0, 1}, ~0u, 0, 0, 0}, {{1, 0, 0}, {0, 0, 1}, ~0u, 0, 0, 0}, {{0, 1, 0}, {0, 0, 1}, ~0u, 0, 0, 0}};
    FrameShape later = frame;
    later.header.time = 100, later.header.delta = 100, later.vertices[0].position.x = std::nanf("");
    const MeshShape mesh = TriangleMesh(kComponentPosition, {frame, later});
    EXPECT_FALSE(ExportGltf(BuildScene(Root({Child("waver", nullptr, &mesh)}), {{}}), directory.File("out.glb"), {}, &error));
    EXPECT_EQ(error, "node 'waver': vertex 0 of stored frame 1 has a position that is not a finite number");
    EXPECT_FALSE(testfiles::Exists(directory.File("out.glb")));
}

// Names reach glTF as UTF-8: valid sequences of every length unchanged, other bytes as Latin-1.
TEST(GltfExport, NamesBecomeUtf8)
{
    const std::pair<std::string, std::string> cases[] = {
        {"box", "box"}, {"\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9"}, {"\xE2\x82\xAC", "\xE2\x82\xAC"},
        {"\xF0\x9F\x99\x82!", "\xF0\x9F\x99\x82!"}, {"\xE9t\xE9", "\xC3\xA9t\xC3\xA9"}, {"\xF0\x9F", "\xC3\xB0\xC2\x9F"},
    };
    for (const auto& [bytes, utf8] : cases)
        EXPECT_EQ(ToUtf8(bytes), utf8) << bytes;
}

// Sampled values at a time, from the exported channels of node `node`.
std::vector<float> ChannelAt(const tinygltf::Model& model, int node, const std::string& path, float seconds)
{
    for (const tinygltf::AnimationChannel& channel : model.animations.at(0).channels) {
        if (channel.target_node != node || channel.target_path != path)
            continue;
        const tinygltf::AnimationSampler& sampler = model.animations[0].samplers[channel.sampler];
        const auto times = gltfworld::Read<float>(model, sampler.input);
        const auto values = gltfworld::Read<float>(model, sampler.output);
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
    const tinygltf::Model model = Export(BuildScene(Root({Child("spinner", &keys)}), {}));

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
    EXPECT_EQ(ChannelAt(model, 1, "scale", 0.99f), (std::vector<float>{1, 1, 1}));
    // A turn of 3 radians passes 120 degrees (the decomposition's z branch): every sample is a
    // unit turn about z, next to the one before (interpolation takes the short way), ending at -3.
    Animation far = keys;
    far.rotationKeys[1].angle = 3.0f;
    const tinygltf::Model farModel = Export(BuildScene(Root({Child("far", &far)}), {}));
    const tinygltf::AnimationChannel& channel = farModel.animations.at(0).channels.at(1);
    ASSERT_EQ(channel.target_path, "rotation");
    const auto turns = gltfworld::Read<float>(farModel, farModel.animations[0].samplers[channel.sampler].output);
    ASSERT_EQ(turns.size(), 4 * 31u);
    for (size_t i = 0; i < turns.size(); i += 4) {
        EXPECT_NEAR(std::hypot(turns[i + 2], turns[i + 3]), 1.0, 1e-5) << i / 4;
        EXPECT_EQ(std::abs(turns[i]) + std::abs(turns[i + 1]), 0.0f) << i / 4;
        EXPECT_TRUE(i == 0 || turns[i + 2] * turns[i - 2] + turns[i + 3] * turns[i - 1] > 0.0f) << i / 4;
    }
    EXPECT_NEAR(std::abs(turns[4 * 30 + 2]), std::sin(1.5), 1e-5);
    // Sample times: both keys and the fixed step between, at most the limit.
    EXPECT_EQ(SampleTimes(keys, 33, 10000).size(), 31u);
    EXPECT_EQ(SampleTimes(keys, 33, 5).size(), 5u);
}

// One triangle over two stored frames: its winding and texture space, its frames as morph targets.
TEST(GltfExport, StoredFramesBecomeMorphTargetsWithOneHotWeights)
{
    FrameShape frame;
    frame.header.time = 100;
    frame.vertices = {{{0, 0, 0}, {0, 0, 1}, ~0u, 0, 0.1f, 0.9f}, {{1, 0, 0}, {0, 0, 1}, ~0u, 0, 0.8f, 0.9f},
                      {{0, 1, 0}, {0, 0, 1}, ~0u, 0, 0.1f, 0.2f}};
    FrameShape later = frame;
    later.header.time = 400, later.header.delta = 100;
    later.vertices[1].position = {1, 0, 2};
    MeshShape mesh = TriangleMesh(kComponentPosition, {frame, later});
    mesh.header.frameCount = 5;
    const Scene scene = BuildScene(Root({Child("waver", nullptr, &mesh)}), {{{0, "wood.tga"}}});
    tinygltf::Model model = Export(scene);

    const tinygltf::Primitive& primitive = model.meshes.at(0).primitives.at(0);
    ASSERT_EQ(primitive.targets.size(), 1u);
    EXPECT_EQ(gltfworld::Read<float>(model, primitive.targets[0].at("POSITION")),
              (std::vector<float>{0, 0, 0, 0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(primitive.targets[0].count("NORMAL"), 0u);  // normals are not stored per frame
    EXPECT_EQ(model.meshes[0].weights, (std::vector<double>{0}));
    EXPECT_EQ(ChannelAt(model, 1, "weights", 0.1f), (std::vector<float>{0}));
    EXPECT_EQ(ChannelAt(model, 1, "weights", 0.4f), (std::vector<float>{1}));
    EXPECT_EQ(model.materials.at(0).alphaMode, "OPAQUE");
    // Corners 0, 2, 1 as stored are drawn 0, 1, 2; u and v as stored.
    EXPECT_EQ(gltfworld::Read<uint32_t>(model, primitive.indices), (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(gltfworld::Read<float>(model, primitive.attributes.at("TEXCOORD_0")),
              (std::vector<float>{0.1f, 0.9f, 0.8f, 0.9f, 0.1f, 0.2f}));
    EXPECT_EQ(model.images.at(0).uri, "wood.tga");

    // Beyond either bound the mesh keeps its first frame, and a note says why.
    ExportOptions fewTargets, fewValues;
    fewTargets.maxMorphTargets = 0;
    // One target of 3 vertices and its accessor, 2 stored frames of weights and their accessors.
    const size_t values = (3 * 3 + kValuesPerAccessor) + 2 * 2 + 2 * kValuesPerAccessor;
    fewValues.morphValuesPerByte = 0;
    fewValues.morphValuesBase = values - 1;
    const std::string left = "node 'waver': its animation of 2 stored frames is left out: ";
    for (const auto& [options, reason] :
         {std::pair{fewTargets, left + "the export makes at most 0 morph targets per mesh"},
          std::pair{fewValues, left + "its morph targets and weights would take " + std::to_string(values) +
                                      " values, and those of the scene at most " + std::to_string(values - 1) +
                                      " (0 per byte of its " + std::to_string(scene.fileSize) + " bytes + " +
                                      std::to_string(values - 1) + "), of which 0 are taken"}}) {
        std::vector<std::string> notes;
        model = Export(scene, &notes, options);
        EXPECT_EQ(notes, std::vector<std::string>{reason});
        EXPECT_TRUE(model.meshes.at(0).primitives.at(0).targets.empty());
        EXPECT_TRUE(model.meshes[0].weights.empty());
        EXPECT_TRUE(model.animations.empty());
    }
}

// Files of at most 64 KB shaped to make the export grow faster than the file: one mesh of
// thousands of frames (its weights grow with their square), many one-triangle batches moving over
// many frames (an accessor each), a hundred nodes with keys far apart (the most samples) beside a
// mesh of many frames. The program exports each; its peak memory stays under 200 MB, and what
// the budget leaves out is said.
TEST(GltfExport, AdversarialFilesStayWithinTheBudget)
{
    auto flicker = [](uint32_t batches, uint32_t frames, uint32_t flags) {
        MeshShape mesh;
        mesh.header = {40, flags, batches, batches, batches, frames, {}, 1};
        FrameShape frame;
        for (uint32_t b = 0; b < batches; ++b) {
            mesh.batches.push_back({28, 0, b, 1, b, 1, 0});
            mesh.triangles.push_back({0, {0, 0, 0}, 0});
            frame.vertices.push_back({{0, 0, 0}, {0, 0, 1}, ~0u, 0, 0, 0});
        }
        for (uint32_t f = 0; f < frames; ++f) {
            mesh.frames.push_back(frame);
            frame.header.time += 10, frame.header.delta = 10;
            for (Vertex& vertex : frame.vertices)
                vertex.position.x += 1, vertex.normal.y += 0.5f;
        }
        return mesh;
    };
    const struct { const char* name; MeshShape mesh; uint32_t animatedNodes; bool leftOut; } cases[] = {
        {"one mesh of many frames", flicker(1, 2000, kComponentPosition), 0, false},
        {"the same, beyond the budget", flicker(1, 2200, kComponentPosition), 0, true},
        {"many batches over many frames", flicker(16, 150, kComponentPosition | kComponentNormal), 0, false},
        {"many samples and many frames", flicker(1, 1300, kComponentPosition), 100, false},
    };
    testfiles::ScratchDirectory directory;
    Animation keys;
    keys.positionKeys = {{0, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, {0x7FFFFFFF, {1, 0, 0}, {1, 0, 0}, {1, 0, 0}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        NodeShape root = Root({Child("m", nullptr, &c.mesh)});
        for (uint32_t n = 0; n < c.animatedNodes; ++n)
            root.children.push_back(Child("n" + std::to_string(n), &keys));
        const Bytes file = BuildFile(root, {{}});
        EXPECT_LE(file.size(), 65536u);
        directory.Write("in.vern3D", std::string(file.begin(), file.end()));
        const auto run = testfiles::Run(directory.Path(), VERN3D_EXE, {"export", "in.vern3D", "-o", "out.glb"});
        EXPECT_EQ(run.exitCode, 0) << run.output;
        EXPECT_EQ(run.output.find("in.vern3D: note: node 'm': its animation of " + std::to_string(c.mesh.frames.size()) +
                                  " stored frames is left out: its morph targets and weights would take ") !=
                      std::string::npos,
                  c.leftOut)
            << run.output;
#ifndef __SANITIZE_ADDRESS__  // the sanitizer's own bookkeeping is no measure of the program's
        EXPECT_LT(run.peakKilobytes, 200 * 1024);
#endif
        RecordProperty(c.name, std::to_string(file.size()) + " bytes, peak " + std::to_string(run.peakKilobytes) +
                                   " KB, glb " + std::to_string(std::filesystem::file_size(directory.File("out.glb"))));
    }
}

}  // namespace
