// Builds vern3D files by hand from the layout's records (vern/Vern3DLayout.h) with VernWriter,
// for decoder and export tests that need shapes the converter does not write, or damaged ones.
#pragma once

#include "vern/Vern3DDecoder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vern3dtest {

using Bytes = std::vector<uint8_t>;

void PutU32(Bytes& bytes, size_t at, uint32_t value);
uint32_t GetU32(const Bytes& bytes, size_t at);

// A frame with all its vertices; a later frame stores the components of its mesh's flags.
struct FrameShape {
    vern3d::FrameHeader header{vern3d::kFrameHeaderSize, 0, 1, 0};
    std::vector<vern3d::Vertex> vertices;
};

struct MeshShape {
    vern3d::MeshHeader header;
    std::vector<vern3d::Batch> batches;
    std::vector<vern3d::Triangle> triangles;
    std::vector<FrameShape> frames;  // frame 0 first
};

// The ChunkMesh payload: header, batches, triangles, frame 0 complete and every further frame with
// the components of the header's flags, then the end marker.
Bytes EncodeMesh(const MeshShape& mesh);
// The ChunkNodeAnimation payload.
Bytes EncodeAnimation(const vern3d::Animation& animation);

struct NodeShape {
    std::string name;
    vern3d::NodeInfo info;  // size 104 is filled in
    const vern3d::Animation* animation = nullptr;
    const MeshShape* mesh = nullptr;
    std::vector<NodeShape> children;
};

// A whole file in the converter's order: children's chunks first, then the node's record and
// name, its keys, its mesh; the texture table last.
Bytes BuildFile(const NodeShape& root, const std::vector<std::vector<vern3d::TextureEntry>>& textureSets);

// A transform node's record for `matrix`, without spheres.
vern3d::NodeInfo InfoFor(const vern3d::Matrix& matrix);
constexpr vern3d::Matrix kIdentity = vern3d::Matrix::Identity();

// The scene root (no matrix) over `children`.
NodeShape Root(std::vector<NodeShape> children);
// A transform node with the identity matrix.
NodeShape Child(std::string name, const vern3d::Animation* animation = nullptr, const MeshShape* mesh = nullptr);
// BuildFile's bytes decoded into a scene that holds them; a file that does not decode fails the test.
vern3d::Scene BuildScene(const NodeShape& root, const std::vector<std::vector<vern3d::TextureEntry>>& textureSets);
// One triangle, stored corners {0, 2, 1}, in one batch of texture set 0 over `frames` of three
// vertices each; the later frames store the components `flags`.
MeshShape TriangleMesh(uint32_t flags, std::vector<FrameShape> frames);

}  // namespace vern3dtest
