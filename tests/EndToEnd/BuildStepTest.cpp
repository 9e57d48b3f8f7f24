// The converter as a step of a build: the dependency file (-depfile) names exactly what each
// conversion read, in a form Make and Ninja read back, and outputs do not depend on the folder.
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace {

using testfiles::Convert;
using testfiles::ReadText;
using testfiles::ScratchDirectory;
namespace fs = std::filesystem;

// An object with one triangle; with frames of mesh animation the operations file is read.
std::string Object(const std::string& name, int frames = 0)
{
    std::string animation = frames > 0 ? "*MESH_ANIMATION {\n" : "";
    for (int i = 0; i < frames; ++i)
        animation += testfiles::kTriangleMesh + (i + 1 == frames ? "}\n" : "");
    return testfiles::TriangleObject(name, animation + "*MATERIAL_REF 0\n");
}

// A still scene, an animated one whose two objects named alike share a vertex file, a failing
// one, the operations file, and vertex files without records (counts and material all 0).
void WriteScenes(const ScratchDirectory& directory, const std::string& vertexFolder = "vertices",
                 const std::string& ops = "ops.txt")
{
    const std::string materials = "*MATERIAL_LIST {\n*MATERIAL_COUNT 1\n*MATERIAL 0 {\n}\n}\n";
    fs::create_directories(directory.File(vertexFolder));
    directory.Write("still.ase", materials + Object("rock"));
    directory.Write("anim.ase", materials + Object("rock") + Object("flag", 2) + Object("rock"));
    directory.Write("bad.ase", "*GEOMOBJECT {\n*NODE_NAME \"x\"\n*MESH {\n*MESH_NUMVERTEX -5\n}\n}\n");
    directory.Write(ops, "mesh_move { first_frame 0; last_frame 1; move_x 1.0; move_y 0.0; move_z 0.0; }\n");
    for (const char* object : {"rock", "flag"})
        directory.Write(vertexFolder + "/" + object, std::string(16, '\0'));
}

// The rules name exactly what each converted input read. The file is written whole or not at
// all: a name Make or Ninja would misread, or a failed write, leaves the earlier file and no
// temporary one, and says why; under -batch the exit code is 2.
TEST(DependencyFile, NamesWhatEachConvertedInputReadOrIsNotWritten)
{
    const std::string earlier = "earlier\n", compiled = testfiles::kCompiled;
    const std::string unreadable = compiled + "error: The dependency file 'deps.d' is not written: Make and Ninja cannot read the name ";
    const struct { std::vector<std::string> arguments; int exitCode; std::string rules, message = {}; } cases[] = {  // arguments after "-depfile deps.d"
        {{"still.ase", "-ma", "ops.txt"}, 0, "still.vern3D: still.ase\n"},  // no frames: never opened
        {{"anim.ase", "-ma", "ops.txt"}, 0, "anim.vern3D: anim.ase \\\n  ops.txt\n"},
        {{"anim.ase", "-ma", "missing.txt"}, 0, "anim.vern3D: anim.ase\n"},
        {{"anim.ase", "-ma", "ops.txt", "-ivertex", "-vertexdir", "vertices/"}, 0,
         "anim.vern3D: anim.ase \\\n  vertices/rock \\\n  vertices/flag \\\n  ops.txt\n"},
        {{"-ivertex", "-uri", "file:still.ase", "-o", "file:out", "-depfile", "file:deps.d"}, 0,
         "out.vern3D: still.ase \\\n  rock\n"},
        // Failed inputs get no rule; every converted one gets its own, also for one output.
        {{"-batch", "still.ase", "bad.ase", "missing.ase", "anim.ase", "-o", "out"}, 2,
         "out.vern3D: still.ase\nout.vern3D: anim.ase\n"},
        {{"bad.ase"}, 0, ""},
        {{"-batch", "anim.ase", "-ma", "ops(1).txt"}, 2, earlier, unreadable + "'ops(1).txt' in it."},
        {{"anim.ase", "-ma", "ops(1).txt"}, 0, earlier, unreadable + "'ops(1).txt' in it."},
        {{"-batch", "still.ase", "-o", "100%"}, 2, earlier, unreadable + "'100%.vern3D'"},
        {{"-batch", "dir\\#/still.ase"}, 2, earlier, unreadable + "'dir\\#/still.vern3D'"},
        {{"-batch", "new\nline.ase"}, 2, earlier, unreadable + "'new\\x0Aline.vern3D'"},
        {{"-batch", "still.ase", "-depfile", "nowhere/deps.d"}, 2, earlier,
         compiled + "error: The dependency file 'nowhere/deps.d' could not be written."},
    };
    for (const auto& c : cases) {
        ScratchDirectory directory;
        WriteScenes(directory);
        directory.Write("ops(1).txt", ReadText(directory.File("ops.txt")));
        fs::copy_file(directory.File("vertices/rock"), directory.File("rock"));
        fs::create_directories(directory.File("dir\\#"));
        for (const char* copy : {"dir\\#/still.ase", "new\nline.ase"})
            fs::copy_file(directory.File("still.ase"), directory.File(copy));
        directory.Write("deps.d", earlier);
        std::vector<std::string> arguments = {"-depfile", "deps.d"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const auto run = Convert(directory, arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.output;
        EXPECT_EQ(ReadText(directory.File("deps.d")), c.rules) << run.output;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
        for (const std::string& name : testfiles::Entries(directory.Path()))
            EXPECT_FALSE(name.ends_with(".tmp")) << name;
    }
}

// Folders and files with spaces, "#", "$", ":" and a backslash before a space: Ninja (deps = gcc)
// reads back exactly the files opened, and Make sees each of them change.
TEST(DependencyFile, NamesWithSpacesAndSignsSurviveMakeAndNinja)
{
    ScratchDirectory directory;
    const std::string scene = "my scenes #1/a b$.ase", vertices = "v:$ 2", ops = "ops \\ $x.txt";
    WriteScenes(directory, vertices, ops);
    fs::create_directories(directory.File("my scenes #1"));
    fs::rename(directory.File("anim.ase"), directory.File(scene));
    const auto run = Convert(directory, {"-batch", scene, "-ma", ops, "-ivertex", "-vertexdir", vertices, "-depfile", "deps.d"});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const std::vector<std::string> read = {scene, vertices + "/rock", vertices + "/flag", ops};

    // Ninja: a step whose dependency file is ours; the names it lists, and nothing left to do.
    fs::copy_file(directory.File("deps.d"), directory.File("ninja.d"));
    directory.Write("build.ninja", "rule step\n  command = touch out\n  depfile = ninja.d\n  deps = gcc\nbuild out: step\n");
    const auto ninja = testfiles::Run(directory.Path(), "/bin/sh", {"-c", "ninja && ninja -t deps && ninja"});
    std::vector<std::string> listed;
    std::istringstream lines(ninja.output);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("    ", 0) == 0)
            listed.push_back(line.substr(4));
    EXPECT_EQ(listed, read) << ninja.output;
    EXPECT_TRUE(ninja.output.ends_with("ninja: no work to do.\n")) << ninja.output;

    // Make, with a recipe for every target: up to date until one of the files is newer.
    directory.Write("recipe.mk", "%::\n\t@echo remake $@\n");
    const auto built = fs::last_write_time(directory.File("my scenes #1/a b$.vern3D"));
    auto make = [&] { return testfiles::Run(directory.Path(), "/usr/bin/make", {"-q", "-f", "deps.d", "-f", "recipe.mk"}); };
    EXPECT_EQ(make().exitCode, 0) << make().output;
    for (const std::string& file : read) {
        fs::last_write_time(directory.File(file), built + std::chrono::seconds(1));
        EXPECT_EQ(make().exitCode, 1) << file;
        fs::last_write_time(directory.File(file), built - std::chrono::seconds(1));
    }
}

// An animated scene with its operations file, converted in two folders at different depths: the
// same output and dependency file, byte for byte.
TEST(Reproducible, OneSceneGivesTheSameBytesInAnyFolder)
{
    ScratchDirectory root;
    std::vector<std::vector<unsigned char>> files;
    for (const std::string& folder : {root.File("a"), root.File("b/c d/e")}) {
        ScratchDirectory scratch;
        WriteScenes(scratch);
        fs::create_directories(folder);
        fs::copy(scratch.Path(), folder, fs::copy_options::recursive);
        const auto run = testfiles::Run(folder, MAKEVERN3D_EXE, {"-batch", "anim.ase", "-ma", "ops.txt", "-map", "-depfile", "anim.d"});
        ASSERT_EQ(run.exitCode, 0) << run.output;
        files.push_back(testfiles::ReadBytes(folder + "/anim.vern3D"));
        files.push_back(testfiles::ReadBytes(folder + "/anim.d"));
    }
    EXPECT_GT(files[0].size(), 500u);
    EXPECT_EQ(files[0], files[2]);
    EXPECT_EQ(files[1], files[3]);
}

}  // namespace
