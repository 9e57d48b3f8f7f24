// Mesh chunks as written: welding, triangle order, batches, two-sided faces, the frame stream and
// the operations file, checked on the decoded file (and on exact bytes where the layout is the
// point).
#include "Output/LittleEndian.h"
#include "Scene/VertexNormals.h"
#include "support/AseTestParse.h"
#include "support/RandomScenes.h"
#include "support/TraceCapture.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

// Settings are given by designated initializers: the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

using asetest::kScene;
using asetest::ParseAse;
using randomscenes::Face;
using randomscenes::MeshBlock;
using V = std::array<float, 3>;

V Xyz(const vern3d::Vector3& v) { return {v.x, v.y, v.z}; }

std::vector<uint8_t> Payload(const vern3d::Node& node) { return {node.mesh.payload.begin(), node.mesh.payload.end()}; }

std::vector<uint8_t> Bytes(const LittleEndianBuffer& buffer) { return {buffer.Data(), buffer.Data() + buffer.Size()}; }

// Words, and floats by their bits.
template <class T>
void Put(LittleEndianBuffer& buffer, std::initializer_list<T> values)
{
    for (T value : values)
        buffer.U32(std::bit_cast<uint32_t>(value));
}

// Material 0: sub-materials from `subs` (each a body), or a plain material when `subs` is empty.
std::string Materials(const std::vector<std::string>& subs, const std::string& own = "")
{
    std::string text = "*MATERIAL_LIST {\n*MATERIAL 0 {\n" + own;
    for (size_t m = 0; m < subs.size(); ++m)
        text += "*SUBMATERIAL " + std::to_string(m) + " {\n" + subs[m] + "}\n";
    return text + "}\n}\n";
}

std::string Bitmap(const char* kind, const char* file) { return std::string("*") + kind + " {\n*BITMAP \"" + file + "\"\n}\n"; }

std::string Object(const std::string& body, const char* name = "obj")
{
    return std::string("*GEOMOBJECT {\n*NODE_NAME \"") + name + "\"\n*MATERIAL_REF 0\n" + body + "}\n";
}

const vern3d::Node& MeshOf(const vern3d::Scene& scene)
{
    for (const vern3d::Node& node : scene.nodes)
        if (node.hasMesh)
            return node;
    ADD_FAILURE() << "no mesh chunk";
    return scene.nodes.front();
}

// The file written, decoded; `failed`: whether the conversion reports an error.
vern3d::Scene Written(const asetest::Parsed& parsed, bool failed = false)
{
    EXPECT_EQ(parsed.Failed(), failed) << parsed.ErrorText();
    vern3d::Scene scene;
    std::string error;
    EXPECT_TRUE(vern3d::DecodeFile(parsed.output, &scene, &error)) << error;
    return scene;
}

// One triangle (edges AB and BC visible), frames at 0, 100, 200 ms...; frame i moved along x by
// `moves[i]` (no animation block without moves).
std::string AnimatedScene(const std::vector<float>& moves)
{
    const Face face{0, 1, 2, -1, 0, 1, 1, 0};
    std::string frames;
    for (size_t i = 0; i < moves.size(); ++i)
        frames += MeshBlock({{moves[i], 0, 0}, {1 + moves[i], 0, 0}, {moves[i], 1, 0}}, {face}, static_cast<int>(480 * i));
    return kScene + Materials({}) +
           Object(MeshBlock({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {face}) + (moves.empty() ? "" : "*MESH_ANIMATION {\n" + frames + "}\n"));
}

TEST(MeshOutput, TriangleChunkByteForByte)
{
    for (const bool animated : {false, true}) {  // with a second frame moved by 1 along x, under -map
        const auto scene = Written(ParseAse(AnimatedScene(animated ? std::vector<float>{0, 1} : std::vector<float>{}),
                                            {.meshAnimFlags = animated ? 1u : 0u}));
        const vern3d::Node& node = MeshOf(scene);
        // The sphere grows point by point from the first one, over the render vertices of each frame.
        std::vector<Vector3> points = {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}};
        if (animated)
            points.insert(points.end(), {{1, 0, 0}, {1, 1, 0}, {2, 0, 0}});
        Sphere sphere{points[0], 0};
        for (Vector3 p : points)
            MergeSphere(sphere, {p, 0});
        LittleEndianBuffer expected;
        Put(expected, {40u, animated ? 1u : 0u, 1u, 1u, 3u, animated ? 2u : 1u});
        Put(expected, {sphere.centre.x, sphere.centre.y, sphere.centre.z, sphere.radius});
        Put(expected, {28u, 0u, 0u, 1u, 0u, 3u, 0u});  // one batch
        Put(expected, {3u, 0u, 1u, 2u, 0u});         // AB and BC visible; corners a, c, b numbered in that order
        Put(expected, {16u, 0u, 1u, 0u});            // frame 0: every vertex
        for (V p : {V{0, 0, 0}, V{0, 1, 0}, V{1, 0, 0}}) {
            Put(expected, {p[0], p[1], p[2], 0.0f, 0.0f, 1.0f});
            Put(expected, {0xFFFFFFFFu, 0u, 0u, 0u});  // no colour, material 0, u = v = 0
        }
        if (animated) {  // frame 1 at 100 ms, 100 ms after frame 0: the positions of corners a, c, b
            expected.U8(1);
            Put(expected, {16u, 100u, 1u, 100u});
            Put(expected, {1.0f, 0.0f, 0.0f, 1.0f, 1.0f, 0.0f, 2.0f, 0.0f, 0.0f});
        }
        expected.U8(0);
        EXPECT_EQ(Payload(node), Bytes(expected)) << animated;
        EXPECT_EQ(node.info.flags, 31u);
    }
}

// Triangles that lost a corner to welding.
int DegenerateTriangles(const vern3d::Mesh& mesh)
{
    return static_cast<int>(std::ranges::count_if(mesh.triangles, [](const vern3d::Triangle& t) {
        return t.corners[0] == t.corners[1] || t.corners[1] == t.corners[2] || t.corners[0] == t.corners[2];
    }));
}

TEST(MeshOutput, WeldingKeepsSmallShapesUnderCompatOrASmallerTolerance)
{
    // Two faces of a strip 0.05 by 0.03, the short edge of each from its corner a to b (the
    // distance is the largest component difference), and the same strip 100 times as large.
    const auto strip = [](float s) {
        return kScene + Materials({}) +
               Object(MeshBlock({{0, 0, 0}, {0.05f * s, 0, 0}, {0, 0.03f * s, 0}, {0.05f * s, 0.03f * s, 0}},
                                {{2, 0, 1, 1}, {1, 3, 2, 1}}));
    };
    const ConvertSettings compat{.compat = true}, fine{.weldTolerance = 0.001};
    for (float size : {1.0f, 100.0f}) {
        SCOPED_TRACE(size);
        const auto plain = ParseAse(strip(size));
        const auto kept = ParseAse(strip(size), compat);
        const auto scenePlain = Written(plain), sceneKept = Written(kept), sceneFine = Written(ParseAse(strip(size), fine));
        EXPECT_EQ(DegenerateTriangles(MeshOf(sceneKept).mesh), 0);
        EXPECT_EQ(DegenerateTriangles(MeshOf(sceneFine).mesh), 0);
        if (size == 1.0f) {
            // Plain welding flattens it (the classic rule); -compat welds within a quarter of the
            // shortest edge, and says so.
            EXPECT_EQ(DegenerateTriangles(MeshOf(scenePlain).mesh), 2);
            EXPECT_EQ(kept.printed, kept.At(12) + "Object 'obj' has edges as short as 0.03; its corners weld within 0.0075 "
                                                 "instead of 0.1, so that no face loses a corner.\n");
        } else {
            EXPECT_EQ(Payload(MeshOf(sceneKept)), Payload(MeshOf(scenePlain)));
            EXPECT_EQ(kept.printed, "");
        }
    }
}

TEST(MeshOutput, TwoSidedFacesAndTheTriangleOrder)
{
    // Sub-material 0 opacity-mapped, 1 plain and two-sided, 2 without maps; a face with id 7
    // lies outside them and takes set 0.
    const auto parsed = ParseAse(
        Materials({Bitmap("MAP_OPACITY", "alpha.tga"), "*MATERIAL_TWOSIDED\n" + Bitmap("MAP_DIFFUSE", "plain.tga"), ""}) +
        Object(MeshBlock({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}},
                         {{0, 1, 2, 1, 0, 1, 0, 0}, {1, 3, 2, 1, 1, 0, 1, 1}, {0, 1, 3, 1, 2}, {0, 2, 3, 1, 7}})));
    const std::string warning = parsed.At(parsed.scene.endLine) + "Invalid material id '7' in object 'obj'.\n";
    EXPECT_EQ(parsed.printed, warning + warning);
    const auto scene = Written(parsed);
    const auto& mesh = MeshOf(scene).mesh;
    // Sets: 0 alpha (opacity), 1 plain, 2 none. Face 2 (set 2, no entries) stays where it was
    // made: after faces 0 and 1's three triangles. Around it the opacity set goes last.
    std::vector<uint32_t> sets;
    for (const auto& t : mesh.triangles)
        sets.push_back(t.textureSet);
    EXPECT_EQ(sets, (std::vector<uint32_t>{1, 1, 0, 2, 0}));
    ASSERT_EQ(mesh.batches.size(), 4u);
    for (const auto& batch : mesh.batches)
        for (uint32_t t = batch.firstTriangle; t < batch.firstTriangle + batch.triangleCount; ++t)
            for (uint32_t corner : mesh.triangles[t].corners)
                EXPECT_LT(corner, batch.vertexCount);  // numbered from 0 in each batch

    // Face 1 (two-sided, edges BC and CA visible): the front lists a, c, b with flags 2|4; the
    // back lists a, b, c with flags 2|1 and normals turned round.
    const auto& frame = mesh.vertices;
    const auto front = mesh.triangles[0], back = mesh.triangles[1];
    EXPECT_EQ(std::pair(front.flags, back.flags), std::pair(6u, 3u));
    const auto corners = [&](const vern3d::Triangle& t, bool normals) {
        std::vector<V> list;
        for (uint32_t k : t.corners) {
            const auto& vertex = frame[mesh.batches[0].firstVertex + k];
            list.push_back(Xyz(normals ? vertex.normal : vertex.position));
        }
        return list;
    };
    EXPECT_EQ(corners(back, false), (std::vector<V>{{1, 0, 0}, {1, 1, 0}, {0, 1, 0}}));  // a, b, c of face 1
    EXPECT_EQ(corners(front, false), (std::vector<V>{{1, 0, 0}, {0, 1, 0}, {1, 1, 0}}));
    EXPECT_EQ(std::pair(corners(back, true), corners(front, true)), std::pair(std::vector<V>(3, {0, 0, -1}), std::vector<V>(3, {0, 0, 1})));
    // The first vertex of face 0 and face 3 is one render vertex, but it appears in both batches.
    for (size_t batch : {1, 3})
        EXPECT_EQ(Xyz(frame[mesh.batches[batch].firstVertex].position), (V{0, 0, 0})) << batch;
}

TEST(MeshOutput, MaterialErrorsAndTheVertexFile)
{
    // Without a material reference: error 14 while the file is written, which goes on to its end.
    const auto missing = ParseAse("*GEOMOBJECT {\n*NODE_NAME \"n\"\n" + MeshBlock({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}}) + "}\n");
    EXPECT_EQ(missing.ErrorText(), missing.At(missing.scene.endLine, "error") + "Invalid material id '-1' in object 'n'.\n");
    EXPECT_EQ(MeshOf(Written(missing, true)).mesh.header.triangleCount, 0u);

    // A reference past the table is refused before anything is written.
    const auto beyond = ParseAse(Materials({}) + "*GEOMOBJECT {\n*NODE_NAME \"n\"\n*MATERIAL_REF 3\n" +
                                 MeshBlock({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}}) + "}\n");
    EXPECT_NE(beyond.ErrorText().find("Object 'n' refers to material 3, which the material list does not define."),
              std::string::npos);
    EXPECT_FALSE(testfiles::Exists(beyond.output));

    // -ivertex: the node's vertex file gives the render data; the batch count is 0.
    testfiles::ScratchDirectory cwd;
    LittleEndianBuffer file;
    Put(file, {1u, 0u, 0u, 0xFFFFFFFFu, 0u, 0u, 0u, 0u, 0u, 1u});
    Put(file, {1.0f, 2.0f, 3.0f, 0.0f, 0.0f, 1.0f});
    Put(file, {0xFFFFFFFFu, 0u, std::bit_cast<uint32_t>(0.5f), std::bit_cast<uint32_t>(0.5f), 0u});
    const std::string text = Materials({}) + Object(MeshBlock({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}}), "vf");
    // (Which files are read, and the messages about those that are not: FileSafetyTest.)
    cwd.Write("vf", std::string(reinterpret_cast<const char*>(file.Data()), file.Size()));
    const auto sceneMesh = Written(ParseAse(text, {.ivertex = true, .vertexFolder = cwd.Path()}));
    const auto& mesh = MeshOf(sceneMesh).mesh;
    EXPECT_EQ(std::pair(mesh.header.batchCount, mesh.header.vertexCount), std::pair(0u, 1u));
    ASSERT_EQ(mesh.vertices.size(), 1u);
    EXPECT_EQ(Xyz(mesh.vertices[0].position), (V{1, 2, 3}));
}

TEST(MeshOutput, AFailedWriteInTheMeshChunkIsReported)
{
    // A mesh large enough that the buffered data first goes to the disk inside its mesh chunk, and
    // a file size limit that lets the header through but not that data.
    std::vector<Vector3> vertices;
    std::vector<Face> faces;
    const int side = 60;
    for (int i = 0; i < side * side; ++i)
        vertices.push_back({static_cast<float>(i % side), static_cast<float>(i / side), 0});
    for (int y = 0; y + 1 < side; ++y)
        for (int x = 0; x + 1 < side; ++x)
            faces.push_back({y * side + x, y * side + x + 1, (y + 1) * side + x});
    testfiles::ScratchDirectory directory;
    const std::string source = directory.Write("big.ase", Materials({}) + Object(MeshBlock(vertices, faces)));
    const std::string output = directory.File("big.vern3D");
    rlimit previous{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &previous), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limited{4096, previous.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    TraceCapture trace;
    Reporter reporter;
    Scene read;
    testing::internal::CaptureStdout();
    ConvertFile(source, output, {}, reporter, read);
    testing::internal::GetCapturedStdout();
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_EQ(reporter.ErrorText(), source + "(" + std::to_string(read.endLine) +
                                      ") error: Error occured while writing file '" + output + "'.\n");
    const std::string text = trace.Text();
    const size_t mesh = text.find("Tools/MakeVern3D/BaseNode(1348) : Error: ASSERT_HRESULT(0x");
    ASSERT_NE(mesh, std::string::npos) << text;
    // Then the root's level passes the failure on.
    EXPECT_NE(text.find("Tools/MakeVern3D/BaseNode(521)", mesh), std::string::npos) << text;
}

// The record of a face by binary search over the face numbers. (The corner normals made from
// them: RenderMeshOracleTest, against a scan over all faces.)
TEST(VertexNormals, FaceRecordLookup)
{
    Mesh mesh;
    for (int face : {0, 2, 3, 7, 8})
        mesh.normals.push_back({face, {}, {}});
    // -1 is compared unsigned: above every number.
    for (auto [face, record] : {std::pair{0, 0}, {2, 1}, {3, 2}, {7, 3}, {8, 4}, {1, -1}, {5, -1}, {9, -1}, {-1, -1}})
        EXPECT_EQ(FindFaceNormals(face, mesh), record) << face;
    EXPECT_EQ(FindFaceNormals(0, Mesh{}), -1);
}

TEST(FrameStream, StoredFramesAndTheirWarnings)
{
    struct Case { const char* what; std::vector<float> moves; uint32_t flags; std::vector<int32_t> storedTimes, deltas;
                  std::vector<int> skipped; uint32_t bytesPerVertex; };
    const Case cases[] = {
        {"no component chosen: only frame 0", {0, 1, 2}, 0, {0}, {0}, {1, 2}, 0},
        {"frame 1 within 0.1 is skipped, frame 2 compared with frame 0", {0, 0.05f, 0.2f}, 1, {0, 200}, {0, 100}, {1}, 12},
        {"positions and texture coordinates", {0, 1}, 1 | 16, {0, 100}, {0, 100}, {}, 20},
        {"normals only: a translation changes nothing", {0, 1, 2}, 2, {0}, {0}, {1, 2}, 0},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(AnimatedScene(c.moves), {.meshAnimFlags = c.flags});
        std::string expected;
        for (size_t i = 0; i < c.moves.size(); ++i)
            expected += "frame " + std::to_string(i) + "  ";
        for (int skipped : c.skipped)
            expected += "Warning: Frame " + std::to_string(skipped) + " not saved. Because it equals the last frame.\n";
        EXPECT_EQ(parsed.printed, expected) << c.what;
        const auto sceneMesh = Written(parsed);
        const auto& mesh = MeshOf(sceneMesh).mesh;
        EXPECT_EQ(std::pair(mesh.header.frameCount, mesh.header.flags), std::pair(static_cast<uint32_t>(c.moves.size()), c.flags)) << c.what;
        std::vector<int32_t> times, deltas;
        for (const auto& frame : mesh.frames) {
            times.push_back(frame.time);
            deltas.push_back(frame.delta);
        }
        EXPECT_EQ(std::pair(times, deltas), std::pair(c.storedTimes, c.deltas)) << c.what;
        for (size_t f = 1; f < mesh.frames.size(); ++f)
            EXPECT_EQ(mesh.frames[f].storedBytes, c.bytesPerVertex * mesh.header.vertexCount) << c.what;
    }
}

TEST(FrameStream, OperationsFile)
{
    testfiles::ScratchDirectory directory;
    struct Case { const char* what; std::string path; std::vector<float> xOfFrames; };  // x of vertex 0 in frames 0..2
    // (Records in both forms, reversed ranges and ranges past the last frame: GeneratedScenesTest.)
    const Case cases[] = {
        {"one record on its line",
         directory.Write("one.txt", "mesh_move { first_frame 1; last_frame 2; move_x 2.5; move_y 0; move_z 0; }\n"), {0, 2.5f, 2.5f}},
        {"a malformed record ends the reading",
         directory.Write("bad.txt", "mesh_move { first_frame 0; last_frame 0; move_x 1; move_y 0; move_z 0; }\n"
                                    "mesh_move { first_frame 0 ; last_frame 2; move_x 5; move_y 0; move_z 0; }\n"
                                    "mesh_move { first_frame 0; last_frame 2; move_x 5; move_y 0; move_z 0; }\n"),
         {1, 0, 0}},
        {"a directory is ignored", directory.Path(), {0, 0, 0}},
        {"a missing file is ignored", directory.File("none.txt"), {0, 0, 0}},
    };
    for (const Case& c : cases) {
        // -map with frames far apart, so every frame is stored with its positions.
        const auto sceneFrames = Written(ParseAse(AnimatedScene({0, 10, 20}), {.meshAnimFlags = 1, .meshOpsFile = c.path}));
        const auto& mesh = MeshOf(sceneFrames).mesh;
        ASSERT_EQ(mesh.frames.size(), 3u) << c.what;
        for (size_t f = 0; f < 3; ++f)
            EXPECT_EQ(mesh.FrameVertex(f, 0).position.x, 10.0f * static_cast<float>(f) + c.xOfFrames[f]) << c.what << f;
    }
}

TEST(FrameStream, FramesChangedAtTheTolerance)
{
    MeshNode node;
    node.renderVertices.resize(1);
    auto frame = [](float x, float u) { return std::vector<MeshVertex>{{.position = {x, 0, 0}, .u = u}}; };
    const auto origin = frame(0.0f, 0.0f);
    struct Case { std::vector<MeshVertex> other; uint32_t flags; bool changed; };
    const Case cases[] = {
        {frame(0.1f, 0.0f), 1, false},  // exactly the float 0.1 away: equal
        {frame(0.2f, 0.0f), 1, true},
        {frame(0.2f, 0.0f), 0, false},
        {frame(0.2f, 0.0f), 2 | 4 | 8 | 16, false},
        {frame(0.0f, 0.0101f), 16, true},
        {frame(0.0f, 0.01f), 16, false},  // the float 0.01 lies just below the double bound
    };
    for (const Case& c : cases)
        EXPECT_EQ(node.FramesChanged(origin, c.other, c.flags), c.changed) << c.other[0].position.x << " " << c.flags;
}

TEST(FrameStream, AnalyseChoosesAFrameAsTheSource)
{
    // Frame 1 has a second face: with -analyse 1 the render mesh has two triangles.
    const std::vector<Vector3> quad = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    const std::string frames = MeshBlock(quad, {{0, 1, 2}}) + MeshBlock(quad, {{0, 1, 2}, {1, 3, 2}});
    const std::string text = kScene + Materials({}) + Object(MeshBlock(quad, {{0, 1, 2}}) + "*MESH_ANIMATION {\n" + frames + "}\n");
    for (auto [analyse, triangles] : {std::pair{0, 1u}, std::pair{1, 2u}, std::pair{2, 1u}}) {
        const auto scene = Written(ParseAse(text, {.analyse = analyse}));
        EXPECT_EQ(MeshOf(scene).mesh.header.triangleCount, triangles) << analyse;
    }
}

}  // namespace
