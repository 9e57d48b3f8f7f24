// The vern3D decoder on hand-built files: meshes and their frame streams decode completely, and
// every damaged structure fails with its chunk, its file offset and what is wrong.
#include "Vern3DBuilder.h"
#include "Vern3DDecoder.h"
#include "VernReader.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace vern3d;
using namespace vern3dtest;

VertexRecord Vertex(float x, float y, float z, uint32_t material, float u, float v)
{
    return {{x, y, z}, {0.0f, 0.0f, 1.0f}, 0xFFFFFFFFu, material, u, v};
}

// Two batches (4 + 3 vertices, sets 0 and 1) and three stored frames out of four that store
// positions and texture coordinates. Payload offsets: batches 40 and 68, triangles 96 + 20 t,
// frame 0 at 156 (vertices 172..451), marker 452, frame 1 at 453 (vertices 469..608), marker
// 609, frame 2 at 610 (vertices 626..765), end marker 766; 767 bytes.
MeshData SampleMesh()
{
    MeshData mesh;
    mesh.header = {40, kComponentPosition | kComponentTexture, 2, 3, 7, 4, {0.5f, 0.5f, 0.0f}, 2.0f};
    mesh.batches = {{28, 0, 0, 2, 0, 4, 0}, {28, 0, 2, 1, 4, 3, 1}};
    mesh.triangles = {{7, {0, 2, 1}, 0}, {5, {1, 2, 3}, 0}, {4, {0, 2, 1}, 1}};
    FrameRecord first{16, 0, 1, 0, {}, 0};
    for (uint32_t i = 0; i < 7; ++i)
        first.vertices.push_back(Vertex(float(i), float(i % 2), 0.0f, i < 4 ? 0u : 3u, 0.25f * i, 1.0f));
    FrameRecord second = first, third = first;
    second.time = 200, second.delta = 100;
    third.time = 300, third.delta = 100;
    for (uint32_t i = 0; i < 7; ++i) {
        second.vertices[i].position[2] = 1.0f;
        third.vertices[i].position[2] = 2.0f;
        third.vertices[i].u = -1.0f;
    }
    mesh.frames = {first, second, third};
    return mesh;
}

TEST(MeshDecoding, FramesAreCompleteWithComponentsCarriedFromTheFrameBefore)
{
    const MeshData sample = SampleMesh();
    const Bytes payload = EncodeMesh(sample);
    ASSERT_EQ(payload.size(), 767u);
    MeshData mesh;
    std::string error;
    ASSERT_TRUE(DecodeMesh(payload, &mesh, &error, nullptr)) << error;
    EXPECT_EQ(mesh.header.vertexCount, 7u);
    EXPECT_EQ(mesh.header.frameCount, 4u);
    ASSERT_EQ(mesh.batches.size(), 2u);
    EXPECT_EQ(mesh.batches[1].firstVertex, 4u);
    EXPECT_EQ(mesh.triangles[1].corners, (std::array<uint32_t, 3>{1, 2, 3}));
    ASSERT_EQ(mesh.frames.size(), 3u);
    EXPECT_EQ(mesh.frames[0].storedBytes, 7u * 40);
    EXPECT_EQ(mesh.frames[2].storedBytes, 7u * 20);  // 12 position + 8 texture bytes per vertex
    EXPECT_EQ(mesh.frames[2].time, 300);
    EXPECT_EQ(mesh.frames[2].delta, 100);
    const VertexRecord& carried = mesh.frames[2].vertices[5];
    EXPECT_EQ(carried.position, (std::array<float, 3>{5.0f, 1.0f, 2.0f}));
    EXPECT_EQ(carried.u, -1.0f);
    EXPECT_EQ(carried.normal, (std::array<float, 3>{0.0f, 0.0f, 1.0f}));  // not stored: frame 0's
    EXPECT_EQ(carried.material, 3u);
    EXPECT_EQ(carried.colour, 0xFFFFFFFFu);
}

TEST(MeshDecoding, DamagedPayloadsFailAtTheRightByte)
{
    const Bytes valid = EncodeMesh(SampleMesh());
    const struct {
        const char* name;
        void (*damage)(Bytes&);
        size_t position;
        const char* reason;
    } cases[] = {
        {"cut short", [](Bytes& b) { b.pop_back(); }, 610, "frame 2 (7 vertices of 20 bytes and a marker) does not fit"},
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
        MeshData mesh;
        std::string error;
        size_t position = 0;
        EXPECT_FALSE(DecodeMesh(damaged, &mesh, &error, &position)) << c.name;
        EXPECT_EQ(position, c.position) << c.name << ": " << error;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.name << ": " << error;
        EXPECT_TRUE(mesh.frames.empty()) << c.name;
    }
}

// A root with one mesh node "Box" under it and two texture sets.
Bytes SampleFile(const MeshData& mesh, size_t sets = 2)
{
    NodeShape root{"root", {}, nullptr, nullptr, {}};
    root.info.flags = 1;
    root.children.push_back({"Box", InfoFor(kIdentity), nullptr, &mesh, {}});
    std::vector<std::vector<TextureEntryRecord>> textureSets = {{{0, "wood.tga"}}, {{1, "leaf.tga"}, {1, "leaf.tga"}}};
    textureSets.resize(sets);
    return BuildFile(root, textureSets);
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

TEST(SceneDecoding, MeshNodesKeepPayloadAndDecodedMesh)
{
    const MeshData sample = SampleMesh();
    const Bytes file = SampleFile(sample);
    Scene scene;
    std::string error;
    ASSERT_TRUE(Decode(file, &scene, &error)) << error;
    ASSERT_EQ(scene.nodes.size(), 2u);
    const Node& box = scene.nodes[1];
    EXPECT_EQ(box.name, "Box");
    EXPECT_EQ(box.depth, 1u);
    EXPECT_TRUE(box.hasMesh);
    EXPECT_EQ(box.meshPayload, EncodeMesh(sample));
    EXPECT_EQ(box.mesh.frames.size(), 3u);
    ASSERT_EQ(scene.textureSets.size(), 2u);
    EXPECT_EQ(scene.textureSets[1][1].fileName, "leaf.tga");
    const Totals totals = CountTotals(scene);
    EXPECT_EQ(totals.triangles, 3u);
    EXPECT_EQ(totals.storedFrames, 3u);
    EXPECT_EQ(totals.frames, 4u);
    EXPECT_EQ(totals.textures, 3u);
}

TEST(SceneDecoding, FailuresNameChunkAndFileOffset)
{
    const MeshData sample = SampleMesh();
    const Bytes valid = SampleFile(sample);
    const uint64_t mesh = ChunkStart(valid, kChunkMesh);
    const uint32_t directory = GetU32(valid, 24);

    struct Case {
        const char* name;
        Bytes file;
        std::string reason;
    };
    std::vector<Case> cases;
    cases.push_back({"texture set outside the table", SampleFile(sample, 1),
                     "ChunkMesh of node 'Box' (directory entry 3), file offset " + std::to_string(mesh + 68 + 24) +
                         ": batch 1 names texture set 1 of 1"});
    Bytes corner = valid;
    PutU32(corner, mesh + 96 + 40 + 8, 9);
    cases.push_back({"corner outside its batch", corner,
                     "ChunkMesh of node 'Box' (directory entry 3), file offset " + std::to_string(mesh + 144) +
                         ": triangle 2 corner 1 is 9"});
    Bytes pastEnd = valid;
    PutU32(pastEnd, directory + 16 * 3 + 12, 100000);  // the mesh entry's size
    cases.push_back({"directory entry past the end", pastEnd,
                     "directory entry 3, file offset " + std::to_string(directory + 48) +
                         ": chunk bytes reach past the data area"});
    cases.push_back({"cut short", Bytes(valid.begin(), valid.end() - 1), "directory reaches past the end of the file"});
    Bytes guid = valid;
    guid[8] ^= 1;
    cases.push_back({"other file type", guid, "header, file offset 8: the file type GUID is not that of vern3D"});

    for (const Case& c : cases) {
        Scene scene;
        std::string error;
        EXPECT_FALSE(Decode(c.file, &scene, &error)) << c.name;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.name << ": " << error;
        EXPECT_TRUE(scene.nodes.empty()) << c.name;
    }
}

TEST(SceneDecoding, AnyTruncationOrByteFlipEndsInAResult)
{
    const MeshData sample = SampleMesh();
    Animation keys;
    keys.positionKeys = {{0, {0, 0, 0}, {}, {}}, {500, {1, 2, 3}, {}, {}}};
    NodeShape root{"root", {}, nullptr, nullptr, {}};
    root.info.flags = 1;
    root.children.push_back({"Box", InfoFor(kIdentity), &keys, &sample, {}});
    const Bytes valid = BuildFile(root, {{{0, "a.tga"}}, {}});
    Scene scene;
    std::string error;
    ASSERT_TRUE(Decode(valid, &scene, &error)) << error;

    for (size_t length = 0; length < valid.size(); ++length)
        EXPECT_FALSE(Decode(std::span(valid.data(), length), &scene, &error)) << length;
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round) {
        Bytes damaged = valid;
        for (int flips = 1 + round % 4; flips > 0; --flips)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        if (!Decode(damaged, &scene, &error)) {
            EXPECT_FALSE(error.empty());
        }
    }
}

}  // namespace
