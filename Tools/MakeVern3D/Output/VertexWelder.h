// Welding of render vertices: a new vertex takes the index of the first existing vertex whose
// position and normal lie within 0.1 of its own in every component, whose colour and material
// are equal and whose u and v lie within 0.001 (all differences in double precision).
//
// The vertices are kept in a grid over the position with cells at least 0.2 wide (about half the
// mesh's typical edge, so that a cell holds few positions), so a match lies in one of at most 8
// cells around the new position; each cell lists its vertices in index order, and the smallest
// matching index over those cells is the one a scan from the start would find first.
// Vertices with a non-finite position component never match anything and stay out of the grid.
#pragma once

#include "RenderRecords.h"

#include <cstdint>
#include <vector>

bool WeldMatches(const MeshVertex& existing, const MeshVertex& added);

class VertexWelder {
public:
    // `vertices` is the list being welded; `expected` sizes the table once; `spacing` suggests
    // the cell size (any value gives the same answers, only the speed differs).
    VertexWelder(const std::vector<MeshVertex>& vertices, size_t expected, double spacing = 0.0);

    // Index of the first vertex of the list that matches, or -1.
    int32_t Find(const MeshVertex& vertex) const;
    // The list's last vertex has just been appended.
    void Added();

private:
    // A cell is known by the 64-bit hash of its coordinates: two cells that share a hash share a
    // list, which only adds candidates (still in index order) and changes no answer.
    struct Cell {
        uint64_t key;
        int32_t first;  // -1 for an empty slot
        int32_t last;
    };

    size_t Slot(uint64_t key) const;
    void Grow();

    const std::vector<MeshVertex>& vertices;
    double cellSize;
    std::vector<Cell> cells;     // open addressing, size a power of two
    std::vector<int32_t> next;   // next vertex in the same cell, -1 at the end
    size_t used = 0;
};
