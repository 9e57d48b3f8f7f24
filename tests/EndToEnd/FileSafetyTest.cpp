// What the programs read beside their input and how they write: -ivertex reads only regular
// files inside its folder, and an output changes only when its write is complete.
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testfiles::kCompiled;
using testfiles::ReadText;
using testfiles::ScratchDirectory;

// A vertex file: its counts, then `fill` repeated over the records (no triangles).
std::string VertexFile(uint32_t sources, uint32_t vertices, const std::string& fill)
{
    auto u32 = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    auto records = [&](size_t size) {
        std::string bytes(size, '\0');
        for (size_t i = 0; i < size; ++i)
            bytes[i] = fill[i % fill.size()];
        return bytes;
    };
    return u32(sources) + records(28u * sources) + u32(0) /* the material reference */ + u32(vertices) +
           records(40u * vertices) + u32(0);
}

// `count` objects named `name`, each a triangle, with one material.
std::string Objects(const std::string& name, int count = 1, bool material = true)
{
    std::string text = "*MATERIAL_LIST {\n*MATERIAL_COUNT 1\n*MATERIAL 0 {\n}\n}\n";
    for (int i = 0; i < count; ++i)
        text += testfiles::TriangleObject(name, material ? "*MATERIAL_REF 0\n" : "");
    return text;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Every way an object name could lead the reader out of its folder, and what it may read: a
// refused name reads nothing, so no byte of the files it names ("SECRET", "INSIDE") and no count
// of them reaches the console or an output (none is written).
TEST(VertexFiles, OnlyRegularFilesInsideTheFolderAreRead)
{
    ScratchDirectory root;
    const std::string base = root.Path();
    for (const char* folder : {"/work/folder", "/outside", "/vertices"})
        std::filesystem::create_directories(base + folder);
    for (const auto& [file, fill] : {std::pair{"outside/secret", "SECRET"}, {"work/secret", "INSIDE"}, {"work/vf", "PLAIN"}, {"vertices/vf", "FOLDER"}})
        root.Write(file, VertexFile(1, 1, fill));
    const std::string full = VertexFile(1, 1, "SHORT");
    root.Write("work/short", full.substr(0, full.size() - 1));
    root.Write("work/unequal", VertexFile(4321, 1234, "UNEQUAL"));
    ASSERT_EQ(::mkfifo((base + "/work/pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("../outside/secret", base + "/work/link");
    std::filesystem::create_symlink("vf", base + "/work/inner");

    const std::string outside = " names its vertex file ";
    const struct { std::string name; std::vector<std::string> switches; std::string result; } cases[] = {  // result: the message, or the bytes the output holds
        {"../outside/secret", {}, "Object '../outside/secret'" + outside + "with a '..' component"},
        {"vf/..", {}, "Object 'vf/..'" + outside + "with a '..' component"},
        {base + "/outside/secret", {}, "Object '" + base + "/outside/secret'" + outside + "by an absolute path"},
        {"file:" + base + "/outside/secret", {"-uri"}, "Object 'file:" + base + "/outside/secret'" + outside + "by an absolute path"},
        {std::string("secret\0/x", 9), {}, "The name of object 'secret' holds a control character or a zero byte"},
        {"vf\x1b[2J", {}, "The name of object 'vf\\x1B[2J' holds a control character or a zero byte"},
        {"link", {}, "The vertex file of object 'link' leads outside the vertex folder through a symbolic link"},
        {"pipe", {}, "The vertex file of object 'pipe' is not a regular file"},
        {"folder", {}, "The vertex file of object 'folder' is not a regular file"},
        {"missing", {}, "The vertex file 'missing' is missing or shorter than its counts."},
        {"short", {}, "The vertex file 'short' is missing or shorter than its counts."},
        {"unequal", {}, "The vertex file 'unequal' holds unequal numbers of vertex sources and vertices."},
        {"vf", {"-vertexdir", "../nowhere"}, "The vertex folder '../nowhere' cannot be opened."},
        {"vf", {}, "PLAIN"}, {"inner", {}, "PLAIN"}, {"file:vf", {"-uri"}, "PLAIN"}, {"vf", {"-vertexdir", "../vertices"}, "FOLDER"},
        {"vf", {"-uri", "-vertexdir", "file://" + base + "/vertices"}, "FOLDER"},
        {"outside/secret", {"-vertexdir", ".."}, "SECRET"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.result);
        root.Write("work/scene.ase", Objects(c.name));
        std::vector<std::string> arguments = {"20", MAKEVERN3D_EXE, "scene.ase", "-ivertex"};
        arguments.insert(arguments.end(), c.switches.begin(), c.switches.end());
        const auto run = testfiles::Run(base + "/work", "/usr/bin/timeout", arguments);  // a FIFO must not block
        EXPECT_EQ(run.exitCode, 0) << run.output;
        const std::string output = base + "/work/scene.vern3D";
        const bool converts = c.result.size() < 10;
        if (converts) {
            EXPECT_TRUE(Contains(run.output, kCompiled)) << run.output;
            EXPECT_TRUE(Contains(ReadText(output), c.result));
        } else {
            EXPECT_TRUE(Contains(run.output, "scene.ase(" )) << run.output;
            EXPECT_TRUE(Contains(run.output, c.result)) << run.output;
            EXPECT_FALSE(testfiles::Exists(output));
        }
        for (const char* leak : {"SECRET", "INSIDE", "4321", "1234"})
            EXPECT_TRUE(c.result == leak || !Contains(run.output + ReadText(output), leak)) << leak;
        std::filesystem::remove(output);
    }
}

// Each failure leaves the earlier file of that name byte for byte and nothing beside it: a file
// system that fills up (a 16 KiB tmpfs in a namespace of our own, where the machine allows one),
// a file size limit (with SIGXFSZ ignored, so that the write fails instead of the process), and
// under -batch an error that comes while the file is written. For the converter and the export.
TEST(SafeOutput, AFailedWriteLeavesTheEarlierFile)
{
    ScratchDirectory directory;
    const std::string& work = directory.Path();
    std::filesystem::create_directories(work + "/small");
    directory.Write("big.ase", Objects("g", 100));  // some tens of kilobytes of output
    directory.Write("nomaterial.ase", Objects("n", 1, false));
    ASSERT_EQ(testfiles::Run(work, MAKEVERN3D_EXE, {"big.ase"}).exitCode, 0);
    const std::string earlier = "the earlier output\n";
    directory.Write("earlier", earlier);

    const std::string tmpfs = "mount -t tmpfs -o size=16k none small || exit 77; ";
    const std::string limit = "trap '' XFSZ; ulimit -f 32; ";
    const struct { const char* name; std::string setup; std::vector<std::string> command; std::string target, message; } cases[] = {
        {"a full file system", tmpfs, {MAKEVERN3D_EXE, "big.ase", "-o", "small/out"}, "out.vern3D",
         "error: Error occured while writing file 'small/out.vern3D'."},
        {"a file size limit", limit, {MAKEVERN3D_EXE, "big.ase", "-o", "small/out"}, "out.vern3D",
         "error: Error occured while writing file 'small/out.vern3D'."},
        {"-batch, error while writing", "", {MAKEVERN3D_EXE, "-batch", "nomaterial.ase", "-o", "small/out"}, "out.vern3D",
         "error: Invalid material id '-1' in object 'n'."},
        {"export, a full file system", tmpfs, {VERN3D_EXE, "export", "big.vern3D", "-o", "small/out.glb"}, "out.glb",
         "big.vern3D: export failed: cannot write small/out.glb"},
        {"export, a file size limit", limit, {VERN3D_EXE, "export", "big.vern3D", "-o", "small/out.glb"}, "out.glb",
         "big.vern3D: export failed: cannot write small/out.glb"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string script = c.setup + "cp earlier small/" + c.target + "; (\"$0\" \"$@\") > log.txt 2>&1; " +
                                   "cp small/" + c.target + " after; ls -A small > listing.txt; rm -f small/*";
        std::vector<std::string> arguments = {"-c", script};
        arguments.insert(arguments.end(), c.command.begin(), c.command.end());
        const bool ownFileSystem = c.setup == tmpfs;
        if (ownFileSystem)
            arguments.insert(arguments.begin(), {"-r", "-m", "/bin/sh"});
        const auto run = testfiles::Run(work, ownFileSystem ? "/usr/bin/unshare" : "/bin/sh", arguments);
        if (ownFileSystem && run.exitCode != 0) {
            std::printf("[ skipped  ] %s: no tmpfs of our own here (%s)\n", c.name, run.output.c_str());
            continue;
        }
        EXPECT_TRUE(Contains(ReadText(work + "/log.txt"), c.message)) << ReadText(work + "/log.txt");
        EXPECT_EQ(ReadText(work + "/after"), earlier);
        EXPECT_EQ(ReadText(work + "/listing.txt"), c.target + "\n");
    }
}

// Killed in the middle of writing a large file (40 objects whose vertex files give 19 MB), the
// program leaves the earlier file as it was and its temporary file "<output>.XXXXXX.tmp" beside it.
TEST(SafeOutput, AKillDuringTheWriteLeavesTheEarlierFile)
{
    ScratchDirectory directory;
    const std::string& work = directory.Path();
    directory.Write("v", VertexFile(12000, 12000, "vertex data "));
    directory.Write("big.ase", Objects("v", 40));
    const std::string earlier = directory.Write("scene.vern3D", "the earlier output\n");

    const pid_t child = ::fork();
    if (child == 0) {
        const int devNull = ::open("/dev/null", O_RDWR);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::dup2(devNull, stream);
        if (::chdir(work.c_str()) == 0)
            ::execl(MAKEVERN3D_EXE, MAKEVERN3D_EXE, "big.ase", "-ivertex", "-o", "scene", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    const std::regex temporary(R"(scene\.vern3D\.[0-9A-Za-z]{6}\.tmp)");
    auto temporaries = [&] {
        std::vector<std::string> names;
        for (const std::string& name : testfiles::Entries(work))
            if (std::regex_match(name, temporary))
                names.push_back(work + "/" + name);
        return names;
    };
    bool killed = false;
    while (!killed && ::waitpid(child, nullptr, WNOHANG) != child) {  // it may finish before it is caught
        const auto names = temporaries();
        if (!names.empty() && std::filesystem::file_size(names[0]) >= (4u << 20))
            killed = ::kill(child, SIGKILL) == 0;
        ::usleep(200);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(killed && WIFSIGNALED(status)) << "the write ended before it could be killed";
    EXPECT_EQ(ReadText(earlier), "the earlier output\n");
    const auto left = temporaries();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_LT(std::filesystem::file_size(left[0]), 19u << 20);  // cut in the middle
}

}  // namespace
