#include "VertexWelder.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kPositionTolerance = 0.1;
constexpr double kTextureTolerance = 0.001;
constexpr double kSmallestCell = 0.2;  // at least twice the tolerance: a match is at most one cell away
constexpr double kCellLimit = 4.0e18;

bool Within(float a, float b, double tolerance)
{
    return std::fabs(static_cast<double>(a) - static_cast<double>(b)) <= tolerance;
}

bool Finite(const Vector3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

// The cell of a coordinate; clamped so that huge coordinates share the outermost cells (which
// keeps the order of cells, and so the neighbourhood argument, intact).
int64_t CellOf(double coordinate, double cellSize)
{
    const double cell = std::floor(coordinate / cellSize);
    return static_cast<int64_t>(std::clamp(cell, -kCellLimit, kCellLimit));
}

uint64_t Mix(uint64_t h)
{
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    h *= 0xC4CEB9FE1A85EC53ull;
    return h ^ (h >> 33);
}

uint64_t Hash(int64_t x, int64_t y, int64_t z)
{
    return Mix(static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15ull ^ static_cast<uint64_t>(y) * 0xC2B2AE3D27D4EB4Full ^
               static_cast<uint64_t>(z) * 0x165667B19E3779F9ull);
}

}  // namespace

bool WeldMatches(const MeshVertex& existing, const MeshVertex& added)
{
    return Within(existing.position.x, added.position.x, kPositionTolerance) &&
           Within(existing.position.y, added.position.y, kPositionTolerance) &&
           Within(existing.position.z, added.position.z, kPositionTolerance) &&
           Within(existing.normal.x, added.normal.x, kPositionTolerance) &&
           Within(existing.normal.y, added.normal.y, kPositionTolerance) &&
           Within(existing.normal.z, added.normal.z, kPositionTolerance) && existing.colour == added.colour &&
           existing.material == added.material && Within(existing.u, added.u, kTextureTolerance) &&
           Within(existing.v, added.v, kTextureTolerance);
}

VertexWelder::VertexWelder(const std::vector<MeshVertex>& vertices, size_t expected, double spacing)
    : vertices(vertices), cellSize(std::isfinite(spacing) ? std::max(kSmallestCell, spacing) : kSmallestCell)
{
    size_t size = 64;
    while (size < expected * 2)
        size *= 2;
    cells.assign(size, Cell{0, -1, -1});
    next.reserve(expected);
}

size_t VertexWelder::Slot(uint64_t key) const
{
    const size_t mask = cells.size() - 1;
    for (size_t slot = key & mask, probe = 1;; slot = (slot + probe++) & mask) {
        const Cell& cell = cells[slot];
        if (cell.first < 0 || cell.key == key)
            return slot;
    }
}

int32_t VertexWelder::Find(const MeshVertex& vertex) const
{
    const Vector3& p = vertex.position;
    if (!Finite(p))
        return -1;
    // Every position within the tolerance lies in these cells. A match b of a has b >= a - 0.1 - e
    // (e: the rounding of the double subtraction, far below 1e-9), so the rounded a - margin is
    // still <= b, and the cell of b is not below its cell: the rounding of a large coordinate
    // needs no margin of its own.
    int64_t low[3], high[3];
    const double coordinates[3] = {p.x, p.y, p.z};
    for (int axis = 0; axis < 3; ++axis) {
        const double margin = kPositionTolerance * (1.0 + 1e-9);
        low[axis] = CellOf(coordinates[axis] - margin, cellSize);
        high[axis] = CellOf(coordinates[axis] + margin, cellSize);
    }
    int32_t best = -1;
    for (int64_t x = low[0]; x <= high[0]; ++x)
        for (int64_t y = low[1]; y <= high[1]; ++y)
            for (int64_t z = low[2]; z <= high[2]; ++z) {
                const Cell& cell = cells[Slot(Hash(x, y, z))];
                for (int32_t index = cell.first; index >= 0 && (best < 0 || index < best);
                     index = next[static_cast<size_t>(index)]) {
                    if (WeldMatches(vertices[static_cast<size_t>(index)], vertex)) {
                        best = index;
                        break;
                    }
                }
            }
    return best;
}

void VertexWelder::Added()
{
    const auto index = static_cast<int32_t>(vertices.size() - 1);
    next.push_back(-1);
    const Vector3& p = vertices.back().position;
    if (!Finite(p))
        return;
    if ((used + 1) * 2 > cells.size())
        Grow();
    const uint64_t key = Hash(CellOf(p.x, cellSize), CellOf(p.y, cellSize), CellOf(p.z, cellSize));
    Cell& cell = cells[Slot(key)];
    if (cell.first < 0) {
        cell = {key, index, index};
        ++used;
    } else {
        next[static_cast<size_t>(cell.last)] = index;
        cell.last = index;
    }
}

void VertexWelder::Grow()
{
    std::vector<Cell> old = std::move(cells);
    cells.assign(old.size() * 2, Cell{0, -1, -1});
    for (const Cell& cell : old)
        if (cell.first >= 0)
            cells[Slot(cell.key)] = cell;
}
