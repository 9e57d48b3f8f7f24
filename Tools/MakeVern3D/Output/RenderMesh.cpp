// From the source mesh to the render mesh: positions in node space, one render vertex per
// distinct (position, normal, material, texture coordinate) within the welding tolerances,
// triangles grouped into batches of one texture set (opacity-mapped sets last), and the
// vertices numbered anew within each batch.
//
// The results are those of the plain procedures (a scan over all vertices for each new one, a
// scan over all faces for each corner normal, scans for texture faces and vertices by number,
// bubble sorts and a scan per corner when renumbering); only the way they are found is faster.
#include "AbstractData/Parallel.h"
#include "ConvertSettings.h"
#include "Output/VertexWelder.h"
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "Scene/Scene.h"
#include "Scene/VertexNormals.h"
#include "resources/Messages.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <unordered_map>

namespace {

// The position of the first entry with each number: none needed when each entry has its own
// position as number, a table when the numbers are small, a map when they are not.
class FirstByNumber {
public:
    template <typename List, typename Number>
    FirstByNumber(const List& list, Number number) : size(list.size())
    {
        int64_t largest = -1;
        bool dense = true;
        bool inPlace = true;
        for (size_t position = 0; position < list.size(); ++position) {
            const int32_t value = number(list[position]);
            if (value < 0)
                dense = false;
            inPlace = inPlace && static_cast<size_t>(value) == position;
            largest = std::max<int64_t>(largest, value);
        }
        if (inPlace) {
            kind = Kind::InPlace;
            return;
        }
        dense = dense && largest < static_cast<int64_t>(list.size()) * 4 + 64;
        kind = dense ? Kind::Table : Kind::Map;
        if (dense)
            table.assign(static_cast<size_t>(largest + 1), -1);
        for (size_t position = 0; position < list.size(); ++position) {
            const int32_t value = number(list[position]);
            if (dense) {
                int32_t& slot = table[static_cast<size_t>(value)];
                if (slot < 0)
                    slot = static_cast<int32_t>(position);
            } else {
                map.try_emplace(value, static_cast<int32_t>(position));
            }
        }
    }

    int32_t Find(int32_t value) const
    {
        switch (kind) {
        case Kind::InPlace: return value >= 0 && static_cast<size_t>(value) < size ? value : -1;
        case Kind::Table:
            return value >= 0 && static_cast<size_t>(value) < table.size() ? table[static_cast<size_t>(value)] : -1;
        case Kind::Map: break;
        }
        const auto found = map.find(value);
        return found == map.end() ? -1 : found->second;
    }

private:
    enum class Kind { InPlace, Table, Map } kind = Kind::Table;
    size_t size;
    std::vector<int32_t> table;
    std::unordered_map<int32_t, int32_t> map;
};

// Half the median length of the faces' first edges (on a sample): a cell size for welding that
// keeps few positions in a cell, and that a few huge faces cannot blow up.
double HalfTypicalEdge(const Mesh& mesh)
{
    std::vector<double> lengths;
    const size_t step = std::max<size_t>(1, mesh.faces.size() / 1024);
    for (size_t f = 0; f < mesh.faces.size(); f += step) {
        const MeshFace& face = mesh.faces[f];
        const double length = Length(Subtract(mesh.vertices[static_cast<size_t>(face.b)],
                                              mesh.vertices[static_cast<size_t>(face.a)]));
        if (std::isfinite(length))
            lengths.push_back(length);
    }
    if (lengths.empty())
        return 0.0;
    std::nth_element(lengths.begin(), lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2), lengths.end());
    return lengths[lengths.size() / 2] / 2.0;
}

// The shortest distance between two corners of a face that lie apart (the largest difference of a
// component, as the weld compares them), over all faces; infinity without such corners.
double ShortestEdge(const Mesh& mesh)
{
    double shortest = std::numeric_limits<double>::infinity();
    for (const MeshFace& face : mesh.faces) {
        const int32_t corners[3] = {face.a, face.b, face.c};
        for (int k = 0; k < 3; ++k) {
            const Vector3& p = mesh.vertices[static_cast<size_t>(corners[k])];
            const Vector3& q = mesh.vertices[static_cast<size_t>(corners[(k + 1) % 3])];
            const double apart = std::max({std::fabs(double{p.x} - double{q.x}), std::fabs(double{p.y} - double{q.y}),
                                           std::fabs(double{p.z} - double{q.z})});
            if (apart > 0.0)
                shortest = std::min(shortest, apart);
        }
    }
    return shortest;
}


// The first corner met of each (vertex, smoothing group, texture vertex, material, side), for the
// vertex numbers in [low, high). The first key of a vertex is kept in place (corners that follow
// the faces find it in the cache), others in a list.
class CornerMemo {
public:
    CornerMemo(uint32_t low, uint32_t high) : low(low), first(high - low) {}

    // The first corner with this key, after making `corner` the first when none was.
    int32_t FirstOf(int32_t vertex, int32_t group, int32_t texVertex, uint32_t material, bool flip, int32_t corner)
    {
        Entry& head = first[static_cast<uint32_t>(vertex) - low];
        const Entry entry{group, texVertex, material, corner, -1, flip};
        if (head.corner < 0) {
            head = entry;
            return corner;
        }
        for (const Entry* at = &head;; at = &more[static_cast<size_t>(at->next)]) {
            if (at->group == group && at->texVertex == texVertex && at->material == material && at->flip == flip)
                return at->corner;
            if (at->next < 0)
                break;
        }
        more.push_back(entry);
        more.back().next = head.next;
        head.next = static_cast<int32_t>(more.size() - 1);
        return corner;
    }

private:
    struct Entry {
        int32_t group = 0;
        int32_t texVertex = 0;
        uint32_t material = 0;
        int32_t corner = -1;  // -1: no key yet
        int32_t next = -1;    // the next key of the vertex in `more`
        bool flip = false;
    };
    uint32_t low;
    std::vector<Entry> first;
    std::vector<Entry> more;
};

// The slot of a face: its sub-material when the entry has them (the default slot for a number
// beyond them: `valid` false), else the entry's own.
MaterialSlot SlotOf(const MaterialTableEntry& entry, const MeshFace& face, bool& valid)
{
    valid = true;
    if (!entry.subMaterials)
        return entry.slot;
    if (static_cast<uint32_t>(face.materialId) < entry.subMaterials->size())
        return (*entry.subMaterials)[static_cast<size_t>(face.materialId)];
    valid = false;
    return MaterialSlot{};
}

// The texture vertex of each corner of face `f` (its position in the list, -1 for none).
void TexVerticesOf(const Mesh& mesh, const FirstByNumber& texFaceOf, const FirstByNumber& texVertexOf, int32_t f,
                   int32_t (&texVertex)[3])
{
    texVertex[0] = texVertex[1] = texVertex[2] = -1;
    const int32_t texFace = texFaceOf.Find(f);
    if (texFace < 0)
        return;
    const MeshTexFace& tf = mesh.texFaces[static_cast<size_t>(texFace)];
    texVertex[0] = texVertexOf.Find(tf.a);
    texVertex[1] = texVertexOf.Find(tf.b);
    texVertex[2] = texVertexOf.Find(tf.c);
}

// Corners are numbered 3f + k (corner k of face f), and 3F + 3f + k for the back of a two-sided
// face. Corners with the same vertex, smoothing group (not -1), texture vertex, material and side
// have the same values: for each corner, the first such corner (itself when it is the first), or
// -1 for a corner without group. Large meshes are done on several threads, each taking a range of
// vertex numbers over all faces in order.
std::vector<int32_t> FirstCorners(const Mesh& mesh, const MaterialTableEntry& entry, const FirstByNumber& texFaceOf,
                                  const FirstByNumber& texVertexOf, bool twoSided, uint32_t threads)
{
    const size_t faceCount = mesh.faces.size();
    std::vector<int32_t> firsts(faceCount * (twoSided ? 6 : 3), -1);
    const auto vertexCount = static_cast<uint32_t>(mesh.vertices.size());
    constexpr size_t kFacesPerPart = 1 << 16;
    const size_t parts = std::max<size_t>(1, std::min<size_t>(threads, faceCount / kFacesPerPart));
    const uint32_t span = static_cast<uint32_t>((vertexCount + parts - 1) / parts);
    ParallelFor(parts, static_cast<uint32_t>(parts), [&](size_t part) {
        const uint32_t low = static_cast<uint32_t>(part) * span;
        const uint32_t high = std::min(vertexCount, low + span);
        if (low >= high)
            return;
        CornerMemo memo(low, high);
        for (size_t f = 0; f < faceCount; ++f) {
            const MeshFace& face = mesh.faces[f];
            const int32_t corners[3] = {face.a, face.b, face.c};
            const auto owned = [&](int32_t vertex) {
                return static_cast<uint32_t>(vertex) >= low && static_cast<uint32_t>(vertex) < high;
            };
            if (face.smoothingGroup == -1 || !(owned(face.a) || owned(face.b) || owned(face.c)))
                continue;
            bool valid = true;
            const MaterialSlot slot = SlotOf(entry, face, valid);
            const auto material = static_cast<uint32_t>(slot.propertiesIndex);
            int32_t texVertex[3];
            TexVerticesOf(mesh, texFaceOf, texVertexOf, static_cast<int32_t>(f), texVertex);
            for (int side = 0; side < (slot.twoSided ? 2 : 1); ++side)
                for (int k = 0; k < 3; ++k) {
                    if (!owned(corners[k]))
                        continue;
                    const auto corner = static_cast<int32_t>((side ? 3 * faceCount : 0) + 3 * f + k);
                    firsts[static_cast<size_t>(corner)] =
                        memo.FirstOf(corners[k], face.smoothingGroup, texVertex[k], material, side == 1, corner);
                }
        }
    });
    return firsts;
}

}  // namespace

std::vector<uint8_t> TextureSetKinds(const std::vector<std::unique_ptr<TextureSet>>& sets)
{
    std::vector<uint8_t> kinds;
    kinds.reserve(sets.size());
    for (const auto& set : sets)
        kinds.push_back(set->entries.empty() ? 0
                                             : MeshMaterials::kSetEntries |
                                                   ((set->entries.front().flags & 1) ? MeshMaterials::kSetOpacity : 0));
    return kinds;
}

MeshMaterials MaterialsOf(const Scene& scene, std::span<const uint8_t> setKinds, int32_t materialRef)
{
    MeshMaterials materials;
    if (materialRef >= 0 && static_cast<size_t>(materialRef) < scene.materialTable.size())
        materials.entry = &scene.materialTable[static_cast<size_t>(materialRef)];
    materials.setKinds = setKinds;
    materials.line = scene.endLine;
    return materials;
}

void MeshNode::ToNodeSpace(Mesh& source, const Matrix& inverse, uint32_t threads)
{
    // Each value on its own: a large mesh is moved in blocks on several threads.
    constexpr size_t kBlock = 1 << 16;
    const auto inBlocks = [&](size_t count, const auto& body) {
        ParallelFor((count + kBlock - 1) / kBlock, threads, [&](size_t block) {
            for (size_t i = block * kBlock; i < std::min(count, (block + 1) * kBlock); ++i)
                body(i);
        });
    };
    inBlocks(source.vertices.size(), [&](size_t i) { source.vertices[i] = TransformPoint(source.vertices[i], inverse); });

    // One normal record per face; records added here are numbered after their position.
    const size_t faceCount = source.faces.size();
    const size_t had = source.normals.size();
    source.normals.resize(faceCount);
    for (size_t i = had; i < faceCount; ++i)
        source.normals[i].faceIndex = static_cast<int32_t>(i);

    const auto corner = [&](int32_t number) {
        // Corners were checked before writing began; a frame whose list is short reads zero.
        return number >= 0 && static_cast<size_t>(number) < source.vertices.size()
                   ? source.vertices[static_cast<size_t>(number)]
                   : Vector3{};
    };
    inBlocks(faceCount, [&](size_t i) {
        const MeshFace& face = source.faces[i];
        const Vector3 a = corner(face.a), b = corner(face.b), c = corner(face.c);
        source.normals[i].faceNormal = Normalize(Cross(Subtract(b, a), Subtract(c, a)));
    });
}

int32_t MeshNode::FindOrAddVertex(const MeshVertex& vertex, int32_t face, int32_t position, int32_t texVertex,
                                  int32_t smoothingGroup, uint32_t material, bool flip)
{
    const int32_t found = welder->Find(vertex);
    if (found >= 0)
        return found;
    renderVertices.push_back(vertex);
    VertexSource source;
    source.face = face;
    source.position = position;
    source.texVertex = texVertex;
    source.smoothingGroup = smoothingGroup;
    source.material = material;
    source.flip = flip ? 1 : 0;
    vertexSources.push_back(source);
    welder->Added();
    return static_cast<int32_t>(renderVertices.size() - 1);
}

bool MeshNode::BuildRenderMesh(Scene& scene, const ConvertSettings& settings, Reporter& reporter, Mesh& source)
{
    const std::vector<uint8_t> kinds = TextureSetKinds(scene.textureSets);
    const WeldCount count =
        BuildRenderMeshWithin(MaterialsOf(scene, kinds, materialRef), settings, reporter, source, scene.lists.Free());
    if (!scene.lists.Take(count.welded)) {
        reporter.Error(meshLine, kMessageRenderMeshTooLarge, name, scene.lists.Shown());
        return false;
    }
    return true;
}

MeshNode::WeldCount MeshNode::BuildRenderMeshWithin(const MeshMaterials& materials, const ConvertSettings& settings,
                                                    Reporter& reporter, Mesh& source, uint64_t allowed)
{
    renderVertices.clear();
    renderTriangles.clear();
    vertexSources.clear();
    renderBatches.clear();
    SortFaceNormals(source);

    const uint32_t threads = ThreadCount(settings.threads);
    const FirstByNumber texFaceOf(source.texFaces, [](const MeshTexFace& f) { return f.index; });
    const FirstByNumber texVertexOf(source.texVertices, [](const MeshTexVertex& v) { return v.index; });
    // Render vertices count against the bound of the file's lists: building stops at the first
    // face past it.
    uint64_t peak = 0;
    renderVertices.reserve(source.vertices.size());
    vertexSources.reserve(source.vertices.size());
    renderTriangles.reserve(source.faces.size());
    // Under -compat no face may lose a corner: when welding has merged two corners of a face that
    // lie apart, the mesh is welded again (without repeating its reports) within a quarter of the
    // shortest edge, so that no corner can weld with another of its face or with a vertex near both.
    double tolerance = settings.weldTolerance;
    const bool keepCorners = settings.compat;
    const size_t faceCount = source.faces.size();
    const bool twoSided = materials.entry && (materials.entry->slot.twoSided ||
                                              (materials.entry->subMaterials &&
                                               std::any_of(materials.entry->subMaterials->begin(),
                                                           materials.entry->subMaterials->end(),
                                                           [](const MaterialSlot& slot) { return slot.twoSided; })));
    // The corner normals' index and the first corners do not depend on each other: on several
    // threads a large mesh makes both at once, each on half the threads.
    std::optional<VertexNormals> normalsMade;
    std::vector<int32_t> firsts;
    const bool together = threads > 1 && faceCount >= (1 << 16);
    const uint32_t share = together ? std::max(1u, threads / 2) : threads;
    ParallelFor(2, together ? 2 : 1, [&](size_t task) {
        if (task == 0)
            normalsMade.emplace(source, share);
        else if (materials.entry)
            firsts = FirstCorners(source, *materials.entry, texFaceOf, texVertexOf, twoSided, share);
    });
    const VertexNormals& normals = *normalsMade;
    std::vector<int32_t> welded(firsts.size(), -1);
    for (int pass = 0; pass < 2; ++pass) {
        const bool report = pass == 0;
        bool cornerLost = false;
        const auto lost = [&](const int32_t (&indices)[3], const MeshVertex (&vertices)[3]) {
            for (int k = 0; k < 3; ++k) {
                const int next = (k + 1) % 3;
                if (indices[k] == indices[next] &&
                    !(vertices[k].position.x == vertices[next].position.x &&
                      vertices[k].position.y == vertices[next].position.y &&
                      vertices[k].position.z == vertices[next].position.z))
                    return true;
            }
            return false;
        };
        VertexWelder weld(renderVertices, source.vertices.size(), HalfTypicalEdge(source), tolerance);
        welder = &weld;
        // The render vertex of each corner welded (-1 where its values are not finite).
        std::fill(welded.begin(), welded.end(), -1);
        for (size_t f = 0; f < faceCount; ++f) {
            const MeshFace& face = source.faces[f];
            const auto faceNumber = static_cast<int32_t>(f);
            if (materialRef == -1) {
                reporter.Error(materials.line, kMessageInvalidMaterialId, -1, name);
                break;
            }
            // The material reference was checked against the table before writing began.
            bool valid = true;
            const MaterialSlot slot = SlotOf(*materials.entry, face, valid);
            if (!valid && report) {
                // Once for the material index, once for the texture set and sides.
                reporter.Warning(materials.line, kMessageInvalidMaterialId, face.materialId, name);
                reporter.Warning(materials.line, kMessageInvalidMaterialId, face.materialId, name);
            }

            // A corner whose first (above) has been welded takes its vertex: welding it again would
            // find what the first found or added, every vertex added since coming after that one.
            // Values that are not finite match nothing: such corners are always welded.
            int32_t texVertex[3];
            TexVerticesOf(source, texFaceOf, texVertexOf, faceNumber, texVertex);
            const int32_t corners[3] = {face.a, face.b, face.c};
            const auto material = static_cast<uint32_t>(slot.propertiesIndex);
            MeshVertex vertices[3];
            bool made[3] = {false, false, false};
            const auto weld = [&](int k, bool flip) {
                const size_t corner = (flip ? 3 * faceCount : 0) + 3 * f + static_cast<size_t>(k);
                const int32_t first = firsts[corner];
                if (first >= 0 && static_cast<size_t>(first) != corner && welded[static_cast<size_t>(first)] >= 0)
                    return welded[static_cast<size_t>(first)];
                if (!made[k]) {
                    MeshVertex& vertex = vertices[k];
                    vertex.normal = normals.VertexNormal(faceNumber, corners[k], face.smoothingGroup);
                    vertex.material = material;
                    if (texVertex[k] >= 0) {
                        const MeshTexVertex& tv = source.texVertices[static_cast<size_t>(texVertex[k])];
                        vertex.u = tv.u;
                        vertex.v = 1.0f - tv.v;
                    }
                    made[k] = true;
                }
                MeshVertex vertex = vertices[k];
                if (flip)
                    vertex.normal = {-vertex.normal.x, -vertex.normal.y, -vertex.normal.z};
                const int32_t index =
                    FindOrAddVertex(vertex, faceNumber, corners[k], texVertex[k], face.smoothingGroup, material, flip);
                if (VertexWelder::Comparable(vertex))
                    welded[corner] = index;
                return index;
            };
            int32_t front[3];
            for (int k = 0; k < 3; ++k) {
                vertices[k].position = source.vertices[static_cast<size_t>(corners[k])];
                front[k] = weld(k, false);
            }
            cornerLost = cornerLost || (keepCorners && lost(front, vertices));
            uint32_t flags = (face.ab ? 1u : 0u) | (face.bc ? 2u : 0u) | (face.ca ? 4u : 0u);
            const auto set = static_cast<uint32_t>(slot.textureSetIndex);
            // Stored as a, c, b.
            renderTriangles.push_back({flags,
                                       {static_cast<uint32_t>(front[0]), static_cast<uint32_t>(front[2]),
                                        static_cast<uint32_t>(front[1])},
                                       set});
            if (slot.twoSided) {
                // The back side: the same corners with their normals reversed.
                int32_t back[3];
                for (int k = 0; k < 3; ++k)
                    back[k] = weld(k, true);
                cornerLost = cornerLost || (keepCorners && lost(back, vertices));
                // The back side lists a, b, c: the edges 0-1 and 2-0 trade their flags.
                if (((flags & 1u) != 0) != ((flags & 4u) != 0))
                    flags ^= 5u;
                renderTriangles.push_back({flags,
                                           {static_cast<uint32_t>(back[0]), static_cast<uint32_t>(back[1]),
                                            static_cast<uint32_t>(back[2])},
                                           set});
            }
            if (renderVertices.size() > allowed)
                break;
        }
        peak = std::max<uint64_t>(peak, renderVertices.size());
        welder = nullptr;
        if (!cornerLost || renderVertices.size() > allowed)
            break;
        const double shortest = ShortestEdge(source);
        // Said at the line of the object's *MESH, counted with the warnings that repeat.
        reporter.RepeatedWarning(meshLine, kMessageWeldToleranceShrunk, name, shortest, shortest / 4.0, tolerance);
        tolerance = shortest / 4.0;
        renderVertices.clear();
        vertexSources.clear();
        renderTriangles.clear();
    }
    const WeldCount count{peak, renderVertices.size()};
    if (count.welded > allowed)
        return count;

    // Triangles of sets without entries never move and nothing passes them; between them the
    // exchange rule orders by (opacity bit, set index), keeping the order of equals.
    const std::span<const uint8_t> kinds = materials.setKinds;
    auto hasEntries = [&](const MeshTriangle& t) { return (kinds[t.textureSet] & MeshMaterials::kSetEntries) != 0; };
    auto before = [&](const MeshTriangle& a, const MeshTriangle& b) {
        const bool opacityA = (kinds[a.textureSet] & MeshMaterials::kSetOpacity) != 0;
        const bool opacityB = (kinds[b.textureSet] & MeshMaterials::kSetOpacity) != 0;
        if (opacityA != opacityB)
            return opacityB;
        return a.textureSet < b.textureSet;
    };
    for (auto run = renderTriangles.begin(); run != renderTriangles.end();) {
        if (!hasEntries(*run)) {
            ++run;
            continue;
        }
        const auto end = std::find_if_not(run, renderTriangles.end(), hasEntries);
        if (!std::is_sorted(run, end, before))
            std::stable_sort(run, end, before);
        run = end;
    }

    // One batch per run of equal sets, each with its own vertices numbered from 0.
    std::vector<MeshVertex> vertices;
    std::vector<VertexSource> sources;
    vertices.reserve(renderVertices.size());
    sources.reserve(vertexSources.size());
    std::vector<uint32_t> batchOf(renderVertices.size(), UINT32_MAX);
    std::vector<uint32_t> newIndex(renderVertices.size(), 0);
    for (size_t first = 0; first < renderTriangles.size();) {
        size_t end = first + 1;
        while (end < renderTriangles.size() && renderTriangles[end].textureSet == renderTriangles[first].textureSet)
            ++end;
        MeshBatch batch;
        batch.firstTriangle = static_cast<uint32_t>(first);
        batch.triangleCount = static_cast<uint32_t>(end - first);
        batch.firstVertex = static_cast<uint32_t>(vertices.size());
        const auto batchNumber = static_cast<uint32_t>(renderBatches.size());
        for (size_t t = first; t < end; ++t) {
            for (uint32_t& corner : renderTriangles[t].corners) {
                if (batchOf[corner] != batchNumber) {
                    batchOf[corner] = batchNumber;
                    newIndex[corner] = static_cast<uint32_t>(vertices.size());
                    vertices.push_back(renderVertices[corner]);
                    sources.push_back(vertexSources[corner]);
                    sources.back().originalIndex = static_cast<int32_t>(corner);
                }
                corner = newIndex[corner] - batch.firstVertex;
            }
        }
        batch.vertexCount = static_cast<uint32_t>(vertices.size()) - batch.firstVertex;
        renderBatches.push_back(batch);
        first = end;
    }
    renderVertices = std::move(vertices);
    vertexSources = std::move(sources);
    return count;
}
