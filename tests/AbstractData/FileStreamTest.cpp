// FileStream: open modes, sharing, positions, and the status values and reports of its failures.
#include "FileStream.h"
#include "Platform.h"
#include "Trace.h"

#include "TestFiles.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

std::string Report(int line, HRESULT status)
{
    char text[128];
    std::snprintf(text, sizeof text, "commonCode/AbstractData/streams/FileStream(%d) : Error: ASSERT_HRESULT(0x%X)\n",
                  line, static_cast<unsigned>(status));
    return text;
}

void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

int64_t FileSize(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
}

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT kFail = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT kInvalidArg = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT kBadHandle = static_cast<HRESULT>(0x80070006u);
constexpr uint32_t kCreate = FileStream::CreateAlways | FileStream::WriteAccess;

class FileStreamTest : public ::testing::Test {
protected:
    void SetUp()
    {
        std::string pattern = ::testing::TempDir() + "filestream_XXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() { std::filesystem::remove_all(dir); }
    std::string File(const std::string& name) const { return dir + "/" + name; }
    std::string dir;
};

TEST_F(FileStreamTest, CallsWithoutAnOpenFileFailAndReport)
{
    uint8_t buffer[4] = {1, 2, 3, 4};
    uint32_t position = 1234;
    const struct {
        bool openAndCloseFirst;
        std::function<HRESULT(FileStream&)> call;
        HRESULT status;
        int line;
    } cases[] = {
        {false, [&](FileStream& s) { return s.Read(buffer, 4); }, kUnexpected, 107},
        {false, [&](FileStream& s) { return s.Write(buffer, 4); }, kUnexpected, 130},
        {true, [&](FileStream& s) { return s.Read(buffer, 4); }, kUnexpected, 107},
        {true, [&](FileStream& s) { return s.Write(buffer, 0); }, kUnexpected, 130},
        // The position calls answer like the platform call on a null handle.
        {false, [&](FileStream& s) { return s.GetPosition(&position); }, kBadHandle, 161},
        {false, [&](FileStream& s) { return s.SetPosition(0, 0); }, kBadHandle, 187},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        FileStream stream;
        if (c.openAndCloseFirst) {
            ASSERT_EQ(stream.Open(File("closed.bin").c_str(), kCreate), S_OK);
            EXPECT_EQ(stream.Close(), S_OK);
        }
        TraceCapture trace;
        EXPECT_EQ(c.call(stream), c.status);
        EXPECT_EQ(trace.lines, Lines{Report(c.line, c.status)});
        EXPECT_FALSE(stream.IsOpen());
    }
    EXPECT_EQ(position, 0xFFFFFFFFu);  // the position query stores the failure value it got
}

TEST_F(FileStreamTest, FailedOpensReportTheNameAndLeaveNoFile)
{
    WriteText(File("plain.bin"), "x");
    constexpr HRESULT kNoPath = static_cast<HRESULT>(0x80070003u), kDenied = static_cast<HRESULT>(0x80070005u);
    const struct {
        std::string path;
        uint32_t flags;
        HRESULT status;
    } cases[] = {
        {File("no/such/dir/out.bin"), kCreate, kNoPath},
        {File("nodir/in.bin"), 0, kNoPath},
        {"vern_missing_dir_for_test/out.bin", kCreate, kNoPath},
        {File("absent.bin"), 0, static_cast<HRESULT>(0x80070002u)},
        {File("plain.bin/inner.bin"), 0, kNoPath},
        {dir, 0, kDenied},
        {dir, kCreate, kDenied},
        {File("100%s%d/x.bin"), kCreate, kNoPath},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        FileStream stream;
        TraceCapture trace;
        EXPECT_EQ(stream.Open(c.path.c_str(), c.flags), c.status);
        EXPECT_FALSE(stream.IsOpen());
        EXPECT_EQ(trace.lines, (Lines{"commonCode/AbstractData/streams/FileStream(68) : Error: Open file '" + c.path +
                                          "' failed.\n",
                                      Report(71, c.status)}));
        uint8_t byte = 0;
        EXPECT_EQ(stream.Read(&byte, 1), kUnexpected);  // the handle stayed null
    }
    EXPECT_EQ(FileSize(File("plain.bin")), 1);
}

TEST_F(FileStreamTest, WritesReadsAndMovesThePosition)
{
    FileStream stream;
    ASSERT_EQ(stream.Open(File("data.bin").c_str(), kCreate | FileStream::ReadAccess), S_OK);
    TraceCapture trace;
    EXPECT_EQ(stream.Write("0123456789", 10), S_OK);
    EXPECT_EQ(stream.Write("ignored", 0), S_OK);
    EXPECT_EQ(stream.Write(nullptr, 0), S_OK);
    EXPECT_TRUE(trace.lines.empty());

    const struct {
        uint32_t origin;
        int32_t offset;
        HRESULT status;
        uint32_t position;  // after the call
    } moves[] = {
        {1, 0, S_OK, 10},
        {0, 3, S_OK, 3},
        {1, 4, S_OK, 7},
        {2, -2, S_OK, 8},
        {1, -8, S_OK, 0},
        {0, -1, static_cast<HRESULT>(0x80070083u), 0},  // negative seek; stays put
        {1, -1, static_cast<HRESULT>(0x80070083u), 0},
        {3, 0, kInvalidArg, 0},
        {2, 5, S_OK, 15},  // behind the end is allowed
        {0, 3, S_OK, 3},
    };
    for (const auto& m : moves) {
        SCOPED_TRACE(testing::Message() << "origin " << m.origin << " offset " << m.offset);
        trace.lines.clear();
        EXPECT_EQ(stream.SetPosition(m.origin, m.offset), m.status);
        uint32_t position = 0;
        EXPECT_EQ(stream.GetPosition(&position), S_OK);
        EXPECT_EQ(position, m.position);
        EXPECT_EQ(trace.lines, Failed(m.status) ? Lines{Report(187, m.status)} : Lines{});
    }

    char text[5] = {};
    EXPECT_EQ(stream.Read(text, 4), S_OK);
    EXPECT_STREQ(text, "3456");
    // A read that meets the end of the file moves what there is and still fails.
    char rest[8] = {};
    EXPECT_EQ(stream.Read(rest, 8), kFail);
    EXPECT_STREQ(rest, "789");
    EXPECT_EQ(trace.lines, Lines{Report(107, kFail)});
    EXPECT_TRUE(stream.IsOpen());
}

TEST_F(FileStreamTest, CreateAlwaysTruncatesAndOpenReplacesTheFile)
{
    const std::string first = File("first.bin");
    WriteText(first, "0123456789");
    FileStream stream;
    ASSERT_EQ(stream.Open(first.c_str(), 0), S_OK);
    EXPECT_EQ(FileSize(first), 10);
    ASSERT_EQ(stream.Open(first.c_str(), kCreate), S_OK);
    EXPECT_EQ(FileSize(first), 0);
    ASSERT_EQ(stream.Write("abc", 3), S_OK);
    // Opening another file closes the first one, so it is free for a writer again.
    ASSERT_EQ(stream.Open(File("second.bin").c_str(), kCreate), S_OK);
    EXPECT_EQ(FileSize(first), 3);
    {
        FileStream other;
        EXPECT_EQ(other.Open(first.c_str(), FileStream::WriteAccess), S_OK);
    }
    FileStream again;  // destruction closed it
    EXPECT_EQ(again.Open(first.c_str(), FileStream::WriteAccess), S_OK);
}

TEST_F(FileStreamTest, SharingFollowsTheWindowsRules)
{
    const std::string path = File("shared.bin"), hardLink = File("hard.bin"), symLink = File("soft.bin");
    WriteText(path, "0123456789");
    ASSERT_EQ(::link(path.c_str(), hardLink.c_str()), 0);
    ASSERT_EQ(::symlink(path.c_str(), symLink.c_str()), 0);

    constexpr HRESULT kSharing = static_cast<HRESULT>(0x80070020u);
    const uint32_t writer = FileStream::WriteAccess;
    const uint32_t readWriter = FileStream::WriteAccess | FileStream::ReadAccess;
    const struct {
        uint32_t firstFlags;
        std::string secondPath;
        uint32_t secondFlags;
        HRESULT status;
    } cases[] = {
        {writer, path, kCreate, kSharing},
        {writer, path, 0, kSharing},
        {0, path, kCreate, kSharing},
        {0, path, readWriter, kSharing},
        {readWriter, path, 0, kSharing},
        {0, path, 0, S_OK},
        {writer, hardLink, 0, kSharing},
        {writer, symLink, kCreate, kSharing},
        {0, hardLink, FileStream::ReadAccess, S_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.firstFlags << " then " << c.secondPath << " " << c.secondFlags);
        FileStream first, second;
        ASSERT_EQ(first.Open(path.c_str(), c.firstFlags), S_OK);
        EXPECT_EQ(second.Open(c.secondPath.c_str(), c.secondFlags), c.status);
        EXPECT_EQ(second.IsOpen(), Succeeded(c.status));
        EXPECT_EQ(FileSize(path), 10);  // a refused CreateAlways must not truncate
        if (Failed(c.status)) {
            EXPECT_EQ(platform::GetLastError(), platform::ERROR_SHARING_VIOLATION_CODE);
            EXPECT_EQ(first.Close(), S_OK);
            EXPECT_EQ(second.Open(c.secondPath.c_str(), c.secondFlags & ~FileStream::CreateAlways), S_OK);
        }
    }
}

TEST_F(FileStreamTest, EachDirectionNeedsItsAccess)
{
    const std::string path = File("access.bin");
    WriteText(path, "0123456789");
    for (const bool write : {true, false}) {
        FileStream stream;
        ASSERT_EQ(stream.Open(path.c_str(), write ? 0u : uint32_t{FileStream::WriteAccess}), S_OK);
        uint8_t bytes[3] = {7, 7, 7};
        TraceCapture trace;
        EXPECT_EQ(write ? stream.Write(bytes, 3) : stream.Read(bytes, 3), kFail);
        EXPECT_EQ(platform::GetLastError(), platform::ERROR_ACCESS_DENIED_CODE);
        EXPECT_EQ(trace.lines, Lines{Report(write ? 130 : 107, kFail)});
    }
    EXPECT_EQ(FileSize(path), 10);
}

TEST_F(FileStreamTest, AFullDeviceFailsTheWrite)
{
    if (::access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    const std::string link = File("full.bin");
    ASSERT_EQ(::symlink("/dev/full", link.c_str()), 0);
    for (const std::string& path : {std::string("/dev/full"), link}) {
        SCOPED_TRACE(path);
        FileStream stream;
        ASSERT_EQ(stream.Open(path.c_str(), kCreate), S_OK);
        TraceCapture trace;
        EXPECT_EQ(stream.Write("abc", 3), kFail);
        EXPECT_EQ(platform::GetLastError(), platform::ERROR_DISK_FULL_CODE);
        EXPECT_EQ(trace.lines, Lines{Report(130, kFail)});
        EXPECT_EQ(stream.Write("", 0), S_OK);  // no error state is kept
    }
}

TEST_F(FileStreamTest, PositionsStayWithin32Bits)
{
    const std::string path = File("edge.bin");
    FileStream stream;
    ASSERT_EQ(stream.Open(path.c_str(), kCreate), S_OK);
    ASSERT_EQ(stream.SetPosition(0, 0x7FFFFFFF), S_OK);
    ASSERT_EQ(stream.SetPosition(1, 0x7FFFFFFF), S_OK);
    ASSERT_EQ(stream.SetPosition(1, 1), S_OK);
    uint32_t position = 0;
    EXPECT_EQ(stream.GetPosition(&position), S_OK);  // 0xFFFFFFFF is a position, not a failure
    EXPECT_EQ(position, 0xFFFFFFFFu);

    TraceCapture trace;
    EXPECT_EQ(stream.SetPosition(1, 1), kInvalidArg);
    EXPECT_EQ(stream.GetPosition(&position), S_OK);
    EXPECT_EQ(position, 0xFFFFFFFFu);
    // A byte at 0xFFFFFFFF would end at 4 GiB: refused before anything is written.
    EXPECT_EQ(stream.Write("x", 1), kFail);
    EXPECT_EQ(platform::GetLastError(), platform::ERROR_FILE_TOO_LARGE_CODE);
    EXPECT_EQ(stream.Write("x", 0), S_OK);
    EXPECT_EQ(FileSize(path), 0);
    EXPECT_EQ(trace.lines, (Lines{Report(187, kInvalidArg), Report(130, kFail)}));
}

TEST_F(FileStreamTest, AFileBeyond4GiBCannotBePositionedAtItsEnd)
{
    const std::string path = File("big.bin");
    WriteText(path, "");
    ASSERT_EQ(::truncate(path.c_str(), int64_t{7} << 30), 0);  // even 2 GiB before the end is too far
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    if (info.st_blocks * 512 > (int64_t{1} << 20))
        GTEST_SKIP() << "the file system does not keep sparse files";
    FileStream stream;
    ASSERT_EQ(stream.Open(path.c_str(), 0), S_OK);
    TraceCapture trace;
    EXPECT_EQ(stream.SetPosition(2, 0), kInvalidArg);
    EXPECT_EQ(stream.SetPosition(2, -0x7FFFFFFF), kInvalidArg);
    uint32_t position = 1;
    EXPECT_EQ(stream.GetPosition(&position), S_OK);
    EXPECT_EQ(position, 0u);
    EXPECT_EQ(trace.lines.size(), 2u);
}

}  // namespace
