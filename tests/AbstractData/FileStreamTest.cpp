// FileStream: open modes, sharing, positions, and the status values and reports of its failures.
#include "AbstractData/Platform.h"
#include "AbstractData/streams/FileStream.h"

#include "support/TestFiles.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
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

uintmax_t FileSize(const std::string& path) { return std::filesystem::file_size(path); }

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT kFail = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT kInvalidArg = static_cast<HRESULT>(0x80070057u);
constexpr uint32_t kCreate = FileStream::CreateAlways | FileStream::WriteAccess;
constexpr uint32_t kReplace = kCreate | FileStream::ReplaceOnCommit;

class FileStreamTest : public ::testing::Test {
protected:
    testfiles::ScratchDirectory dir;
};

TEST_F(FileStreamTest, CallsWithoutAnOpenFileFailAndReport)
{
    uint8_t buffer[4] = {1, 2, 3, 4};
    uint32_t position = 1234;
    constexpr HRESULT kBadHandle = static_cast<HRESULT>(0x80070006u);
    const struct { bool openAndCloseFirst; std::function<HRESULT(FileStream&)> call; HRESULT status; int line; } cases[] = {
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
            ASSERT_EQ(stream.Open(dir.File("closed.bin").c_str(), kCreate), S_OK);
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
    const std::string plain = dir.Write("plain.bin", "x");
    constexpr HRESULT kNoPath = static_cast<HRESULT>(0x80070003u), kDenied = static_cast<HRESULT>(0x80070005u);
    const struct { std::string path; uint32_t flags; HRESULT status; } cases[] = {
        {dir.File("no/such/dir/out.bin"), kCreate, kNoPath}, {dir.File("nodir/in.bin"), 0, kNoPath},
        {"vern_missing_dir_for_test/out.bin", kCreate, kNoPath},
        {dir.File("absent.bin"), 0, static_cast<HRESULT>(0x80070002u)}, {plain + "/inner.bin", 0, kNoPath},
        {dir.Path(), 0, kDenied}, {dir.Path(), kCreate, kDenied}, {dir.File("100%s%d/x.bin"), kCreate, kNoPath},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        FileStream stream;
        TraceCapture trace;
        EXPECT_EQ(stream.Open(c.path.c_str(), c.flags), c.status);
        EXPECT_FALSE(stream.IsOpen());
        const std::string named = "commonCode/AbstractData/streams/FileStream(68) : Error: Open file '" + c.path + "' failed.\n";
        EXPECT_EQ(trace.lines, (Lines{named, Report(71, c.status)}));
        uint8_t byte = 0;
        EXPECT_EQ(stream.Read(&byte, 1), kUnexpected);  // the handle stayed null
    }
    EXPECT_EQ(FileSize(plain), 1u);
}

TEST_F(FileStreamTest, WritesReadsAndMovesThePosition)
{
    FileStream stream;
    ASSERT_EQ(stream.Open(dir.File("data.bin").c_str(), kCreate | FileStream::ReadAccess), S_OK);
    TraceCapture trace;
    EXPECT_EQ(stream.Write("0123456789", 10), S_OK);
    EXPECT_EQ(stream.Write("ignored", 0), S_OK);
    EXPECT_EQ(stream.Write(nullptr, 0), S_OK);
    EXPECT_TRUE(trace.lines.empty());
    // position: after the call
    const struct { uint32_t origin; int32_t offset; HRESULT status; uint32_t position; } moves[] = {
        {1, 0, S_OK, 10}, {0, 3, S_OK, 3}, {1, 4, S_OK, 7}, {2, -2, S_OK, 8}, {1, -8, S_OK, 0},
        {0, -1, static_cast<HRESULT>(0x80070083u), 0},  // negative seek; stays put
        {1, -1, static_cast<HRESULT>(0x80070083u), 0}, {3, 0, kInvalidArg, 0},
        {2, 5, S_OK, 15},  // behind the end is allowed
        // Positions stay within 32 bits: 0xFFFFFFFF is a position, not a failure.
        {0, 0x7FFFFFFF, S_OK, 0x7FFFFFFF}, {1, 0x7FFFFFFF, S_OK, 0xFFFFFFFE}, {1, 1, S_OK, 0xFFFFFFFF},
        {1, 1, kInvalidArg, 0xFFFFFFFF},
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
    // A byte at 0xFFFFFFFF would end at 4 GiB: refused before anything is written.
    trace.lines.clear();
    EXPECT_EQ(stream.Write("x", 1), kFail);
    EXPECT_EQ(platform::GetLastError(), platform::ERROR_FILE_TOO_LARGE_CODE);
    EXPECT_EQ(stream.Write("x", 0), S_OK);
    EXPECT_EQ(FileSize(dir.File("data.bin")), 10u);

    ASSERT_EQ(stream.SetPosition(0, 3), S_OK);
    char text[5] = {};
    EXPECT_EQ(stream.Read(text, 4), S_OK);
    EXPECT_STREQ(text, "3456");
    // A read that meets the end of the file moves what there is and still fails.
    char rest[8] = {};
    EXPECT_EQ(stream.Read(rest, 8), kFail);
    EXPECT_STREQ(rest, "789");
    EXPECT_EQ(trace.lines, (Lines{Report(130, kFail), Report(107, kFail)}));
    EXPECT_TRUE(stream.IsOpen());
}

TEST_F(FileStreamTest, CreateAlwaysTruncatesAndOpenReplacesTheFile)
{
    const std::string first = dir.Write("first.bin", "0123456789");
    FileStream stream;
    ASSERT_EQ(stream.Open(first.c_str(), 0), S_OK);
    EXPECT_EQ(FileSize(first), 10u);
    ASSERT_EQ(stream.Open(first.c_str(), kCreate), S_OK);
    EXPECT_EQ(FileSize(first), 0u);
    ASSERT_EQ(stream.Write("abc", 3), S_OK);
    // Opening another file closes the first one, so it is free for a writer again.
    ASSERT_EQ(stream.Open(dir.File("second.bin").c_str(), kCreate), S_OK);
    EXPECT_EQ(FileSize(first), 3u);
    EXPECT_EQ(FileStream().Open(first.c_str(), FileStream::WriteAccess), S_OK);  // and destruction closes
    EXPECT_EQ(FileStream().Open(first.c_str(), FileStream::WriteAccess), S_OK);
}

// A replacing stream writes a temporary file beside the named one: the named file changes only
// at Commit, keeps its mode, and is reached through a link that stays a link. Without Commit
// nothing is left but the earlier file.
TEST_F(FileStreamTest, ReplaceOnCommitChangesTheFileOnlyAtCommit)
{
    const std::string existing = dir.Write("existing.bin", "old"), link = dir.File("link.bin");
    const std::string fresh = dir.File("fresh.bin");
    ASSERT_EQ(::chmod(existing.c_str(), 0640), 0);
    ASSERT_EQ(::symlink("existing.bin", link.c_str()), 0);
    for (const std::string& name : {existing, link, fresh}) {
        SCOPED_TRACE(name);
        for (bool commit : {false, true}) {
            FileStream stream;
            ASSERT_EQ(stream.Open(name.c_str(), kReplace), S_OK);
            ASSERT_EQ(stream.Write("new", 3), S_OK);
            EXPECT_EQ(testfiles::Entries(dir.Path()).size(), 3u);  // with the temporary file
            EXPECT_EQ(testfiles::ReadText(name), name == fresh ? "" : "old");
            EXPECT_EQ(commit ? stream.Commit() : stream.Close(), S_OK);
            EXPECT_EQ(testfiles::ReadText(name), commit ? "new" : name == fresh ? "" : "old");
        }
        EXPECT_TRUE(std::filesystem::is_symlink(link));
        EXPECT_EQ(std::filesystem::status(existing).permissions(), std::filesystem::perms(0640));
        const Lines left = name == fresh ? Lines{"existing.bin", "fresh.bin", "link.bin"} : Lines{"existing.bin", "link.bin"};
        EXPECT_EQ(testfiles::Entries(dir.Path()), left);
        dir.Write("existing.bin", "old");
    }
    // Commit without an open file fails; a directory's place is not taken.
    FileStream stream;
    EXPECT_EQ(stream.Commit(), kUnexpected);
    TraceCapture trace;
    EXPECT_TRUE(Failed(stream.Open(dir.Path().c_str(), kReplace)));
}

TEST_F(FileStreamTest, SharingFollowsTheWindowsRules)
{
    const std::string path = dir.Write("shared.bin", "0123456789"), hardLink = dir.File("hard.bin"), symLink = dir.File("soft.bin");
    ASSERT_EQ(::link(path.c_str(), hardLink.c_str()), 0);
    ASSERT_EQ(::symlink(path.c_str(), symLink.c_str()), 0);

    constexpr HRESULT kSharing = static_cast<HRESULT>(0x80070020u);
    const uint32_t writer = FileStream::WriteAccess;
    const uint32_t readWriter = FileStream::WriteAccess | FileStream::ReadAccess;
    const struct { uint32_t firstFlags; std::string secondPath; uint32_t secondFlags; HRESULT status; } cases[] = {
        {writer, path, kCreate, kSharing}, {writer, path, 0, kSharing}, {0, path, kCreate, kSharing},
        {0, path, readWriter, kSharing}, {readWriter, path, 0, kSharing}, {0, path, 0, S_OK},
        {writer, hardLink, 0, kSharing}, {writer, symLink, kCreate, kSharing},
        {0, symLink, kReplace, kSharing},  // a replacing stream holds the file it replaces
        {0, hardLink, FileStream::ReadAccess, S_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.firstFlags << " then " << c.secondPath << " " << c.secondFlags);
        FileStream first, second;
        ASSERT_EQ(first.Open(path.c_str(), c.firstFlags), S_OK);
        EXPECT_EQ(second.Open(c.secondPath.c_str(), c.secondFlags), c.status);
        EXPECT_EQ(second.IsOpen(), Succeeded(c.status));
        EXPECT_EQ(FileSize(path), 10u);  // a refused CreateAlways must not truncate
        if (Failed(c.status)) {
            EXPECT_EQ(platform::GetLastError(), platform::ERROR_SHARING_VIOLATION_CODE);
            EXPECT_EQ(first.Close(), S_OK);
            EXPECT_EQ(second.Open(c.secondPath.c_str(), c.secondFlags & ~FileStream::CreateAlways), S_OK);
        }
    }
}

// Transfers the platform refuses fail with the platform's error, report, and leave no error state.
TEST_F(FileStreamTest, RefusedTransfersFailAndReport)
{
    const std::string path = dir.Write("access.bin", "0123456789"), fullLink = dir.File("full.bin");
    const bool haveFull = ::access("/dev/full", W_OK) == 0;
    ASSERT_TRUE(!haveFull || ::symlink("/dev/full", fullLink.c_str()) == 0);
    const struct { std::string path; uint32_t flags; bool write; uint32_t lastError; } cases[] = {
        {path, 0, true, platform::ERROR_ACCESS_DENIED_CODE},
        {path, FileStream::WriteAccess, false, platform::ERROR_ACCESS_DENIED_CODE},
        {"/dev/full", kCreate, true, platform::ERROR_DISK_FULL_CODE},
        {fullLink, kCreate, true, platform::ERROR_DISK_FULL_CODE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path + (c.write ? " write" : " read"));
        if (!haveFull && c.lastError == platform::ERROR_DISK_FULL_CODE)
            continue;
        FileStream stream;
        ASSERT_EQ(stream.Open(c.path.c_str(), c.flags), S_OK);
        uint8_t bytes[3] = {7, 7, 7};
        TraceCapture trace;
        EXPECT_EQ(c.write ? stream.Write(bytes, 3) : stream.Read(bytes, 3), kFail);
        EXPECT_EQ(platform::GetLastError(), c.lastError);
        EXPECT_EQ(trace.lines, Lines{Report(c.write ? 130 : 107, kFail)});
        // No error state is kept; only a stream without write access refuses even nothing.
        EXPECT_EQ(stream.Write("", 0), c.flags ? S_OK : static_cast<HRESULT>(0x80070005u));
    }
    EXPECT_EQ(FileSize(path), 10u);
}

// A file beyond 4 GiB cannot be positioned at its end, nor 2 GiB before it.
TEST_F(FileStreamTest, PositionsStayWithin32Bits)
{
    const std::string big = dir.Write("big.bin", "");
    ASSERT_EQ(::truncate(big.c_str(), int64_t{7} << 30), 0);
    struct stat info {};
    ASSERT_EQ(::stat(big.c_str(), &info), 0);
    if (info.st_blocks * 512 > (int64_t{1} << 20))
        GTEST_SKIP() << "the file system does not keep sparse files";
    FileStream stream;
    ASSERT_EQ(stream.Open(big.c_str(), 0), S_OK);
    TraceCapture trace;
    EXPECT_EQ(stream.SetPosition(2, 0), kInvalidArg);
    EXPECT_EQ(stream.SetPosition(2, -0x7FFFFFFF), kInvalidArg);
    uint32_t position = 1;
    EXPECT_EQ(stream.GetPosition(&position), S_OK);
    EXPECT_EQ(position, 0u);
    EXPECT_EQ(trace.lines, Lines(2, Report(187, kInvalidArg)));
}

}  // namespace
