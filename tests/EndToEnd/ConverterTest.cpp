// The program as its users run it: command line, console text, exit codes and the files written.
#include "support/TestFiles.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::string_literals;
using testfiles::Convert;
using testfiles::kCompiled;
using testfiles::ReadBytes;
using testfiles::ReadText;
using testfiles::ScratchDirectory;

const std::string kBanner = "MakeVern3D Version 2.0\nCopyright (C) The MakeVern3D developers. All rights reserved.\n\n";

std::string Helper(const std::string& name, const std::string& extra = "*HELPER_CLASS \"Dummy\"\n")
{
    return "*HELPEROBJECT {\n*NODE_NAME \"" + name + "\"\n" + extra + "}\n";
}

vern3d::Scene DecodeOrFail(const std::string& file)
{
    vern3d::Scene scene;
    std::string error;
    EXPECT_TRUE(vern3d::DecodeFile(file, &scene, &error)) << file << ": " << error;
    return scene;
}

// The whole console text and the exit code of whole runs.
TEST(CommandLine, ConsoleTextAndExitCode)
{
    const std::string missingThenGood = "missing.ase:\nmissing.ase(1) error: Could not open file 'missing.ase'.\ngood.ase:\n" + kCompiled;
    const struct { std::vector<std::string> arguments; int exitCode; std::string output; } cases[] = {  // output after the banner
        {{}, 0, ""}, {{"-h"}, 0, ReadText(MAKEVERN3D_TEST_DATA "/help_text.txt")},
        {{"good.ase", "-o"}, 1, "An error is occured during a output file operation.\n"},
        {{"missing.ase", "good.ase"}, 0, missingThenGood}, {{"-batch", "missing.ase", "good.ase"}, 2, missingThenGood},
        {{"good.ase", "-batch"}, 0, "good.ase:\n" + kCompiled},
        // Without -uri a "file:" name is the relative path it always was.
        {{"file:good.ase"}, 0, "file:good.ase:\nfile:good.ase(1) error: Could not open file 'file:good.ase'.\n"},
        {{"empty.ase"}, 0, "empty.ase:\n" + kCompiled},
    };
    for (const auto& c : cases) {
        ScratchDirectory directory;
        directory.Write("good.ase", Helper("x"));
        std::filesystem::copy_file(MAKEVERN3D_SHARED_CORPUS "/odd/empty.ase", directory.File("empty.ase"));
        const auto run = Convert(directory, c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.output;
        EXPECT_EQ(run.output, kBanner + c.output);
        EXPECT_EQ(testfiles::Exists(directory.File("good.vern3D")), c.output.ends_with("good.ase:\n" + kCompiled));
        EXPECT_FALSE(testfiles::Exists(directory.File("missing.vern3D")));
    }
}

// The nodes written, as name and parent index, for several inputs, one output name, -obj and
// name directives, and a name too long for the one-byte length prefix.
TEST(Driver, InputsSelectionAndDirectivesShapeTheWrittenTree)
{
    const std::string longName(300, 'n');
    const struct { std::vector<std::string> arguments; std::vector<std::pair<std::string, uint32_t>> nodes; } cases[] = {
        {{"a.ase", "b.ase", "bad.ase", "-o", "out.bin"}, {{"from b", 0}}},  // the failed third file wrote nothing
        {{"tree.ase", "-obj", "keep"}, {{"keep", 0}, {"kid", 1}}}, {{"long.ase", "-o", "out"}, {{longName, 0}}},
    };
    for (const auto& c : cases) {
        ScratchDirectory directory;
        directory.Write("a.ase", Helper("from a"));
        directory.Write("b.ase", Helper("from b"));
        directory.Write("bad.ase", "*SCENE x\n");
        directory.Write("long.ase", Helper(longName));
        directory.Write("tree.ase", Helper("keep") + Helper("drop") + Helper("CONVERT(DELETE)gone", "*NODE_PARENT \"keep\"\n") +
                                        Helper("convert()kid", "*NODE_PARENT \"CONVERT(DELETE)gone\"\n"));
        ASSERT_EQ(Convert(directory, c.arguments).exitCode, 0);
        const vern3d::Scene scene = DecodeOrFail(directory.File(c.arguments[1] == "-obj" ? "tree.vern3D" : "out.vern3D"));
        std::vector<std::pair<std::string, uint32_t>> nodes;
        for (size_t i = 1; i < scene.nodes.size(); ++i)
            nodes.emplace_back(scene.nodes[i].name, scene.nodes[i].parent);
        EXPECT_EQ(nodes, c.nodes) << c.arguments[0];
    }
}

// Little-endian words for the expected files below.
struct Bytes {
    std::vector<uint8_t> data;
    Bytes& U32(std::initializer_list<uint32_t> values)
    {
        for (const uint32_t value : values)
            for (int shift = 0; shift < 32; shift += 8)
                data.push_back(static_cast<uint8_t>(value >> shift));
        return *this;
    }
    Bytes& Zeros(size_t count) { return data.insert(data.end(), count, 0), *this; }
    Bytes& Counted(const std::string& text)
    {
        data.push_back(static_cast<uint8_t>(text.size()));
        return data.insert(data.end(), text.begin(), text.end()), *this;
    }
};

TEST(FileLayout, SmallScenesByteForByte)
{
    const std::string rootName = "root node - scene.ase";
    const uint32_t r = 104 + 1 + static_cast<uint32_t>(rootName.size()), h = 104 + 2;
    // The header: its size, the file type's GUID, the file size, the entry table's size and place.
    auto header = [](uint32_t size, uint32_t entries) {
        return Bytes().U32({44, 0, 0x0AB3F934, 0x11D19362, 0x00082B9A, 0x12053000, size, entries, 0, 44, 16});
    };
    Bytes empty = header(44 + r + 12, 48);
    empty.U32({104, 1}).Zeros(96).Counted(rootName);
    empty.U32({12, 0, 0, 0, 2, 0xFFFFFFFF, 0, 0x10000, 0, 0, r, 0x10003, 0, r, 12});
    // H: flags 3 and its world as the local matrix.
    Bytes helper = header(44 + h + r + 12, 64).U32({104, 3});
    for (float value : {1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 1.5f, -2.0f, 3.0f, 1.0f})
        helper.U32({std::bit_cast<uint32_t>(value)});
    helper.Zeros(32).Counted("H").U32({104, 1}).Zeros(96).Counted(rootName);
    helper.U32({12, 0, 0, 0, 2, 0xFFFFFFFF, 0, 0x10000, 1, h, r, 0x10000, 0, 0, h, 0x10003, 0, h + r, 12});
    const std::pair<std::string, Bytes> cases[] = {
        {"*3DSMAX_ASCIIEXPORT 200\n", empty},
        {Helper("H", "*HELPER_CLASS \"Dummy\"\n*NODE_TM {\n*TM_ROW3 1.5 -2 3\n}\n"), helper},
    };
    for (const auto& [text, expected] : cases) {
        ScratchDirectory directory;
        directory.Write("scene.ase", text);
        ASSERT_EQ(Convert(directory, {"scene.ase"}).exitCode, 0);
        EXPECT_EQ(ReadBytes(directory.File("scene.vern3D")), expected.data) << text;
    }
}

// A failed write is reported with the output's name and the run goes on, without the note that
// -compat would convert the input (it would not help); an input with errors leaves the earlier
// file of its output's name.
TEST(WriteFailures, AreReportedAndLeaveTheEarlierFile)
{
    ScratchDirectory directory;
    directory.Write("a.ase", Helper("x"));
    directory.Write("bad.ase", Helper("x") + "*SCENE {\n}\n");
    const std::string previous = directory.Write("bad.vern3D", "keep me");
    ASSERT_EQ(::symlink("/dev/full", directory.File("full.vern3D").c_str()), 0);  // full from the first byte on
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"a.ase", "-o", "nodir/out"}, "a.ase:\na.ase(5) error: Error occured while writing file 'nodir/out.vern3D'.\n"},
        {{"a.ase", "-o", "full"}, "a.ase:\na.ase(5) error: Error occured while writing file 'full.vern3D'.\n"},
        {{"bad.ase"}, "bad.ase(6) error: Missing symbol 'SCENE_TICKSPERFRAME'.\n"},
    };
    for (const auto& [arguments, part] : cases) {
        const auto run = Convert(directory, arguments);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_NE(run.output.find(part), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find(kCompiled) == std::string::npos, part.find(kCompiled) == std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("Note:") == std::string::npos, part.find("writing") != std::string::npos) << run.output;
    }
    EXPECT_EQ(ReadText(previous), "keep me");
}

// ---- The real-world corpus

// `written`: the error arose while the file was written, which goes on to its end.
struct Expectation { const char* file; const char* failure; bool written = false; };

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

// Under -compat every corpus file converts and decodes, and each departure is said where it
// happens: the warnings each file must give (its name is an absolute path under -uri).
const std::multimap<std::string, std::string> kCompatWarnings = {
    {"CameraRollAnim.ase", "(147) warning: Object 'Box01' has no material; it gets a default material.\n"},
    {"trenchbroom-wedge_45.ase", "(43) warning: Face normals come without corner normals; the corners take their face's normal.\n"},
    {"xreal-dmc_vent1.ase", "(97) warning: Group 'Group01' is read as a transform node.\n"},
    {"CameraRollAnimWithChildObject.ase", "(422) warning: Camera 'Camera01' is read as a transform node.\n"},
    {"anim2.ASE", "(851) warning: Light 'FDirect01' is read as a transform node.\n"},
    {"TargetCameraAnim.ase", "warning: The target 'Camera01.Target' of 'Camera01' is not kept.\n"},
    {"RotatingCube.ASE", "warning: Sampled track '*CONTROL_ROT_TRACK' of 'Box01' becomes 181 keys.\n"},
    {"anim2.ASE", "(527) warning: The scale of 'Box02' changes over time; the keys keep the scale of its transform.\n"},
    {"anim2.ASE", "(929) warning: ... and 1 more camera, light or bone read as a transform node.\n"},
    {"InvalidUVIndex.ase", "(5) warning: The scene gives no 'SCENE_TICKSPERFRAME'; 160 is taken.\n"},
    {"xreal-axtool_maya_test.ase", "(1) warning: The version number is missing.\n"},
    {"xreal-axtool_maya_test.ase", "(39) warning: Faces come without edge flags; they are taken as 0.\n"},
};

TEST(Corpus, EveryFileConvertsOrFailsAsExpected)
{
    ScratchDirectory directory;
    size_t files = 0, warned = 0;
    for (const std::string& folder : {std::string(MAKEVERN3D_SHARED_CORPUS), MAKEVERN3D_SHARED_CORPUS "/odd"s}) {
        for (const std::string& file : testfiles::Entries(folder)) {
            if (!file.ends_with(".ase") && !file.ends_with(".ASE"))
                continue;
            ++files;
            std::filesystem::copy_file(folder + "/" + file, directory.File(file));
            const auto compat = Convert(directory, {"-compat", "-batch", "-uri", "file:" + directory.File(file), "-o",
                                                    "file:" + directory.File("compat")});
            EXPECT_EQ(compat.exitCode, 0) << file << "\n" << compat.output;
            EXPECT_TRUE(compat.output.ends_with(kCompiled)) << compat.output;
            DecodeOrFail(directory.File("compat.vern3D"));
            const auto [first, last] = kCompatWarnings.equal_range(file);
            for (auto warning = first; warning != last; ++warning, ++warned) {
                // Said where it happens, and once (a second saying would stand at another line).
                const std::string text = warning->second.substr(warning->second.find("warning:"));
                EXPECT_NE(compat.output.find(warning->second), std::string::npos) << file << "\n" << compat.output;
                EXPECT_EQ(compat.output.find(text, compat.output.find(text) + 1), std::string::npos) << file << "\n" << compat.output;
            }

            // Without -compat: converted, or the failure with its message and line.
            const auto run = Convert(directory, {file});
            ASSERT_EQ(run.exitCode, 0) << file;
            const auto failing = std::ranges::find(kCorpus, file, &Expectation::file);
            const Expectation expected = failing == std::end(kCorpus) ? Expectation{"", ""} : *failing;
            const std::string output = directory.File(std::filesystem::path(file).stem().string() + ".vern3D");
            if (*expected.failure) {
                EXPECT_NE(run.output.find(file + expected.failure), std::string::npos) << run.output;
                EXPECT_EQ(testfiles::Exists(output), expected.written) << file;
                if (!expected.written)
                    continue;
            } else {
                EXPECT_NE(run.output.find(file + ":\n"), std::string::npos);
                EXPECT_TRUE(run.output.ends_with(kCompiled)) << file << run.output;
            }
            // No corpus file holds Bezier or TCB keys, and sampled tracks become keys only under -compat.
            for (const vern3d::Node& node : DecodeOrFail(output).nodes)
                EXPECT_FALSE(node.hasAnimation) << file << " " << node.name;
        }
    }
    EXPECT_GE(files, 30u);
    EXPECT_EQ(warned, kCompatWarnings.size());

    // Wide text converts like its eight-bit original: the same hierarchy and transforms, names in
    // UTF-8. The little-endian copy keeps the original names; the big-endian one renames two
    // objects in Japanese.
    const vern3d::Scene plain = DecodeOrFail(directory.File("ThreeCubesGreen.vern3D"));
    ASSERT_GT(plain.nodes.size(), 1u);
    for (const auto& [wide, name] : {std::pair{"ThreeCubesGreen_UTF16LE", "Quader02"},
                                     {"ThreeCubesGreen_UTF16BE", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"}}) {
        const vern3d::Scene scene = DecodeOrFail(directory.File(wide + ".vern3D"s));
        ASSERT_EQ(plain.nodes.size(), scene.nodes.size());
        std::set<std::string> names;
        for (size_t i = 1; i < plain.nodes.size(); ++i) {
            EXPECT_EQ(plain.nodes[i].info.matrix.m, scene.nodes[i].info.matrix.m);
            names.insert(scene.nodes[i].name);
        }
        EXPECT_TRUE(names.count(name)) << wide;
    }
}

// A scene read from a pipe (no size known beforehand, read in pieces as they come) converts
// byte for byte like the file.
TEST(Corpus, AScenePipedInConvertsLikeItsFile)
{
    const ScratchDirectory file, pipe;
    const std::string text = ReadText(MAKEVERN3D_SHARED_CORPUS "/Rifle2.ase");
    file.Write("scene.ase", text);
    ASSERT_EQ(::mkfifo(pipe.File("scene.ase").c_str(), 0600), 0);
    std::signal(SIGPIPE, SIG_IGN);  // a converter that stops reading fails the test, not this process
    std::thread writer([&] { pipe.Write("scene.ase", text); });
    const auto piped = Convert(pipe, {"-batch", "scene.ase"});
    writer.join();
    ASSERT_EQ(Convert(file, {"-batch", "scene.ase"}).exitCode, 0);
    EXPECT_EQ(piped.exitCode, 0) << piped.output;
    EXPECT_EQ(ReadBytes(pipe.File("scene.vern3D")), ReadBytes(file.File("scene.vern3D")));
}

}  // namespace
