// A decoded vern3D scene as a glTF 2.0 model.
//
// - Nodes: one glTF node per scene node, same indices, same tree. Our matrices are row-major for
//   row vectors; glTF's are column-major for column vectors, which is the transpose stored in the
//   other order: the same 16 floats in the same order. The scene root (which has no matrix) turns
//   the source's Z-up axes into glTF's Y-up: (x, y, z) becomes (x, z, -y).
// - Meshes: one per mesh node, one primitive per batch with the batch's vertices (positions,
//   normals renormalized, texture coordinates) and its triangles. Our triangles list their
//   corners clockwise (seen from the front, in the source's right-handed axes); glTF's front
//   faces are counter-clockwise, so corners 1 and 2 change places.
// - Texture coordinates: the file stores v already flipped (1 - v of the source, whose v runs up
//   from the bottom edge of the image); glTF's v runs down from the top edge, which is exactly
//   the stored value, so u and v are written unchanged.
// - Materials: one per texture set, its first bitmap as the base colour image (an external file
//   named by a relative URI); a set with an opacity-mapped texture is blended.
// - Transform animation: sampled from the converter's own key evaluation at every key time and
//   at a fixed rate between, as translation, rotation and scale channels (animated nodes carry
//   TRS instead of a matrix, as glTF requires).
// - Mesh animation: every stored frame after the first is a morph target (position and normal
//   differences from frame 0); a weights channel blends linearly from frame to frame.
#pragma once

#include "Vern3DDecoder.h"

#include <string>

namespace tinygltf {
class Model;
}

namespace vern3d {

struct ExportOptions {
    uint32_t sampleStepMilliseconds = 33;  // about 30 samples per second between keys
    size_t maxSamplesPerNode = 10000;
    size_t maxSamplesPerScene = 1000000;  // shared by the animated nodes: the export stays linear in the file
    size_t maxMorphTargets = 4096;        // weights take targets² values; more frames fail with a reason
};

// Fills `model`; false with a reason for scenes that glTF cannot hold (non-finite values).
bool BuildGltf(const Scene& scene, const ExportOptions& options, tinygltf::Model* model, std::string* error);

// Writes a .glb (binary, one buffer inside) or a .gltf (JSON, buffer embedded), by the path's extension.
bool ExportGltf(const Scene& scene, const std::string& path, const ExportOptions& options, std::string* error);

// The axis change applied at the scene root, column-major like glTF's node.matrix.
extern const double kZUpToYUp[16];

}  // namespace vern3d
