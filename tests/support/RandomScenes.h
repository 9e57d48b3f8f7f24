// Random scenes for the tests, all drawn from one seeded source: meshes and material tables in
// the converter's own types, and ASE scene texts together with what their conversion must give;
// and the plain corner-normal rule that the tests of such meshes share.
// Header-only: the support library does not link the converter.
#pragma once

#include "ConvertSettings.h"
#include "Scene/Scene.h"
#include "vern/Vern3DMath.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace randomscenes {

class Random {
public:
    explicit Random(uint32_t seed) : engine(seed) {}
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); }
    bool Chance(double p) { return std::uniform_real_distribution<double>(0.0, 1.0)(engine) < p; }
    float Hundredths(int lo, int hi) { return static_cast<float>(Int(lo, hi)) / 100.0f; }
    template <typename List> void Shuffle(List& list) { std::shuffle(list.begin(), list.end(), engine); }

    std::mt19937 engine;
};

// ---- Meshes and material tables ----

inline MaterialSlot RandomSlot(Random& rng, int setCount) { return {rng.Int(0, setCount - 1), rng.Int(0, 3), rng.Chance(0.3)}; }

// Texture sets (some without entries, some opacity-mapped) and a material table; answers the
// node's material reference.
inline int32_t RandomMaterials(Random& rng, Scene& scene)
{
    const int32_t kFlags[] = {0, 1, 8, 9};
    const int setCount = rng.Int(1, 6);
    for (int i = 0; i < setCount; ++i) {
        auto set = std::make_unique<TextureSet>();
        const int entries = rng.Chance(0.25) ? 0 : rng.Int(1, 2);
        for (int e = 0; e < entries; ++e) {
            TextureEntry entry;
            entry.fileName = "map" + std::to_string(i) + "_" + std::to_string(e) + ".bmp";
            entry.flags = kFlags[rng.Int(0, 3)];
            set->entries.push_back(entry);
        }
        scene.textureSets.push_back(std::move(set));
    }
    const int tableCount = rng.Int(1, 3);
    for (int i = 0; i < tableCount; ++i) {
        MaterialTableEntry entry;
        entry.slot = RandomSlot(rng, setCount);
        if (rng.Chance(0.5)) {
            entry.subMaterials = std::make_unique<std::vector<MaterialSlot>>();
            for (int s = rng.Int(0, 4); s > 0; --s)
                entry.subMaterials->push_back(RandomSlot(rng, setCount));
        }
        scene.materialTable.push_back(std::move(entry));
    }
    return rng.Chance(0.02) ? -1 : rng.Int(0, tableCount - 1);
}

// Similar normals (within the tolerance of each other, or just outside), opposed ones, a zero one.
inline const Vector3 kFaceNormals[] = {
    {0.0f, 0.0f, 1.0f}, {0.0f, 0.1f, 0.995f}, {0.05f, 0.0f, 0.99875f}, {0.0f, 0.0f, 2.0f}, {0.0f, 0.0f, -1.0f},
    {1.0f, 0.0f, 0.0f}, {0.95f, 0.1f, 0.0f},  {0.0f, -1.0f, 0.0f},     {0.6f, 0.8f, 0.0f}, {0.0f, 0.0f, 0.0f},
};

inline Vector3 RandomFaceNormal(Random& rng) { return kFaceNormals[rng.Chance(0.6) ? rng.Int(0, 2) : rng.Int(0, 9)]; }

// `walk`: positions on a random walk and faces of nearby numbers, so that edges are short and a
// large mesh spreads over many cells of the welding grid.
inline Mesh RandomMesh(Random& rng, int faceCount, int span, bool walk)
{
    Mesh mesh;
    const float step = rng.Chance(0.5) ? 0.05f : 0.1f;
    const bool flat = rng.Chance(0.3);
    const auto coordinate = [&] { return static_cast<float>(rng.Int(-span, span)) * step; };
    const int vertexCount = 3 + rng.Int(0, faceCount * 3 / 2);
    int walked[3] = {0, 0, 0};
    for (int i = 0; i < vertexCount; ++i) {
        if (i > 0 && rng.Chance(0.15)) {
            mesh.vertices.push_back(mesh.vertices[static_cast<size_t>(rng.Int(0, i - 1))]);
        } else if (walk) {
            for (int& w : walked)
                w += rng.Int(-2, 2);
            mesh.vertices.push_back({static_cast<float>(walked[0]) * step, static_cast<float>(walked[1]) * step,
                                     flat ? 0.0f : static_cast<float>(walked[2]) * step});
        } else {
            const float z = flat ? (rng.Chance(0.5) ? 0.0f : -0.0f) : coordinate();
            mesh.vertices.push_back({coordinate(), coordinate(), z});
        }
    }
    const auto near = [&](int32_t corner) {
        return walk ? std::clamp(corner + rng.Int(-3, 3), 0, vertexCount - 1) : rng.Int(0, vertexCount - 1);
    };

    const int32_t kGroups[] = {-1, 0, 1, 2, 7};
    const int32_t kEdges[] = {0, 0, 1, 1, 2, -1};
    const int groupMode = rng.Int(0, 2);  // all without group, all in one group, mixed
    for (int f = 0; f < faceCount; ++f) {  // a braced list draws its members in order
        const int32_t a = rng.Int(0, vertexCount - 1), b = rng.Chance(0.05) ? a : near(a), c = rng.Chance(0.05) ? a : near(a);
        mesh.faces.push_back({a, b, c, kEdges[rng.Int(0, 5)], kEdges[rng.Int(0, 5)], kEdges[rng.Int(0, 5)],
                              groupMode == 0 ? -1 : groupMode == 1 ? 1 : kGroups[rng.Int(0, 4)], rng.Int(-2, 5)});
    }

    // Normal records: most faces one, some none, some two; a few for faces that do not exist.
    if (!rng.Chance(0.03)) {
        for (int f = 0; f < faceCount; ++f) {
            const int roll = rng.Int(0, 99);
            if (roll < 6)
                continue;
            mesh.normals.push_back({f, RandomFaceNormal(rng), {}});
            if (roll >= 92)
                mesh.normals.push_back({f, RandomFaceNormal(rng), {}});
        }
        if (rng.Chance(0.1))
            mesh.normals.push_back({-1, RandomFaceNormal(rng), {}});
        if (rng.Chance(0.1))
            mesh.normals.push_back({faceCount + rng.Int(0, 3), RandomFaceNormal(rng), {}});
        const int order = rng.Int(0, 2);  // as read, shuffled, or a few neighbours exchanged
        if (order == 1)
            rng.Shuffle(mesh.normals);
        for (int swaps = order == 2 ? rng.Int(1, 4) : 0; swaps > 0 && mesh.normals.size() > 1; --swaps) {
            const size_t at = static_cast<size_t>(rng.Int(1, static_cast<int>(mesh.normals.size()) - 1));
            std::swap(mesh.normals[at - 1], mesh.normals[at]);
        }
    }

    // Texture vertices in shuffled number order, some numbers repeated (so others are missing).
    const int texCount = rng.Chance(0.85) ? rng.Int(0, std::min(faceCount * 2, 600)) : 0;
    std::vector<int32_t> numbers(static_cast<size_t>(texCount));
    std::iota(numbers.begin(), numbers.end(), 0);
    if (rng.Chance(0.7))
        rng.Shuffle(numbers);
    const float uStep = rng.Chance(0.5) ? 0.001f : 0.0005f;
    for (int i = 0; i < texCount; ++i) {
        int32_t number = numbers[static_cast<size_t>(i)];
        if (rng.Chance(0.1))
            number = numbers[static_cast<size_t>(rng.Int(0, texCount - 1))];
        if (rng.Chance(0.02))
            number = -1;
        mesh.texVertices.push_back({number, static_cast<float>(rng.Int(0, 6)) * uStep,
                                    static_cast<float>(rng.Int(0, 6)) * 0.001f, 0.0f});
    }
    if (texCount > 0 || rng.Chance(0.2)) {
        for (int f = 0; f < faceCount; ++f) {
            for (int copies = rng.Chance(0.8) ? (rng.Chance(0.1) ? 2 : 1) : 0; copies > 0; --copies)
                mesh.texFaces.push_back({f, rng.Int(-1, texCount), rng.Int(-1, texCount), rng.Int(-1, texCount)});
        }
        if (rng.Chance(0.1))
            mesh.texFaces.push_back({-3, 0, 0, 0});
        if (rng.Chance(0.5))
            rng.Shuffle(mesh.texFaces);
    }
    return mesh;
}

// Corners for the welder alone: huge, non-finite and neighbouring coordinates (of `list`'s
// vertices), and corners crowded at one place.
inline float Component(const Vector3& p, int axis) { return axis == 0 ? p.x : axis == 1 ? p.y : p.z; }

inline float WeldCoordinate(Random& rng, const std::vector<MeshVertex>& list, int axis)
{
    const float inf = std::numeric_limits<float>::infinity();
    // 1e14 and 8e17 once made the search visit millions of cells per lookup.
    const float kExtremes[] = {std::numeric_limits<float>::quiet_NaN(), inf, -inf, 1e20f, -1e20f,
                              std::numeric_limits<float>::max(), -3e38f, 1e11f, -1e11f, 1e14f, 8e17f, -8e17f};
    switch (rng.Int(0, 9)) {
    case 0: return kExtremes[rng.Int(0, 11)];
    case 1: return 1e6f + static_cast<float>(rng.Int(-8, 8)) * 0.0625f;  // steps of one float unit
    case 2: return 16384.0f + static_cast<float>(rng.Int(-8, 8)) * 0.05f;
    case 3:
        if (!list.empty()) {
            const size_t other = static_cast<size_t>(rng.Int(0, static_cast<int>(list.size()) - 1));
            const float base = Component(list[other].position, axis);
            return rng.Chance(0.5) ? std::nextafter(base, rng.Chance(0.5) ? inf : -inf)
                                   : base + static_cast<float>(rng.Int(-1, 1)) * 0.1f;
        }
        [[fallthrough]];
    default:
        return static_cast<float>(rng.Int(-10, 10)) * 0.05f;
    }
}

inline MeshVertex RandomWeldVertex(Random& rng, const std::vector<MeshVertex>& list)
{
    const Vector3 kNormals[] = {{0.0f, 0.0f, 1.0f}, {0.0f, 0.05f, 0.99875f}, {0.0f, 0.1f, 0.995f},
                                {0.0f, 0.0f, std::numeric_limits<float>::quiet_NaN()}};
    // A braced list draws its members in order.
    return {{WeldCoordinate(rng, list, 0), WeldCoordinate(rng, list, 1), WeldCoordinate(rng, list, 2)},
            kNormals[rng.Chance(0.7) ? 0 : rng.Int(1, 3)], rng.Chance(0.9) ? 0xFFFFFFFFu : 0xFF00FF00u,
            rng.Chance(0.9) ? 0u : 1u, static_cast<float>(rng.Int(0, 3)) * 0.0005f, static_cast<float>(rng.Int(0, 3)) * 0.001f};
}

// Corners crowded at one place, on lattices of half a tolerance so that matches are met exactly
// and often: each family varies what the welder must tell apart beyond the position grid.
inline MeshVertex CrowdedWeldVertex(Random& rng, const std::vector<MeshVertex>& list, int family)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto lattice = [&](int range, float step) { return static_cast<float>(rng.Int(-range, range)) * step; };
    MeshVertex vertex;
    vertex.position = {lattice(1, 0.05f), 0.0f, 0.0f};
    vertex.normal = {0.0f, 0.0f, 1.0f};
    switch (family) {
    case 0:  // not-a-number normals, or another component that is not a number, among finite ones
        vertex = RandomWeldVertex(rng, list);
        vertex.position = {0.0f, 0.0f, 0.0f};
        if (rng.Chance(0.5))
            (rng.Chance(0.7) ? vertex.normal.y : rng.Chance(0.5) ? vertex.u : vertex.v) = nan;
        break;
    case 1: vertex.normal = {lattice(30, 0.05f), lattice(30, 0.05f), lattice(2, 0.05f)}; break;  // one position, many normals
    case 2: vertex.u = lattice(300, 0.0005f), vertex.v = lattice(4, 0.0005f); break;                 // many texture coordinates
    case 3:  // many materials, a few normals and texture coordinates
        vertex.material = static_cast<uint32_t>(rng.Int(0, 400)), vertex.normal.x = lattice(2, 0.05f), vertex.u = lattice(2, 0.0005f);
        break;
    default:  // many positions in one wide cell, with few normals and texture coordinates
        vertex.position = {lattice(80, 0.05f), lattice(80, 0.05f), lattice(1, 0.05f)};
        vertex.normal.x = lattice(1, 0.05f), vertex.u = lattice(1, 0.0005f);
    }
    return vertex;
}

// The corner normal by the plain rule: without smoothing group the face's own record, else the
// normalised sum of the records of every face of the group that has the vertex; zero when none is
// found. `record(k)` answers face k's record (-1: none); `found`, when given, counts those found.
template <typename Record>
Vector3 PlainCornerNormal(const Mesh& mesh, int32_t f, int32_t v, int32_t g, const Record& record, int* found = nullptr)
{
    float x = 0.0f, y = 0.0f, z = 0.0f;
    int count = 0;
    const auto collect = [&](int32_t k) {
        if (const int32_t r = record(k); r >= 0) {
            const Vector3& n = mesh.normals[static_cast<size_t>(r)].faceNormal;
            x += n.x, y += n.y, z += n.z, ++count;
        }
    };
    if (g == -1)
        collect(f);
    for (size_t k = 0; g != -1 && k < mesh.faces.size(); ++k) {
        const MeshFace& face = mesh.faces[k];
        if (face.smoothingGroup == g && (face.a == v || face.b == v || face.c == v))
            collect(static_cast<int32_t>(k));
    }
    if (found)
        *found = count;
    const float length = std::sqrt(x * x + y * y + z * z);
    return count == 0 ? Vector3{0.0f, 0.0f, 0.0f} : Vector3{x / length, y / length, z / length};
}

// ---- Scene texts ----

inline std::string Text(const std::string& text) { return text; }
inline std::string Text(std::integral auto value) { return std::to_string(value); }
inline std::string Text(double value) { return std::to_string(value); }
inline std::string Text(const Vector3& v) { return Text(v.x) + " " + Text(v.y) + " " + Text(v.z); }
// One line of the file: the parts separated by blanks.
template <typename... Parts>
inline std::string Line(const Parts&... parts)
{
    std::string line;
    ((line += Text(parts) + " "), ...);
    line.back() = '\n';
    return line;
}

// A *MESH block: its vertices, and faces with their smoothing group (-1: none), material id and
// visible edges.
struct Face { int a, b, c, group = -1, material = 0, ab = 1, bc = 1, ca = 1; };

inline std::string MeshBlock(const std::vector<Vector3>& vertices, const std::vector<Face>& faces, int time = 0)
{
    std::string text = "*MESH {\n" + Line("*TIMEVALUE", time) + Line("*MESH_NUMVERTEX", vertices.size()) + "*MESH_VERTEX_LIST {\n";
    for (size_t i = 0; i < vertices.size(); ++i)
        text += Line("*MESH_VERTEX", i, vertices[i]);
    text += "}\n*MESH_FACE_LIST {\n";
    for (size_t i = 0; i < faces.size(); ++i) {
        const Face& f = faces[i];
        text += Line("*MESH_FACE", Text(i) + ":", "A:", f.a, "B:", f.b, "C:", f.c, "AB:", f.ab, "BC:", f.bc, "CA:", f.ca,
                     "*MESH_SMOOTHING", f.group < 0 ? "" : Text(f.group), "*MESH_MTLID", f.material);
    }
    return text + "}\n}\n";
}

struct Object {
    std::string fileName, name;  // as written, and after its directive
    int parent = -1;             // index of the object named by *NODE_PARENT
    bool helper = false, removed = false, animFromMesh = false;
    size_t faces = 0, twoSidedFaces = 0, frames = 0, positionKeys = 0, rotationKeys = 0;
};

struct Move { int first, last; Vector3 scene; };  // frames first to last move by `scene` (scene space)

struct Generated {
    std::string text, operations;
    ConvertSettings settings;
    std::vector<Object> objects;
    std::vector<Move> moves;  // the records of the operations file that apply
};

struct Material { bool twoSided = false; std::vector<bool> subs; };  // subs: whether each is two-sided

inline std::string MaterialBody(Random& r, bool& twoSided)
{
    const auto map = [&](const char* kind) {
        const char* bitmaps[] = {"wood.tga", "stone.tga", "glass.tga", "leaf.tga"};  // shared between materials
        return std::string("*") + kind + " {\n*MAP_CLASS \"Bitmap\"\n*BITMAP \"" + bitmaps[r.Int(0, 3)] + "\"\n}\n";
    };
    std::string body = Line("*MATERIAL_DIFFUSE", r.Hundredths(0, 100), "0.5 0.5");
    if ((twoSided = r.Chance(0.3)))
        body += "*MATERIAL_TWOSIDED\n";
    body += r.Chance(0.7) ? map("MAP_DIFFUSE") : "";
    body += r.Chance(0.3) ? Line("*MATERIAL_XP_TYPE", r.Chance(0.5) ? "Filter" : "Additive") : "";
    return body + (r.Chance(0.35) ? map("MAP_OPACITY") : "");
}

inline std::string NodeTm(Random& r, const std::string& name)
{
    const float a = r.Hundredths(-314, 314), b = r.Hundredths(-314, 314), ca = std::cos(a), sa = std::sin(a);
    const float cb = std::cos(b), sb = std::sin(b), s0 = r.Hundredths(50, 200), s1 = r.Hundredths(50, 200);
    const Vector3 shift{r.Hundredths(-500, 500), r.Hundredths(-500, 500), r.Hundredths(-500, 500)};
    return "*NODE_TM {\n" + Line("*NODE_NAME", "\"" + name + "\"") + Line("*TM_ROW0", Vector3{s0 * ca, s0 * sa * cb, s0 * sa * sb}) +
           Line("*TM_ROW1", Vector3{-s1 * sa, s1 * ca * cb, s1 * ca * sb}) + Line("*TM_ROW2", Vector3{0, -sb, cb}) +
           Line("*TM_ROW3", shift) + "}\n";
}

inline std::string TmAnimation(Random& r, Object& o)
{
    o.positionKeys = static_cast<size_t>(r.Int(0, 3));
    o.rotationKeys = static_cast<size_t>(r.Int(o.positionKeys ? 0 : 1, 3));
    std::string text = "*TM_ANIMATION {\n*CONTROL_POS_BEZIER {\n";
    for (size_t k = 0; k < o.positionKeys; ++k)
        text += Line("*CONTROL_BEZIER_POS_KEY", k * 800, r.Hundredths(-300, 300), r.Hundredths(-300, 300),
                     "0.5 0 0 0 0.01 0 0 0");
    text += "}\n*CONTROL_ROT_TCB {\n";
    const char* axes[] = {"0 0 1", "1 0 0", "0.6 0.8 0"};
    for (size_t k = 0; k < o.rotationKeys; ++k)
        text += Line("*CONTROL_TCB_ROT_KEY", k * 640, axes[r.Int(0, 2)], r.Hundredths(-150, 150), "0 0 0 0 0");
    return text + "}\n}\n";
}

inline std::string GeomObject(Random& r, Object& o, const std::vector<Material>& materials)
{
    const int materialRef = r.Int(0, static_cast<int>(materials.size()) - 1);
    const Material& material = materials[static_cast<size_t>(materialRef)];
    const int n = static_cast<int>(material.subs.size()), vertexCount = r.Int(4, 9);
    std::vector<Vector3> vertices = {{0, 0, 0}, {1, 0.2f, 0}, {0.3f, 1, 0.4f}};  // never on one line
    while (vertices.size() < static_cast<size_t>(vertexCount))
        vertices.push_back({r.Hundredths(-200, 200), r.Hundredths(-200, 200), r.Hundredths(-200, 200)});
    // Every frame has the static mesh's faces; the file's normals only number the records.
    std::string faces = "*MESH_FACE_LIST {\n", normals = "*MESH_NORMALS {\n", texFaces;
    const char* smoothing[] = {"", " 1", " 2", " 1,3", " 4"};
    o.faces = static_cast<size_t>(r.Int(2, 8));
    for (size_t f = 0; f < o.faces; ++f) {
        std::array<int, 3> c{r.Int(0, vertexCount - 1), 0, 0};
        do c[1] = r.Int(0, vertexCount - 1); while (c[1] == c[0]);
        do c[2] = r.Int(0, vertexCount - 1); while (c[2] == c[0] || c[2] == c[1]);
        const int id = n == 0 ? r.Int(0, 3) : r.Chance(0.85) ? r.Int(0, n - 1) : n + r.Int(0, 2);  // beyond: a warning
        o.twoSidedFaces += n == 0 ? material.twoSided : id < n && material.subs[static_cast<size_t>(id)];
        faces += Line("*MESH_FACE", Text(f) + ":", "A:", c[0], "B:", c[1], "C:", c[2], "AB:", r.Int(0, 1), "BC:",
                      r.Int(0, 1), "CA:", r.Int(0, 1), std::string("*MESH_SMOOTHING") + smoothing[r.Int(0, 4)], "*MESH_MTLID", id);
        normals += Line("*MESH_FACENORMAL", f, "0 0 1") + Line("*MESH_VERTEXNORMAL", c[0], "0 0.6 0.8") +
                   Line("*MESH_VERTEXNORMAL", c[1], "0 0.6 0.8") + Line("*MESH_VERTEXNORMAL", c[2], "0 0.6 0.8");
    }
    std::vector<int> texOrder;  // texture-vertex numbers in the order written
    if (r.Chance(0.75)) {
        for (int i = 0; i < vertexCount; ++i)
            texOrder.push_back(i);
        std::shuffle(texOrder.begin(), texOrder.end(), r.engine);
        for (size_t f = 0; f < o.faces; ++f)  // some faces without; number vertexCount names no texture vertex
            texFaces += r.Chance(0.85) ? Line("*MESH_TFACE", f, r.Int(0, vertexCount), r.Int(0, vertexCount - 1),
                                              r.Int(0, vertexCount - 1)) : "";
    }
    const auto mesh = [&](int ticks, const std::vector<Vector3>& at, size_t count, bool tex, std::array<float, 2> uv) {
        std::string text = "*MESH {\n" + Line("*TIMEVALUE", ticks) + Line("*MESH_NUMVERTEX", count) + "*MESH_VERTEX_LIST {\n";
        for (size_t i = 0; i < count; ++i)
            text += Line("*MESH_VERTEX", i, at[i]);
        text += "}\n" + faces + "}\n";
        if (tex && !texOrder.empty()) {
            text += "*MESH_TVERTLIST {\n";
            for (int number : texOrder)
                text += Line("*MESH_TVERT", number, number * 0.07 + uv[0], 1.0 - number * 0.05 - uv[1], 0);
            text += "}\n*MESH_TFACELIST {\n" + texFaces + "}\n";
        }
        return text + (r.Chance(0.8) ? normals + "}\n" : "") + "}\n";
    };
    std::string text = NodeTm(r, o.fileName) + mesh(0, vertices, vertices.size(), true, {0, 0});
    text += r.Chance(0.4) ? TmAnimation(r, o) : "";
    if (o.frames > 0) {
        text += "*MESH_ANIMATION {\n";
        int ticks = 160 * r.Int(0, 2);
        std::vector<Vector3> moved = vertices;
        std::array<float, 2> uvShift = {0, 0};
        float angle = 0;
        const Vector3 drift{r.Hundredths(-50, 50), r.Hundredths(-50, 50), r.Hundredths(-50, 50)};
        for (size_t i = 0; i < o.frames; ++i, ticks += 160 * r.Int(1, 4)) {
            if (o.animFromMesh) {  // a rigid body, turned about z and carried along
                angle += r.Hundredths(10, 80);
                const float c = std::cos(angle), s = std::sin(angle), t = static_cast<float>(i);
                for (size_t v = 0; v < vertices.size(); ++v)
                    moved[v] = Add({vertices[v].x * c - vertices[v].y * s, vertices[v].x * s + vertices[v].y * c,
                                    vertices[v].z}, Scale(drift, t));
            } else if (i > 0 && r.Chance(0.7)) {  // else the frame repeats the one before it
                const float step = r.Chance(0.5) ? 0.05f : r.Hundredths(-40, 40);
                for (Vector3& p : moved)
                    p = Add(p, {step, r.Hundredths(-3, 3), 0});
                const float shifts[] = {0.005f, 0.01f, 0.015f, 0.05f};  // about the 0.01 tolerance
                uvShift[static_cast<size_t>(r.Int(0, 1))] += shifts[r.Int(0, 3)];
            }
            // From frame 2 on, a frame may lack its last vertex or its texture vertices (read as 0).
            const bool shortFrame = i >= 2 && !o.animFromMesh && r.Chance(0.15);
            text += mesh(ticks, moved, vertices.size() - shortFrame, i < 2 || r.Chance(0.85), uvShift);
        }
        text += "}\n";
    }
    return text + Line("*MATERIAL_REF", materialRef);
}

inline Generated Generate(Random& r)
{
    Generated scene;
    scene.text = "*3DSMAX_ASCIIEXPORT 200\n*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n";
    std::vector<Material> materials(static_cast<size_t>(r.Int(2, 4)));
    scene.text += "*MATERIAL_LIST {\n" + Line("*MATERIAL_COUNT", materials.size());
    for (size_t m = 0; m < materials.size(); ++m) {
        const bool multi = r.Chance(0.5);
        scene.text += Line("*MATERIAL", m, "{") + Line("*MATERIAL_CLASS", multi ? "\"Multi-/Unterobjekt\"" : "\"Standard\"") +
                      MaterialBody(r, materials[m].twoSided);
        materials[m].subs.resize(multi ? static_cast<size_t>(r.Int(2, 3)) : 0);
        for (size_t s = 0; s < materials[m].subs.size(); ++s) {
            bool twoSided = false;
            scene.text += Line("*SUBMATERIAL", s, "{") + MaterialBody(r, twoSided) + "}\n";
            materials[m].subs[s] = twoSided;
        }
        scene.text += "}\n";
    }
    scene.text += "}\n";

    for (int k = 0, count = r.Int(3, 7); k < count; ++k) {
        Object o;
        o.helper = r.Chance(0.25);
        o.name = (o.helper ? "H" : "G") + Text(k);
        o.parent = k > 0 && r.Chance(0.5) ? r.Int(0, k - 1) : -1;
        o.frames = !o.helper && r.Chance(0.5) ? static_cast<size_t>(r.Int(2, 5)) : 0;
        o.animFromMesh = o.frames > 0 && o.parent < 0 && r.Chance(0.4);
        o.removed = !o.animFromMesh && r.Chance(0.15);
        o.fileName = (o.animFromMesh ? "convert(createanimfrommesh)"
                      : o.removed    ? (r.Chance(0.5) ? "convert(delete)" : "CONVERT(Delete)")
                      : r.Chance(0.1) ? "convert()" : "") + o.name;
        // A parent is named as it stands in the file: directives run after reading.
        const std::string parent =
            o.parent < 0 ? "" : Line("*NODE_PARENT", "\"" + scene.objects[static_cast<size_t>(o.parent)].fileName + "\"");
        scene.text += (o.helper ? "*HELPEROBJECT {\n" : "*GEOMOBJECT {\n") + Line("*NODE_NAME", "\"" + o.fileName + "\"") + parent;
        scene.text += o.helper ? "*HELPER_CLASS \"Dummy\"\n" + NodeTm(r, o.fileName) + (r.Chance(0.5) ? TmAnimation(r, o) : "")
                               : GeomObject(r, o, materials);
        scene.text += "}\n";
        if (o.animFromMesh)
            o.positionKeys = o.frames, o.rotationKeys = o.frames + 1;
        scene.objects.push_back(o);
    }

    scene.settings.meshAnimFlags = static_cast<uint32_t>(r.Int(0, 31));
    scene.settings.analyse = r.Chance(0.2) ? 1 : 0;
    for (int k = r.Chance(0.3) ? r.Int(1, 3) : 0; k > 0; --k) {
        const int first = r.Int(0, 4), last = r.Int(0, 5);  // first > last: ignored
        const Vector3 move{r.Hundredths(-100, 100), 0.25f, r.Hundredths(-100, 100)};
        const std::string g = r.Chance(0.3) ? "" : " ";  // the compact form has no blanks
        scene.operations += "mesh_move" + g + "{" + g + "first_frame " + Text(first) + ";" + g + "last_frame " + Text(last) +
                            ";" + g + "move_x " + Text(move.x) + ";" + g + "move_y 0.25;" + g + "move_z " + Text(move.z) + ";" +
                            g + "}\n";
        if (first <= last)
            scene.moves.push_back({first, last, move});
    }
    return scene;
}

}  // namespace randomscenes
