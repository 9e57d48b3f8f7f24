// FileStream: open modes, sharing, positions, and the status values and reports of its failures.
#include "FileStream.h"
#include "Platform.h"
#include "Trace.h"

#include "TestFiles.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using testfiles::ScratchDirectory;

// Collects everything the trace channel receives while it lives.
void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

int64_t FileSize(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
}

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT kFail = static_cast<HRESULT>(0x80004005u);

class FileStreamTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(scratch.Path().empty()); }
    ScratchDirectory scratch;
};

TEST_F(FileStreamTest, CallsWithoutAnOpenFileFailAndReport)
{
    struct Case {
        const char* name;
        bool openAndCloseFirst;
        std::function<HRESULT(FileStream&)> call;
        HRESULT status;
        const char* report;
    };
    uint8_t buffer[4] = {1, 2, 3, 4};
    uint32_t position = 1234;
    const std::vector<Case> cases = {
        {"Read before Open", false, [&](FileStream& s) { return s.Read(buffer, 4); }, kUnexpected,
         "commonCode/AbstractData/streams/FileStream(107) : Error: ASSERT_HRESULT(0x8000FFFF)\n"},
        {"Write before Open", false, [&](FileStream& s) { return s.Write(buffer, 4); }, kUnexpected,
         "commonCode/AbstractData/streams/FileStream(130) : Error: ASSERT_HRESULT(0x8000FFFF)\n"},
        {"Read after Close", true, [&](FileStream& s) { return s.Read(buffer, 4); }, kUnexpected,
         "commonCode/AbstractData/streams/FileStream(107) : Error: ASSERT_HRESULT(0x8000FFFF)\n"},
        {"Write after Close", true, [&](FileStream& s) { return s.Write(buffer, 0); }, kUnexpected,
         "commonCode/AbstractData/streams/FileStream(130) : Error: ASSERT_HRESULT(0x8000FFFF)\n"},
        // The position calls answer like the platform call on a null handle: ERROR_INVALID_HANDLE.
        {"GetPosition before Open", false, [&](FileStream& s) { return s.GetPosition(&position); },
         static_cast<HRESULT>(0x80070006u),
         "commonCode/AbstractData/streams/FileStream(161) : Error: ASSERT_HRESULT(0x80070006)\n"},
        {"SetPosition before Open", false, [&](FileStream& s) { return s.SetPosition(0, 0); },
         static_cast<HRESULT>(0x80070006u),
         "commonCode/AbstractData/streams/FileStream(187) : Error: ASSERT_HRESULT(0x80070006)\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FileStream stream;
        if (c.openAndCloseFirst) {
            const std::string path = scratch.File("closed.bin");
            ASSERT_EQ(stream.Open(path.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
            EXPECT_EQ(stream.Close(), S_OK);
        }
        TraceCapture trace;
        EXPECT_EQ(c.call(stream), c.status);
        EXPECT_EQ(trace.lines, std::vector<std::string>{c.report});
        EXPECT_FALSE(stream.IsOpen());
    }
    EXPECT_EQ(position, 0xFFFFFFFFu);  // the position query stores the failure value it got
}

TEST_F(FileStreamTest, FailedOpensReportTheNameAndLeaveNoFile)
{
    WriteText(scratch.File("plain.bin"), "x");
    struct Case {
        const char* name;
        std::string path;
        uint32_t flags;
        HRESULT status;
    };
    const uint32_t create = FileStream::CreateAlways | FileStream::WriteAccess;
    const std::vector<Case> cases = {
        {"missing directory, create", scratch.File("no/such/dir/out.bin"), create, static_cast<HRESULT>(0x80070003u)},
        {"missing directory, read", scratch.File("nodir/in.bin"), 0, static_cast<HRESULT>(0x80070003u)},
        {"relative path into a missing directory", "vern_missing_dir_for_test/out.bin", create,
         static_cast<HRESULT>(0x80070003u)},
        {"missing file, read", scratch.File("absent.bin"), 0, static_cast<HRESULT>(0x80070002u)},
        {"path through a file", scratch.File("plain.bin/inner.bin"), 0, static_cast<HRESULT>(0x80070003u)},
        {"directory opened for reading", scratch.Path(), 0, static_cast<HRESULT>(0x80070005u)},
        {"directory opened for writing", scratch.Path(), create, static_cast<HRESULT>(0x80070005u)},
        {"name with format characters", scratch.File("100%s%d/x.bin"), create, static_cast<HRESULT>(0x80070003u)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FileStream stream;
        TraceCapture trace;
        EXPECT_EQ(stream.Open(c.path.c_str(), c.flags), c.status);
        EXPECT_FALSE(stream.IsOpen());
        char hex[16];
        std::snprintf(hex, sizeof hex, "%X", static_cast<unsigned>(c.status));
        const std::vector<std::string> expected = {
            "commonCode/AbstractData/streams/FileStream(68) : Error: Open file '" + c.path + "' failed.\n",
            "commonCode/AbstractData/streams/FileStream(71) : Error: ASSERT_HRESULT(0x" + std::string(hex) + ")\n",
        };
        EXPECT_EQ(trace.lines, expected);
        uint8_t byte = 0;
        EXPECT_EQ(stream.Read(&byte, 1), kUnexpected);  // the handle stayed null
    }
    EXPECT_EQ(FileSize(scratch.File("plain.bin")), 1);
}

TEST_F(FileStreamTest, WritesReadsAndMovesThePosition)
{
    const std::string path = scratch.File("data.bin");
    FileStream stream;
    const uint32_t flags = FileStream::CreateAlways | FileStream::WriteAccess | FileStream::ReadAccess;
    ASSERT_EQ(stream.Open(path.c_str(), flags), S_OK);
    {
        TraceCapture trace;
        EXPECT_EQ(stream.Write("0123456789", 10), S_OK);
        EXPECT_EQ(stream.Write("ignored", 0), S_OK);
        EXPECT_EQ(stream.Write(nullptr, 0), S_OK);
        uint32_t position = 0;
        EXPECT_EQ(stream.GetPosition(&position), S_OK);
        EXPECT_EQ(position, 10u);
        EXPECT_TRUE(trace.lines.empty());
    }

    struct Move {
        uint32_t origin;
        int32_t offset;
        HRESULT status;
        uint32_t position;  // after the call
    };
    const std::vector<Move> moves = {
        {0, 3, S_OK, 3},
        {1, 4, S_OK, 7},
        {2, -2, S_OK, 8},
        {1, -8, S_OK, 0},
        {0, -1, static_cast<HRESULT>(0x80070083u), 0},  // ERROR_NEGATIVE_SEEK; stays put
        {1, -1, static_cast<HRESULT>(0x80070083u), 0},
        {3, 0, static_cast<HRESULT>(0x80070057u), 0},
        {2, 5, S_OK, 15},  // behind the end is allowed
        {0, 3, S_OK, 3},
    };
    for (const Move& m : moves) {
        SCOPED_TRACE(testing::Message() << "origin " << m.origin << " offset " << m.offset);
        TraceCapture trace;
        EXPECT_EQ(stream.SetPosition(m.origin, m.offset), m.status);
        uint32_t position = 0;
        EXPECT_EQ(stream.GetPosition(&position), S_OK);
        EXPECT_EQ(position, m.position);
        if (Failed(m.status)) {
            char line[128];
            std::snprintf(line, sizeof line,
                          "commonCode/AbstractData/streams/FileStream(187) : Error: ASSERT_HRESULT(0x%X)\n",
                          static_cast<unsigned>(m.status));
            EXPECT_EQ(trace.lines, std::vector<std::string>{line});
        } else {
            EXPECT_TRUE(trace.lines.empty());
        }
    }

    char text[5] = {};
    EXPECT_EQ(stream.Read(text, 4), S_OK);
    EXPECT_STREQ(text, "3456");

    // A read that meets the end of the file moves what there is and still fails.
    TraceCapture trace;
    char rest[8] = {};
    EXPECT_EQ(stream.Read(rest, 8), kFail);
    EXPECT_STREQ(rest, "789");
    EXPECT_EQ(trace.lines,
              std::vector<std::string>{"commonCode/AbstractData/streams/FileStream(107) : "
                                       "Error: ASSERT_HRESULT(0x80004005)\n"});
    EXPECT_TRUE(stream.IsOpen());  // failures leave the file open
}

TEST_F(FileStreamTest, CreateAlwaysTruncatesAndOpenReplacesTheFile)
{
    const std::string first = scratch.File("first.bin");
    const std::string second = scratch.File("second.bin");
    WriteText(first, "0123456789");

    FileStream stream;
    ASSERT_EQ(stream.Open(first.c_str(), 0), S_OK);
    EXPECT_EQ(FileSize(first), 10);  // opening an existing file keeps it
    ASSERT_EQ(stream.Open(first.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
    EXPECT_EQ(FileSize(first), 0);

    // Opening another file closes the first one, so it is free for a writer again.
    ASSERT_EQ(stream.Open(second.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
    FileStream other;
    EXPECT_EQ(other.Open(first.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
}

TEST_F(FileStreamTest, SharingFollowsTheWindowsRules)
{
    const std::string path = scratch.File("shared.bin");
    const std::string hardLink = scratch.File("hard.bin");
    const std::string symLink = scratch.File("soft.bin");
    WriteText(path, "0123456789");
    ASSERT_EQ(::link(path.c_str(), hardLink.c_str()), 0);
    ASSERT_EQ(::symlink(path.c_str(), symLink.c_str()), 0);

    constexpr HRESULT kSharing = static_cast<HRESULT>(0x80070020u);
    const uint32_t writer = FileStream::WriteAccess;
    const uint32_t creator = FileStream::CreateAlways | FileStream::WriteAccess;
    const uint32_t readWriter = FileStream::WriteAccess | FileStream::ReadAccess;
    struct Case {
        const char* name;
        uint32_t firstFlags;
        std::string secondPath;
        uint32_t secondFlags;
        HRESULT status;
    };
    const std::vector<Case> cases = {
        {"writer then creating writer", writer, path, creator, kSharing},
        {"writer then reader", writer, path, 0, kSharing},
        {"reader then creating writer", 0, path, creator, kSharing},
        {"reader then reading writer", 0, path, readWriter, kSharing},
        {"reading writer then reader", readWriter, path, 0, kSharing},
        {"reader then reader", 0, path, 0, S_OK},
        {"writer then reader through a hard link", writer, hardLink, 0, kSharing},
        {"writer then writer through a symbolic link", writer, symLink, creator, kSharing},
        {"reader then reader through a hard link", 0, hardLink, FileStream::ReadAccess, S_OK},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FileStream first;
        ASSERT_EQ(first.Open(path.c_str(), c.firstFlags), S_OK);
        FileStream second;
        EXPECT_EQ(second.Open(c.secondPath.c_str(), c.secondFlags), c.status);
        EXPECT_EQ(second.IsOpen(), Succeeded(c.status));
        EXPECT_EQ(FileSize(path), 10);  // a refused CreateAlways must not truncate

        // Once the first holder lets go, the same open succeeds.
        if (Failed(c.status)) {
            EXPECT_EQ(platform::GetLastError(), platform::ERROR_SHARING_VIOLATION_CODE);
            EXPECT_EQ(first.Close(), S_OK);
            EXPECT_EQ(second.Open(c.secondPath.c_str(), c.secondFlags & ~FileStream::CreateAlways), S_OK);
        }
    }
}

TEST_F(FileStreamTest, EachDirectionNeedsItsAccess)
{
    const std::string path = scratch.File("access.bin");
    WriteText(path, "0123456789");
    struct Case {
        const char* name;
        uint32_t flags;
        bool write;
        const char* report;
    };
    const std::vector<Case> cases = {
        {"write on a reader", 0, true,
         "commonCode/AbstractData/streams/FileStream(130) : Error: ASSERT_HRESULT(0x80004005)\n"},
        {"read on a writer", FileStream::WriteAccess, false,
         "commonCode/AbstractData/streams/FileStream(107) : Error: ASSERT_HRESULT(0x80004005)\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FileStream stream;
        ASSERT_EQ(stream.Open(path.c_str(), c.flags), S_OK);
        uint8_t bytes[3] = {7, 7, 7};
        TraceCapture trace;
        EXPECT_EQ(c.write ? stream.Write(bytes, 3) : stream.Read(bytes, 3), kFail);
        EXPECT_EQ(platform::GetLastError(), platform::ERROR_ACCESS_DENIED_CODE);
        EXPECT_EQ(trace.lines, std::vector<std::string>{c.report});
    }
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "0123456789");
}

TEST_F(FileStreamTest, AFullDeviceFailsTheWrite)
{
    if (::access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    const std::string link = scratch.File("full.bin");
    ASSERT_EQ(::symlink("/dev/full", link.c_str()), 0);
    for (const std::string& path : {std::string("/dev/full"), link}) {
        SCOPED_TRACE(path);
        FileStream stream;
        ASSERT_EQ(stream.Open(path.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
        TraceCapture trace;
        EXPECT_EQ(stream.Write("abc", 3), kFail);
        EXPECT_EQ(platform::GetLastError(), platform::ERROR_DISK_FULL_CODE);
        EXPECT_EQ(trace.lines,
                  std::vector<std::string>{"commonCode/AbstractData/streams/FileStream(130) : "
                                           "Error: ASSERT_HRESULT(0x80004005)\n"});
        EXPECT_EQ(stream.Write("", 0), S_OK);  // no error state is kept
    }
}

TEST_F(FileStreamTest, PositionsStayWithin32Bits)
{
    const std::string path = scratch.File("edge.bin");
    FileStream stream;
    ASSERT_EQ(stream.Open(path.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
    // 0x7FFFFFFF + 0x7FFFFFFF + 1 = 0xFFFFFFFF, the last position a u32 can name.
    ASSERT_EQ(stream.SetPosition(0, 0x7FFFFFFF), S_OK);
    ASSERT_EQ(stream.SetPosition(1, 0x7FFFFFFF), S_OK);
    ASSERT_EQ(stream.SetPosition(1, 1), S_OK);
    uint32_t position = 0;
    EXPECT_EQ(stream.GetPosition(&position), S_OK);  // 0xFFFFFFFF is a position, not a failure
    EXPECT_EQ(position, 0xFFFFFFFFu);

    TraceCapture trace;
    EXPECT_EQ(stream.SetPosition(1, 1), static_cast<HRESULT>(0x80070057u));
    EXPECT_EQ(stream.GetPosition(&position), S_OK);
    EXPECT_EQ(position, 0xFFFFFFFFu);
    // A byte at 0xFFFFFFFF would end at 4 GiB: refused before anything is written.
    EXPECT_EQ(stream.Write("x", 1), kFail);
    EXPECT_EQ(platform::GetLastError(), platform::ERROR_FILE_TOO_LARGE_CODE);
    EXPECT_EQ(stream.Write("x", 0), S_OK);
    EXPECT_EQ(FileSize(path), 0);
    EXPECT_EQ(trace.lines,
              (std::vector<std::string>{
                  "commonCode/AbstractData/streams/FileStream(187) : Error: ASSERT_HRESULT(0x80070057)\n",
                  "commonCode/AbstractData/streams/FileStream(130) : Error: ASSERT_HRESULT(0x80004005)\n"}));
}

TEST_F(FileStreamTest, AFileBeyond4GiBCannotBePositionedAtItsEnd)
{
    const std::string path = scratch.File("big.bin");
    constexpr int64_t kSize = int64_t{7} << 30;  // even 2 GiB before the end is beyond 4 GiB
    WriteText(path, "");
    ASSERT_EQ(::truncate(path.c_str(), kSize), 0);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    if (info.st_blocks * 512 > (int64_t{1} << 20))
        GTEST_SKIP() << "the file system does not keep sparse files";

    FileStream stream;
    ASSERT_EQ(stream.Open(path.c_str(), 0), S_OK);
    TraceCapture trace;
    EXPECT_EQ(stream.SetPosition(2, 0), static_cast<HRESULT>(0x80070057u));
    EXPECT_EQ(stream.SetPosition(2, -0x7FFFFFFF), static_cast<HRESULT>(0x80070057u));
    uint32_t position = 1;
    EXPECT_EQ(stream.GetPosition(&position), S_OK);
    EXPECT_EQ(position, 0u);
    EXPECT_EQ(trace.lines.size(), 2u);
}

TEST_F(FileStreamTest, DestructionClosesTheFile)
{
    const std::string path = scratch.File("scoped.bin");
    TraceCapture trace;
    {
        FileStream stream;
        ASSERT_EQ(stream.Open(path.c_str(), FileStream::CreateAlways | FileStream::WriteAccess), S_OK);
        ASSERT_EQ(stream.Write("abc", 3), S_OK);
    }
    FileStream again;
    EXPECT_EQ(again.Open(path.c_str(), FileStream::WriteAccess), S_OK);
    EXPECT_EQ(FileSize(path), 3);
    EXPECT_TRUE(trace.lines.empty());
}

}  // namespace
