// The render-ready records of a mesh node: what the mesh chunk stores (vertices, triangles,
// batches) and how each render vertex was made (its source), so that frames can be rebuilt on
// the same vertex layout.
#pragma once

#include "Scene/TransformMath.h"

#include <cstddef>
#include <cstdint>

// A render vertex and a triangle are the file's own records (vern/Vern3DLayout.h): a vertex in
// node space with v already flipped (1 - v of the source), a triangle's corners relative to the
// first vertex of its batch and its edge flags.
using MeshVertex = vern3d::Vertex;
using MeshTriangle = vern3d::Triangle;

struct VertexSource {
    int32_t face = 0;
    int32_t position = 0;    // index into the mesh's vertices
    int32_t texVertex = -1;  // position in the mesh's texture vertices, -1 for none
    int32_t smoothingGroup = 0;
    uint32_t material = 0;
    uint8_t flip = 0;  // 1 for the back side of a two-sided face
    uint8_t padding[3] = {0, 0, 0};
    int32_t originalIndex = 0;  // index before the per-batch renumbering
};

struct MeshBatch {
    uint32_t firstTriangle = 0;
    uint32_t triangleCount = 0;
    uint32_t firstVertex = 0;
    uint32_t vertexCount = 0;
};

// A record of the mesh-animation operations file: frames `first` to `last` (inclusive) move by
// `offset`, the record's displacement taken into the node's space.
struct MeshMove {
    uint32_t first = 0;
    uint32_t last = 0;
    Vector3 offset;
};

static_assert(sizeof(VertexSource) == 28 && offsetof(VertexSource, originalIndex) == 24);
static_assert(sizeof(MeshBatch) == 16);
