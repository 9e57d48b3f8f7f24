#include "Output/VertexWelder.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kNormalTolerance = 0.1;
constexpr double kNormalCell = 0.2;  // twice the tolerance: a match is at most one cell away
constexpr double kTextureTolerance = 0.001;
constexpr double kTextureCell = 0.002;
constexpr double kFinestPositionCell = 1e-6;  // for tolerances near 0 (any width gives the same answers)
constexpr double kCellLimit = 4.0e18;
constexpr uint32_t kSplitAbove = 16;  // a list longer than this splits, unless at the finest level
constexpr size_t kScanned = 32;       // lists of at most this many vertices are scanned

inline bool Within(float a, float b, double tolerance)
{
    return std::fabs(static_cast<double>(a) - static_cast<double>(b)) <= tolerance;
}

inline bool Matches(const MeshVertex& existing, const MeshVertex& added, double tolerance)
{
    return Within(existing.position.x, added.position.x, tolerance) &&
           Within(existing.position.y, added.position.y, tolerance) &&
           Within(existing.position.z, added.position.z, tolerance) &&
           Within(existing.normal.x, added.normal.x, kNormalTolerance) &&
           Within(existing.normal.y, added.normal.y, kNormalTolerance) &&
           Within(existing.normal.z, added.normal.z, kNormalTolerance) && existing.colour == added.colour &&
           existing.material == added.material && Within(existing.u, added.u, kTextureTolerance) &&
           Within(existing.v, added.v, kTextureTolerance);
}

uint64_t Mix(uint64_t h)
{
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    h *= 0xC4CEB9FE1A85EC53ull;
    return h ^ (h >> 33);
}

// The key of a cell under the cell (or, for the position grid, the colour and material) `parent`.
// Neighbours along x get neighbouring keys (a row of cells lies together in the table, so that a
// search that follows the faces of a mesh finds the cells it visits in the cache); rows are spread.
uint64_t ChildKey(uint64_t parent, const int64_t cell[3])
{
    return Mix(parent * 0x9E3779B97F4A7C15ull ^ static_cast<uint64_t>(cell[1]) * 0x165667B19E3779F9ull ^
               static_cast<uint64_t>(cell[2]) * 0x27D4EB2F165667C5ull) +
           static_cast<uint64_t>(cell[0]);
}

uint64_t RootKey(const MeshVertex& v) { return Mix(uint64_t{v.material} << 32 | v.colour); }

// What each level divides into cells: the position (level 0 in cells of the welder's size, level 3
// in cells of twice the tolerance), the normal (cells of 0.2), or u and v (cells of 0.002).
struct Axes {
    double values[3];
    int count;
    double width;
    double tolerance;
};

inline Axes AxesOf(const MeshVertex& v, int level, double cellSize, double finestCell, double tolerance)
{
    switch (level) {
    case 0:
        return {{v.position.x, v.position.y, v.position.z}, 3, cellSize, tolerance};
    case 1:
        return {{v.normal.x, v.normal.y, v.normal.z}, 3, kNormalCell, kNormalTolerance};
    case 2:
        return {{v.u, v.v, 0.0}, 2, kTextureCell, kTextureTolerance};
    default:
        return {{v.position.x, v.position.y, v.position.z}, 3, finestCell, tolerance};
    }
}

// Clamped, so that huge values share the outermost cells (which keeps the order of cells, and so
// the neighbourhood argument, intact).
int64_t CellIndex(double value, double width)
{
    return static_cast<int64_t>(std::clamp(std::floor(value / width), -kCellLimit, kCellLimit));
}

}  // namespace

bool VertexWelder::Comparable(const MeshVertex& v)
{
    const float values[8] = {v.position.x, v.position.y, v.position.z, v.normal.x, v.normal.y, v.normal.z, v.u, v.v};
    return std::all_of(std::begin(values), std::end(values), [](float value) { return std::isfinite(value); });
}

VertexWelder::VertexWelder(const std::vector<MeshVertex>& vertices, size_t expected, double spacing, double tolerance)
    : vertices(vertices), tolerance(tolerance), finestCell(std::max(2.0 * tolerance, kFinestPositionCell)),
      cellSize(std::isfinite(spacing) ? std::max(finestCell, spacing) : finestCell), deepest(cellSize > finestCell ? 3 : 2),
      expected(expected)
{
}

void VertexWelder::CellOf(const MeshVertex& vertex, int level, int64_t cell[3]) const
{
    const Axes axes = AxesOf(vertex, level, cellSize, finestCell, tolerance);
    for (int axis = 0; axis < 3; ++axis)
        cell[axis] = axis < axes.count ? CellIndex(axes.values[axis], axes.width) : 0;
}

size_t VertexWelder::Slot(uint64_t key, int level) const
{
    const size_t mask = cells.size() - 1;
    for (size_t slot = key & mask, probe = 1;; slot = (slot + probe++) & mask) {
        const Cell& cell = cells[slot];
        if (!cell.used || (cell.key == key && cell.level == level))
            return slot;
    }
}

size_t VertexWelder::Take(uint64_t key, int level)
{
    if ((used + 1) * 2 > cells.size())
        Grow();
    const size_t slot = Slot(key, level);
    if (!cells[slot].used) {
        cells[slot] = Cell{key, -1, -1, 0, static_cast<uint8_t>(level), true, false};
        ++used;
    }
    return slot;
}

void VertexWelder::Append(size_t slot, int32_t index)
{
    Cell& cell = cells[slot];
    if (cell.first < 0)
        cell.first = index;
    else
        next[static_cast<size_t>(cell.last)] = index;
    cell.last = index;
    ++cell.count;
}

void VertexWelder::Split(size_t slot)
{
    Cell& cell = cells[slot];
    const uint64_t key = cell.key;
    const int level = cell.level + 1;
    int32_t index = cell.first;
    cell.split = true;
    cell.first = cell.last = -1;
    cell.count = 0;
    // Taken in list order, so each finer list is in index order too.
    while (index >= 0) {
        const int32_t following = next[static_cast<size_t>(index)];
        next[static_cast<size_t>(index)] = -1;
        int64_t finer[3];
        CellOf(vertices[static_cast<size_t>(index)], level, finer);
        Append(Take(ChildKey(key, finer), level), index);
        index = following;
    }
}

template <int Level>
void VertexWelder::Search(const MeshVertex& vertex, uint64_t parentKey, int32_t& best) const
{
    // Every value within the tolerance lies in the cells from low to high. A match b of a has
    // b >= a - t - e (e: the rounding of the double subtraction, far below 1e-9 t), so the rounded
    // a - margin is still <= b, and the cell of b is not below its cell: the rounding of a large
    // value needs no margin of its own.
    const Axes axes = AxesOf(vertex, Level, cellSize, finestCell, tolerance);
    const double margin = axes.tolerance * (1.0 + 1e-9);
    int64_t low[3] = {0, 0, 0}, high[3] = {0, 0, 0};
    for (int axis = 0; axis < axes.count; ++axis) {
        low[axis] = CellIndex(axes.values[axis] - margin, axes.width);
        high[axis] = CellIndex(axes.values[axis] + margin, axes.width);
    }
    int64_t cell[3];
    for (cell[0] = low[0]; cell[0] <= high[0]; ++cell[0])
        for (cell[1] = low[1]; cell[1] <= high[1]; ++cell[1])
            for (cell[2] = low[2]; cell[2] <= high[2]; ++cell[2]) {
                ++work;
                const uint64_t key = ChildKey(parentKey, cell);
                const Cell& found = cells[Slot(key, Level)];
                if (!found.used)
                    continue;
                if (found.split) {
                    if constexpr (Level < 3)
                        Search<Level + 1>(vertex, key, best);
                    continue;
                }
                for (int32_t index = found.first; index >= 0 && (best < 0 || index < best);
                     index = next[static_cast<size_t>(index)]) {
                    ++work;
                    if (Matches(vertices[static_cast<size_t>(index)], vertex, tolerance)) {
                        best = index;
                        break;
                    }
                }
            }
}

int32_t VertexWelder::Find(const MeshVertex& vertex) const
{
    if (!Comparable(vertex))
        return -1;
    if (cells.empty()) {
        for (size_t index = 0; index < vertices.size(); ++index) {
            ++work;
            if (Matches(vertices[index], vertex, tolerance))
                return static_cast<int32_t>(index);
        }
        return -1;
    }
    int32_t best = -1;
    Search<0>(vertex, RootKey(vertex), best);
    return best;
}

void VertexWelder::Added()
{
    if (!cells.empty()) {
        Enter(static_cast<int32_t>(vertices.size() - 1));
    } else if (vertices.size() > kScanned) {
        size_t size = 64;
        while (size < std::max(expected, vertices.size()) * 2)
            size *= 2;
        cells.assign(size, Cell{});
        next.reserve(std::max(expected, vertices.size()));
        for (size_t index = 0; index < vertices.size(); ++index)
            Enter(static_cast<int32_t>(index));
    }
}

void VertexWelder::Enter(int32_t index)
{
    next.push_back(-1);
    const MeshVertex& vertex = vertices[static_cast<size_t>(index)];
    if (!Comparable(vertex))
        return;
    uint64_t key = RootKey(vertex);
    for (int level = 0;; ++level) {
        int64_t cell[3];
        CellOf(vertex, level, cell);
        key = ChildKey(key, cell);
        const size_t slot = Take(key, level);
        if (cells[slot].split)
            continue;
        Append(slot, index);
        if (cells[slot].count > kSplitAbove && level < deepest)
            Split(slot);
        return;
    }
}

void VertexWelder::Grow()
{
    std::vector<Cell> old = std::move(cells);
    cells.assign(old.size() * 2, Cell{});
    for (const Cell& cell : old)
        if (cell.used)
            cells[Slot(cell.key, cell.level)] = cell;
}
