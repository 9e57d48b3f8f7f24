// Whole scenes made at random and converted in process: materials with sub-materials, two-sided
// and opacity maps, objects in a hierarchy with keys and mesh animations, name directives, every
// choice of frame components, -analyse and operations files. Each output must decode; its nodes,
// triangles and frames must follow from what was generated; and every frame, render vertex and
// stored frame must equal the frame-vertex rule carried out literally here.
#include "Scene/BaseNode.h"
#include "support/AseTestParse.h"
#include "support/TestFiles.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <concepts>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kSeed = 0x5EED3D;
constexpr int kSceneCount = 60;

struct Random {
    std::mt19937 engine{kSeed};
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); }
    bool Chance(double p) { return std::uniform_real_distribution<double>(0.0, 1.0)(engine) < p; }
    float Hundredths(int lo, int hi) { return static_cast<float>(Int(lo, hi)) / 100.0f; }
};

std::string Text(const std::string& text) { return text; }
std::string Text(std::integral auto value) { return std::to_string(value); }
std::string Text(double value) { return std::to_string(value); }
std::string Text(const Vector3& v) { return Text(v.x) + " " + Text(v.y) + " " + Text(v.z); }
// One line of the file: the parts separated by blanks.
template <typename... Parts>
std::string Line(const Parts&... parts)
{
    std::string line;
    ((line += Text(parts) + " "), ...);
    line.back() = '\n';
    return line;
}

// ---- The generator, and what the output must then hold ----

struct Object {
    std::string fileName, name;  // as written, and after its directive
    int parent = -1;             // index of the object named by *NODE_PARENT
    bool helper = false, removed = false, animFromMesh = false;
    size_t faces = 0, twoSidedFaces = 0, frames = 0, positionKeys = 0, rotationKeys = 0;
};

struct Move { int first, last; Vector3 scene; };  // frames first to last move by `scene` (scene space)

struct Scene {
    std::string text, operations;
    ConvertSettings settings;
    std::vector<Object> objects;
    std::vector<Move> moves;  // the records of the operations file that apply
};

struct Material { bool twoSided = false; std::vector<bool> subs; };  // subs: whether each is two-sided

std::string MaterialBody(Random& r, bool& twoSided)
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

std::string NodeTm(Random& r, const std::string& name)
{
    const float a = r.Hundredths(-314, 314), b = r.Hundredths(-314, 314), ca = std::cos(a), sa = std::sin(a);
    const float cb = std::cos(b), sb = std::sin(b), s0 = r.Hundredths(50, 200), s1 = r.Hundredths(50, 200);
    const Vector3 shift{r.Hundredths(-500, 500), r.Hundredths(-500, 500), r.Hundredths(-500, 500)};
    return "*NODE_TM {\n" + Line("*NODE_NAME", "\"" + name + "\"") + Line("*TM_ROW0", Vector3{s0 * ca, s0 * sa * cb, s0 * sa * sb}) +
           Line("*TM_ROW1", Vector3{-s1 * sa, s1 * ca * cb, s1 * ca * sb}) + Line("*TM_ROW2", Vector3{0, -sb, cb}) +
           Line("*TM_ROW3", shift) + "}\n";
}

std::string TmAnimation(Random& r, Object& o)
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

std::string GeomObject(Random& r, Object& o, const std::vector<Material>& materials)
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

Scene Generate(Random& r)
{
    Scene scene;
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
        if (o.animFromMesh) {
            o.positionKeys = o.frames;
            o.rotationKeys = o.frames + 1;
        }
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

// ---- The frame-vertex rule, literally ----

std::vector<MeshVertex> LiteralFrameVertices(const Mesh& mesh, const std::vector<VertexSource>& sources)
{
    const auto cornerNormal = [&](int32_t f, int32_t v, int32_t g) {
        std::vector<Vector3> collected;
        // The face's record by its number. The records are sorted and numbered once each, so the
        // first match is the record the sorted binary search finds.
        const auto collect = [&](size_t k) {
            for (const MeshFaceNormals& record : mesh.normals)
                if (static_cast<uint32_t>(record.faceIndex) == k)
                    return collected.push_back(record.faceNormal);
        };
        if (g == -1)
            collect(static_cast<size_t>(f));
        for (size_t k = 0; g != -1 && k < mesh.faces.size(); ++k) {
            const MeshFace& face = mesh.faces[k];
            if (face.smoothingGroup == g && (face.a == v || face.b == v || face.c == v))
                collect(k);
        }
        float x = 0.0f, y = 0.0f, z = 0.0f;
        for (const Vector3& n : collected)
            x += n.x, y += n.y, z += n.z;
        const float length = std::sqrt(x * x + y * y + z * z);
        return collected.empty() ? Vector3{0.0f, 0.0f, 0.0f} : Vector3{x / length, y / length, z / length};
    };
    std::vector<MeshVertex> list(sources.size());
    for (size_t i = 0; i < sources.size(); ++i) {
        const VertexSource& s = sources[i];
        const auto position = static_cast<size_t>(s.position), texVertex = static_cast<size_t>(s.texVertex);
        list[i].position = position < mesh.vertices.size() ? mesh.vertices[position] : Vector3{0.0f, 0.0f, 0.0f};
        const Vector3 n = cornerNormal(s.face, s.position, s.smoothingGroup);
        list[i].normal = s.flip ? Vector3{-n.x, -n.y, -n.z} : n;
        list[i].colour = 0xFFFFFFFFu;
        list[i].material = s.material;
        list[i].u = s.texVertex != -1 && texVertex < mesh.texVertices.size() ? mesh.texVertices[texVertex].u : 0.0f;
        list[i].v = s.texVertex != -1 && texVertex < mesh.texVertices.size() ? 1.0f - mesh.texVertices[texVertex].v : 0.0f;
    }
    return list;
}

// ---- Checks ----

using Words = std::array<uint32_t, 10>;  // position, normal, colour, material, u, v
static_assert(sizeof(MeshVertex) == sizeof(Words) && sizeof(vern3d::Vertex) == sizeof(Words));
Words Bits(const auto& vertex) { return std::bit_cast<Words>(vertex); }
constexpr Words kWordComponent = {1, 1, 1, 2, 2, 2, 4, 8, 16, 16};  // the component flag of each word

bool FramesDiffer(const std::vector<MeshVertex>& a, const std::vector<MeshVertex>& b, uint32_t flags)
{
    for (size_t k = 0; k < a.size(); ++k) {
        const Words p = Bits(a[k]), q = Bits(b[k]);
        for (size_t w = 0; w < p.size(); ++w) {
            const double bound = w < 6 ? static_cast<double>(0.1f) : 0.01;
            const bool floats = w < 6 || w > 7;
            if ((flags & kWordComponent[w]) &&
                (floats ? std::fabs(double(std::bit_cast<float>(p[w])) - std::bit_cast<float>(q[w])) > bound : p[w] != q[w]))
                return true;
        }
    }
    return false;
}

// The frames, the render vertices and the stream of one mesh node; answers the frames left out.
size_t CheckMeshNode(const Scene& scene, MeshNode& node, const vern3d::Mesh& decoded)
{
    SCOPED_TRACE("mesh node " + node.name);
    // Each render vertex is the rule applied to the source mesh: welding keeps the first one added.
    const Mesh& source = scene.settings.analyse > 0 && node.frames.size() >= 2 ? *node.frames[1] : node.mesh;
    const auto sourceList = LiteralFrameVertices(source, node.vertexSources);
    EXPECT_EQ(sourceList.size(), node.renderVertices.size());
    for (size_t k = 0; k < sourceList.size() && k < node.renderVertices.size(); ++k)
        EXPECT_EQ(Bits(node.renderVertices[k]), Bits(sourceList[k])) << "render vertex " << k;

    // Each frame is the rule applied to its mesh, then moved by every record that reaches it, in
    // file order: the record's (x, y, z) times the upper-left 3x3 of the inverse world matrix.
    const Matrix m = Inverse(node.world);
    std::vector<std::vector<MeshVertex>> frames;
    for (size_t i = 0; i < node.frames.size(); ++i) {
        frames.push_back(LiteralFrameVertices(*node.frames[i], node.vertexSources));
        for (const Move& move : scene.moves) {
            if (static_cast<int>(i) < move.first || static_cast<int>(i) > move.last)
                continue;
            const float x = move.scene.x, y = move.scene.y, z = move.scene.z;
            const Vector3 d{x * m(0, 0) + y * m(1, 0) + z * m(2, 0), x * m(0, 1) + y * m(1, 1) + z * m(2, 1),
                            x * m(0, 2) + y * m(1, 2) + z * m(2, 2)};
            for (MeshVertex& vertex : frames.back())
                vertex.position = Add(vertex.position, d);
        }
    }

    // The stream: frame 0 whole, then each frame that differs from the last stored one, its
    // selected components stored and the others carried from the stored frame before it.
    const size_t frameCount = std::max<size_t>(node.frames.size(), 1);
    const auto list = [&](size_t i) -> const std::vector<MeshVertex>& {
        return frames.empty() ? node.renderVertices : frames[i];
    };
    const uint32_t flags = scene.settings.meshAnimFlags & 0xFFu;
    std::vector<size_t> stored = {0};
    for (size_t i = 1; i < frameCount; ++i)
        if (FramesDiffer(list(stored.back()), list(i), flags))
            stored.push_back(i);
    EXPECT_EQ(decoded.header.flags, scene.settings.meshAnimFlags);
    EXPECT_EQ(decoded.header.vertexCount, node.renderVertices.size());
    EXPECT_EQ(decoded.frames.size(), stored.size());
    std::vector<Words> carried(node.renderVertices.size());
    for (size_t j = 0; j < stored.size() && j < decoded.frames.size(); ++j) {
        const size_t i = stored[j];
        const int32_t time = node.frames.empty() ? 0 : node.frames[i]->time;
        EXPECT_EQ(decoded.frames[j].time, time) << "frame " << i;
        EXPECT_EQ(decoded.frames[j].delta, i == 0 ? 0 : time - node.frames[i - 1]->time) << "frame " << i;
        const std::vector<vern3d::Vertex> vertices = decoded.FrameVertices(j);
        EXPECT_EQ(vertices.size(), list(i).size());
        for (size_t k = 0; k < list(i).size() && k < vertices.size(); ++k) {
            for (size_t w = 0; w < carried[k].size(); ++w)
                carried[k][w] = j == 0 || (flags & kWordComponent[w]) ? Bits(list(i)[k])[w] : carried[k][w];
            EXPECT_EQ(Bits(vertices[k]), carried[k]) << "stored frame " << i << " vertex " << k;
        }
    }
    return frameCount - stored.size();
}

// Adds to `skipped` the frames left out of the streams.
void CheckScene(const Scene& scene, const asetest::Parsed& parsed, size_t& skipped)
{
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    vern3d::Scene file;
    std::string error;
    ASSERT_TRUE(vern3d::DecodeFile(parsed.output, &file, &error)) << error;
    std::map<std::string, size_t> decodedByName;
    for (size_t i = 1; i < file.nodes.size(); ++i)
        EXPECT_TRUE(decodedByName.emplace(file.nodes[i].name, i).second) << "twice: " << file.nodes[i].name;
    BaseNode& root = *parsed.Root();
    size_t survivors = 0, skippedHere = 0;
    for (const Object& o : scene.objects) {
        SCOPED_TRACE("object " + o.fileName);
        BaseNode* node = root.FindNode(o.name);
        const auto found = decodedByName.find(o.name);
        EXPECT_EQ(node == nullptr, o.removed);
        EXPECT_EQ(found == decodedByName.end(), o.removed);
        if (o.removed || !node || found == decodedByName.end())
            continue;
        ++survivors;
        const vern3d::Node& decoded = file.nodes[found->second];
        int parent = o.parent;  // removed nodes hand their children to their own parent
        while (parent >= 0 && scene.objects[static_cast<size_t>(parent)].removed)
            parent = scene.objects[static_cast<size_t>(parent)].parent;
        const std::string parentName = parent < 0 ? root.name : scene.objects[static_cast<size_t>(parent)].name;
        EXPECT_EQ(node->Parent()->name, parentName);
        EXPECT_EQ(file.nodes[decoded.parent].name, parentName);
        EXPECT_EQ(decoded.hasAnimation, o.positionKeys + o.rotationKeys > 0);
        EXPECT_EQ(decoded.animation.positionKeys.size(), o.positionKeys);
        EXPECT_EQ(decoded.animation.rotationKeys.size(), o.rotationKeys);
        EXPECT_EQ(decoded.hasMesh, !o.helper && !o.animFromMesh);
        if (!decoded.hasMesh || o.helper || o.animFromMesh)
            continue;
        EXPECT_EQ(decoded.mesh.header.triangleCount, o.faces + o.twoSidedFaces);
        EXPECT_EQ(decoded.mesh.header.frameCount, std::max<size_t>(o.frames, 1));
        skippedHere += CheckMeshNode(scene, static_cast<MeshNode&>(*node), decoded.mesh);
    }
    EXPECT_EQ(file.nodes.size(), survivors + 1);
    size_t warnings = 0;
    for (size_t at = 0; (at = parsed.printed.find("Because it equals the last frame.", at)) != std::string::npos; ++at)
        ++warnings;
    EXPECT_EQ(warnings, skippedHere);
    skipped += skippedHere;
}

TEST(GeneratedScenes, ConvertDecodeAndKeepTheLiteralFrameRule)
{
    Random random;
    testfiles::ScratchDirectory operations, sameFolder;
    int dumped = 0;
    size_t skipped = 0;
    std::map<std::string, int> seen;  // so that a generator that stops making a case is noticed
    for (int index = 0; index < kSceneCount; ++index) {
        SCOPED_TRACE("seed " + Text(kSeed) + ", scene " + Text(index));
        Scene scene = Generate(random);
        if (!scene.operations.empty())
            scene.settings.meshOpsFile = operations.Write("ops" + Text(index) + ".txt", scene.operations);
        const auto parsed = asetest::ParseAse(scene.text, scene.settings);
        const bool failedBefore = ::testing::Test::HasFailure();
        CheckScene(scene, parsed, skipped);
        // The same bytes and console text on one, two and eight threads.
        std::vector<std::pair<std::string, std::vector<unsigned char>>> outcomes;
        for (const uint32_t threads : {1u, 2u, 8u}) {
            ConvertSettings settings = scene.settings;
            settings.threads = threads;
            Reporter reporter;
            ::Scene read;
            testing::internal::CaptureStdout();
            ConvertFile(sameFolder.Write("scene.ase", scene.text), sameFolder.File("scene.vern3D"), settings, reporter, read);
            outcomes.emplace_back(testing::internal::GetCapturedStdout() + reporter.ErrorText(),
                                  testfiles::ReadBytes(sameFolder.File("scene.vern3D")));
            EXPECT_EQ(outcomes.back(), outcomes.front()) << threads << " threads";
        }
        if (::testing::Test::HasFailure() && !failedBefore && dumped++ < 2)
            std::cout << "---- scene " << index << ", flags " << scene.settings.meshAnimFlags << ", analyse "
                      << scene.settings.analyse << "\n" << scene.text << "---- operations\n" << scene.operations;
        seen["operations"] += !scene.moves.empty();
        seen["analyse"] += scene.settings.analyse > 0;
        for (const Object& o : scene.objects)
            seen["lifted"] += o.removed && o.parent >= 0, seen["createanimfrommesh"] += o.animFromMesh,
                seen["mesh animation"] += o.frames > 0 && !o.animFromMesh, seen["two-sided"] += o.twoSidedFaces > 0;
    }
    EXPECT_GT(skipped, 0u);
    for (const char* what : {"operations", "analyse", "lifted", "createanimfrommesh", "mesh animation", "two-sided"})
        EXPECT_GT(seen[what], 2) << what;
}

}  // namespace
