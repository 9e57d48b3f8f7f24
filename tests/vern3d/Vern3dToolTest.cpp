// vern3d end to end: the converter's outputs for the corpus and for generated scenes pass
// `check`, report their counts in `info --json`, and export to glTF that the Khronos validator
// accepts, that assimp imports with the same counts and whose world positions equal the file's.
// Damaged copies and bad command lines end in a message and a non-zero exit.
#include "GltfExport.h"
#include "GltfWorld.h"
#include "support/TestFiles.h"
#include "support/Vern3DBuilder.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <regex>

namespace {

using namespace vern3d;

// A generated scene: two materials (one with two sub-materials, one of them opacity-mapped), a
// helper with moving keys, a box under it with rotation keys and three mesh-animation frames,
// and a plank at the top level.
std::string BoxMesh(int time, float lift, const char* materialIds)
{
    std::string text = "*MESH {\n*TIMEVALUE " + std::to_string(time) + "\n*MESH_NUMVERTEX 8\n*MESH_NUMFACES 12\n*MESH_VERTEX_LIST {\n";
    for (int v = 0; v < 8; ++v)
        text += "*MESH_VERTEX " + std::to_string(v) + " " + std::to_string(v & 1 ? 10 : 0) + " " +
                std::to_string(v & 2 ? 10 : 0) + " " + std::to_string((v & 4 ? 10 : 0) + lift) + "\n";
    static const int faces[12][3] = {{0, 2, 3}, {3, 1, 0}, {4, 5, 7}, {7, 6, 4}, {0, 1, 5}, {5, 4, 0},
                                     {1, 3, 7}, {7, 5, 1}, {3, 2, 6}, {6, 7, 3}, {2, 0, 4}, {4, 6, 2}};
    text += "}\n*MESH_FACE_LIST {\n";
    for (int f = 0; f < 12; ++f)
        text += "*MESH_FACE " + std::to_string(f) + ": A: " + std::to_string(faces[f][0]) + " B: " +
                std::to_string(faces[f][1]) + " C: " + std::to_string(faces[f][2]) +
                " AB: 1 BC: 1 CA: 0 *MESH_SMOOTHING " + std::to_string(f / 2 + 1) + " *MESH_MTLID " +
                materialIds[f] + "\n";
    text += "}\n*MESH_NUMTVERTEX 4\n*MESH_TVERTLIST {\n*MESH_TVERT 0 0 0 0\n*MESH_TVERT 1 1 0 0\n"
            "*MESH_TVERT 2 0 1 0\n*MESH_TVERT 3 1 1 0\n}\n*MESH_NUMTVFACES 12\n*MESH_TFACELIST {\n";
    for (int f = 0; f < 12; ++f)
        text += "*MESH_TFACE " + std::to_string(f) + " " + (f % 2 ? "3 1 0" : "0 2 3") + "\n";
    return text + "}\n}\n";
}

std::string NodeTm(const std::string& name, const char* rows)
{
    return "*NODE_TM {\n*NODE_NAME \"" + name + "\"\n" + rows + "}\n";
}

std::string GeneratedScene()
{
    std::string text =
        "*3DSMAX_ASCIIEXPORT 200\n*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n"
        "*MATERIAL_LIST {\n*MATERIAL_COUNT 2\n*MATERIAL 0 {\n*MATERIAL_NAME \"wood\"\n*MATERIAL_CLASS \"Standard\"\n"
        "*MAP_DIFFUSE {\n*MAP_CLASS \"Bitmap\"\n*BITMAP \"C:\\maps\\wood grain.tga\"\n}\n}\n"
        "*MATERIAL 1 {\n*MATERIAL_NAME \"multi\"\n*MATERIAL_CLASS \"Multi-/Unterobjekt\"\n*NUMSUBMTLS 2\n"
        "*SUBMATERIAL 0 {\n*MATERIAL_NAME \"bark\"\n*MATERIAL_CLASS \"Standard\"\n"
        "*MAP_DIFFUSE {\n*MAP_CLASS \"Bitmap\"\n*BITMAP \"bark.tga\"\n}\n}\n"
        "*SUBMATERIAL 1 {\n*MATERIAL_NAME \"leaf\"\n*MATERIAL_CLASS \"Standard\"\n"
        "*MAP_DIFFUSE {\n*MAP_CLASS \"Bitmap\"\n*BITMAP \"leaf.tga\"\n}\n"
        "*MAP_OPACITY {\n*MAP_CLASS \"Bitmap\"\n*BITMAP \"leaf_mask.tga\"\n}\n}\n}\n}\n";
    text += "*HELPEROBJECT {\n*NODE_NAME \"pivot\"\n" +
            NodeTm("pivot", "*TM_ROW0 0 2 0\n*TM_ROW1 -2 0 0\n*TM_ROW2 0 0 2\n*TM_ROW3 5 6 7\n") +
            "*TM_ANIMATION {\n*NODE_NAME \"pivot\"\n*CONTROL_POS_BEZIER {\n"
            "*CONTROL_BEZIER_POS_KEY 0 5 6 7 0 0 0 0 0 0 0\n*CONTROL_BEZIER_POS_KEY 4800 15 6 7 0 0 0 0 0 0 0\n"
            "*CONTROL_BEZIER_POS_KEY 9600 15 16 7 0 0 0 0 0 0 0\n}\n}\n}\n";
    text += "*GEOMOBJECT {\n*NODE_NAME \"box\"\n*NODE_PARENT \"pivot\"\n" +
            NodeTm("box", "*TM_ROW0 1 0 0\n*TM_ROW1 0 0 1\n*TM_ROW2 0 -1 0\n*TM_ROW3 20 0 3\n") +
            BoxMesh(0, 0, "010101010101") + "*MATERIAL_REF 1\n" +
            "*TM_ANIMATION {\n*NODE_NAME \"box\"\n*CONTROL_ROT_TCB {\n*CONTROL_TCB_ROT_KEY 0 0 0 1 0 0 0 0 0 0\n"
            "*CONTROL_TCB_ROT_KEY 4800 0 0 1 0.5 0 0 0 0 0\n*CONTROL_TCB_ROT_KEY 9600 1 0 0 0.8 0 0 0 0 0\n}\n}\n"
            "*MESH_ANIMATION {\n" + BoxMesh(0, 0, "010101010101") + BoxMesh(160, 4, "010101010101") +
            BoxMesh(320, 8, "010101010101") + "}\n}\n";
    text += "*GEOMOBJECT {\n*NODE_NAME \"plank\"\n" +
            NodeTm("plank", "*TM_ROW0 1 0 0\n*TM_ROW1 0 1 0\n*TM_ROW2 0 0 1\n*TM_ROW3 0 0 0\n") +
            BoxMesh(0, -20, "000000000000") + "*MATERIAL_REF 0\n}\n";
    return text;
}

// Helpers whose matrices glTF cannot take as they stand (the validator refused each when it was
// exported as a matrix): rotations written with 4 decimals and shears, with translation 0 (with a
// large translation the validator takes the shear: it compares column sums).
std::string MatrixScene()
{
    const char* const rows[][3] = {
        {"-0.0514 -0.8752 -0.4810", "-0.2477 0.4777 -0.8429", "0.9675 0.0758 -0.2413"},
        {"0.9970 -0.0029 -0.0774", "0.0053 0.9995 0.0309", "0.0773 -0.0313 0.9965"},
        {"1 0 0", "0.5 1 0", "0 0 1"}, {"2 0 0", "1 1 0", "0 0 1"},
    };
    std::string text;
    for (size_t i = 0; i < std::size(rows); ++i) {
        for (const char* translation : {"0 0 0", "100 200 300"}) {
            const std::string name = "h" + std::to_string(i) + "-" + translation;
            const std::string tm = "*TM_ROW0 " + std::string(rows[i][0]) + "\n*TM_ROW1 " + rows[i][1] +
                                   "\n*TM_ROW2 " + rows[i][2] + "\n*TM_ROW3 " + translation + "\n";
            text += "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n" + NodeTm(name, tm.c_str()) + "}\n";
        }
    }
    return text;
}

// Converted files (the corpus with and without -compat, generated scenes) and their exports, made
// once for all tests of a process.
class Vern3dTool : public testing::Test {
protected:
    struct Output {
        std::string vern3d, glb;
        Scene scene;
    };

    static void SetUpTestSuite()
    {
        directory = std::make_unique<testfiles::ScratchDirectory>();
        outputs = std::make_unique<std::vector<Output>>();
        const std::string& dir = directory->Path();
        std::vector<std::pair<std::string, std::vector<std::string>>> sources;  // input, converter switches
        for (const auto& entry : std::filesystem::directory_iterator(MAKEVERN3D_SHARED_CORPUS)) {
            const std::string extension = entry.path().extension().string();
            if (extension == ".ase" || extension == ".ASE") {
                const std::string name = entry.path().filename().string();
                std::filesystem::copy_file(entry.path(), dir + "/" + name);
                std::filesystem::copy_file(entry.path(), dir + "/compat-" + name);
                sources.push_back({name, {}});
                sources.push_back({"compat-" + name, {"-compat"}});
            }
        }
        for (const auto& [name, text, switches] : {std::tuple{"matrices.ase", MatrixScene(), std::vector<std::string>{}},
                                                   {"generated.ase", GeneratedScene(), {"-map", "-man"}},
                                                   {"generated-plain.ase", GeneratedScene(), {}}})
            directory->Write(name, text), sources.push_back({name, switches});

        exports = std::make_unique<std::vector<std::string>>();
        for (const auto& [source, switches] : sources) {
            std::vector<std::string> arguments = {source};
            arguments.insert(arguments.end(), switches.begin(), switches.end());
            testfiles::Run(dir, MAKEVERN3D_EXE, arguments);
            const std::string stem = source.substr(0, source.rfind('.'));
            Output output{dir + "/" + stem + ".vern3D", dir + "/" + stem + ".glb", {}};
            if (!testfiles::Exists(output.vern3d))
                continue;  // sources that the converter refuses
            std::string error;
            EXPECT_TRUE(DecodeFile(output.vern3d, &output.scene, &error)) << source << ": " << error;
            const auto result = testfiles::Run(dir, VERN3D_EXE, {"export", output.vern3d, "-o", output.glb});
            EXPECT_EQ(result.exitCode, 0) << source << ": " << result.output;
            exports->push_back(output.glb);
            outputs->push_back(std::move(output));
        }
        // One text export too, checked by the validator like the binary ones.
        const std::string text = dir + "/generated.gltf";
        EXPECT_EQ(testfiles::Run(dir, VERN3D_EXE, {"export", dir + "/generated.vern3D", "-o", text}).exitCode, 0);
        exports->push_back(text);
    }

    static void TearDownTestSuite() { outputs.reset(), exports.reset(), directory.reset(); }

    static const Output& Generated()
    {
        for (const Output& output : *outputs)
            if (output.vern3d.ends_with("/generated.vern3D"))
                return output;
        std::abort();
    }

    static std::unique_ptr<testfiles::ScratchDirectory> directory;
    static std::unique_ptr<std::vector<Output>> outputs;
    static std::unique_ptr<std::vector<std::string>> exports;
};

std::unique_ptr<testfiles::ScratchDirectory> Vern3dTool::directory;
std::unique_ptr<std::vector<Vern3dTool::Output>> Vern3dTool::outputs;
std::unique_ptr<std::vector<std::string>> Vern3dTool::exports;

TEST_F(Vern3dTool, CheckPassesOnEveryConverterOutput)
{
    ASSERT_GE(outputs->size(), 15u);
    std::vector<std::string> arguments = {"check"};
    for (const Output& output : *outputs)
        arguments.push_back(output.vern3d);
    const auto result = testfiles::Run(directory->Path(), VERN3D_EXE, arguments);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    for (const Output& output : *outputs)
        EXPECT_NE(result.output.find(output.vern3d + ": ok: "), std::string::npos) << output.vern3d;
}

TEST_F(Vern3dTool, InfoJsonCountsEqualTheDecoders)
{
    for (const Output& output : *outputs) {
        const auto result = testfiles::Run(directory->Path(), VERN3D_EXE, {"info", output.vern3d, "--json"});
        ASSERT_EQ(result.exitCode, 0) << result.output;
        const auto json = nlohmann::json::parse(result.output);
        const Totals t = CountTotals(output.scene);
        EXPECT_EQ((std::vector<uint64_t>{json["nodes"], json["depth"], json["meshCount"], json["triangles"],
                                         json["vertices"], json["batches"], json["textureSets"].size(),
                                         json["animatedNodes"].size()}),
                  (std::vector<uint64_t>{t.nodes, t.maxDepth, t.meshes, t.triangles, t.vertices, t.batches,
                                         t.textureSets, t.animatedNodes}))
            << output.vern3d;
        EXPECT_EQ(json["fileType"], "{0AB3F934-9362-11D1-9A2B-080000300512}");
    }
}

TEST_F(Vern3dTool, ValidatorFindsNoErrorInAnyExport)
{
    ASSERT_TRUE(std::filesystem::exists(NODE_EXE)) << "node not found; scripts/install-deps.sh installs it";
    std::vector<std::string> arguments = {GLTF_VALIDATOR_SCRIPT};
    arguments.insert(arguments.end(), exports->begin(), exports->end());
    const auto validation = testfiles::Run(directory->Path(), NODE_EXE, arguments);
    EXPECT_EQ(validation.exitCode, 0) << validation.output;
    for (const Output& output : *outputs)
        EXPECT_NE(validation.output.find(output.glb + " errors 0 "), std::string::npos) << validation.output;
    EXPECT_EQ(validation.output.find(" error "), std::string::npos) << validation.output;
}

TEST_F(Vern3dTool, AssimpImportsTheSameCounts)
{
    ASSERT_TRUE(std::filesystem::exists(ASSIMP_EXE)) << "assimp not found; scripts/install-deps.sh installs assimp-utils";
    for (const Output& output : *outputs) {
        // -r: no post-processing, so vertices are not joined. assimp makes one mesh per
        // primitive, and the export makes one primitive per batch.
        const auto result = testfiles::Run(directory->Path(), ASSIMP_EXE, {"info", output.glb, "-r"});
        ASSERT_EQ(result.exitCode, 0) << output.glb << result.output;
        auto count = [&](const std::string& label) {
            std::smatch match;
            return std::regex_search(result.output, match, std::regex(label + ":\\s+(\\d+)")) ? std::stoull(match[1]) : ~0ull;
        };
        uint64_t primitives = 0, vertices = 0;
        for (const Node& node : output.scene.nodes) {
            if (node.hasMesh && node.mesh.header.triangleCount > 0) {
                primitives += std::max<uint64_t>(node.mesh.header.batchCount, 1);
                vertices += node.mesh.header.vertexCount;
            }
        }
        const Totals totals = CountTotals(output.scene);
        EXPECT_EQ(count("Meshes"), primitives) << output.glb;
        EXPECT_EQ(count("Faces"), totals.triangles) << output.glb;
        EXPECT_EQ(count("Vertices"), vertices) << output.glb;
    }
}

// Loads an exported .glb without loading its images (they are only named).
::testing::AssertionResult LoadGlb(const std::string& path, tinygltf::Model* model)
{
    tinygltf::TinyGLTF loader;
    loader.SetImageLoader([](tinygltf::Image*, const int, std::string*, std::string*, int, int, const unsigned char*,
                             int, void*) { return true; },
                          nullptr);
    std::string error, warning;
    if (loader.LoadBinaryFromFile(model, &error, &warning, path))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << path << ": " << error;
}

// Matrices that are translation, rotation and scale within the export's tolerance are written
// as those, straightened: each level moves a point by at most that fraction of its distance.
TEST_F(Vern3dTool, WorldPositionsFromGltfEqualThoseFromTheFile)
{
    size_t compared = 0;
    double largest = 0.0;  // deviation relative to the point's distance from the origin
    for (const Output& output : *outputs) {
        tinygltf::Model model;
        ASSERT_TRUE(LoadGlb(output.glb, &model));
        const auto world = gltfworld::WorldMatrices(model);
        for (size_t n = 0; n < output.scene.nodes.size(); ++n) {
            const auto actual = gltfworld::GltfWorldPositions(model, world, n);
            if (actual.empty())
                continue;
            const auto expected = gltfworld::Vern3DWorldPositions(output.scene, n);
            ASSERT_EQ(actual.size(), expected.size()) << output.glb << " node " << n;
            for (size_t v = 0; v < actual.size(); ++v) {
                const auto& [x, y, z] = expected[v];
                const double distance = std::max(1.0, std::sqrt(x * x + y * y + z * z));
                for (int c = 0; c < 3; ++c) {
                    ASSERT_NEAR(actual[v][c], expected[v][c], 2 * ExportOptions{}.trsTolerance * distance)
                        << output.glb << " node " << n << " vertex " << v;
                    largest = std::max(largest, std::abs(actual[v][c] - expected[v][c]) / distance);
                }
            }
            compared += actual.size();
        }
    }
    RecordProperty("compared", std::to_string(compared));
    RecordProperty("largest relative deviation", std::to_string(largest));
}

// glTF's front faces are counter-clockwise: the normals the converter computed from the source
// faces must point out of the front of the exported triangles.
TEST_F(Vern3dTool, ExportedTrianglesFaceTheirNormals)
{
    size_t agreeing = 0, opposing = 0;
    for (const Output& output : *outputs) {
        tinygltf::Model model;
        ASSERT_TRUE(LoadGlb(output.glb, &model));
        for (const tinygltf::Mesh& mesh : model.meshes) {
            for (const tinygltf::Primitive& primitive : mesh.primitives) {
                const auto p = gltfworld::Read<float>(model, primitive.attributes.at("POSITION"));
                const auto n = gltfworld::Read<float>(model, primitive.attributes.at("NORMAL"));
                const auto indices = gltfworld::Read<uint32_t>(model, primitive.indices);
                for (size_t t = 0; t + 2 < indices.size(); t += 3) {
                    const uint32_t a = 3 * indices[t], b = 3 * indices[t + 1], c = 3 * indices[t + 2];
                    double face[3], normal[3];
                    for (int k = 0; k < 3; ++k) {
                        const int k1 = (k + 1) % 3, k2 = (k + 2) % 3;
                        face[k] = (p[b + k1] - p[a + k1]) * (p[c + k2] - p[a + k2]) -
                                  (p[b + k2] - p[a + k2]) * (p[c + k1] - p[a + k1]);
                        normal[k] = n[a + k] + n[b + k] + n[c + k];
                    }
                    const double dot = face[0] * normal[0] + face[1] * normal[1] + face[2] * normal[2];
                    (dot > 0 ? agreeing : opposing) += dot != 0;
                }
            }
        }
    }
    EXPECT_GT(agreeing, 100u);
    EXPECT_LT(opposing * 50, agreeing) << agreeing << " triangles face their normals, " << opposing << " do not";
}

// The decoder's own tests try every damage; here a corner outside its batch, found only when the
// mesh is decoded, shows that every command decodes whole and reports as the decoder says.
TEST_F(Vern3dTool, DamagedCopiesFailWithChunkOffsetAndReason)
{
    const auto read = testfiles::ReadBytes(Generated().vern3d);
    vern3dtest::Bytes damaged(read.begin(), read.end());
    Scene scene;
    ASSERT_TRUE(Decode(std::span<const uint8_t>(damaged), &scene, nullptr));
    const Node& box = scene.nodes.at(2);
    ASSERT_TRUE(box.hasMesh);
    const uint32_t vertices = box.mesh.batches[0].vertexCount;
    vern3dtest::PutU32(damaged, static_cast<size_t>(box.mesh.triangles.Bytes().data() - damaged.data()) + 8, vertices);
    const std::string path = directory->Write("damaged.vern3D", std::string(damaged.begin(), damaged.end()));
    for (const char* command : {"check", "info", "dump", "export"}) {
        std::vector<std::string> arguments = {command, path};
        if (std::string(command) == "export")
            arguments.insert(arguments.end(), {"-o", directory->File("damaged.glb")});
        const auto result = testfiles::Run(directory->Path(), VERN3D_EXE, arguments);
        EXPECT_EQ(result.exitCode, 1) << command;
        EXPECT_NE(result.output.find(path + ": error: ChunkMesh of node '" + box.name + "'"), std::string::npos)
            << result.output;
        EXPECT_NE(result.output.find("triangle 0 corner 1 is " + std::to_string(vertices)), std::string::npos)
            << result.output;
    }
}

TEST_F(Vern3dTool, CommandLineMistakesExitWithUsage)
{
    const std::string file = Generated().vern3d;
    const struct { std::vector<std::string> arguments; int exitCode; const char* message; } cases[] = {
        {{}, 2, "no command given"}, {{"--help"}, 0, "usage: vern3d"},
        {{"frobnicate"}, 2, "unknown command 'frobnicate'"}, {{"info"}, 2, "info needs at least one file"},
        {{"info", file, "--yaml"}, 2, "unknown option for info: --yaml"},
        {{"dump", file, "--limit", "x"}, 2, "--limit needs a number"}, {{"dump", file, file}, 2, "dump takes one file"},
        {{"check"}, 2, "check needs at least one file"}, {{"export", file}, 2, "export needs a file and -o"},
        {{"export", file, "-o", "out.obj"}, 2, "must end in .glb or .gltf"},
        {{"export", file, "-o", "/nonexistent/dir/out.glb"}, 1, "cannot write"},
        {{"check", "missing.vern3D"}, 1, "missing.vern3D: error: cannot read"},
        {{"dump", file, "--limit", "2"}, 0, "... "}, {{"dump", file, "--limit", "0"}, 0, "  matrix row 0 "},
        {{"info", file}, 0, "nodes       4, depth 2"},
    };
    for (const auto& c : cases) {
        const auto result = testfiles::Run(directory->Path(), VERN3D_EXE, c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.message << ": " << result.output;
        EXPECT_NE(result.output.find(c.message), std::string::npos) << result.output;
    }
}

}  // namespace
