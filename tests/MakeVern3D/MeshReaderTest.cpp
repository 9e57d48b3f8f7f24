// Mesh geometry and mesh animation as the reader stores them.
#include "support/AseTestParse.h"

#include <gtest/gtest.h>

namespace {

using asetest::kScene;
using asetest::ParseAse;

std::string Object(const std::string& body)
{
    return "*GEOMOBJECT {\n*NODE_NAME \"box\"\n" + body + "}\n";
}

const MeshNode& FirstMesh(const asetest::Parsed& parsed) { return asetest::Child<MeshNode>(parsed); }

std::vector<float> Xs(const Mesh& mesh)
{
    std::vector<float> xs;
    for (const Vector3& v : mesh.vertices)
        xs.push_back(v.x);
    return xs;
}

TEST(MeshReading, VerticesByNumber)
{
    struct Case { std::string lines; std::vector<float> xs; };
    const Case cases[] = {
        {"*MESH_NUMVERTEX 3\n*MESH_VERTEX_LIST {\n*MESH_VERTEX 2 2 0 0\n*MESH_VERTEX 0 0 0 0\n*MESH_VERTEX 1 1 0 0\n}\n",
         {0, 1, 2}},
        {"*MESH_NUMVERTEX 2\n*MESH_VERTEX_LIST {\n*MESH_VERTEX 3 3 0 0\n}\n", {0, 0, 0, 3}},  // grown past the count
        {"*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 5 0 0\n*MESH_VERTEX 1 6 0 0\n*MESH_VERTEX 2 7 0 0\n}\n*MESH_NUMVERTEX 2\n",
         {5, 6}},  // a smaller count drops the last
        {"*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 5 0 0\n*MESH_VERTEX 0 8 0 0\n}\n", {8}},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(Object("*MESH {\n" + c.lines + "}\n"));
        ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
        EXPECT_EQ(Xs(FirstMesh(parsed).mesh), c.xs) << c.lines;
    }
}

TEST(MeshReading, FacesTextureListsAndNormals)
{
    const auto parsed = ParseAse(Object(
        "*MESH {\n*MESH_NUMFACES 4\n*MESH_FACE_LIST {\n"
        "*MESH_FACE 1: A: 4 B: 5 C: 6 AB: 1 BC: 0 CA: 1 *MESH_SMOOTHING 3,7 *MESH_MTLID 2\n"
        "*MESH_FACE 0 A: 1 B: 2 C: 3 AB: 0 BC: 1 CA: 0 *MESH_SMOOTHING *MESH_MTLID 5\n"
        "*MESH_FACE 2: X 7 Y 8 Z 9 P 1 Q 1 R 1 *MESH_SMOOTHING 12 *MESH_MTLID 0\n}\n"
        "*MESH_NUMTVERTEX 3\n*MESH_TVERTLIST {\n*MESH_TVERT 0 0.1 0.2 0.3\n*MESH_TVERT 2 0.5 0.6 0.7\n"
        "*MESH_TVERT 1 0.8 0.9 1.0\n}\n*MESH_NUMTVFACES 1\n*MESH_TFACELIST {\n*MESH_TFACE 1 0 2 1\n}\n"
        "*MESH_NUMCVERTEX 0\n*MESH_NORMALS {\n*MESH_FACENORMAL 0 0 0 1\n*MESH_VERTEXNORMAL 1 0 0.5 1\n"
        "*MESH_VERTEXNORMAL 2 0 0.6 1\n*MESH_VERTEXNORMAL 3 0 0.7 1\n}\n}\n"));
    // Read without complaint (fewer face lines than the count, a zero colour count); only the
    // output refuses corners that name no vertex, before it writes anything.
    EXPECT_EQ(parsed.printed, "");
    EXPECT_EQ(parsed.ErrorText(), parsed.At(29, "error") + "Face 0 of object 'box' uses vertex 1, which its mesh does not have.\n");
    EXPECT_FALSE(testfiles::Exists(parsed.output));
    const Mesh& mesh = FirstMesh(parsed).mesh;
    ASSERT_EQ(mesh.faces.size(), 3u);
    std::vector<std::vector<int>> faces;
    for (const MeshFace& f : mesh.faces)
        faces.push_back({f.a, f.b, f.c, f.ab, f.bc, f.ca, f.smoothingGroup, f.materialId});
    // The smoothing list keeps its first group; labels are not checked.
    EXPECT_EQ(faces,
              (std::vector<std::vector<int>>{{1, 2, 3, 0, 1, 0, -1, 5}, {4, 5, 6, 1, 0, 1, 3, 2}, {7, 8, 9, 1, 1, 1, 12, 0}}));
    ASSERT_EQ(std::tuple(mesh.texVertices.size(), mesh.texFaces.size(), mesh.normals.size()), std::tuple(3u, 1u, 1u));
    EXPECT_EQ(std::tuple(mesh.texVertices[1].index, mesh.texVertices[1].v, mesh.texVertices[2].index), std::tuple(2, 0.6f, 1));
    EXPECT_EQ(std::pair(mesh.texFaces[0].index, mesh.texFaces[0].b), std::pair(1, 2));
    EXPECT_EQ(std::pair(mesh.normals[0].faceNormal.z, mesh.normals[0].vertexNormals[2].y), std::pair(1.0f, 0.7f));
}

TEST(MeshReading, TimeValues)
{
    struct Case { std::string before, mesh; int32_t time; int warningLine = 0; };
    const Case cases[] = {
        {kScene, "*TIMEVALUE 480\n", 100},
        {kScene, "*TIMEVALUE 0\n", 0},
        {kScene, "", 0},
        {"", "*TIMEVALUE 480\n", 480000},  // both settings still -1: (-1) x (-1) = 1
        {kScene, "*TIMEVALUE -160\n", static_cast<int32_t>(0xFFFFFF60u * 1000u / 4800u)},  // unsigned arithmetic
        // No time base: time 0 and one warning for the file.
        {"*SCENE {\n*SCENE_FRAMESPEED 0\n*SCENE_TICKSPERFRAME 160\n}\n", "*TIMEVALUE 480\n}\n*MESH {\n*TIMEVALUE 960\n", 0, 8},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(c.before + Object("*MESH {\n" + c.mesh + "}\n"));
        ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
        EXPECT_EQ(FirstMesh(parsed).mesh.time, c.time) << c.before << c.mesh;
        EXPECT_EQ(parsed.printed, c.warningLine ? parsed.At(c.warningLine) + "The scene's frame speed times its ticks per "
                                                                             "frame is 0; key and frame times are set to 0.\n"
                                                : "");
    }
}

TEST(MeshReading, ReportsWithTheirLines)
{
    struct Case { std::string mesh; int line; std::string text; };
    const std::string face = "*MESH_FACE_LIST {\n*MESH_FACE 0: A: 0 B: 1 C: 2 AB: 1 BC: 1 CA: 1 ";
    const Case cases[] = {
        {face + "*MESH_MTLID 0\n}\n", 5, "Aspected symbol '*MESH_SMOOTHING' but found symbol '*MESH_MTLID'.\n"},
        {face + "*MESH_SMOOTHING 1 0\n}\n", 5, "Aspected symbol '*MESH_MTLID' but found symbol '0'.\n"},
        {face + "*MESH_SMOOTHING x *MESH_MTLID 0\n}\n", 5, "Symbol 'x' could not scanned.\n"},
        {"*MESH_NORMALS {\n*MESH_FACENORMAL 0 0 0 1\n*MESH_FACENORMAL 1 0 0 1\n}\n", 6,
         "Aspected symbol '*MESH_VERTEXNORMAL' but found symbol '*MESH_FACENORMAL'.\n"},
        {"*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 1 y 3\n}\n", 5, "Symbol 'y' could not scanned.\n"},
        {"*MESH_VERTEX_LIST x\n", 4, "Aspected symbol '{' but found symbol 'x'.\n"},
        // Our bounds: negative numbers and counts that would take gigabytes are refused.
        {"*MESH_VERTEX_LIST {\n*MESH_VERTEX -1 0 0 0\n}\n", 5,
         "Vertex or face number or count -1 is out of range (0 to 67108863).\n"},
        {"*MESH_NUMVERTEX 2000000000\n", 4, "Vertex or face number or count 2000000000 is out of range (0 to 67108864).\n"},
        {face + "*MESH_SMOOTHING 1 *MESH_MTLID 0\n*MESH_FACE 67108864: A: 0 B: 1 C: 2 AB: 1 BC: 1 CA: 1 "
                "*MESH_SMOOTHING 1 *MESH_MTLID 0\n}\n",
         6, "Vertex or face number or count 67108864 is out of range (0 to 67108863).\n"},
    };
    for (const Case& c : cases) {
        const auto parsed = ParseAse(Object("*MESH {\n" + c.mesh + "}\n"));
        EXPECT_EQ(parsed.ErrorText(), parsed.At(c.line, "error") + c.text) << c.mesh;
        EXPECT_FALSE(testfiles::Exists(parsed.output));
    }
    // Within the bound, but far more entries than the file could describe.
    const auto huge = ParseAse(Object("*MESH {\n*MESH_NUMVERTEX 60000000\n}\n"));
    EXPECT_NE(huge.ErrorText().find("more than its size can describe"), std::string::npos) << huge.ErrorText();

    const auto colours = ParseAse(Object("*MESH {\n*MESH_NUMCVERTEX 8\n}\n"));
    EXPECT_EQ(colours.printed, colours.At(4) + "Color vertices are not supported at this time.\n");
}

TEST(MeshAnimation, FramesInFileOrderWithTheVertexCountCheck)
{
    auto frame = [](int time, int vertices) {
        return "*MESH {\n*TIMEVALUE " + std::to_string(time) + "\n*MESH_NUMVERTEX " + std::to_string(vertices) + "\n}\n";
    };
    const auto parsed = ParseAse(kScene + Object("*MESH {\n*MESH_NUMVERTEX 8\n}\n*MESH_ANIMATION {\n" + frame(320, 8) +
                                                 frame(160, 9) + frame(0, 8) + "}\n"));
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    EXPECT_EQ(parsed.printed, parsed.At(18) + "The vertex count differs to older frames. Object: box Frame: 1\n");
    std::vector<int32_t> times;
    for (const auto& frame : FirstMesh(parsed).frames)
        times.push_back(frame->time);
    EXPECT_EQ(times, (std::vector<int32_t>{66, 33, 0}));

    // Frames before the object's own mesh are compared with an empty mesh.
    const auto early = ParseAse(Object("*MESH_ANIMATION {\n" + frame(0, 0) + frame(0, 3) + "}\n*MESH {\n}\n"));
    EXPECT_EQ(early.printed, early.At(11) + "The vertex count differs to older frames. Object: box Frame: 1\n");
}

}  // namespace
