// Whatever the number of threads (one, two, eight), a conversion gives the same bytes and the same
// console text, in the same order, on standard output, standard error and the trace channel.
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Scene/BaseNode.h"
#include "Scene/VertexNormals.h"
#include "support/RandomScenes.h"
#include "support/TestFiles.h"
#include "support/TraceCapture.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// Settings are given by designated initializers: the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

struct Outcome {
    int exitCode = 0;
    std::string printed, errors, trace;
    std::vector<unsigned char> bytes;
    bool written = false;
    bool operator==(const Outcome&) const = default;
};

// ConvertFiles as the program runs it (under -batch, so that nothing waits for a key).
Outcome Convert(const std::string& source, ConvertSettings settings, uint32_t threads)
{
    testfiles::ScratchDirectory directory;
    settings.batch = true;
    settings.threads = threads;
    Outcome outcome;
    TraceCapture trace;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    outcome.exitCode = ConvertFiles(settings, {source}, directory.File("out.x"));
    outcome.printed = testing::internal::GetCapturedStdout();
    outcome.errors = testing::internal::GetCapturedStderr();
    outcome.trace = trace.Text();
    outcome.written = testfiles::Exists(directory.File("out.vern3D"));
    if (outcome.written)
        outcome.bytes = testfiles::ReadBytes(directory.File("out.vern3D"));
    return outcome;
}

// Answers the outcome on one thread, after comparing it with those on two and eight.
Outcome ExpectSameOnThreads(const std::string& source, const ConvertSettings& settings, const std::string& what)
{
    const Outcome one = Convert(source, settings, 1);
    for (const uint32_t threads : {2u, 8u}) {
        const Outcome many = Convert(source, settings, threads);
        EXPECT_EQ(many.printed + many.errors + many.trace, one.printed + one.errors + one.trace) << what << " on " << threads;
        EXPECT_TRUE(many == one) << what << " on " << threads << " threads: output or exit code";
    }
    return one;
}

using randomscenes::Line;
using randomscenes::Text;

const std::string kMaterials =
    "*MATERIAL_LIST {\n*MATERIAL 0 {\n*SUBMATERIAL 0 {\n*MAP_DIFFUSE {\n*BITMAP \"a.tga\"\n}\n}\n"
    "*SUBMATERIAL 1 {\n*MATERIAL_TWOSIDED\n*MAP_OPACITY {\n*BITMAP \"b.tga\"\n}\n}\n}\n}\n";

// Box `index` at x = 2 * index, `size` wide: 12 faces in smoothing groups 1 to 6 of sub-material
// `sub` (1: two-sided, opacity-mapped), except face 11, which names sub-material 7 (no such one:
// two warnings) when `warned`. Then `frames` frames, each moved by `step` from the one before.
// `extra` goes into the object's block (a transform, a parent).
std::string Box(int index, int sub, float size, int frames, float step, int materialRef = 0, bool warned = true,
                const std::string& extra = "")
{
    const float x = 2.0f * static_cast<float>(index);
    std::vector<Vector3> corners;
    for (int i = 0; i < 8; ++i)
        corners.push_back({x + size * static_cast<float>(i & 1), size * static_cast<float>((i >> 1) & 1),
                           size * static_cast<float>(i >> 2)});
    static const int kFaces[12][3] = {{0, 1, 2}, {1, 3, 2}, {4, 6, 5}, {5, 6, 7}, {0, 4, 1}, {1, 4, 5},
                                      {2, 3, 6}, {3, 7, 6}, {0, 2, 4}, {2, 6, 4}, {1, 5, 3}, {3, 5, 7}};
    std::vector<randomscenes::Face> faces;
    for (int f = 0; f < 12; ++f)
        faces.push_back({kFaces[f][0], kFaces[f][1], kFaces[f][2], 1 + f / 2, f == 11 && warned ? 7 : sub, 1, 1, 0});
    std::string text = "*GEOMOBJECT {\n*NODE_NAME \"Box" + Text(index) + "\"\n" + extra + randomscenes::MeshBlock(corners, faces);
    for (int frame = 0; frame < frames; ++frame) {
        for (Vector3& corner : corners)
            corner.z += step;
        text += (frame == 0 ? "*MESH_ANIMATION {\n" : "") + randomscenes::MeshBlock(corners, {}, 160 * frame);
    }
    return text + (frames > 0 ? "}\n" : "") + Line("*MATERIAL_REF", materialRef) + "}\n";
}

// A square grid of side x side vertices: texture coordinates, two smoothing groups in stripes, and
// the faces of every fifth row two-sided.
std::string Grid(int side)
{
    std::vector<Vector3> vertices;
    std::vector<randomscenes::Face> faces;
    std::string texVertices, texFaces;
    for (int i = 0; i < side * side; ++i) {
        vertices.push_back({1.5f * float(i % side), 1.5f * float(i / side), 0.25f * float((i * 7919) % 13)});
        texVertices += Line("*MESH_TVERT", i, double(i % side) / side, double(i / side) / side, 0);
    }
    for (int y = 0; y + 1 < side; ++y)
        for (int x = 0; x + 1 < side; ++x) {
            const int base = y * side + x;
            for (const auto& c : {std::array{base, base + 1, base + side + 1}, std::array{base, base + side + 1, base + side}}) {
                texFaces += Line("*MESH_TFACE", faces.size(), c[0], c[1], c[2]);
                faces.push_back({c[0], c[1], c[2], 1 + (x / 7) % 2, y % 5 == 0 ? 1 : 0, 1, 1, 0});
            }
        }
    std::string mesh = randomscenes::MeshBlock(vertices, faces);
    mesh.insert(mesh.size() - 2, "*MESH_TVERTLIST {\n" + texVertices + "}\n*MESH_TFACELIST {\n" + texFaces + "}\n");  // before its "}"
    return kMaterials + "*GEOMOBJECT {\n*NODE_NAME \"Grid\"\n" + mesh + "*MATERIAL_REF 0\n}\n";
}

TEST(Threads, CorpusConvertsAlikeOnAnyNumberOfThreads)
{
    testfiles::ScratchDirectory directory;
    const std::string operations = directory.Write(
        "ops.txt", "mesh_move { first_frame 0; last_frame 2; move_x 0.5; move_y 0; move_z 2.5; }\n");
    const ConvertSettings sets[] = {{}, {.meshAnimFlags = 31, .compat = true},
                                    {.meshAnimFlags = 1, .meshOpsFile = operations, .analyse = 1, .compat = true}};
    size_t files = 0;
    for (const std::string& folder : {std::string(MAKEVERN3D_SHARED_CORPUS), std::string(MAKEVERN3D_SHARED_CORPUS) + "/odd"})
        for (const std::string& name : testfiles::Entries(folder)) {
            if (!name.ends_with(".ase") && !name.ends_with(".ASE"))
                continue;
            ++files;
            for (size_t set = 0; set < std::size(sets); ++set)
                ExpectSameOnThreads(folder + "/" + name, sets[set], name + ", switch set " + std::to_string(set));
        }
    EXPECT_GT(files, 20u);
}

TEST(Threads, RandomScenesConvertAlike)
{
    testfiles::ScratchDirectory directory;
    randomscenes::Random random(0x5EED3D);
    for (int index = 0; index < 60; ++index) {
        randomscenes::Generated scene = randomscenes::Generate(random);
        if (!scene.operations.empty())
            scene.settings.meshOpsFile = directory.Write("ops.txt", scene.operations);
        ExpectSameOnThreads(directory.Write("scene.ase", scene.text), scene.settings, "scene " + std::to_string(index));
    }
}

TEST(Threads, LargeAndManyMeshesConvertAlike)
{
    testfiles::ScratchDirectory directory;
    // 300 x 300 vertices: 178,802 faces, enough for the render mesh's parts built on several threads.
    const Outcome grid = ExpectSameOnThreads(directory.Write("grid.ase", Grid(300)), {}, "grid");
    // Also as the grid says: every face once (twice when two-sided), every vertex a grid point.
    vern3d::Scene decoded;
    std::string error;
    ASSERT_TRUE(vern3d::Decode(std::span<const uint8_t>(grid.bytes.data(), grid.bytes.size()), &decoded, &error)) << error;
    ASSERT_EQ(decoded.nodes.size(), 2u);
    const vern3d::Mesh& mesh = decoded.nodes[1].mesh;
    EXPECT_EQ(mesh.triangles.size(), 2u * 299 * 299 + 2u * 299 * 60);
    size_t wrong = 0;
    for (const vern3d::Vertex vertex : mesh.vertices) {
        const long x = std::lround(vertex.position.x / 1.5f), y = std::lround(vertex.position.y / 1.5f), i = y * 300 + x;
        char expected[64], actual[64];
        std::snprintf(expected, sizeof expected, "%.3f %.3f %.3f %.4f %.4f", 1.5 * x, 1.5 * y, 0.25 * ((i * 7919) % 13),
                      double(x) / 300, 1.0 - double(y) / 300);
        std::snprintf(actual, sizeof actual, "%.3f %.3f %.3f %.4f %.4f", vertex.position.x, vertex.position.y,
                      vertex.position.z, vertex.u, vertex.v);
        wrong += std::strcmp(expected, actual) != 0 || std::fabs(Length(vertex.normal) - 1.0f) > 1e-5f;
    }
    EXPECT_EQ(wrong, 0u);

    // Many small objects: two-sided ones, invalid sub-material numbers, frames that do not move
    // (left out) and that do, boxes so small that -compat welds them again (warned three times,
    // then counted).
    std::string many = kMaterials;
    for (int i = 0; i < 60; ++i)
        many += Box(i, i % 3 == 1, i % 7 == 3 ? 0.05f : 1.0f, i % 4 == 2 ? 3 : 0, i % 8 == 2 ? 0.0f : 0.5f);
    const Outcome objects = ExpectSameOnThreads(directory.Write("many.ase", many), {.meshAnimFlags = 1, .compat = true}, "many objects");
    EXPECT_TRUE(objects.written);
    for (const char* seen : {"Invalid material id '7'", "frame 2  ", "not saved", "more meshes welded"})
        EXPECT_NE(objects.printed.find(seen), std::string::npos) << seen;

    // An object without material in the middle: error 14, and the animated objects after it are
    // left out (its own frames too), whatever the thread that built them.
    std::string failing = kMaterials;
    for (int i = 0; i < 40; ++i)
        failing += Box(i, 0, 1.0f, i % 5 == 0 ? 2 : 0, 0.5f, i == 17 ? -1 : 0);
    const Outcome failed = ExpectSameOnThreads(directory.Write("failing.ase", failing), {.meshAnimFlags = 1}, "error");
    EXPECT_NE(failed.printed.find("Invalid material id '-1' in object 'Box17'"), std::string::npos) << failed.printed;

    // Output refused past the file's bound: 500 empty frames of a mesh of 48,000 render vertices,
    // among objects built before and after it.
    std::string refused = kMaterials;
    for (int i = 0; i < 20; ++i)
        refused += Box(i, 0, 1.0f, 0, 0.0f);
    refused += "*GEOMOBJECT {\n*NODE_NAME \"x\"\n*MATERIAL_REF 0\n*MESH {\n*MESH_VERTEX_LIST {\n*MESH_VERTEX 47999 0 0 0\n"
               "}\n*MESH_FACE_LIST {\n*MESH_FACE 15999: A: 0 B: 0 C: 0 AB: 0 BC: 0 CA: 0 *MESH_SMOOTHING 0 "
               "*MESH_MTLID 0\n}\n}\n*MESH_ANIMATION {\n";
    for (int frame = 0; frame < 500; ++frame)
        refused += "*MESH {}\n";
    refused += "}\n}\n";
    for (int i = 20; i < 40; ++i)
        refused += Box(i, 0, 1.0f, 0, 0.0f);
    const Outcome refusal = ExpectSameOnThreads(directory.Write("refused.ase", refused), {.meshAnimFlags = 1}, "refusal");
    EXPECT_FALSE(refusal.written);
    EXPECT_NE(refusal.printed.find("each rebuilt on"), std::string::npos) << refusal.printed;

    // Objects built while the file is read, and what changes after them: a second material list
    // makes a sub-material of material 1 two-sided, and a parent with a transform of its own is
    // removed by its name, so that the transforms of its children (of material 0) are taken
    // relative to the root instead (the same up to rounding, which shows in their vertices).
    std::string changed = "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n*MATERIAL 1 {\n*SUBMATERIAL 0 {\n}\n"
                          "*SUBMATERIAL 1 {\n}\n}\n}\n*HELPEROBJECT {\n*NODE_NAME \"convert(delete)Pivot\"\n"
                          "*NODE_TM {\n*TM_ROW0 0.0006 0.0008 0\n*TM_ROW1 -0.0008 0.0006 0\n*TM_ROW2 0 0 0.001\n"
                          "*TM_ROW3 1000.3 500.7 0\n}\n}\n";
    for (int i = 0; i < 30; ++i) {
        const std::string under = "*NODE_PARENT \"convert(delete)Pivot\"\n*NODE_TM {\n*TM_ROW0 0.8 0.6 0\n"
                                  "*TM_ROW1 -0.6 0.8 0\n*TM_ROW2 0 0 1\n*TM_ROW3 " + Text(2 * i + 0.137) +
                                  " 0.311 0.53\n}\n";
        changed += i % 3 == 0 ? Box(i, 0, 1.0f, 0, 0.0f, 0, false, under) : Box(i, i % 2, 1.0f, 0, 0.0f, 1, false);
    }
    changed += "*MATERIAL_LIST {\n*MATERIAL 1 {\n*SUBMATERIAL 0 {\n*MATERIAL_TWOSIDED\n}\n}\n}\n";
    for (int i = 30; i < 40; ++i)
        changed += Box(i, 0, 1.0f, 0, 0.0f, 1, false);
    ExpectSameOnThreads(directory.Write("changed.ase", changed), {}, "changed after reading");
}

TEST(Threads, ALargeMeshIsIndexedAndMovedAsOnOneThread)
{
    // 150,000 faces over 20,000 vertices in a few smoothing groups (and none), and a transform.
    randomscenes::Random random(18);
    Mesh mesh;
    for (int i = 0; i < 20000; ++i)
        mesh.vertices.push_back({random.Hundredths(0, 999), random.Hundredths(0, 999), random.Hundredths(0, 999)});
    for (int f = 0; f < 150000; ++f)
        mesh.faces.push_back({random.Int(0, 19999), random.Int(0, 19999), random.Int(0, 19999), 0, 0, 0, random.Int(-1, 2), 0});
    Matrix inverse = Matrix::Identity();
    inverse(0, 1) = 0.25f;
    inverse(3, 2) = -3.0f;
    MeshNode node("n");
    Mesh moved = mesh;
    node.ToNodeSpace(moved, inverse, 4);
    size_t wrong = 0;
    for (size_t i = 0; i < mesh.vertices.size(); ++i) {
        const Vector3 p = TransformPoint(mesh.vertices[i], inverse);
        wrong += std::memcmp(&p, &moved.vertices[i], sizeof p) != 0;
    }
    ASSERT_EQ(moved.normals.size(), mesh.faces.size());
    for (size_t f = 0; f < mesh.faces.size(); ++f) {
        const MeshFace& face = mesh.faces[f];
        const Vector3 a = moved.vertices[face.a], b = moved.vertices[face.b], c = moved.vertices[face.c];
        const Vector3 n = Normalize(Cross(Subtract(b, a), Subtract(c, a)));
        wrong += std::memcmp(&n, &moved.normals[f].faceNormal, sizeof n) != 0 || moved.normals[f].faceIndex != int32_t(f);
    }
    EXPECT_EQ(wrong, 0u);
    // Corner normals summed by ranges of vertices on four threads, and in one pass.
    const VertexNormals one(moved, 1), four(moved, 4);
    for (size_t f = 0; f < moved.faces.size(); ++f)
        for (const int32_t vertex : {moved.faces[f].a, moved.faces[f].b, moved.faces[f].c}) {
            const int32_t group = moved.faces[f].smoothingGroup;
            const Vector3 p = one.VertexNormal(int32_t(f), vertex, group), q = four.VertexNormal(int32_t(f), vertex, group);
            wrong += std::memcmp(&p, &q, sizeof p) != 0;
        }
    EXPECT_EQ(wrong, 0u);
}

}  // namespace
