// The render mesh against the plain procedures whose results it must keep (scans from the start,
// bubble sorts), which live only here. Random meshes sit on a coarse lattice, so that the welding
// tolerances are met exactly and often, on both sides of their bounds.
#include "Output/VertexWelder.h"
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "Scene/VertexNormals.h"
#include "support/RandomScenes.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <cstring>
#include <map>
#include <tuple>

namespace {

using randomscenes::Random;

// ---- The plain procedures ----

bool Within(float a, float b, double tolerance)
{
    return std::fabs(static_cast<double>(a) - static_cast<double>(b)) <= tolerance;
}

// `tolerance`: for positions (0.1 unless -weld or -compat chose another); normals always 0.1.
bool Welds(const MeshVertex& old, const MeshVertex& added, double tolerance)
{
    using randomscenes::Component;
    for (int i = 0; i < 3; ++i)
        if (!Within(Component(old.position, i), Component(added.position, i), tolerance) ||
            !Within(Component(old.normal, i), Component(added.normal, i), 0.1))
            return false;
    return old.colour == added.colour && old.material == added.material && Within(old.u, added.u, 0.001) &&
           Within(old.v, added.v, 0.001);
}

int32_t FirstWeld(const std::vector<MeshVertex>& list, const MeshVertex& vertex, double tolerance = 0.1)
{
    for (size_t i = 0; i < list.size(); ++i)
        if (Welds(list[i], vertex, tolerance))
            return static_cast<int32_t>(i);
    return -1;
}

// What the tests saw happen, by name, so that a generator that stops producing a case is noticed.
using Coverage = std::map<std::string, int>;

Vector3 PlainVertexNormal(int32_t f, int32_t v, int32_t g, const Mesh& mesh, Coverage& coverage)
{
    int found = 0;  // the record lookup is a binary search in both
    const Vector3 n = randomscenes::PlainCornerNormal(mesh, f, v, g, [&](int32_t k) { return FindFaceNormals(k, mesh); }, &found);
    coverage["corners without normal"] += found == 0;
    coverage["not-a-number normals"] += std::isnan(n.x) || std::isnan(n.y) || std::isnan(n.z);
    return n;
}

struct Built {
    std::vector<MeshVertex> vertices;
    std::vector<VertexSource> sources;
    std::vector<MeshTriangle> triangles;
    std::vector<MeshBatch> batches;
    std::vector<MeshFaceNormals> sortedNormals;
    std::vector<int32_t> warnedIds;
    bool error = false;
};

template <typename List, typename Rule>
void BubbleSort(List& list, const Rule& shouldSwap)
{
    for (bool exchanged = true; exchanged;) {
        exchanged = false;
        for (size_t i = 1; i < list.size(); ++i)
            if (shouldSwap(list[i - 1], list[i])) {
                std::swap(list[i - 1], list[i]);
                exchanged = true;
            }
    }
}

Built PlainBuild(const Scene& scene, double tolerance, int32_t materialRef, Mesh mesh, bool countPairs, Coverage& coverage)
{
    Built out;
    // Counted in the inner loops, so looked up once.
    int& inside = coverage["differences just inside the tolerance"];
    int& outside = coverage["differences just outside the tolerance"];
    int& shared = coverage["vertices in several batches"];
    BubbleSort(mesh.normals, [](const MeshFaceNormals& a, const MeshFaceNormals& b) {
        return static_cast<uint32_t>(a.faceIndex) > static_cast<uint32_t>(b.faceIndex);
    });
    out.sortedNormals = mesh.normals;

    const auto add = [&](const MeshVertex& vertex, const VertexSource& source) {
        for (size_t o = 0; countPairs && o < out.vertices.size(); ++o)
            for (int i = 0; i < 3; ++i) {
                const double d = std::fabs(static_cast<double>(randomscenes::Component(out.vertices[o].position, i)) -
                                           static_cast<double>(randomscenes::Component(vertex.position, i)));
                inside += d <= 0.1 && d >= 0.1 - 1e-6;
                outside += d > 0.1 && d <= 0.1 + 1e-6;
            }
        const int32_t found = FirstWeld(out.vertices, vertex, tolerance);
        if (found >= 0) {
            const MeshVertex& old = out.vertices[static_cast<size_t>(found)];
            coverage["welds of differing vertices"] += std::memcmp(&old, &vertex, 2 * sizeof(Vector3)) != 0;
            return static_cast<uint32_t>(found);
        }
        out.vertices.push_back(vertex);
        out.sources.push_back(source);
        return static_cast<uint32_t>(out.vertices.size() - 1);
    };

    for (size_t f = 0; f < mesh.faces.size(); ++f) {
        const MeshFace& face = mesh.faces[f];
        const auto faceNumber = static_cast<int32_t>(f);
        if (materialRef == -1) {
            out.error = true;
            ++coverage["material reference -1"];
            break;
        }
        // The face's slot: the material's own, or with sub-materials the one its id numbers; an id
        // that numbers none gets the first set and properties, one-sided, and is warned twice.
        const MaterialTableEntry& entry = scene.materialTable[static_cast<size_t>(materialRef)];
        MaterialSlot slot = entry.slot;
        if (entry.subMaterials) {
            const bool numbered = face.materialId >= 0 && static_cast<size_t>(face.materialId) < entry.subMaterials->size();
            if (numbered) {
                slot = (*entry.subMaterials)[static_cast<size_t>(face.materialId)];
            } else {
                slot.textureSetIndex = slot.propertiesIndex = 0;
                slot.twoSided = false;
                out.warnedIds.insert(out.warnedIds.end(), 2, face.materialId);
                ++coverage["invalid material ids"];
            }
        }

        float u[3] = {0.0f, 0.0f, 0.0f}, v[3] = {0.0f, 0.0f, 0.0f};
        int32_t texVertex[3] = {-1, -1, -1};
        for (const MeshTexFace& texFace : mesh.texFaces) {
            if (texFace.index != faceNumber)
                continue;
            const int32_t numbers[3] = {texFace.a, texFace.b, texFace.c};
            for (int k = 0; k < 3; ++k) {
                for (size_t t = 0; t < mesh.texVertices.size() && texVertex[k] == -1; ++t)
                    if (mesh.texVertices[t].index == numbers[k])
                        texVertex[k] = static_cast<int32_t>(t), u[k] = mesh.texVertices[t].u, v[k] = 1.0f - mesh.texVertices[t].v;
                coverage["missing texture vertices"] += texVertex[k] == -1;
            }
            break;
        }

        const int32_t corners[3] = {face.a, face.b, face.c};
        MeshVertex vertices[3];
        VertexSource sources[3];
        uint32_t front[3];
        for (int k = 0; k < 3; ++k) {
            vertices[k] = {mesh.vertices[static_cast<size_t>(corners[k])],
                           PlainVertexNormal(faceNumber, corners[k], face.smoothingGroup, mesh, coverage), 0xFFFFFFFFu,
                           static_cast<uint32_t>(slot.propertiesIndex), u[k], v[k]};
            sources[k] = {faceNumber, corners[k], texVertex[k], face.smoothingGroup, vertices[k].material, 0};
            front[k] = add(vertices[k], sources[k]);
        }
        uint32_t flags = (face.ab != 0 ? 1u : 0u) | (face.bc != 0 ? 2u : 0u) | (face.ca != 0 ? 4u : 0u);
        const auto set = static_cast<uint32_t>(slot.textureSetIndex);
        out.triangles.push_back({flags, {front[0], front[2], front[1]}, set});
        if (slot.twoSided) {
            ++coverage["two-sided faces"];
            uint32_t back[3];
            for (int k = 0; k < 3; ++k) {
                vertices[k].normal = {-vertices[k].normal.x, -vertices[k].normal.y, -vertices[k].normal.z};
                sources[k].flip = 1;
                back[k] = add(vertices[k], sources[k]);
            }
            if (((flags & 1u) != 0) != ((flags & 4u) != 0))  // the back face's edges ab and ca change places
                flags ^= 5u;
            out.triangles.push_back({flags, {back[0], back[1], back[2]}, set});
        }
    }

    auto& triangles = out.triangles;
    // Sets without entries never swap; opacity-mapped ones go after the others, else by number.
    BubbleSort(triangles, [&](const MeshTriangle& a, const MeshTriangle& b) {
        const auto &first = scene.textureSets[a.textureSet]->entries, &second = scene.textureSets[b.textureSet]->entries;
        if (first.empty() || second.empty())
            return false;
        const bool opacityA = (first[0].flags & 1) != 0, opacityB = (second[0].flags & 1) != 0;
        return opacityA != opacityB ? opacityA : a.textureSet > b.textureSet;
    });
    for (const MeshTriangle& triangle : triangles) {
        const auto& entries = scene.textureSets[triangle.textureSet]->entries;
        coverage["triangles of sets without entries"] += entries.empty();
        coverage["opacity-mapped triangles"] += !entries.empty() && (entries[0].flags & 1) != 0;
    }

    for (size_t i = 0; i < triangles.size(); ++i) {
        if (i == 0 || triangles[i].textureSet != triangles[i - 1].textureSet)
            out.batches.push_back({static_cast<uint32_t>(i), 0, 0, 0});
        ++out.batches.back().triangleCount;
    }

    std::vector<MeshVertex> vertices;
    std::vector<VertexSource> sources;
    for (MeshBatch& batch : out.batches) {
        batch.firstVertex = static_cast<uint32_t>(vertices.size());
        for (uint32_t t = batch.firstTriangle; t < batch.firstTriangle + batch.triangleCount; ++t) {
            for (uint32_t& corner : triangles[t].corners) {
                size_t found = batch.firstVertex;
                while (found < sources.size() && sources[found].originalIndex != static_cast<int32_t>(corner))
                    ++found;
                if (found == sources.size()) {
                    for (size_t j = 0; j < batch.firstVertex; ++j)
                        shared += sources[j].originalIndex == static_cast<int32_t>(corner);
                    vertices.push_back(out.vertices[corner]);
                    sources.push_back(out.sources[corner]);
                    sources.back().originalIndex = static_cast<int32_t>(corner);
                }
                corner = static_cast<uint32_t>(found - batch.firstVertex);
            }
        }
        batch.vertexCount = static_cast<uint32_t>(vertices.size()) - batch.firstVertex;
    }
    out.vertices = std::move(vertices);
    out.sources = std::move(sources);
    return out;
}

// ---- Records as text: every field, floats with their bits, so equal text is equal bits ----

std::string Text(float value)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.9g<%08x>", static_cast<double>(value), std::bit_cast<uint32_t>(value));
    return text;
}
std::string Text(std::integral auto value) { return std::to_string(value); }
std::string Text(const Vector3& v) { return "(" + Text(v.x) + " " + Text(v.y) + " " + Text(v.z) + ")"; }
// The fields of a record, in order.
template <typename... Fields>
std::string Join(const Fields&... fields)
{
    std::string text;
    ((text += Text(fields) + " "), ...);
    return text;
}
std::string Text(const MeshVertex& v) { return Join(v.position, v.normal, v.colour, v.material, v.u, v.v); }
std::string Text(const VertexSource& s)
{
    return Join(s.face, s.position, s.texVertex, s.smoothingGroup, s.material, s.flip, s.originalIndex);
}
std::string Text(const MeshTriangle& t) { return Join(t.flags, t.corners[0], t.corners[1], t.corners[2], t.textureSet); }
std::string Text(const MeshBatch& b) { return Join(b.firstTriangle, b.triangleCount, b.firstVertex, b.vertexCount); }
std::string Text(const MeshFaceNormals& n) { return Join(n.faceIndex, n.faceNormal); }

// The first entry where the lists differ, or "" when they are equal.
template <typename Record>
std::string FirstDifference(const char* what, const std::vector<Record>& expected, const std::vector<Record>& got)
{
    for (size_t i = 0; i < std::max(expected.size(), got.size()); ++i) {
        const std::string want = i < expected.size() ? Text(expected[i]) : "nothing";
        const std::string have = i < got.size() ? Text(got[i]) : "nothing";
        if (want != have)
            return std::string(what) + " " + std::to_string(i) + " of " + std::to_string(expected.size()) +
                   ": expected " + want + ", got " + have + " (" + std::to_string(got.size()) + " made)";
    }
    return {};
}

// Builds one random mesh both ways; answers whether they agree (the failure is reported).
bool CheckOne(uint32_t seed, int faceCount, int span, bool walk, Coverage& coverage)
{
    Random rng(seed);
    Scene scene;
    Reporter reporter;
    MeshNode node("mesh" + std::to_string(seed));
    node.materialRef = randomscenes::RandomMaterials(rng, scene);
    // Mostly the classic position tolerance; now and then one that -weld gives.
    ConvertSettings settings;
    const double kTolerances[] = {0.05, 0.15, 0.0, 1.0};
    if (rng.Chance(0.25))
        settings.weldTolerance = kTolerances[rng.Int(0, 3)];
    Mesh mesh = randomscenes::RandomMesh(rng, faceCount, span, walk);
    const Built expected = PlainBuild(scene, settings.weldTolerance, node.materialRef, mesh, faceCount <= 60, coverage);

    testing::internal::CaptureStdout();
    node.BuildRenderMesh(scene, settings, reporter, mesh);
    const std::string printed = testing::internal::GetCapturedStdout();

    std::string difference = FirstDifference("normal record", expected.sortedNormals, mesh.normals) +
                             FirstDifference("vertex", expected.vertices, node.renderVertices) +
                             FirstDifference("vertex source", expected.sources, node.vertexSources) +
                             FirstDifference("triangle", expected.triangles, node.renderTriangles) +
                             FirstDifference("batch", expected.batches, node.renderBatches);
    std::string warnings;  // at line 1: the node was read from no file
    for (const int32_t id : expected.warnedIds)
        warnings += "(1) warning: Invalid material id '" + std::to_string(id) + "' in object '" + node.name + "'.\n";
    if (printed != warnings)
        difference += "printed\n" + printed + "instead of\n" + warnings;
    if (reporter.HasError() != expected.error ||
        (expected.error && reporter.ErrorText().find("Invalid material id '-1' in object '" + node.name + "'.") == std::string::npos))
        difference += "error " + reporter.ErrorText();
    EXPECT_EQ(difference, "") << "seed " << seed << ", " << faceCount << " faces, " << mesh.vertices.size()
                              << " positions, material reference " << node.materialRef << ", tolerance "
                              << settings.weldTolerance;
    return difference.empty();
}

TEST(RenderMeshOracle, RandomSmallMeshesMatchThePlainProcedures)
{
    Coverage coverage;
    int failures = 0;
    for (uint32_t seed = 1; seed <= 800 && failures < 5; ++seed) {
        Random sizes(seed * 7919u);
        failures += !CheckOne(seed, sizes.Int(1, 60), sizes.Int(1, 6), sizes.Chance(0.3), coverage);
    }
    for (const char* what : {"welds of differing vertices", "differences just inside the tolerance",
                             "differences just outside the tolerance", "not-a-number normals", "corners without normal",
                             "two-sided faces", "invalid material ids", "material reference -1", "missing texture vertices",
                             "triangles of sets without entries", "opacity-mapped triangles", "vertices in several batches"})
        EXPECT_GT(coverage[what], 0) << "the random meshes never produced " << what;
}

TEST(RenderMeshOracle, LargeMeshesOverManyCellsMatchThePlainProcedures)
{
    Coverage coverage;
    // Spread, walked, and crowded: every position within a step of the origin, so cells split by
    // normal and texture coordinate.
    for (uint32_t i = 0; i < 3; ++i)
        for (const auto& [seed, span, walk] : {std::tuple{100000u, 40, false}, {200000u, 40, true}, {300000u, 1, false}})
            CheckOne(seed + i, 1000 * (static_cast<int>(i) + 1), span, walk, coverage);
    EXPECT_GT(coverage["welds of differing vertices"], 0);
}

// ---- The welder alone, with non-finite and huge coordinates ----

TEST(RenderMeshOracle, WelderFindsTheFirstMatchOfAScanFromTheStart)
{
    // Family -1: random vertices with huge, non-finite and neighbouring coordinates; the others
    // crowd one place (cells of 10 units, so the position grid alone does not separate them).
    // Each under the classic position tolerance and under others that -weld or -compat give.
    for (const double tolerance : {0.1, 0.025, 0.35, 0.0})
    for (int family = -1; family <= 4; ++family) {
        int matches = 0, hugeMatches = 0, nearMatches = 0;
        for (uint32_t seed = 1; seed <= (family < 0 ? 30u : 4u) / (tolerance == 0.1 ? 1 : 2); ++seed) {
            Random rng(seed);
            std::vector<MeshVertex> list;
            // A small table grows; the finest position level exists only under wide cells.
            VertexWelder welder(list, static_cast<size_t>(rng.Int(0, 40)), family < 0 ? 0.0 : 10.0, tolerance);
            for (int i = 0; i < (family < 0 ? 2000 : 3000); ++i) {
                MeshVertex vertex = family < 0 ? randomscenes::RandomWeldVertex(rng, list)
                                                : randomscenes::CrowdedWeldVertex(rng, list, family);
                // Lattices of half a tolerance: positions scaled to it.
                if (tolerance > 0.0) {
                    const auto scale = static_cast<float>(tolerance / 0.1);
                    vertex.position = {vertex.position.x * scale, vertex.position.y * scale, vertex.position.z * scale};
                }
                const int32_t expected = FirstWeld(list, vertex, tolerance);
                ASSERT_EQ(welder.Find(vertex), expected)
                    << "tolerance " << tolerance << ", family " << family << ", seed " << seed << ", vertex " << i << ": " << Text(vertex)
                    << (expected >= 0 ? ", first match " + Text(list[static_cast<size_t>(expected)]) : "");
                if (expected >= 0) {
                    const MeshVertex& match = list[static_cast<size_t>(expected)];
                    const Vector3& p = match.position;
                    ++matches;
                    hugeMatches += std::fabs(p.x) >= 1e6f || std::fabs(p.y) >= 1e6f || std::fabs(p.z) >= 1e6f;
                    nearMatches += std::memcmp(&match, &vertex, sizeof(MeshVertex)) != 0;
                }
                // Matching vertices are appended too now and then, so that lists hold near-duplicates.
                if (expected < 0 || rng.Chance(0.3)) {
                    list.push_back(vertex);
                    welder.Added();
                }
            }
        }
        EXPECT_GT(matches, tolerance == 0.1 ? 1000 : 20) << family << " " << tolerance;
        EXPECT_TRUE(nearMatches > 0 || tolerance == 0.0) << family << " " << tolerance;
        EXPECT_TRUE(family >= 0 || hugeMatches > 0);
    }
}

}  // namespace
