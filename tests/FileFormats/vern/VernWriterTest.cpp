// VernWriter: the bytes of finished and unfinished containers, the chunk rules, counted strings,
// and how failures of the file surface.
#include "FileStream.h"
#include "Trace.h"
#include "VernReader.h"
#include "VernWriter.h"

#include "TestFiles.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using testfiles::ScratchDirectory;

using Bytes = std::vector<uint8_t>;

uint32_t U32At(const Bytes& bytes, size_t at)
{
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

struct Entry {
    uint32_t id, children, offset, size;
    bool operator==(const Entry&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Entry& e)
{
    return out << std::hex << "{0x" << e.id << ", " << e.children << ", 0x" << e.offset << ", " << e.size << "}"
               << std::dec;
}

// The directory as it lies in the file, read straight from the header fields.
std::vector<Entry> DirectoryOf(const Bytes& file)
{
    std::vector<Entry> entries;
    const uint32_t offset = U32At(file, 24);
    const uint32_t size = U32At(file, 28);
    for (uint32_t at = offset; at + 16 <= offset + size && at + 16 <= file.size(); at += 16)
        entries.push_back({U32At(file, at), U32At(file, at + 4), U32At(file, at + 8), U32At(file, at + 12)});
    return entries;
}

Bytes ReadAll(const std::string& path)
{
    Bytes bytes;
    EXPECT_EQ(ReadFileBytes(path.c_str(), &bytes), S_OK);
    return bytes;
}

std::string Report(const char* source, int line, HRESULT status)
{
    char text[160];
    std::snprintf(text, sizeof text, "%s(%d) : Error: ASSERT_HRESULT(0x%X)\n", source, line,
                  static_cast<unsigned>(status));
    return text;
}

constexpr const char* kVern = "commonCode/FileFormats/vern/vern";
constexpr HRESULT kClosed = static_cast<HRESULT>(0x80044010u);
constexpr HRESULT kInvalidArg = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu);

// Records every Write call, for the pieces of a counted string.
class RecordingStream : public OutputStream {
public:
    HRESULT Write(const void* buffer, uint32_t size) override
    {
        if (size > 0)
            sizes.push_back(size);
        const auto* bytes = static_cast<const uint8_t*>(buffer);
        written.insert(written.end(), bytes, bytes + size);
        return failure;
    }
    std::vector<uint32_t> sizes;
    Bytes written;
    HRESULT failure = S_OK;
};

class VernWriterTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(scratch.Path().empty()); }

    // Opens a new container file and writes its placeholder header.
    void Begin(VernWriter& writer, const std::string& path)
    {
        ASSERT_EQ(writer.SetFileType(FileTypeVern3D), S_OK);
        ASSERT_EQ(writer.Open(path.c_str(), true), S_OK);
        ASSERT_EQ(writer.BeginFile(), S_OK);
    }

    ScratchDirectory scratch;
};

TEST_F(VernWriterTest, OneChunkFileMatchesTheWorkedExample)
{
    const std::string path = scratch.File("one.vern3D");
    {
        VernWriter writer;
        Begin(writer, path);
        VernChunk* chunk = nullptr;
        ASSERT_EQ(writer.CreateChunk(&chunk, 0x10003, writer.Root()), S_OK);
        const uint8_t payload[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
        ASSERT_EQ(writer.WriteData(payload, 12, chunk), S_OK);
        ASSERT_EQ(writer.Close(), S_OK);
    }
    const Bytes expected = {
        0x2C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,                                  // header size, reserved
        0x34, 0xF9, 0xB3, 0x0A, 0x62, 0x93, 0xD1, 0x11,                                  // FileTypeVern3D
        0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12,
        0x38, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00,                                  // directory at 56, 32 bytes
        0x00, 0x00, 0x00, 0x00, 0x2C, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00,          // reserved, data 44, entry 16
        1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,                                            // the chunk's bytes
        0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00,  // root
        0x03, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x00, 0x00, 0x00,  // 0x10003
    };
    EXPECT_EQ(ReadAll(path), expected);
}

TEST_F(VernWriterTest, TheDefaultTypeIsWrittenUnlessAnotherIsSet)
{
    const std::string path = scratch.File("default.vern");
    {
        VernWriter writer;
        ASSERT_EQ(writer.Open(path.c_str(), true), S_OK);
        ASSERT_EQ(writer.BeginFile(), S_OK);
        ASSERT_EQ(writer.Close(), S_OK);
    }
    const Bytes file = ReadAll(path);
    ASSERT_EQ(file.size(), 60u);  // header and the root entry
    const Bytes guid(file.begin() + 8, file.begin() + 24);
    EXPECT_EQ(guid,
              (Bytes{0x33, 0xF9, 0xB3, 0x0A, 0x62, 0x93, 0xD1, 0x11, 0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12}));
    EXPECT_EQ(DirectoryOf(file), (std::vector<Entry>{{0, 0, 0xFFFFFFFF, 0}}));
}

TEST_F(VernWriterTest, ChunksLandWhereTheirFirstWriteFindsTheEnd)
{
    struct Case {
        const char* name;
        std::function<void(VernWriter&, TraceCapture&)> build;
        std::vector<Entry> directory;
        uint32_t dataBytes;
    };
    const uint8_t data[8] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7};
    const std::vector<Case> cases = {
        {"a chunk never written", [&](VernWriter& w, TraceCapture&) {
             VernChunk *a = nullptr, *b = nullptr;
             ASSERT_EQ(w.CreateChunk(&a, 1, w.Root()), S_OK);
             ASSERT_EQ(w.CreateChunk(&b, 2, w.Root()), S_OK);
             ASSERT_EQ(w.WriteData(data, 4, b), S_OK);
         },
         {{0, 2, 0xFFFFFFFF, 0}, {1, 0, 0xFFFFFFFF, 0}, {2, 0, 0, 4}}, 4},
        {"A, B, then A again", [&](VernWriter& w, TraceCapture& trace) {
             VernChunk *a = nullptr, *b = nullptr;
             ASSERT_EQ(w.CreateChunk(&a, 1, w.Root()), S_OK);
             ASSERT_EQ(w.CreateChunk(&b, 2, w.Root()), S_OK);
             ASSERT_EQ(w.WriteData(data, 5, a), S_OK);
             ASSERT_EQ(w.WriteData(data, 3, b), S_OK);
             trace.lines.clear();
             EXPECT_EQ(w.WriteData(data, 2, a), kClosed);
             RecordingStream stale;
             OutputStream* view = &stale;  // a failed BeginDirectWrite must not leave it set
             EXPECT_EQ(w.BeginDirectWrite(&view, a), kClosed);
             EXPECT_EQ(view, nullptr);
             EXPECT_EQ(trace.lines,
                       (std::vector<std::string>{Report(kVern, 215, kClosed), Report(kVern, 250, kClosed)}));
         },
         {{0, 2, 0xFFFFFFFF, 0}, {1, 0, 0, 5}, {2, 0, 5, 3}}, 8},
        {"a parent written after its children", [&](VernWriter& w, TraceCapture&) {
             VernChunk *p = nullptr, *c1 = nullptr, *c2 = nullptr;
             ASSERT_EQ(w.CreateChunk(&p, 10, w.Root()), S_OK);
             ASSERT_EQ(w.CreateChunk(&c1, 11, p), S_OK);
             ASSERT_EQ(w.CreateChunk(&c2, 12, p), S_OK);
             ASSERT_EQ(w.WriteData(data, 2, c1), S_OK);
             ASSERT_EQ(w.WriteData(data, 3, c2), S_OK);
             ASSERT_EQ(w.WriteData(data, 4, p), S_OK);
         },
         {{0, 1, 0xFFFFFFFF, 0}, {10, 2, 5, 4}, {11, 0, 0, 2}, {12, 0, 2, 3}}, 9},
        {"a write of nothing still places the chunk", [&](VernWriter& w, TraceCapture&) {
             VernChunk *a = nullptr, *b = nullptr;
             ASSERT_EQ(w.CreateChunk(&a, 1, w.Root()), S_OK);
             ASSERT_EQ(w.CreateChunk(&b, 2, w.Root()), S_OK);
             ASSERT_EQ(w.WriteData(data, 0, a), S_OK);
             ASSERT_EQ(w.WriteData(data, 2, b), S_OK);
             EXPECT_EQ(w.WriteData(data, 0, a), kClosed);
         },
         {{0, 2, 0xFFFFFFFF, 0}, {1, 0, 0, 0}, {2, 0, 0, 2}}, 2},
        {"pre-order of a deeper tree, pieces accumulate", [&](VernWriter& w, TraceCapture&) {
             VernChunk *x = nullptr, *y = nullptr, *z = nullptr, *v = nullptr;
             ASSERT_EQ(w.CreateChunk(&x, 1, w.Root()), S_OK);
             ASSERT_EQ(w.CreateChunk(&y, 2, x), S_OK);
             ASSERT_EQ(w.CreateChunk(&v, 4, w.Root()), S_OK);
             ASSERT_EQ(w.CreateChunk(&z, 3, y), S_OK);
             ASSERT_EQ(w.WriteData(data, 1, v), S_OK);
             ASSERT_EQ(w.WriteData(data, 6, z), S_OK);
             ASSERT_EQ(w.WriteData(data, 1, z), S_OK);
         },
         {{0, 2, 0xFFFFFFFF, 0}, {1, 1, 0xFFFFFFFF, 0}, {2, 1, 0xFFFFFFFF, 0}, {3, 0, 1, 7}, {4, 0, 0, 1}}, 8},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.name);
        const std::string path = scratch.File("case" + std::to_string(i) + ".vern3D");
        {
            VernWriter writer;
            Begin(writer, path);
            TraceCapture trace;
            c.build(writer, trace);
            ASSERT_EQ(writer.Close(), S_OK);
        }
        const Bytes file = ReadAll(path);
        EXPECT_EQ(DirectoryOf(file), c.directory);
        EXPECT_EQ(U32At(file, 24), 44 + c.dataBytes);
        EXPECT_EQ(file.size(), 44 + c.dataBytes + 16 * c.directory.size());
    }
}

TEST(VernCountedString, PrefixFormsFollowTheLength)
{
    struct Case {
        uint32_t length;
        Bytes prefix;
        std::vector<uint32_t> pieces;  // the Write calls with bytes in them
    };
    const std::vector<Case> cases = {
        {0, {0x00}, {1}},
        {1, {0x01}, {1, 1}},
        {254, {0xFE}, {1, 254}},
        {255, {0xFF, 0xFF, 0x00}, {1, 2, 255}},
        {256, {0xFF, 0x00, 0x01}, {1, 2, 256}},
        {65533, {0xFF, 0xFD, 0xFF}, {1, 2, 65533}},
        {65534, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}, {1, 2, 4, 65534}},
        {65535, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}, {1, 2, 4, 65535}},
        {70000, {0xFF, 0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}, {1, 2, 4, 70000}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.length);
        std::string text(c.length, '\0');
        for (uint32_t i = 0; i < c.length; ++i)
            text[i] = static_cast<char>('a' + i % 26);
        RecordingStream stream;
        TraceCapture trace;
        EXPECT_EQ(VernWriter::WriteCountedString(text, &stream), S_OK);
        Bytes expected = c.prefix;
        expected.insert(expected.end(), text.begin(), text.end());
        EXPECT_EQ(stream.written, expected);
        EXPECT_EQ(stream.sizes, c.pieces);
        EXPECT_TRUE(trace.lines.empty());
    }

    RecordingStream failing;
    failing.failure = static_cast<HRESULT>(0x80070070u);
    TraceCapture trace;
    EXPECT_EQ(VernWriter::WriteCountedString("abc", &failing), failing.failure);
    EXPECT_EQ(failing.sizes, std::vector<uint32_t>{1});  // stops at the first failed piece
    EXPECT_EQ(trace.lines, std::vector<std::string>{Report("commonCode/AbstractData/ResString", 432, failing.failure)});
}

TEST_F(VernWriterTest, DirectWritesAreCreditedToTheCurrentChunk)
{
    const std::string path = scratch.File("direct.vern3D");
    {
        VernWriter writer;
        Begin(writer, path);
        VernChunk *a = nullptr, *b = nullptr;
        ASSERT_EQ(writer.CreateChunk(&a, 1, writer.Root()), S_OK);
        ASSERT_EQ(writer.CreateChunk(&b, 2, writer.Root()), S_OK);
        OutputStream* view = nullptr;
        ASSERT_EQ(writer.BeginDirectWrite(&view, a), S_OK);
        ASSERT_NE(view, nullptr);
        ASSERT_EQ(VernWriter::WriteCountedString("name", view), S_OK);
        ASSERT_EQ(writer.EndDirectWrite(view, a), S_OK);
        ASSERT_EQ(writer.WriteData("xy", 2, a), S_OK);
        ASSERT_EQ(writer.BeginDirectWrite(&view, a), S_OK);
        ASSERT_EQ(VernWriter::WriteCountedString("", view), S_OK);
        ASSERT_EQ(writer.EndDirectWrite(view, b), S_OK);  // credits the current chunk, not its argument
        ASSERT_EQ(writer.Close(), S_OK);
    }
    const Bytes file = ReadAll(path);
    EXPECT_EQ(DirectoryOf(file), (std::vector<Entry>{{0, 2, 0xFFFFFFFF, 0}, {1, 0, 0, 8}, {2, 0, 0xFFFFFFFF, 0}}));
    EXPECT_EQ(Bytes(file.begin() + 44, file.begin() + 52), (Bytes{4, 'n', 'a', 'm', 'e', 'x', 'y', 0}));
}

TEST_F(VernWriterTest, EndDirectWriteWithAForeignStreamCreditsNothing)
{
    const std::string path = scratch.File("foreign.vern3D");
    {
        VernWriter writer;
        Begin(writer, path);
        VernChunk* a = nullptr;
        ASSERT_EQ(writer.CreateChunk(&a, 1, writer.Root()), S_OK);
        ASSERT_EQ(writer.WriteData("abc", 3, a), S_OK);
        OutputStream* view = nullptr;
        ASSERT_EQ(writer.BeginDirectWrite(&view, a), S_OK);
        ASSERT_EQ(VernWriter::WriteCountedString("zz", view), S_OK);
        RecordingStream foreign;
        TraceCapture trace;
        EXPECT_EQ(writer.EndDirectWrite(&foreign, a), kInvalidArg);
        EXPECT_EQ(writer.EndDirectWrite(nullptr, a), kInvalidArg);
        EXPECT_EQ(trace.lines,
                  (std::vector<std::string>{Report(kVern, 271, kInvalidArg), Report(kVern, 271, kInvalidArg)}));
        // The uncredited bytes are overwritten by the directory, as the next write starts at the end.
        ASSERT_EQ(writer.Close(), S_OK);
    }
    const Bytes file = ReadAll(path);
    EXPECT_EQ(DirectoryOf(file), (std::vector<Entry>{{0, 1, 0xFFFFFFFF, 0}, {1, 0, 0, 3}}));
    EXPECT_EQ(U32At(file, 24), 47u);
    EXPECT_EQ(file.size(), 47u + 32u);
}

TEST_F(VernWriterTest, OpenOnAnOpenWriterFailsAndReleases)
{
    const std::string first = scratch.File("first.vern3D");
    const std::string second = scratch.File("second.vern3D");
    VernWriter writer;
    Begin(writer, first);
    VernChunk* chunk = nullptr;
    ASSERT_EQ(writer.CreateChunk(&chunk, 7, writer.Root()), S_OK);
    ASSERT_EQ(writer.WriteData("abcd", 4, chunk), S_OK);
    {
        TraceCapture trace;
        EXPECT_EQ(writer.Open(second.c_str(), true), kUnexpected);
        EXPECT_EQ(trace.lines, std::vector<std::string>{Report(kVern, 97, kUnexpected)});
    }
    EXPECT_TRUE(writer.Root()->children.empty());
    EXPECT_FALSE(std::filesystem::exists(second));
    // The first file is closed (free for another writer) and holds what was written so far.
    FileStream other;
    EXPECT_EQ(other.Open(first.c_str(), FileStream::WriteAccess), S_OK);
    EXPECT_EQ(std::filesystem::file_size(first), 48u);
    EXPECT_EQ(other.Close(), S_OK);

    // Released means ready for a new file.
    Begin(writer, second);
    EXPECT_EQ(writer.Close(), S_OK);
    EXPECT_EQ(std::filesystem::file_size(second), 60u);
}

TEST_F(VernWriterTest, AnUnclosedWriterLeavesThePlaceholderHeader)
{
    const std::string path = scratch.File("unfinished.vern3D");
    {
        VernWriter writer;
        Begin(writer, path);  // the type set here belongs to the finished header only
        VernChunk* chunk = nullptr;
        ASSERT_EQ(writer.CreateChunk(&chunk, 5, writer.Root()), S_OK);
        ASSERT_EQ(writer.WriteData("0123456789", 10, chunk), S_OK);
    }
    Bytes expected = {0x2C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                      0x33, 0xF9, 0xB3, 0x0A, 0x62, 0x93, 0xD1, 0x11, 0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12};
    expected.resize(44, 0x00);
    for (char c : std::string("0123456789"))
        expected.push_back(static_cast<uint8_t>(c));
    const Bytes file = ReadAll(path);
    EXPECT_EQ(file, expected);
    VernContainer container;
    EXPECT_TRUE(Failed(DecodeVern(file, &container, nullptr)));
}

TEST_F(VernWriterTest, CallsOutOfOrderFailWithoutHarm)
{
    struct Case {
        const char* name;
        std::function<HRESULT(VernWriter&)> call;
        HRESULT status;
        int line;
    };
    VernChunk* chunk = nullptr;
    OutputStream* view = nullptr;
    const std::vector<Case> cases = {
        {"WriteData without a file", [&](VernWriter& w) { return w.WriteData("a", 1, w.Root()); }, kUnexpected, 215},
        {"BeginDirectWrite without a file", [&](VernWriter& w) { return w.BeginDirectWrite(&view, w.Root()); },
         kUnexpected, 250},
        {"BeginFile without a file", [&](VernWriter& w) { return w.BeginFile(); }, kUnexpected, 132},
        {"Close without a file", [&](VernWriter& w) { return w.Close(); }, kUnexpected, 321},
        {"CreateChunk without a parent", [&](VernWriter& w) { return w.CreateChunk(&chunk, 1, nullptr); }, kInvalidArg,
         170},
        {"WriteData without a chunk", [&](VernWriter& w) { return w.WriteData("a", 1, nullptr); }, kInvalidArg, 215},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VernWriter writer;
        TraceCapture trace;
        EXPECT_EQ(c.call(writer), c.status);
        EXPECT_EQ(trace.lines, std::vector<std::string>{Report(kVern, c.line, c.status)});
        EXPECT_TRUE(writer.Root()->children.empty());
    }

    // The root takes no bytes: it is closed from the start.
    const std::string path = scratch.File("root.vern3D");
    VernWriter writer;
    Begin(writer, path);
    EXPECT_EQ(writer.WriteData("a", 1, writer.Root()), kClosed);
    EXPECT_EQ(writer.Close(), S_OK);
    EXPECT_EQ(std::filesystem::file_size(path), 60u);
}

TEST_F(VernWriterTest, AFullDiskFailsNoLaterThanClose)
{
    if (::access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    const std::string path = scratch.File("full.vern3D");
    ASSERT_EQ(::symlink("/dev/full", path.c_str()), 0);
    VernWriter writer;
    TraceCapture trace;
    std::vector<HRESULT> statuses;
    statuses.push_back(writer.Open(path.c_str(), true));
    statuses.push_back(writer.BeginFile());
    VernChunk* chunk = nullptr;
    statuses.push_back(writer.CreateChunk(&chunk, 1, writer.Root()));
    const Bytes block(1000, 0x55);
    for (int i = 0; i < 100; ++i)
        statuses.push_back(writer.WriteData(block.data(), 1000, chunk));
    const HRESULT closed = writer.Close();
    EXPECT_TRUE(Failed(closed));
    EXPECT_EQ(statuses[0], S_OK);
    EXPECT_EQ(statuses[1], static_cast<HRESULT>(0x80004005u));  // the header write already fails
    ASSERT_GE(trace.lines.size(), 3u);
    EXPECT_EQ(trace.lines[0], "commonCode/AbstractData/streams/FileStream(130) : Error: ASSERT_HRESULT(0x80004005)\n");
    EXPECT_EQ(trace.lines[1], Report(kVern, 132, statuses[1]));
    EXPECT_EQ(trace.lines.back(), Report(kVern, 321, closed));
}

// A file size limit lets a write fail after the header went through, so that only the
// gathered data or the final flush meets the failure.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &previous);
        rlimit limit = previous;
        limit.rlim_cur = bytes;
        active = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, previousHandler);
    }
    bool active = false;

private:
    rlimit previous{};
    void (*previousHandler)(int) = nullptr;
};

TEST_F(VernWriterTest, AWriteFailureAfterTheHeaderSurfacesByClose)
{
    struct Case {
        const char* name;
        rlim_t limit;
        uint32_t blocks;  // of 1000 bytes each
        bool everyWriteSucceeds;
    };
    const std::vector<Case> cases = {
        {"only the final flush fails", 44 + 5000, 5, true},
        {"a flush between writes fails", 100000, 300, false},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.name);
        const std::string path = scratch.File("limited" + std::to_string(i) + ".vern3D");
        HRESULT firstFailure = S_OK;
        HRESULT closed = S_OK;
        TraceCapture trace;
        {
            FileSizeLimit limit(c.limit);
            ASSERT_TRUE(limit.active);
            VernWriter writer;
            Begin(writer, path);
            VernChunk* chunk = nullptr;
            ASSERT_EQ(writer.CreateChunk(&chunk, 1, writer.Root()), S_OK);
            const Bytes block(1000, 0x5A);
            for (uint32_t b = 0; b < c.blocks; ++b) {
                const HRESULT status = writer.WriteData(block.data(), 1000, chunk);
                if (Failed(status) && Succeeded(firstFailure))
                    firstFailure = status;
            }
            closed = writer.Close();
        }
        EXPECT_EQ(Succeeded(firstFailure), c.everyWriteSucceeds);
        EXPECT_TRUE(Failed(closed));
        ASSERT_FALSE(trace.lines.empty());
        EXPECT_EQ(trace.lines.back(), Report(kVern, 321, closed));
        // The header was never rewritten: the file is marked unfinished.
        const Bytes file = ReadAll(path);
        ASSERT_GE(file.size(), 44u);
        EXPECT_EQ(U32At(file, 24), 0u);
        EXPECT_EQ(file[8], 0x33);
    }
}

TEST_F(VernWriterTest, AContainerCannotPass4GiB)
{
    const std::string path = scratch.File("huge.vern3D");
    {
        VernWriter writer;
        Begin(writer, path);
        VernChunk* chunk = nullptr;
        ASSERT_EQ(writer.CreateChunk(&chunk, 1, writer.Root()), S_OK);
        const uint8_t tiny[1] = {0};
        TraceCapture trace;
        // 44 + 0xFFFFFFD4 = 2^32: one byte too many. Refused before any byte is looked at.
        const HRESULT status = writer.WriteData(tiny, 0xFFFFFFD4u, chunk);
        EXPECT_EQ(status, static_cast<HRESULT>(0x800700DFu));
        EXPECT_EQ(trace.lines, std::vector<std::string>{Report(kVern, 215, status)});
        ASSERT_EQ(writer.WriteData("abc", 3, chunk), S_OK);
        ASSERT_EQ(writer.Close(), S_OK);
    }
    const Bytes file = ReadAll(path);
    EXPECT_EQ(DirectoryOf(file), (std::vector<Entry>{{0, 1, 0xFFFFFFFF, 0}, {1, 0, 0, 3}}));
}

TEST_F(VernWriterTest, DeepChunkTreesNeedNoDeepStack)
{
    constexpr uint32_t kDepth = 100000;
    const std::string path = scratch.File("deep.vern3D");
    {
        VernWriter writer;
        Begin(writer, path);
        std::vector<VernChunk*> chain;
        VernChunk* parent = writer.Root();
        for (uint32_t level = 0; level < kDepth; ++level) {
            ASSERT_EQ(writer.CreateChunk(&parent, level + 1, parent), S_OK);
            chain.push_back(parent);
        }
        // Deepest first: each chunk is written once, after all of its descendants.
        for (uint32_t level = kDepth; level-- > 0;) {
            const uint8_t byte = static_cast<uint8_t>(level);
            ASSERT_EQ(writer.WriteData(&byte, 1, chain[level]), S_OK);
        }
        ASSERT_EQ(writer.Close(), S_OK);
    }
    const Bytes file = ReadAll(path);
    const std::vector<Entry> directory = DirectoryOf(file);
    ASSERT_EQ(directory.size(), kDepth + 1);
    EXPECT_EQ(directory[0], (Entry{0, 1, 0xFFFFFFFF, 0}));
    for (uint32_t level = 0; level < kDepth; ++level) {
        const Entry expected{level + 1, level + 1 < kDepth ? 1u : 0u, kDepth - 1 - level, 1};
        if (directory[level + 1] != expected) {
            ADD_FAILURE() << "level " << level << ": " << directory[level + 1] << " expected " << expected;
            break;
        }
        ASSERT_EQ(file[44 + expected.offset], static_cast<uint8_t>(level));
    }

    // Abandoning and releasing deep trees takes them apart without recursion, too.
    for (bool release : {false, true}) {
        VernWriter writer;
        Begin(writer, scratch.File("deep_abandoned.vern3D"));
        VernChunk* parent = writer.Root();
        for (uint32_t level = 0; level < kDepth; ++level)
            ASSERT_EQ(writer.CreateChunk(&parent, level, parent), S_OK);
        if (release) {
            EXPECT_EQ(writer.Release(), S_OK);
        }
    }
}

}  // namespace
