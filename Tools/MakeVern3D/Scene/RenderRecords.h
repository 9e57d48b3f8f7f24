// The render-ready records of a mesh node: what the mesh chunk stores (vertices, triangles,
// batches) and how each render vertex was made (its source), so that frames can be rebuilt on
// the same vertex layout.
#pragma once

#include "TransformMath.h"

#include <cstddef>
#include <cstdint>

struct MeshVertex {
    Vector3 position;  // node space
    Vector3 normal;
    uint32_t colour = 0xFFFFFFFFu;
    uint32_t material = 0;  // index of the material's property record
    float u = 0.0f;
    float v = 0.0f;  // already flipped: 1 - v of the source
};

struct MeshTriangle {
    uint32_t flags = 0;  // 4: edge 0-1 visible, 2: edge 1-2, 1: edge 2-0
    uint32_t corners[3] = {0, 0, 0};
    uint32_t textureSet = 0;
};

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

static_assert(sizeof(MeshVertex) == 40 && offsetof(MeshVertex, u) == 32);
static_assert(sizeof(MeshTriangle) == 20);
static_assert(sizeof(VertexSource) == 28 && offsetof(VertexSource, originalIndex) == 24);
static_assert(sizeof(MeshBatch) == 16);
