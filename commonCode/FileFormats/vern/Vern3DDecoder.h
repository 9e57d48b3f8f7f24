// Loading vern3D files: the node tree with each node's record, name and keys, the render meshes
// with their frames, and the texture table.
//
//   vern3d::Scene scene;
//   std::string error;
//   if (!vern3d::DecodeFile("level.vern3D", &scene, &error)) { report error; }
//   for (const vern3d::Node& node : scene.nodes)                 // pre-order, nodes[0] the root
//       draw(node.name, vern3d::WorldTransformAt(scene, index, milliseconds), node.mesh, ...);
//
// What is checked. DecodeFile maps the file and checks, once, everything a reader relies on: the
// container (header, directory, the tree of chunks, that every chunk's bytes lie inside the
// file and apart from the others), each node's record and name, the key chunks' sizes, and in
// every mesh the batches (they cover the triangles and vertices without gaps), every triangle's
// corners (inside its batch's vertices), texture sets (inside the texture table) and the frame
// stream (markers, headers, sizes). Values that need no checking (positions, normals, key
// values) are not looked at. After a successful decode every access below is in bounds; on any
// input at all, decoding ends in a scene or in false with a reason, never in a crash, a hang or a
// huge allocation. Nothing throws: running out of memory is a failure like any other.
//
// What a failure reports: false, an empty scene, and in `error` one line that names the chunk,
// the file offset and what is wrong ("ChunkMesh of node 'Box' (directory entry 3), file offset
// 1234: triangle 2 corner 1 is 9, outside the 3 vertices of its batch 1").
//
// Ownership. The scene's meshes are not copied out of the file: their batches, triangles and
// vertices are views into the file's bytes, read a record at a time by copying (records need
// not be aligned). The scene shares ownership of those bytes: a scene from DecodeFile holds the
// file's mapping, one from Decode(std::vector<uint8_t>&&) holds the vector, and copies of a scene
// share them. A scene from Decode(std::span) refers to the caller's bytes, which must outlive it.
// A mapped file that another program truncates meanwhile can end the process with a bus error.
//
// Thread safety. A decoded scene is never changed by the library: any number of threads may read
// one scene and call the const functions below on it at once. Decoding different files on
// different threads is safe; nothing is global.
#pragma once

#include "vern/Vern3DLayout.h"

#include <array>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace vern3d {

// `count` records of one layout type lying back to back in the file's bytes, at any alignment.
// Each access copies one record out: values, never references into the file.
template <FileRecord Record>
class RecordView {
public:
    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Record;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = Record;

        iterator() = default;
        explicit iterator(const uint8_t* at) : at(at) {}
        Record operator*() const { return LoadRecord<Record>(at); }
        iterator& operator++()
        {
            at += sizeof(Record);
            return *this;
        }
        iterator operator++(int)
        {
            iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const iterator&) const = default;

    private:
        const uint8_t* at = nullptr;
    };

    RecordView() = default;
    RecordView(const uint8_t* first, size_t count) : first(first), count(count) {}

    size_t size() const { return count; }
    bool empty() const { return count == 0; }
    // Record `index` (index < size()).
    Record operator[](size_t index) const { return LoadRecord<Record>(first + index * sizeof(Record)); }
    iterator begin() const { return iterator(first); }
    iterator end() const { return iterator(first + count * sizeof(Record)); }
    std::span<const uint8_t> Bytes() const { return {first, count * sizeof(Record)}; }

private:
    const uint8_t* first = nullptr;
    size_t count = 0;
};

struct Animation {
    uint32_t flags = 0;  // kHasPositionKeys | kHasRotationKeys
    std::vector<PositionKey> positionKeys;
    std::vector<RotationKey> rotationKeys;
};

// One frame of the frame stream (frames equal to the one stored before them are left out).
struct StoredFrame {
    int32_t time = 0;           // milliseconds
    int32_t delta = 0;          // time minus that of the frame before it in the animation, stored or not
    uint32_t storedBytes = 0;   // bytes of vertex data in the stream
    size_t dataOffset = 0;      // where that data begins in the mesh's payload
};

struct Mesh {
    MeshHeader header;
    RecordView<Batch> batches;
    RecordView<Triangle> triangles;
    RecordView<Vertex> vertices;       // frame 0, complete
    std::vector<StoredFrame> frames;   // frame 0 first
    std::span<const uint8_t> payload;  // the ChunkMesh bytes as stored

    // Vertex `vertex` (< header.vertexCount) of stored frame `frame` (< frames.size()), complete:
    // the components the header's flags select come from that frame, the others from frame 0
    // (every later frame stores the same components, so the others never change).
    Vertex FrameVertex(size_t frame, size_t vertex) const;
    // All vertices of stored frame `frame` into `out`, which holds header.vertexCount of them.
    void FrameVertices(size_t frame, std::span<Vertex> out) const;
    std::vector<Vertex> FrameVertices(size_t frame) const;
};

struct Node {
    NodeInfo info;
    std::string name;
    uint32_t parent = UINT32_MAX;    // index into Scene::nodes; UINT32_MAX for the root
    std::vector<uint32_t> children;  // indices into Scene::nodes, in file order
    uint32_t depth = 0;              // 0 for the scene's root node
    uint32_t chunkOffset = 0;        // where the node's bytes lie in the data area
    bool hasAnimation = false;
    Animation animation;
    bool hasMesh = false;
    Mesh mesh;
};

struct TextureEntry {
    uint32_t flags = 0;  // kTextureOpacity: the bitmap serves as an opacity map
    std::string fileName;
};

struct Scene {
    std::array<uint8_t, 16> fileType{};
    uint32_t headerSize = 0;   // 44
    uint32_t entrySize = 0;    // 16
    uint32_t chunkCount = 0;   // directory entries, the container root included
    uint64_t fileSize = 0;
    std::vector<Node> nodes;   // nodes[0] is the scene's root node; pre-order
    std::vector<std::vector<TextureEntry>> textureSets;
    std::shared_ptr<const void> storage;  // keeps the bytes the meshes refer to; empty for Decode(span)
};

// Maps and decodes a whole file.
bool DecodeFile(const std::string& path, Scene* scene, std::string* error);
// Decodes bytes in memory, which the scene takes over.
bool Decode(std::vector<uint8_t>&& bytes, Scene* scene, std::string* error);
// Decodes bytes in memory that the scene refers to: they must outlive it and its copies.
bool Decode(std::span<const uint8_t> bytes, Scene* scene, std::string* error);

// Decodes one ChunkMesh payload on its own (no texture table to check the sets against); the mesh
// refers to `payload`. On failure `error` says what is wrong and `position` where, as a byte
// offset into the payload.
bool DecodeMesh(std::span<const uint8_t> payload, Mesh* mesh, std::string* error, size_t* position);

// The node's local transform at `time` (milliseconds): its record's matrix with its keys
// evaluated (Vern3DAnimation.h); the identity for the scene root, which has no matrix.
Matrix LocalTransformAt(const Node& node, uint32_t time);
// The node's world transform at `time`: the local transforms from the node up to the scene root,
// multiplied as local * parent world, the same product the converter forms.
Matrix WorldTransformAt(const Scene& scene, uint32_t node, uint32_t time);

// Scene-wide sums for summaries.
struct Totals {
    uint64_t nodes = 0, maxDepth = 0, animatedNodes = 0, positionKeys = 0, rotationKeys = 0;
    uint64_t meshes = 0, batches = 0, triangles = 0, vertices = 0, animatedMeshes = 0;
    uint64_t storedFrames = 0, frames = 0, textureSets = 0, textures = 0;
};
Totals CountTotals(const Scene& scene);

}  // namespace vern3d
