// Welding of render vertices: a new vertex takes the index of the first existing vertex whose
// position and normal lie within 0.1 of its own in every component, whose colour and material
// are equal and whose u and v lie within 0.001 (all differences in double precision).
//
// The vertices are kept in a grid of cells 0.2 wide over the position, so a match lies in one of
// at most 8 cells around the new position; each cell lists its vertices in index order, and the
// smallest matching index over those cells is the one a scan from the start would find first.
// Vertices with a non-finite position component never match anything and stay out of the grid.
#pragma once

#include "RenderRecords.h"

#include <cstdint>
#include <vector>

bool WeldMatches(const MeshVertex& existing, const MeshVertex& added);

class VertexWelder {
public:
    // `vertices` is the list being welded; `expected` sizes the table once.
    VertexWelder(const std::vector<MeshVertex>& vertices, size_t expected);

    // Index of the first vertex of the list that matches, or -1.
    int32_t Find(const MeshVertex& vertex) const;
    // The list's last vertex has just been appended.
    void Added();

private:
    struct Cell {
        int64_t x, y, z;
        int32_t first;  // -1 for an empty slot
        int32_t last;
    };

    size_t Slot(int64_t x, int64_t y, int64_t z) const;
    void Grow();

    const std::vector<MeshVertex>& vertices;
    std::vector<Cell> cells;     // open addressing, size a power of two
    std::vector<int32_t> next;   // next vertex in the same cell, -1 at the end
    size_t used = 0;
};
