// Whole scenes made at random and converted in process: materials with sub-materials, two-sided
// and opacity maps, objects in a hierarchy with keys and mesh animations, name directives, every
// choice of frame components, -analyse and operations files. Each output must decode; its nodes,
// triangles and frames must follow from what was generated; and every frame, render vertex and
// stored frame must equal the frame-vertex rule carried out literally here.
#include "Scene/BaseNode.h"
#include "support/AseTestParse.h"
#include "support/RandomScenes.h"
#include "support/TestFiles.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kSeed = 0x5EED3D;
constexpr int kSceneCount = 60;

using randomscenes::Generated;
using randomscenes::Move;
using randomscenes::Object;
using randomscenes::Text;

// ---- The frame-vertex rule, literally ----

std::vector<MeshVertex> LiteralFrameVertices(const Mesh& mesh, const std::vector<VertexSource>& sources)
{
    // The face's record by its number. The records are sorted and numbered once each, so the
    // first match is the record the sorted binary search finds.
    const auto record = [&](int32_t k) {
        for (size_t r = 0; r < mesh.normals.size(); ++r)
            if (mesh.normals[r].faceIndex == k)
                return static_cast<int32_t>(r);
        return -1;
    };
    std::vector<MeshVertex> list(sources.size());
    for (size_t i = 0; i < sources.size(); ++i) {
        const VertexSource& s = sources[i];
        const auto position = static_cast<size_t>(s.position), texVertex = static_cast<size_t>(s.texVertex);
        list[i].position = position < mesh.vertices.size() ? mesh.vertices[position] : Vector3{0.0f, 0.0f, 0.0f};
        const Vector3 n = randomscenes::PlainCornerNormal(mesh, s.face, s.position, s.smoothingGroup, record);
        list[i].normal = s.flip ? Vector3{-n.x, -n.y, -n.z} : n;
        list[i].colour = 0xFFFFFFFFu;
        list[i].material = s.material;
        list[i].u = s.texVertex != -1 && texVertex < mesh.texVertices.size() ? mesh.texVertices[texVertex].u : 0.0f;
        list[i].v = s.texVertex != -1 && texVertex < mesh.texVertices.size() ? 1.0f - mesh.texVertices[texVertex].v : 0.0f;
    }
    return list;
}

// ---- Checks ----

using Words = std::array<uint32_t, 10>;  // position, normal, colour, material, u, v
static_assert(sizeof(MeshVertex) == sizeof(Words) && sizeof(vern3d::Vertex) == sizeof(Words));
Words Bits(const auto& vertex) { return std::bit_cast<Words>(vertex); }
constexpr Words kWordComponent = {1, 1, 1, 2, 2, 2, 4, 8, 16, 16};  // the component flag of each word

bool FramesDiffer(const std::vector<MeshVertex>& a, const std::vector<MeshVertex>& b, uint32_t flags)
{
    for (size_t k = 0; k < a.size(); ++k) {
        const Words p = Bits(a[k]), q = Bits(b[k]);
        for (size_t w = 0; w < p.size(); ++w) {
            const double bound = w < 6 ? static_cast<double>(0.1f) : 0.01;
            const bool floats = w < 6 || w > 7;
            if ((flags & kWordComponent[w]) &&
                (floats ? std::fabs(double(std::bit_cast<float>(p[w])) - std::bit_cast<float>(q[w])) > bound : p[w] != q[w]))
                return true;
        }
    }
    return false;
}

// The frames, the render vertices and the stream of one mesh node; answers the frames left out.
size_t CheckMeshNode(const Generated& scene, MeshNode& node, const vern3d::Mesh& decoded)
{
    SCOPED_TRACE("mesh node " + node.name);
    // Each render vertex is the rule applied to the source mesh: welding keeps the first one added.
    const Mesh& source = scene.settings.analyse > 0 && node.frames.size() >= 2 ? *node.frames[1] : node.mesh;
    const auto sourceList = LiteralFrameVertices(source, node.vertexSources);
    EXPECT_EQ(sourceList.size(), node.renderVertices.size());
    for (size_t k = 0; k < sourceList.size() && k < node.renderVertices.size(); ++k)
        EXPECT_EQ(Bits(node.renderVertices[k]), Bits(sourceList[k])) << "render vertex " << k;

    // Each frame is the rule applied to its mesh, then moved by every record that reaches it, in
    // file order: the record's (x, y, z) times the upper-left 3x3 of the inverse world matrix.
    const Matrix m = Inverse(node.world);
    std::vector<std::vector<MeshVertex>> frames;
    for (size_t i = 0; i < node.frames.size(); ++i) {
        frames.push_back(LiteralFrameVertices(*node.frames[i], node.vertexSources));
        for (const Move& move : scene.moves) {
            if (static_cast<int>(i) < move.first || static_cast<int>(i) > move.last)
                continue;
            const float x = move.scene.x, y = move.scene.y, z = move.scene.z;
            const Vector3 d{x * m(0, 0) + y * m(1, 0) + z * m(2, 0), x * m(0, 1) + y * m(1, 1) + z * m(2, 1),
                            x * m(0, 2) + y * m(1, 2) + z * m(2, 2)};
            for (MeshVertex& vertex : frames.back())
                vertex.position = Add(vertex.position, d);
        }
    }

    // The stream: frame 0 whole, then each frame that differs from the last stored one, its
    // selected components stored and the others carried from the stored frame before it.
    const size_t frameCount = std::max<size_t>(node.frames.size(), 1);
    const auto list = [&](size_t i) -> const std::vector<MeshVertex>& {
        return frames.empty() ? node.renderVertices : frames[i];
    };
    const uint32_t flags = scene.settings.meshAnimFlags & 0xFFu;
    std::vector<size_t> stored = {0};
    for (size_t i = 1; i < frameCount; ++i)
        if (FramesDiffer(list(stored.back()), list(i), flags))
            stored.push_back(i);
    EXPECT_EQ(decoded.header.flags, scene.settings.meshAnimFlags);
    EXPECT_EQ(decoded.header.vertexCount, node.renderVertices.size());
    EXPECT_EQ(decoded.frames.size(), stored.size());
    std::vector<Words> carried(node.renderVertices.size());
    for (size_t j = 0; j < stored.size() && j < decoded.frames.size(); ++j) {
        const size_t i = stored[j];
        const int32_t time = node.frames.empty() ? 0 : node.frames[i]->time;
        EXPECT_EQ(decoded.frames[j].time, time) << "frame " << i;
        EXPECT_EQ(decoded.frames[j].delta, i == 0 ? 0 : time - node.frames[i - 1]->time) << "frame " << i;
        const std::vector<vern3d::Vertex> vertices = decoded.FrameVertices(j);
        EXPECT_EQ(vertices.size(), list(i).size());
        for (size_t k = 0; k < list(i).size() && k < vertices.size(); ++k) {
            for (size_t w = 0; w < carried[k].size(); ++w)
                carried[k][w] = j == 0 || (flags & kWordComponent[w]) ? Bits(list(i)[k])[w] : carried[k][w];
            EXPECT_EQ(Bits(vertices[k]), carried[k]) << "stored frame " << i << " vertex " << k;
        }
    }
    return frameCount - stored.size();
}

// Adds to `skipped` the frames left out of the streams.
void CheckScene(const Generated& scene, const asetest::Parsed& parsed, size_t& skipped)
{
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    vern3d::Scene file;
    std::string error;
    ASSERT_TRUE(vern3d::DecodeFile(parsed.output, &file, &error)) << error;
    std::map<std::string, size_t> decodedByName;
    for (size_t i = 1; i < file.nodes.size(); ++i)
        EXPECT_TRUE(decodedByName.emplace(file.nodes[i].name, i).second) << "twice: " << file.nodes[i].name;
    BaseNode& root = *parsed.Root();
    size_t survivors = 0, skippedHere = 0;
    for (const Object& o : scene.objects) {
        SCOPED_TRACE("object " + o.fileName);
        BaseNode* node = root.FindNode(o.name);
        const auto found = decodedByName.find(o.name);
        EXPECT_EQ(node == nullptr, o.removed);
        EXPECT_EQ(found == decodedByName.end(), o.removed);
        if (o.removed || !node || found == decodedByName.end())
            continue;
        ++survivors;
        const vern3d::Node& decoded = file.nodes[found->second];
        int parent = o.parent;  // removed nodes hand their children to their own parent
        while (parent >= 0 && scene.objects[static_cast<size_t>(parent)].removed)
            parent = scene.objects[static_cast<size_t>(parent)].parent;
        const std::string parentName = parent < 0 ? root.name : scene.objects[static_cast<size_t>(parent)].name;
        EXPECT_EQ(node->Parent()->name, parentName);
        EXPECT_EQ(file.nodes[decoded.parent].name, parentName);
        EXPECT_EQ(decoded.hasAnimation, o.positionKeys + o.rotationKeys > 0);
        EXPECT_EQ(decoded.animation.positionKeys.size(), o.positionKeys);
        EXPECT_EQ(decoded.animation.rotationKeys.size(), o.rotationKeys);
        EXPECT_EQ(decoded.hasMesh, !o.helper && !o.animFromMesh);
        if (!decoded.hasMesh || o.helper || o.animFromMesh)
            continue;
        EXPECT_EQ(decoded.mesh.header.triangleCount, o.faces + o.twoSidedFaces);
        EXPECT_EQ(decoded.mesh.header.frameCount, std::max<size_t>(o.frames, 1));
        skippedHere += CheckMeshNode(scene, static_cast<MeshNode&>(*node), decoded.mesh);
    }
    EXPECT_EQ(file.nodes.size(), survivors + 1);
    size_t warnings = 0;
    for (size_t at = 0; (at = parsed.printed.find("Because it equals the last frame.", at)) != std::string::npos; ++at)
        ++warnings;
    EXPECT_EQ(warnings, skippedHere);
    skipped += skippedHere;
}

TEST(GeneratedScenes, ConvertDecodeAndKeepTheLiteralFrameRule)
{
    randomscenes::Random random(kSeed);
    testfiles::ScratchDirectory operations;
    int dumped = 0;
    size_t skipped = 0;
    std::map<std::string, int> seen;  // so that a generator that stops making a case is noticed
    for (int index = 0; index < kSceneCount; ++index) {
        SCOPED_TRACE("seed " + Text(kSeed) + ", scene " + Text(index));
        Generated scene = randomscenes::Generate(random);
        if (!scene.operations.empty())
            scene.settings.meshOpsFile = operations.Write("ops" + Text(index) + ".txt", scene.operations);
        const auto parsed = asetest::ParseAse(scene.text, scene.settings);
        const bool failedBefore = ::testing::Test::HasFailure();
        CheckScene(scene, parsed, skipped);
        if (::testing::Test::HasFailure() && !failedBefore && dumped++ < 2)
            std::cout << "---- scene " << index << ", flags " << scene.settings.meshAnimFlags << ", analyse "
                      << scene.settings.analyse << "\n" << scene.text << "---- operations\n" << scene.operations;
        seen["operations"] += !scene.moves.empty();
        seen["analyse"] += scene.settings.analyse > 0;
        for (const Object& o : scene.objects)
            seen["lifted"] += o.removed && o.parent >= 0, seen["createanimfrommesh"] += o.animFromMesh,
                seen["mesh animation"] += o.frames > 0 && !o.animFromMesh, seen["two-sided"] += o.twoSidedFaces > 0;
    }
    EXPECT_GT(skipped, 0u);
    for (const char* what : {"operations", "analyse", "lifted", "createanimfrommesh", "mesh animation", "two-sided"})
        EXPECT_GT(seen[what], 2) << what;
}

}  // namespace
