// The program as its users run it: command line, console text, exit codes and the files written.
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "support/TestFiles.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <unistd.h>

namespace {

using testfiles::ReadBytes;
using testfiles::ReadText;
using testfiles::Run;
using testfiles::ScratchDirectory;

const std::string kBanner = "MakeVern3D Version 2.0\nCopyright (C) The MakeVern3D developers. All rights reserved.\n\n";
const std::string kCompiled = "File successful compiled.\n";

testfiles::RunResult Convert(const ScratchDirectory& directory, const std::vector<std::string>& arguments)
{
    return Run(directory.Path(), MAKEVERN3D_EXE, arguments);
}

std::string Helper(const std::string& name)
{
    return "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n*HELPER_CLASS \"Dummy\"\n}\n";
}

TEST(CommandLine, BannerHelpAndMissingValues)
{
    ScratchDirectory directory;
    const auto nothing = Convert(directory, {});
    EXPECT_EQ(nothing.exitCode, 0);
    EXPECT_EQ(nothing.output, kBanner);

    const auto help = Convert(directory, {"-h"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.output, kBanner + ReadText(MAKEVERN3D_TEST_DATA "/help_text.txt"));

    directory.Write("a.ase", Helper("x"));
    const auto missing = Convert(directory, {"a.ase", "-o"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.output, kBanner + "An error is occured during a output file operation.\n");
    EXPECT_FALSE(testfiles::Exists(directory.Path() + "/a.vern3D"));
}

TEST(Driver, AMissingFileIsReportedAndTheNextOneConverted)
{
    ScratchDirectory directory;
    directory.Write("good.ase", Helper("x"));
    const auto run = Convert(directory, {"missing.ase", "good.ase"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, kBanner + "missing.ase:\nmissing.ase(1) error: Could not open file 'missing.ase'.\n" +
                              "good.ase:\n" + kCompiled);
    EXPECT_TRUE(testfiles::Exists(directory.Path() + "/good.vern3D"));
    EXPECT_FALSE(testfiles::Exists(directory.Path() + "/missing.vern3D"));
}

TEST(Driver, OneOutputNameForEveryInput)
{
    ScratchDirectory directory;
    directory.Write("a.ase", Helper("from a"));
    directory.Write("b.ase", Helper("from b"));
    directory.Write("bad.ase", "*SCENE x\n");
    ASSERT_EQ(Convert(directory, {"a.ase", "b.ase", "bad.ase", "-o", "out.bin"}).exitCode, 0);
    vern3d::Scene scene;
    std::string error;
    ASSERT_TRUE(vern3d::DecodeFile(directory.Path() + "/out.vern3D", &scene, &error)) << error;
    ASSERT_EQ(scene.nodes.size(), 2u);
    EXPECT_EQ(scene.nodes[1].name, "from b");  // the failed third file wrote nothing
}

// Little-endian words for the expected files below.
struct Bytes {
    std::vector<uint8_t> data;
    Bytes& U32(uint32_t value)
    {
        for (int shift = 0; shift < 32; shift += 8)
            data.push_back(static_cast<uint8_t>(value >> shift));
        return *this;
    }
    Bytes& Raw(const std::vector<uint8_t>& bytes)
    {
        data.insert(data.end(), bytes.begin(), bytes.end());
        return *this;
    }
    Bytes& Counted(const std::string& text)
    {
        data.push_back(static_cast<uint8_t>(text.size()));
        data.insert(data.end(), text.begin(), text.end());
        return *this;
    }
    Bytes& Zeros(size_t count)
    {
        data.insert(data.end(), count, 0);
        return *this;
    }
};

const std::vector<uint8_t> kVern3DType = {0x34, 0xF9, 0xB3, 0x0A, 0x62, 0x93, 0xD1, 0x11,
                                          0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12};

TEST(FileLayout, SceneWithoutObjectsByteForByte)
{
    ScratchDirectory directory;
    directory.Write("scene.ase", "*3DSMAX_ASCIIEXPORT 200\n");
    ASSERT_EQ(Convert(directory, {"scene.ase"}).exitCode, 0);
    const std::string rootName = "root node - scene.ase";
    const uint32_t n = 104 + 1 + static_cast<uint32_t>(rootName.size());
    Bytes expected;
    expected.U32(44).U32(0).Raw(kVern3DType).U32(44 + n + 12).U32(48).U32(0).U32(44).U32(16);
    expected.U32(104).U32(1).Zeros(96).Counted(rootName);
    expected.U32(12).U32(0).U32(0);
    expected.U32(0).U32(2).U32(0xFFFFFFFF).U32(0);
    expected.U32(0x10000).U32(0).U32(0).U32(n);
    expected.U32(0x10003).U32(0).U32(n).U32(12);
    EXPECT_EQ(ReadBytes(directory.Path() + "/scene.vern3D"), expected.data);
}

TEST(FileLayout, OneHelperUnderTheRoot)
{
    ScratchDirectory directory;
    directory.Write("scene.ase", "*HELPEROBJECT {\n*NODE_NAME \"H\"\n*HELPER_CLASS \"Dummy\"\n"
                                 "*NODE_TM {\n*TM_ROW3 1.5 -2 3\n}\n}\n");
    ASSERT_EQ(Convert(directory, {"scene.ase"}).exitCode, 0);
    const uint32_t h = 104 + 2;
    const uint32_t r = 104 + 1 + 21;
    Bytes expected;
    expected.U32(44).U32(0).Raw(kVern3DType).U32(44 + h + r + 12).U32(64).U32(0).U32(44).U32(16);
    // H: flags 3 and its world as the local matrix.
    expected.U32(104).U32(3);
    for (float value : {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 1.5f, -2.0f, 3.0f, 1.0f}) {
        uint32_t bits;
        std::memcpy(&bits, &value, 4);
        expected.U32(bits);
    }
    expected.Zeros(32).Counted("H");
    expected.U32(104).U32(1).Zeros(96).Counted("root node - scene.ase");
    expected.U32(12).U32(0).U32(0);
    expected.U32(0).U32(2).U32(0xFFFFFFFF).U32(0);
    expected.U32(0x10000).U32(1).U32(h).U32(r);
    expected.U32(0x10000).U32(0).U32(0).U32(h);
    expected.U32(0x10003).U32(0).U32(h + r).U32(12);
    EXPECT_EQ(ReadBytes(directory.Path() + "/scene.vern3D"), expected.data);
}

TEST(FileLayout, LongNamesTakeTheThreeBytePrefix)
{
    ScratchDirectory directory;
    const std::string name(300, 'n');
    directory.Write("scene.ase", Helper(name));
    ASSERT_EQ(Convert(directory, {"scene.ase"}).exitCode, 0);
    const auto bytes = ReadBytes(directory.Path() + "/scene.vern3D");
    ASSERT_GT(bytes.size(), 44u + 104u + 3u);
    EXPECT_EQ(bytes[44 + 104], 0xFF);
    EXPECT_EQ(bytes[44 + 105], 0x2C);
    EXPECT_EQ(bytes[44 + 106], 0x01);
    vern3d::Scene scene;
    std::string error;
    ASSERT_TRUE(vern3d::Decode(std::vector<uint8_t>(bytes.begin(), bytes.end()), &scene, &error)) << error;
    EXPECT_EQ(scene.nodes[1].name, name);
}

TEST(FileLayout, SelectionAndDirectivesShapeTheWrittenTree)
{
    ScratchDirectory directory;
    directory.Write("scene.ase", Helper("keep") + Helper("drop") +
                                     "*HELPEROBJECT {\n*NODE_NAME \"CONVERT(DELETE)gone\"\n*NODE_PARENT \"keep\"\n}\n"
                                     "*HELPEROBJECT {\n*NODE_NAME \"convert()kid\"\n*NODE_PARENT \"CONVERT(DELETE)gone\"\n}\n");
    ASSERT_EQ(Convert(directory, {"scene.ase", "-obj", "keep"}).exitCode, 0);
    vern3d::Scene scene;
    std::string error;
    ASSERT_TRUE(vern3d::DecodeFile(directory.Path() + "/scene.vern3D", &scene, &error)) << error;
    ASSERT_EQ(scene.nodes.size(), 3u);
    EXPECT_EQ(scene.nodes[1].name, "keep");
    EXPECT_EQ(scene.nodes[2].name, "kid");
    EXPECT_EQ(scene.nodes[2].parent, 1u);
}

TEST(WriteFailures, AreReportedWithTheOutputNameAndTheRunGoesOn)
{
    ScratchDirectory directory;
    directory.Write("a.ase", Helper("x"));
    const auto noDirectory = Convert(directory, {"a.ase", "-o", "nodir/out"});
    EXPECT_EQ(noDirectory.exitCode, 0);
    EXPECT_NE(noDirectory.output.find("a.ase:\na.ase(5) error: Error occured while writing file 'nodir/out.vern3D'.\n"),
              std::string::npos)
        << noDirectory.output;
    EXPECT_EQ(noDirectory.output.find(kCompiled), std::string::npos);

    // A device that is full from the first byte on.
    ASSERT_EQ(::symlink("/dev/full", (directory.Path() + "/full.vern3D").c_str()), 0);
    directory.Write("b.ase", Helper("y"));
    const auto full = Convert(directory, {"a.ase", "-o", "full", "/o", "nodir/other", "b.ase", "-o", "b"});
    // -o is one name for the whole run: both inputs go to b.vern3D.
    EXPECT_NE(full.output.find("b.ase:\n" + kCompiled), std::string::npos) << full.output;
    const auto onlyFull = Convert(directory, {"a.ase", "-o", "full"});
    EXPECT_NE(onlyFull.output.find("error: Error occured while writing file 'full.vern3D'.\n"), std::string::npos)
        << onlyFull.output;
}

TEST(WriteFailures, NoOutputForAnInputWithErrors)
{
    ScratchDirectory directory;
    directory.Write("bad.ase", Helper("x") + "*SCENE {\n}\n");
    const std::string previous = directory.Write("bad.vern3D", "keep me");
    const auto run = Convert(directory, {"bad.ase"});
    EXPECT_NE(run.output.find("bad.ase(6) error: Missing symbol 'SCENE_TICKSPERFRAME'.\n"), std::string::npos);
    EXPECT_EQ(ReadText(previous), "keep me");
}

// ---- The real-world corpus

struct Expectation {
    const char* file;
    const char* failure;  // empty: converts
    bool written = false;  // the error arose while the file was written, which goes on to its end
};

// Files the reader refuses, with the message and line it must give.
const Expectation kCorpus[] = {
    {"CameraRollAnimWithChildObject.ase", "(425) error: Can not found parent object 'Camera01' of object 'Box02'.\n"},
    {"InvalidUVIndex.ase", "(5) error: Missing symbol 'SCENE_TICKSPERFRAME'.\n"},
    {"xreal-axtool_maya_test.ase", "(2) error: Symbol '*COMMENT' could not scanned.\n"},
    {"xreal-dmc_vent1.ase", "(100) error: Can not found parent object 'Group01' of object 'Object01'.\n"},
    // Face normals without the normals of their corners.
    {"trenchbroom-wedge_45.ase", "(44) error: Aspected symbol '*MESH_VERTEXNORMAL' but found symbol '*MESH_FACENORMAL'.\n"},
    {"unv-station15-shrub01a.ase", "(121) error: Aspected symbol '*MESH_VERTEXNORMAL' but found symbol '*MESH_FACENORMAL'.\n"},
    // Objects without a material reference: reported when their mesh is built.
    {"CameraRollAnim.ase", "(317) error: Invalid material id '-1' in object 'Box01'.\n", true},
    {"MotionCaptureROM.ase", "(19838) error: Invalid material id '-1' in object 'Bip01 R Zeh0'.\n", true},
    {"TargetCameraAnim.ase", "(386) error: Invalid material id '-1' in object 'Box01'.\n", true},
    {"RotatingCube.ASE", "(334) error: Invalid material id '-1' in object 'Box01'.\n", true},
    {"anim.ASE", "(329) error: Invalid material id '-1' in object 'Box02'.\n", true},
    {"anim2.ASE", "(930) error: Invalid material id '-1' in object 'Box02'.\n", true},
};

Expectation FailureFor(const std::string& file)
{
    for (const Expectation& expectation : kCorpus)
        if (file == expectation.file)
            return expectation;
    return {"", ""};
}

// Key lines per object in an ASE text: name -> (position keys, rotation keys).
std::map<std::string, std::pair<size_t, size_t>> CountKeyLines(const std::string& text, std::set<std::string>* duplicates)
{
    std::map<std::string, std::pair<size_t, size_t>> counts;
    std::istringstream lines(text);
    std::string line;
    int depth = 0;
    int objectDepth = -1;
    std::string name;
    std::pair<size_t, size_t> current{0, 0};
    while (std::getline(lines, line)) {
        const size_t start = line.find_first_not_of(" \t\r");
        const std::string trimmed = start == std::string::npos ? "" : line.substr(start);
        if (objectDepth < 0 && (trimmed.rfind("*GEOMOBJECT", 0) == 0 || trimmed.rfind("*HELPEROBJECT", 0) == 0)) {
            objectDepth = depth;
            name.clear();
            current = {0, 0};
        } else if (objectDepth >= 0 && name.empty() && trimmed.rfind("*NODE_NAME", 0) == 0) {
            const size_t open = trimmed.find('"');
            name = trimmed.substr(open + 1, trimmed.rfind('"') - open - 1);
        } else if (trimmed.rfind("*CONTROL_BEZIER_POS_KEY", 0) == 0) {
            ++current.first;
        } else if (trimmed.rfind("*CONTROL_TCB_ROT_KEY", 0) == 0) {
            ++current.second;
        }
        for (char character : line) {
            if (character == '{')
                ++depth;
            if (character == '}' && --depth == objectDepth) {
                if (counts.count(name))
                    duplicates->insert(name);
                counts[name] = current;
                objectDepth = -1;
            }
        }
    }
    return counts;
}

// Each mesh chunk holds one triangle per face of its object, two for a face of a two-sided
// material, counted on the records the reader made of the same file.
void ExpectTrianglesOfEveryFace(const std::string& source, const vern3d::Scene& scene)
{
    Reporter reporter;
    Scene read;
    testing::internal::CaptureStdout();
    ConvertSettings keep;
    keep.keepMeshLists = true;
    ConvertFile(source, source + ".again.vern3D", keep, reporter, read);
    testing::internal::GetCapturedStdout();
    std::map<std::string, size_t> expected;
    std::vector<const BaseNode*> pending{read.root.get()};
    while (!pending.empty()) {
        const BaseNode* node = pending.back();
        pending.pop_back();
        for (const auto& child : node->Children())
            pending.push_back(child.get());
        const auto* mesh = dynamic_cast<const MeshNode*>(node);
        if (!mesh || mesh->mesh.faces.empty())
            continue;
        const MaterialTableEntry& entry = read.materialTable.at(static_cast<size_t>(mesh->materialRef));
        size_t triangles = 0;
        for (const MeshFace& face : mesh->mesh.faces) {
            MaterialSlot slot = entry.slot;
            if (entry.subMaterials)
                slot = static_cast<size_t>(face.materialId) < entry.subMaterials->size()
                           ? (*entry.subMaterials)[static_cast<size_t>(face.materialId)]
                           : MaterialSlot{};
            triangles += slot.twoSided ? 2 : 1;
        }
        expected[mesh->name] += triangles;
    }
    std::map<std::string, size_t> written;
    for (const vern3d::Node& node : scene.nodes)
        if (node.hasMesh) {
            written[node.name] += node.mesh.triangles.size();
            EXPECT_EQ(node.mesh.header.triangleCount, node.mesh.triangles.size());
            EXPECT_EQ(node.mesh.header.vertexCount, node.mesh.vertices.size());
        }
    EXPECT_EQ(written, expected) << source;
}

TEST(Corpus, EveryFileConvertsOrFailsAsExpected)
{
    ScratchDirectory directory;
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(MAKEVERN3D_SHARED_CORPUS)) {
        const std::string file = entry.path().filename().string();
        if (entry.is_regular_file() && file.find(".md") == std::string::npos) {
            std::filesystem::copy_file(entry.path(), directory.Path() + "/" + file);
            files.push_back(file);
        }
    }
    ASSERT_GE(files.size(), 20u);
    for (const std::string& file : files) {
        const auto run = Convert(directory, {file});
        ASSERT_EQ(run.exitCode, 0) << file;
        const Expectation expected = FailureFor(file);
        const std::string failure = expected.failure;
        const std::string output = directory.Path() + "/" + std::filesystem::path(file).stem().string() + ".vern3D";
        if (!failure.empty()) {
            EXPECT_NE(run.output.find(file + failure), std::string::npos) << run.output;
            EXPECT_EQ(testfiles::Exists(output), expected.written) << file;
            if (!expected.written)
                continue;
        } else {
            EXPECT_NE(run.output.find(file + ":\n"), std::string::npos);
            EXPECT_EQ(run.output.substr(run.output.size() - kCompiled.size()), kCompiled) << file << run.output;
        }
        vern3d::Scene scene;
        std::string error;
        ASSERT_TRUE(vern3d::DecodeFile(output, &scene, &error)) << file << ": " << error;
        if (!expected.written)
            ExpectTrianglesOfEveryFace(directory.Path() + "/" + file, scene);

        // Every animated node: its key counts are those of the file, times ascend, and
        // evaluating the decoded keys at their own times gives finite transforms.
        std::set<std::string> duplicates;
        const auto keyLines = CountKeyLines(ReadText(directory.Path() + "/" + file), &duplicates);
        for (const vern3d::Node& node : scene.nodes) {
            const auto counted = keyLines.find(node.name);
            if (counted == keyLines.end() || duplicates.count(node.name))
                continue;
            EXPECT_EQ(node.animation.positionKeys.size(), counted->second.first) << file << " " << node.name;
            EXPECT_EQ(node.animation.rotationKeys.size(), counted->second.second) << file << " " << node.name;
            std::vector<uint32_t> times;
            for (const auto& key : node.animation.positionKeys)
                times.push_back(static_cast<uint32_t>(key.time));
            for (const auto& key : node.animation.rotationKeys)
                times.push_back(static_cast<uint32_t>(key.time));
            EXPECT_TRUE(std::is_sorted(node.animation.positionKeys.begin(), node.animation.positionKeys.end(),
                                       [](const auto& a, const auto& b) { return a.time < b.time; }))
                << file << " " << node.name;
            for (uint32_t time : times) {
                const vern3d::Matrix local = vern3d::LocalTransformAt(node, time);
                for (float value : local.m)
                    ASSERT_TRUE(std::isfinite(value)) << file << " " << node.name << " at " << time;
            }
        }
    }
}

TEST(Corpus, WideTextConvertsLikeItsEightBitOriginal)
{
    ScratchDirectory directory;
    for (const char* file : {"ThreeCubesGreen.ASE", "odd/ThreeCubesGreen_UTF16LE.ASE", "odd/ThreeCubesGreen_UTF16BE.ASE"})
        std::filesystem::copy_file(std::string(MAKEVERN3D_SHARED_CORPUS "/") + file,
                                   directory.Path() + "/" + std::filesystem::path(file).filename().string());
    ASSERT_EQ(Convert(directory, {"ThreeCubesGreen.ASE", "-o", "plain"}).exitCode, 0);
    const auto plain = ReadBytes(directory.Path() + "/plain.vern3D");
    ASSERT_FALSE(plain.empty());
    for (const char* wide : {"ThreeCubesGreen_UTF16LE.ASE", "ThreeCubesGreen_UTF16BE.ASE"}) {
        ASSERT_EQ(Convert(directory, {wide, "-o", "wide"}).exitCode, 0);
        auto bytes = ReadBytes(directory.Path() + "/wide.vern3D");
        // The same hierarchy and transforms; names arrive as UTF-8.
        vern3d::Scene a, b;
        std::string error;
        ASSERT_TRUE(vern3d::Decode(std::vector<uint8_t>(plain.begin(), plain.end()), &a, &error)) << error;
        ASSERT_TRUE(vern3d::Decode(std::vector<uint8_t>(bytes.begin(), bytes.end()), &b, &error)) << error;
        ASSERT_EQ(a.nodes.size(), b.nodes.size());
        std::set<std::string> names;
        for (size_t i = 1; i < a.nodes.size(); ++i) {
            EXPECT_EQ(a.nodes[i].info.matrix.m, b.nodes[i].info.matrix.m);
            names.insert(b.nodes[i].name);
        }
        // The little-endian copy keeps the original names; the big-endian one renames two
        // objects in Japanese.
        EXPECT_TRUE(names.count(std::string(wide).find("LE") != std::string::npos ? "Quader02"
                                                                                   : "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"))
            << wide;
    }
    std::filesystem::copy_file(MAKEVERN3D_SHARED_CORPUS "/odd/empty.ase", directory.Path() + "/empty.ase");
    const auto empty = Convert(directory, {"empty.ase"});
    EXPECT_EQ(empty.output, kBanner + "empty.ase:\n" + kCompiled);
}

}  // namespace
