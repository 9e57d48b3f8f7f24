// Decoder of vern3D files: the container, the node tree with each node's record, name and keys,
// the render meshes with their frame streams, and the texture table.
//
// Decoding checks everything a reader relies on and fails on anything out of place with one
// reason that names the chunk, the file offset and what is wrong. It never recurses on the depth
// of the input, and every count is bounded by the bytes that remain before anything is allocated,
// so arbitrary bytes end in a reason, never in a crash, a hang or a huge allocation.
#pragma once

#include "vern/Vern3DLayout.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vern3d {

struct NodeInfoRecord {
    uint32_t size = 0;
    uint32_t flags = 0;
    std::array<float, 16> matrix{};  // row-major, row vectors: (x, y, z, 1) * M; row 3 is the translation
    std::array<float, 4> bounds{};
    std::array<float, 4> parentBounds{};
};

struct Animation {
    uint32_t flags = 0;
    std::vector<PositionKey> positionKeys;
    std::vector<RotationKey> rotationKeys;
};

struct MeshHeaderRecord {
    uint32_t size = 0, flags = 0, batchCount = 0, triangleCount = 0, vertexCount = 0, frameCount = 0;
    std::array<float, 3> centre{};
    float radius = 0.0f;
};

struct BatchRecord {
    uint32_t size = 0, reserved = 0, firstTriangle = 0, triangleCount = 0, firstVertex = 0, vertexCount = 0,
             textureSet = 0;
};

struct TriangleRecord {
    uint32_t flags = 0;                  // edge visibility: 4 = corners 0-1, 2 = corners 1-2, 1 = corners 2-0
    std::array<uint32_t, 3> corners{};  // relative to the first vertex of the triangle's batch
    uint32_t textureSet = 0;
};

struct VertexRecord {
    std::array<float, 3> position{}, normal{};
    uint32_t colour = 0, material = 0;
    float u = 0.0f, v = 0.0f;  // v is stored flipped: 1 - v of the source
};

struct FrameRecord {
    uint32_t headerSize = 0;
    int32_t time = 0;
    uint32_t one = 0;
    int32_t delta = 0;
    std::vector<VertexRecord> vertices;  // complete: components a later frame does not store are carried from the frame stored before it
    uint32_t storedBytes = 0;            // bytes of vertex data as stored in the stream
};

struct MeshData {
    MeshHeaderRecord header;
    std::vector<BatchRecord> batches;
    std::vector<TriangleRecord> triangles;
    std::vector<FrameRecord> frames;  // the stored frames, frame 0 first
};

struct Node {
    NodeInfoRecord info;
    std::string name;
    uint32_t parent = UINT32_MAX;    // index into Scene::nodes
    std::vector<uint32_t> children;  // indices into Scene::nodes, in file order
    bool hasAnimation = false;
    Animation animation;
    bool hasMesh = false;
    std::vector<uint8_t> meshPayload;  // the ChunkMesh bytes as stored
    MeshData mesh;
    uint32_t chunkOffset = 0;  // where the node's bytes lie in the data area
    uint32_t depth = 0;        // 0 for the scene's root node
};

struct TextureEntryRecord {
    uint32_t flags = 0;  // bit 0: the texture serves as an opacity map
    std::string fileName;
};

struct Scene {
    std::array<uint8_t, 16> fileType{};
    uint32_t headerSize = 0;       // 44
    uint32_t entrySize = 0;        // 16
    uint32_t chunkCount = 0;       // directory entries, the container root included
    uint64_t fileSize = 0;
    std::vector<Node> nodes;  // nodes[0] is the scene's root node; pre-order
    std::vector<std::vector<TextureEntryRecord>> textureSets;
};

// Decodes and checks a whole file; false with a reason on anything out of place.
bool DecodeFile(const std::string& path, Scene* scene, std::string* error);
bool Decode(std::span<const uint8_t> bytes, Scene* scene, std::string* error);
inline bool Decode(const std::vector<uint8_t>& bytes, Scene* scene, std::string* error)
{
    return Decode(std::span<const uint8_t>(bytes), scene, error);
}

// Decodes one ChunkMesh payload on its own (no texture table to check the sets against).
// On failure `error` says what is wrong and `position` where, as a byte offset into the payload.
bool DecodeMesh(std::span<const uint8_t> payload, MeshData* mesh, std::string* error, size_t* position);

// Scene-wide sums for summaries.
struct Totals {
    uint64_t nodes = 0, maxDepth = 0, animatedNodes = 0, positionKeys = 0, rotationKeys = 0;
    uint64_t meshes = 0, batches = 0, triangles = 0, vertices = 0, animatedMeshes = 0;
    uint64_t storedFrames = 0, frames = 0, textureSets = 0, textures = 0;
};
Totals CountTotals(const Scene& scene);

// The node's local transform at `time` (milliseconds): its record's matrix with its keys
// evaluated (Vern3DAnimation.h); the identity for the scene root, which has no matrix.
Matrix LocalTransformAt(const Node& node, uint32_t time);
// The node's world transform at `time`: the local transforms from the node up to the scene root,
// multiplied as local * parent world, the same product the converter forms.
Matrix WorldTransformAt(const Scene& scene, uint32_t node, uint32_t time);

}  // namespace vern3d
