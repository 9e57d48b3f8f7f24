// Builds vern3D files by hand with VernWriter, for decoder and export tests that need shapes the
// converter does not (yet) write, or damaged ones.
#pragma once

#include "vern/Vern3DDecoder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vern3dtest {

using Bytes = std::vector<uint8_t>;

void AppendU32(Bytes& bytes, uint32_t value);
void AppendF32(Bytes& bytes, float value);
void PutU32(Bytes& bytes, size_t at, uint32_t value);
uint32_t GetU32(const Bytes& bytes, size_t at);

// The ChunkMesh payload for `mesh`: header, batches, triangles, frame 0 complete and every
// further frame with the components of the header's flags, then the end marker.
Bytes EncodeMesh(const vern3d::MeshData& mesh);
// The ChunkNodeAnimation payload.
Bytes EncodeAnimation(const vern3d::Animation& animation);

struct NodeShape {
    std::string name;
    vern3d::NodeInfoRecord info;  // size 104 is filled in
    const vern3d::Animation* animation = nullptr;
    const vern3d::MeshData* mesh = nullptr;
    std::vector<NodeShape> children;
};

// A whole file in the converter's order: children's chunks first, then the node's record and
// name, its keys, its mesh; the texture table last.
Bytes BuildFile(const NodeShape& root, const std::vector<std::vector<vern3d::TextureEntryRecord>>& textureSets);

// A transform node's record for `matrix`, without spheres.
vern3d::NodeInfoRecord InfoFor(const std::array<float, 16>& matrix);
constexpr std::array<float, 16> kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

}  // namespace vern3dtest
