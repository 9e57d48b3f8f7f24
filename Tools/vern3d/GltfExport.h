// A decoded vern3D scene as a glTF 2.0 model.
//
// - Nodes: one glTF node per scene node, same indices, same tree. Our matrices are row-major for
//   row vectors; glTF's are column-major for column vectors, which is the transpose stored in the
//   other order: the same 16 floats in the same order. The scene root (which has no matrix) turns
//   the source's Z-up axes into glTF's Y-up: (x, y, z) becomes (x, z, -y).
// - A node's transform is written as translation, rotation and scale when its matrix is those
//   within ExportOptions::trsTolerance (a matrix written with 4 decimals is, straightened a
//   little), or when the node is animated. A matrix that is not (a shear) stays a matrix when
//   glTF accepts it as one, and is straightened otherwise, with a note.
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
// - Bounded by the input: the transform samples by a scene-wide count, the mesh animations by a
//   budget of values tied to the file's size (below). A mesh whose animation does not fit keeps
//   its first frame, and a note says why; the export still succeeds.
#pragma once

#include "vern/Vern3DDecoder.h"

#include <string>
#include <vector>

namespace tinygltf {
class Model;
}

namespace vern3d {

struct ExportOptions {
    uint32_t sampleStepMilliseconds = 33;  // about 30 samples per second between keys
    size_t maxSamplesPerNode = 10000;
    size_t maxSamplesPerScene = 1000000;  // shared by the animated nodes: the export stays linear in the file
    size_t maxMorphTargets = 4096;        // per mesh: its weights take targets² values
    // The mesh animations of a scene may make at most morphValuesPerByte × the file's size +
    // morphValuesBase values: a morph target costs 3 floats per vertex (6 with normals) and
    // kValuesPerAccessor per accessor, a weights track (stored frames)² values and two accessors.
    // Meshes are taken in file order; one that does not fit keeps only its first frame. With the
    // transform samples (at most maxSamplesPerScene), the export of any file up to 64 KB stays
    // under 200 MB.
    // A node whose matrix is translation, rotation and scale within this much (relative to its
    // longest axis) is written as those; so is every animated node.
    double trsTolerance = 1e-3;
    size_t morphValuesPerByte = 16;
    size_t morphValuesBase = size_t{1} << 22;
};

// What an accessor (with its buffer view and their JSON) costs, counted in 4-byte values.
constexpr size_t kValuesPerAccessor = 256;

// Fills `model`; false with a reason for scenes that glTF cannot hold (non-finite values).
// `notes`, when given, receives one line per mesh animation left out, with the reason.
bool BuildGltf(const Scene& scene, const ExportOptions& options, tinygltf::Model* model, std::string* error,
               std::vector<std::string>* notes = nullptr);

// Writes a .glb (binary, one buffer inside) or a .gltf (JSON, buffer embedded), by the path's
// extension, under a temporary name beside `path` that replaces it only when complete: a failed
// export leaves an earlier file as it was.
bool ExportGltf(const Scene& scene, const std::string& path, const ExportOptions& options, std::string* error,
                std::vector<std::string>* notes = nullptr);

// The axis change applied at the scene root, column-major like glTF's node.matrix.
extern const double kZUpToYUp[16];

}  // namespace vern3d
