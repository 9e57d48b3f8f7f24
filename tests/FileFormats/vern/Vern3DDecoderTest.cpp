// The vern3D decoder on hand-built files: meshes are referred to in place at any alignment, frames
// come back complete, transforms follow the keys, and every damaged structure fails with its
// chunk, its file offset and what is wrong.
#include "support/Vern3DBuilder.h"
#include "vern/Vern3DDecoder.h"
#include "vern/VernReader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numbers>
#include <random>

namespace {

using namespace vern3d;
using namespace vern3dtest;

// Two batches (4 + 3 vertices, sets 0 and 1) and three stored frames out of four that store
// positions and texture coordinates. Payload offsets: batches 40 and 68, triangles 96 + 20 t,
// frame 0 at 156 (vertices 172..451), marker 452, frame 1 at 453 (vertices 469..608), marker
// 609, frame 2 at 610 (vertices 626..765), end marker 766; 767 bytes.
MeshShape SampleMesh()
{
    MeshShape mesh;
    mesh.header = {40, kComponentPosition | kComponentTexture, 2, 3, 7, 4, {0.5f, 0.5f, 0.0f}, 2.0f};
    mesh.batches = {{28, 0, 0, 2, 0, 4, 0}, {28, 0, 2, 1, 4, 3, 1}};
    mesh.triangles = {{7, {0, 2, 1}, 0}, {5, {1, 2, 3}, 0}, {4, {0, 2, 1}, 1}};
    FrameShape first;
    for (uint32_t i = 0; i < 7; ++i)
        first.vertices.push_back({{float(i), float(i % 2), 0}, {0, 0, 1}, 0xFFFFFFFFu, i < 4 ? 0u : 3u, 0.25f * i, 1});
    FrameShape second = first, third = first;
    second.header = {16, 200, 1, 100};
    third.header = {16, 300, 1, 100};
    for (uint32_t i = 0; i < 7; ++i) {
        second.vertices[i].position.z = 1.0f;
        second.vertices[i].normal.x = 9.0f;  // not stored: frame 0's comes back
        third.vertices[i].position.z = 2.0f;
        third.vertices[i].u = -1.0f;
    }
    mesh.frames = {first, second, third};
    return mesh;
}

TEST(MeshDecoding, FramesAreCompleteWithTheComponentsFrameZeroHolds)
{
    const MeshShape sample = SampleMesh();
    const Bytes payload = EncodeMesh(sample);
    ASSERT_EQ(payload.size(), 767u);
    Mesh mesh;
    std::string error;
    ASSERT_TRUE(DecodeMesh(payload, &mesh, &error, nullptr)) << error;
    EXPECT_EQ(mesh.payload.data(), payload.data());  // in place, not copied
    EXPECT_EQ(mesh.header.frameCount, 4u);
    ASSERT_EQ(mesh.batches.size(), 2u);
    EXPECT_EQ(mesh.batches[1].firstVertex, 4u);
    EXPECT_EQ(mesh.triangles[1].corners, (std::array<uint32_t, 3>{1, 2, 3}));
    ASSERT_EQ(mesh.vertices.size(), 7u);
    EXPECT_EQ(mesh.vertices.Bytes().data(), payload.data() + 172);
    ASSERT_EQ(mesh.frames.size(), 3u);
    EXPECT_EQ(mesh.frames[0].storedBytes, 7u * 40);
    const StoredFrame& last = mesh.frames[2];  // 12 position + 8 texture bytes per vertex
    EXPECT_EQ((std::vector<int64_t>{last.storedBytes, static_cast<int64_t>(last.dataOffset), last.time, last.delta}),
              (std::vector<int64_t>{7 * 20, 626, 300, 100}));
    for (size_t f = 0; f < 3; ++f) {
        const std::vector<Vertex> all = mesh.FrameVertices(f);
        ASSERT_EQ(all.size(), 7u);
        for (size_t v = 0; v < 7; ++v) {
            Vertex want = sample.frames[f].vertices[v];
            want.normal = sample.frames[0].vertices[v].normal;  // never stored after frame 0
            const Vertex got = mesh.FrameVertex(f, v);
            EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << f << " " << v;
            EXPECT_EQ(std::memcmp(&all[v], &want, sizeof got), 0) << f << " " << v;
        }
    }
}

TEST(MeshDecoding, DamagedPayloadsFailAtTheRightByte)
{
    const Bytes valid = EncodeMesh(SampleMesh());
    const struct { const char* name; void (*damage)(Bytes&); size_t position; const char* reason; } cases[] = {
        {"cut short", [](Bytes& b) { b.pop_back(); }, 610, "frame 2 (7 vertices of 20 bytes and a marker) does not fit"},
        {"frame 0 without its marker", [](Bytes& b) { b.resize(452); }, 40, "batches, triangles and vertices of 28 bytes do not fit"},
        {"end marker replaced", [](Bytes& b) { b.back() = 1; }, 767, "frame 3 (7 vertices of 20 bytes and a marker) does not fit into the 0 bytes"},
        {"corner outside its batch", [](Bytes& b) { PutU32(b, 96 + 40 + 8, 3); }, 144,
         "triangle 2 corner 1 is 3, outside the 3 vertices of its batch 1"},
        {"marker missing", [](Bytes& b) { b.erase(b.begin() + 452); }, 452, "frame marker is 16"},
        {"batch past the triangles", [](Bytes& b) { PutU32(b, 68 + 12, 2); }, 80, "batch 1 reaches past the 3 triangles"},
        {"gap between batches", [](Bytes& b) { PutU32(b, 68 + 16, 5); }, 84, "batch 1 starts at vertex 5, not 4"},
        {"triangle set differs from its batch", [](Bytes& b) { PutU32(b, 96 + 16, 1); }, 112, "triangle 0 has texture set 1"},
        {"batch record size", [](Bytes& b) { PutU32(b, 40, 27); }, 40, "batch 0 does not begin with {28, 0}"},
        {"huge vertex count", [](Bytes& b) { PutU32(b, 16, 0xFFFFFFFFu); }, 40, "do not fit"},
        {"huge batch count", [](Bytes& b) { PutU32(b, 8, 0x40000000u); }, 40, "do not fit"},
        {"more frames than counted", [](Bytes& b) { PutU32(b, 20, 2); }, 609, "more frames are stored than the header's 2"},
        {"later frame without components", [](Bytes& b) { PutU32(b, 4, 0); }, 452, "component flags select nothing"},
        {"unknown component flag", [](Bytes& b) { PutU32(b, 4, 32 | 17); }, 4, "unknown component flags 49"},
        {"trailing byte", [](Bytes& b) { b.push_back(0); }, 767, "1 bytes follow the frame stream"},
        {"frame header", [](Bytes& b) { PutU32(b, 453 + 8, 2); }, 453, "frame 1 header"},
        {"frame 0 delta", [](Bytes& b) { PutU32(b, 156 + 12, 5); }, 168, "frame 0 has a time delta"},
        {"mesh header size", [](Bytes& b) { PutU32(b, 0, 41); }, 0, "mesh header size is 41"},
        {"no frame", [](Bytes& b) { PutU32(b, 20, 0); }, 20, "frame count is 0"},
    };
    for (const auto& c : cases) {
        Bytes damaged = valid;
        c.damage(damaged);
        Mesh mesh;
        std::string error;
        size_t position = 0;
        EXPECT_FALSE(DecodeMesh(damaged, &mesh, &error, &position)) << c.name;
        EXPECT_EQ(position, c.position) << c.name << ": " << error;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.name << ": " << error;
        EXPECT_TRUE(mesh.frames.empty() && mesh.vertices.empty()) << c.name;
    }
}

// A root with one mesh node "Box" under it and two texture sets.
Bytes SampleFile(const MeshShape& mesh, size_t sets = 2)
{
    std::vector<std::vector<TextureEntry>> textureSets = {{{0, "wood.tga"}}, {{1, "leaf.tga"}, {1, "leaf.tga"}}};
    textureSets.resize(sets);
    return BuildFile(Root({Child("Box", nullptr, &mesh)}), textureSets);
}

// File offset of a chunk's first byte, from the container's own directory.
uint64_t ChunkStart(const Bytes& file, uint32_t id)
{
    VernContainer container;
    EXPECT_TRUE(DecodeVern(file, &container, nullptr));
    for (const VernDecodedChunk& chunk : container.chunks)
        if (chunk.id == id)
            return container.header.dataOffset + chunk.offset;
    return 0;
}

TEST(SceneDecoding, MeshesLieInTheBytesAtAnyAlignment)
{
    const MeshShape sample = SampleMesh();
    const Bytes file = SampleFile(sample);
    const uint64_t meshStart = ChunkStart(file, kChunkMesh);
    // Shifted by 0 to 3 bytes, records sit at every alignment; the sanitizers see every access.
    for (size_t shift = 0; shift < 4; ++shift) {
        Bytes shifted(shift, 0xEE);
        shifted.insert(shifted.end(), file.begin(), file.end());
        const std::span<const uint8_t> bytes(shifted.data() + shift, file.size());
        Scene scene;
        std::string error;
        ASSERT_TRUE(Decode(bytes, &scene, &error)) << error;
        EXPECT_FALSE(scene.storage);  // the caller's bytes, referred to
        ASSERT_EQ(scene.nodes.size(), 2u);
        const Node& box = scene.nodes[1];
        EXPECT_TRUE(box.name == "Box" && box.depth == 1u && box.hasMesh);
        EXPECT_EQ(box.mesh.payload.data(), bytes.data() + meshStart);
        EXPECT_EQ(Bytes(box.mesh.payload.begin(), box.mesh.payload.end()), EncodeMesh(sample));
        EXPECT_EQ(box.mesh.FrameVertex(2, 6).position.z, 2.0f);  // the frames, decoded from the shifted bytes
        ASSERT_EQ(scene.textureSets.size(), 2u);
        EXPECT_EQ(scene.textureSets[1][1].fileName, "leaf.tga");
        const Totals t = CountTotals(scene);
        EXPECT_EQ((std::vector<uint64_t>{t.triangles, t.storedFrames, t.frames, t.textures}),
                  (std::vector<uint64_t>{3, 3, 4, 3}));
    }
    // Handed over, the bytes live as long as the scene and its copies.
    Scene copy;
    {
        Scene owner;
        std::string error;
        ASSERT_TRUE(Decode(Bytes(file), &owner, &error)) << error;
        EXPECT_TRUE(owner.storage);
        copy = owner;
    }
    EXPECT_EQ(copy.nodes[1].mesh.FrameVertex(1, 3).position.z, 1.0f);
}

// The parent moves from (0,0,0) to (10,0,0) over a second along a straight Bezier curve and
// turns a quarter about z by its second rotation key; the child stands 1 along the parent's x.
TEST(SceneDecoding, WorldTransformsFollowTheKeysUpTheTree)
{
    Animation moves;
    moves.positionKeys = {{0, {0, 0, 0}, {0, 0, 0}, {10.0f / 3, 0, 0}}, {1000, {10, 0, 0}, {20.0f / 3, 0, 0}, {10, 0, 0}}};
    const float quarter = std::numbers::pi_v<float> / 2;
    moves.rotationKeys = {{0, {0, 0, 1}, 0.0f, kIdentity}, {1000, {0, 0, 1}, -quarter, kIdentity}};
    Matrix offset = kIdentity;
    offset(3, 0) = 1.0f;
    NodeShape parent = Child("parent", &moves);
    parent.children.push_back({"child", InfoFor(offset), nullptr, nullptr, {}});
    const Scene scene = BuildScene(Root({parent}), {});
    ASSERT_EQ(scene.nodes.size(), 3u);
    ASSERT_EQ(scene.nodes[2].name, "child");

    const struct { uint32_t time; float x, y; } cases[] = {  // x, y: the child's place
        {0, 1, 0}, {500, 5 + 0.70710678f, 0.70710678f}, {1000, 10, 1}, {4000, 10, 1}};
    for (const auto& c : cases) {
        const Matrix world = WorldTransformAt(scene, 2, c.time);
        EXPECT_NEAR(world(3, 0), c.x, 1e-5f) << c.time;
        EXPECT_NEAR(world(3, 1), c.y, 1e-5f) << c.time;
        EXPECT_EQ(world(3, 3), 1.0f);
        EXPECT_EQ(LocalTransformAt(scene.nodes[2], c.time).m, offset.m);  // no keys: the record's matrix
    }
    EXPECT_EQ(LocalTransformAt(scene.nodes[0], 500).m, kIdentity.m);  // the root has no matrix
}

TEST(SceneDecoding, FailuresNameChunkAndFileOffset)
{
    const MeshShape sample = SampleMesh();
    const Bytes valid = SampleFile(sample);
    const uint64_t mesh = ChunkStart(valid, kChunkMesh), table = ChunkStart(valid, kChunkTextureTable);
    const uint32_t directory = GetU32(valid, 24);
    const auto damaged = [&](uint64_t at, uint32_t value) {
        Bytes file = valid;
        PutU32(file, at, value);
        return file;
    };
    const auto at = [](const char* where, uint64_t offset) { return where + (", file offset " + std::to_string(offset)); };
    const char* box = "ChunkMesh of node 'Box' (directory entry 3)";
    // A node with keys whose mesh entry says keys: a second key chunk.
    Animation keys;
    keys.positionKeys = {{0, {0, 0, 0}, {}, {}}};
    Bytes twoKeyChunks = BuildFile(Root({Child("Box", &keys, &sample)}), {{{0, "a.tga"}}, {}});
    uint64_t entry = GetU32(twoKeyChunks, 24);
    while (entry + 16 < twoKeyChunks.size() && GetU32(twoKeyChunks, entry) != kChunkMesh)
        entry += 16;
    PutU32(twoKeyChunks, entry, kChunkNodeAnimation);
    const struct { const char* name; Bytes file; std::string reason; } cases[] = {
        {"texture set outside the table", SampleFile(sample, 1),
         at(box, mesh + 68 + 24) + ": batch 1 names texture set 1 of 1"},
        {"corner outside its batch", damaged(mesh + 96 + 40 + 8, 9), at(box, mesh + 144) + ": triangle 2 corner 1 is 9"},
        {"directory entry past the end", damaged(directory + 16 * 3 + 12, 100000),  // the mesh entry's size
         at("directory entry 3", directory + 48) + ": chunk bytes reach past the data area"},
        {"cut short", Bytes(valid.begin(), valid.end() - 1), "directory reaches past the end of the file"},
        {"more texture entries than the table holds", damaged(table + 12 + 8, 100),  // set 0's entry count
         at("ChunkTextureTable (directory entry 4)", table + 20) + ": 100 texture entries do not fit into the table"},
        {"other file type", damaged(8, GetU32(valid, 8) ^ 1), "header, file offset 8: the file type GUID is not that of vern3D"},
        {"a second key chunk", twoKeyChunks, "unexpected chunk under a node (order: nodes, keys, mesh)"},
    };
    for (const auto& c : cases) {
        Scene scene;
        std::string error;
        EXPECT_FALSE(Decode(c.file, &scene, &error)) << c.name;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.name << ": " << error;
        EXPECT_TRUE(scene.nodes.empty()) << c.name;
    }
}

TEST(SceneDecoding, AnyByteFlipEndsInAResult)
{
    const MeshShape sample = SampleMesh();
    Animation keys;
    keys.positionKeys = {{0, {0, 0, 0}, {}, {}}, {500, {1, 2, 3}, {}, {}}};
    const Bytes valid = BuildFile(Root({Child("Box", &keys, &sample)}), {{{0, "a.tga"}}, {}});
    Scene scene;
    std::string error;
    ASSERT_TRUE(Decode(valid, &scene, &error)) << error;

    std::mt19937 random(11);
    int decoded = 0;
    for (int round = 0; round < 3000; ++round) {
        Bytes damaged = valid;
        for (int flips = 1 + round % 4; flips > 0; --flips)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        if (!Decode(damaged, &scene, &error)) {
            EXPECT_FALSE(error.empty());
            continue;
        }
        ++decoded;
        for (uint32_t n = 0; n < scene.nodes.size(); ++n) {  // what decodes can be walked whole
            const Node& node = scene.nodes[n];
            (void)WorldTransformAt(scene, n, 250);
            for (size_t f = 0; node.hasMesh && f < node.mesh.frames.size(); ++f)
                (void)node.mesh.FrameVertices(f);
        }
    }
    EXPECT_GT(decoded, 0);  // values that need no check do get changed
}

}  // namespace
