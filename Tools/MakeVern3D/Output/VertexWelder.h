// Welding of render vertices: a new vertex takes the index of the first existing vertex whose
// position lies within the tolerance (0.1 unless chosen otherwise) and whose normal lies within 0.1
// of its own in every component, whose colour and material are equal and whose u and v lie within
// 0.001 (all differences in double precision).
//
// A vertex with a component that is not finite (position, normal, u or v) matches nothing: its
// difference with anything is infinite or not a number, never within a tolerance. Such vertices
// neither search nor enter the table.
//
// The others are kept in a grid over the position with cells at least twice the tolerance wide
// (about half the mesh's typical edge, so that a cell holds few positions); colour and material
// are part of a cell's key. A match lies in one of at most 8 cells around the new position; each cell lists its
// vertices in index order, and the smallest matching index over those cells is the one a scan
// from the start would find first.
//
// A cell whose list grows beyond a few vertices splits: its vertices move to cells of a finer key
// under it (the normal in steps of 0.2, then u and v in steps of 0.002, then, when the first cells
// are wider, the position in steps of twice the tolerance), each list again in index order, and a search
// visits below a split cell only the finer cells around the new vertex. Each step is twice its
// tolerance, so vertices that match nothing before them (all that welding appends) number at most
// 2^8 in a cell of the finest key: many corners at one place with different normals, texture
// coordinates or materials never make a search scan them all.
//
// While the list holds a few vertices, a search simply scans them (the rule itself, and faster
// than the table for small meshes); the table is made when the list grows past them.
#pragma once

#include "Scene/RenderRecords.h"

#include <cstdint>
#include <vector>

constexpr double kWeldTolerance = 0.1;  // the position tolerance of the classic rule

class VertexWelder {
public:
    // `vertices` is the list being welded; `expected` sizes the table once; `spacing` suggests
    // the cell size (any value gives the same answers, only the speed differs); `tolerance` is the
    // position tolerance (0 or more).
    VertexWelder(const std::vector<MeshVertex>& vertices, size_t expected, double spacing = 0.0,
                 double tolerance = kWeldTolerance);

    // Index of the first vertex of the list that matches, or -1.
    int32_t Find(const MeshVertex& vertex) const;
    // Whether a vertex can match another: its position, normal, u and v are finite.
    static bool Comparable(const MeshVertex& vertex);
    // The list's last vertex has just been appended.
    void Added();

    // Table probes and vertex comparisons made by Find so far: a measure of the work for tests.
    uint64_t Work() const { return work; }

private:
    // A cell is known by its level and the 64-bit hash of its coordinates and its parent's key:
    // two cells that share both share a list, which only adds candidates (still in index order)
    // and changes no answer.
    struct Cell {
        uint64_t key;
        int32_t first;   // -1 for an empty list
        int32_t last;
        uint32_t count;  // vertices in the list
        uint8_t level;   // 0: the position grid; 1 to 3: the finer keys
        bool used;
        bool split;      // the vertices live in finer cells under this one
    };
    void CellOf(const MeshVertex& vertex, int level, int64_t cell[3]) const;
    size_t Slot(uint64_t key, int level) const;
    size_t Take(uint64_t key, int level);  // the slot of the cell, made when missing
    void Append(size_t slot, int32_t index);
    void Split(size_t slot);
    void Grow();
    void Enter(int32_t index);  // puts a vertex of the list into the table
    // Lowers `best` to the first match among the cells of `Level` around the vertex under the cell
    // `parentKey` (or, on level 0, its colour and material).
    template <int Level>
    void Search(const MeshVertex& vertex, uint64_t parentKey, int32_t& best) const;

    const std::vector<MeshVertex>& vertices;
    double tolerance;
    double finestCell;  // twice the tolerance (or a small width when it is near 0)
    double cellSize;
    int deepest;                 // the finest level in use
    size_t expected;
    std::vector<Cell> cells;     // open addressing, size a power of two; empty while scanning
    std::vector<int32_t> next;   // next vertex in the same cell, -1 at the end
    size_t used = 0;
    mutable uint64_t work = 0;
};
