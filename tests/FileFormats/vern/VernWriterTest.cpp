// VernWriter: the bytes of finished and unfinished containers, the chunk rules, counted strings,
// and how failures of the file surface.
#include "vern/VernWriter.h"

#include "support/TestFiles.h"
#include "support/Vern3DBuilder.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using vern3dtest::Bytes;
using vern3dtest::GetU32;
using Lines = std::vector<std::string>;

struct Entry {
    uint32_t id, children, offset, size;
    bool operator==(const Entry&) const = default;
};
using Directory = std::vector<Entry>;

// The directory as it lies in the file, read straight from the header fields.
Directory DirectoryOf(const Bytes& file)
{
    Directory entries;
    const uint32_t offset = GetU32(file, 24), size = GetU32(file, 28);
    for (uint32_t at = offset; at + 16 <= offset + size && at + 16 <= file.size(); at += 16)
        entries.push_back({GetU32(file, at), GetU32(file, at + 4), GetU32(file, at + 8), GetU32(file, at + 12)});
    return entries;
}

// The data ends where the directory starts, and the directory ends the file.
void ExpectLayout(const Bytes& file, uint32_t dataEnd, const Directory& directory)
{
    EXPECT_EQ(DirectoryOf(file), directory);
    EXPECT_EQ(GetU32(file, 24), dataEnd);
    EXPECT_EQ(file.size(), dataEnd + 16 * directory.size());
}

std::string Report(int line, HRESULT status, const char* source = "commonCode/FileFormats/vern/vern")
{
    char text[160];
    std::snprintf(text, sizeof text, "%s(%d) : Error: ASSERT_HRESULT(0x%X)\n", source, line,
                  static_cast<unsigned>(status));
    return text;
}

constexpr HRESULT kClosed = static_cast<HRESULT>(0x80044010u);
constexpr HRESULT kInvalidArg = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu);
constexpr uint32_t kNowhere = 0xFFFFFFFF;
// The file type an unfinished header carries.
const Bytes kPlaceholderType = {0x33, 0xF9, 0xB3, 0x0A, 0x62, 0x93, 0xD1, 0x11, 0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12};

// Records every Write call, for the pieces of a counted string.
class RecordingStream : public OutputStream {
public:
    HRESULT Write(const void* buffer, uint32_t size) override
    {
        if (size > 0)
            sizes.push_back(size);
        written.insert(written.end(), static_cast<const uint8_t*>(buffer), static_cast<const uint8_t*>(buffer) + size);
        return failure;
    }
    std::vector<uint32_t> sizes;
    Bytes written;
    HRESULT failure = S_OK;
};

VernChunk* Chunk(VernWriter& writer, uint32_t id, VernChunk* parent = nullptr)
{
    VernChunk* chunk = nullptr;
    EXPECT_EQ(writer.CreateChunk(&chunk, id, parent ? parent : writer.Root()), S_OK);
    return chunk;
}

class VernWriterTest : public ::testing::Test {
protected:

    // Opens a new container file and writes its placeholder header.
    void Begin(VernWriter& writer, const std::string& path, bool setType = true)
    {
        ASSERT_EQ(setType ? writer.SetFileType(FileTypeVern3D) : S_OK, S_OK);
        ASSERT_EQ(writer.Open(path.c_str(), true), S_OK);
        ASSERT_EQ(writer.BeginFile(), S_OK);
    }
    // The bytes of a container whose chunks `body` makes between BeginFile and Close.
    Bytes Written(const std::function<void(VernWriter&)>& body, bool setType = true)
    {
        const std::string path = dir.File("written.vern3D");
        {
            VernWriter writer;
            Begin(writer, path, setType);
            body(writer);
            EXPECT_EQ(writer.Close(), S_OK);
        }
        return testfiles::ReadBytes(path);
    }
    testfiles::ScratchDirectory dir;
};

TEST_F(VernWriterTest, OneChunkFileMatchesTheWorkedExample)
{
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
    EXPECT_EQ(Written([&](VernWriter& w) { ASSERT_EQ(w.WriteData(&expected[44], 12, Chunk(w, 0x10003)), S_OK); }),
              expected);
    // Without SetFileType the placeholder's type is written.
    const Bytes file = Written([](VernWriter&) {}, false);
    ExpectLayout(file, 44, {{0, 0, kNowhere, 0}});
    EXPECT_EQ(Bytes(file.begin() + 8, file.begin() + 24), kPlaceholderType);
}

// A chunk's bytes are one run: once another chunk is written, it is closed. Where chunks land
// in general (first writes in order, pre-order directory) VernReaderTest checks against a model.
TEST_F(VernWriterTest, AChunkClosesWhenAnotherIsWritten)
{
    const Bytes file = Written([](VernWriter& writer) {
        VernChunk *a = Chunk(writer, 1), *b = Chunk(writer, 2), *c = Chunk(writer, 3);
        TraceCapture trace;
        ASSERT_EQ(writer.WriteData("AAAAA", 5, a), S_OK);
        ASSERT_EQ(writer.WriteData("BBB", 3, b), S_OK);
        EXPECT_EQ(writer.WriteData("AA", 2, a), kClosed);
        RecordingStream stale;
        OutputStream* view = &stale;  // a failed BeginDirectWrite must not leave it set
        EXPECT_EQ(writer.BeginDirectWrite(&view, a), kClosed);
        EXPECT_EQ(view, nullptr);
        ASSERT_EQ(writer.WriteData(nullptr, 0, c), S_OK);  // a write of nothing places its chunk too
        EXPECT_EQ(writer.WriteData(nullptr, 0, b), kClosed);
        EXPECT_EQ(trace.lines, (Lines{Report(215, kClosed), Report(250, kClosed), Report(215, kClosed)}));
    });
    ExpectLayout(file, 52, {{0, 3, kNowhere, 0}, {1, 0, 0, 5}, {2, 0, 5, 3}, {3, 0, 8, 0}});
}

TEST(VernCountedString, PrefixFormsFollowTheLength)
{
    // pieces: the Write calls with bytes in them
    const struct { uint32_t length; Bytes prefix; std::vector<uint32_t> pieces; } cases[] = {
        {0, {0x00}, {1}}, {1, {0x01}, {1, 1}}, {254, {0xFE}, {1, 254}}, {255, {0xFF, 0xFF, 0x00}, {1, 2, 255}},
        {256, {0xFF, 0x00, 0x01}, {1, 2, 256}}, {65533, {0xFF, 0xFD, 0xFF}, {1, 2, 65533}},
        {65534, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}, {1, 2, 4, 65534}},
        {65535, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}, {1, 2, 4, 65535}},
        {70000, {0xFF, 0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}, {1, 2, 4, 70000}},
    };
    for (const auto& c : cases) {
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
    EXPECT_EQ(trace.lines, Lines{Report(432, failing.failure, "commonCode/AbstractData/ResString")});
}

TEST_F(VernWriterTest, DirectWritesAreCreditedToTheCurrentChunkOnly)
{
    const Bytes file = Written([](VernWriter& writer) {
        VernChunk *a = Chunk(writer, 1), *b = Chunk(writer, 2);
        OutputStream* view = nullptr;
        ASSERT_EQ(writer.BeginDirectWrite(&view, a), S_OK);
        ASSERT_NE(view, nullptr);
        ASSERT_EQ(VernWriter::WriteCountedString("name", view), S_OK);
        ASSERT_EQ(writer.EndDirectWrite(view, a), S_OK);
        ASSERT_EQ(writer.WriteData("xy", 2, a), S_OK);
        ASSERT_EQ(writer.BeginDirectWrite(&view, a), S_OK);
        ASSERT_EQ(VernWriter::WriteCountedString("", view), S_OK);
        ASSERT_EQ(writer.EndDirectWrite(view, b), S_OK);  // credits the current chunk, not its argument
        // A foreign stream credits nothing; the uncredited bytes are overwritten by the directory.
        ASSERT_EQ(writer.BeginDirectWrite(&view, a), S_OK);
        ASSERT_EQ(VernWriter::WriteCountedString("zz", view), S_OK);
        RecordingStream foreign;
        TraceCapture trace;
        EXPECT_EQ(writer.EndDirectWrite(&foreign, a), kInvalidArg);
        EXPECT_EQ(writer.EndDirectWrite(nullptr, a), kInvalidArg);
        EXPECT_EQ(trace.lines, Lines(2, Report(271, kInvalidArg)));
    });
    ExpectLayout(file, 52, {{0, 2, kNowhere, 0}, {1, 0, 0, 8}, {2, 0, kNowhere, 0}});
    EXPECT_EQ(Bytes(file.begin() + 44, file.begin() + 52), (Bytes{4, 'n', 'a', 'm', 'e', 'x', 'y', 0}));
}

// A file is written under a temporary name and takes its place only at Close: abandoned (dropped,
// released, or by an Open on the open writer, which fails), it leaves the earlier file as it was.
TEST_F(VernWriterTest, AnUnclosedWriterLeavesTheEarlierFile)
{
    const std::string path = dir.Write("earlier.vern3D", "earlier"), second = dir.File("second.vern3D");
    for (int ending = 0; ending < 3; ++ending) {  // dropped, released, opened again
        VernWriter writer;
        Begin(writer, path);
        ASSERT_EQ(writer.WriteData("0123456789", 10, Chunk(writer, 5)), S_OK);
        EXPECT_EQ(testfiles::Entries(dir.Path()).size(), 2u);  // the file and its temporary
        EXPECT_EQ(ending == 1 ? writer.Release() : S_OK, S_OK);
        if (ending == 2) {
            TraceCapture trace;
            EXPECT_EQ(writer.Open(second.c_str(), true), kUnexpected);
            EXPECT_EQ(trace.lines, Lines{Report(97, kUnexpected)});
            EXPECT_TRUE(writer.Root()->children.empty());
            EXPECT_EQ(testfiles::Entries(dir.Path()), Lines{"earlier.vern3D"});  // the second never opened
            Begin(writer, second);  // released means ready for a new file
            EXPECT_EQ(writer.Close(), S_OK);
            EXPECT_EQ(std::filesystem::file_size(second), 60u);
            std::filesystem::remove(second);
        }
    }
    EXPECT_EQ(testfiles::Entries(dir.Path()), Lines{"earlier.vern3D"});
    EXPECT_EQ(testfiles::ReadText(path), "earlier");
}

TEST_F(VernWriterTest, CallsOutOfOrderFailWithoutHarm)
{
    VernChunk* chunk = nullptr;
    OutputStream* view = nullptr;
    const struct { std::function<HRESULT(VernWriter&)> call; HRESULT status; int line; } cases[] = {
        {[&](VernWriter& w) { return w.WriteData("a", 1, w.Root()); }, kUnexpected, 215},
        {[&](VernWriter& w) { return w.BeginDirectWrite(&view, w.Root()); }, kUnexpected, 250},
        {[&](VernWriter& w) { return w.BeginFile(); }, kUnexpected, 132},
        {[&](VernWriter& w) { return w.Close(); }, kUnexpected, 321},
        {[&](VernWriter& w) { return w.CreateChunk(&chunk, 1, nullptr); }, kInvalidArg, 170},
        {[&](VernWriter& w) { return w.WriteData("a", 1, nullptr); }, kInvalidArg, 215},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        VernWriter writer;
        TraceCapture trace;
        EXPECT_EQ(c.call(writer), c.status);
        EXPECT_EQ(trace.lines, Lines{Report(c.line, c.status)});
        EXPECT_TRUE(writer.Root()->children.empty());
    }
    // The root takes no bytes: it is closed from the start. A chunk cannot pass 4 GiB:
    // 44 + 0xFFFFFFD4 = 2^32 is one byte too many, refused before any byte is looked at.
    const Bytes file = Written([](VernWriter& writer) {
        EXPECT_EQ(writer.WriteData("a", 1, writer.Root()), kClosed);
        VernChunk* big = Chunk(writer, 1);
        TraceCapture trace;
        const uint8_t tiny[1] = {0};
        EXPECT_EQ(writer.WriteData(tiny, 0xFFFFFFD4u, big), static_cast<HRESULT>(0x800700DFu));
        EXPECT_EQ(trace.lines, Lines{Report(215, static_cast<HRESULT>(0x800700DFu))});
        ASSERT_EQ(writer.WriteData("abc", 3, big), S_OK);
    });
    ExpectLayout(file, 47, {{0, 1, kNowhere, 0}, {1, 0, 0, 3}});
}

TEST_F(VernWriterTest, AFullDiskFailsNoLaterThanClose)
{
    if (::access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    const std::string path = dir.File("full.vern3D");
    ASSERT_EQ(::symlink("/dev/full", path.c_str()), 0);
    VernWriter writer;
    TraceCapture trace;
    EXPECT_EQ(writer.Open(path.c_str(), true), S_OK);
    const HRESULT header = writer.BeginFile();
    EXPECT_EQ(header, static_cast<HRESULT>(0x80004005u));  // the header write already fails
    VernChunk* chunk = nullptr;
    writer.CreateChunk(&chunk, 1, writer.Root());
    const Bytes block(1000, 0x55);
    for (int i = 0; i < 100; ++i)
        writer.WriteData(block.data(), 1000, chunk);
    const HRESULT closed = writer.Close();
    EXPECT_TRUE(Failed(closed));
    ASSERT_GE(trace.lines.size(), 3u);
    EXPECT_EQ(trace.lines[0], Report(130, header, "commonCode/AbstractData/streams/FileStream"));
    EXPECT_EQ(trace.lines[1], Report(132, header));
    EXPECT_EQ(trace.lines.back(), Report(321, closed));
}

// A file size limit lets a write fail after the header went through, so that only the gathered
// data or the final flush meets the failure; the earlier file stays as it was.
TEST_F(VernWriterTest, AWriteFailureAfterTheHeaderSurfacesByClose)
{
    const std::string earlier(3000, 'e');
    // blocks of 1000 bytes each
    const struct { rlim_t limit; uint32_t blocks; bool everyWriteSucceeds; } cases[] = {{44 + 5000, 5, true}, {100000, 300, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.blocks);
        const std::string name = "limited" + std::to_string(c.blocks) + ".vern3D";
        const std::string path = dir.Write(name, earlier);
        HRESULT firstFailure = S_OK, closed = S_OK;
        TraceCapture trace;
        {
            rlimit previous{}, limit{};
            ::getrlimit(RLIMIT_FSIZE, &previous);
            limit = {c.limit, previous.rlim_max};
            auto* handler = std::signal(SIGXFSZ, SIG_IGN);
            ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
            VernWriter writer;
            Begin(writer, path);
            VernChunk* chunk = Chunk(writer, 1);
            const Bytes block(1000, 0x5A);
            for (uint32_t b = 0; b < c.blocks; ++b) {
                const HRESULT status = writer.WriteData(block.data(), 1000, chunk);
                if (Failed(status) && Succeeded(firstFailure))
                    firstFailure = status;
            }
            closed = writer.Close();
            ::setrlimit(RLIMIT_FSIZE, &previous);
            std::signal(SIGXFSZ, handler);
        }
        EXPECT_EQ(Succeeded(firstFailure), c.everyWriteSucceeds);
        EXPECT_TRUE(Failed(closed));
        ASSERT_FALSE(trace.lines.empty());
        EXPECT_EQ(trace.lines.back(), Report(321, closed));
        EXPECT_EQ(testfiles::ReadText(path), earlier);
        EXPECT_EQ(testfiles::Entries(dir.Path()), Lines{name});
        std::filesystem::remove(path);
    }
}

TEST_F(VernWriterTest, DeepChunkTreesNeedNoDeepStack)
{
    constexpr uint32_t kDepth = 100000;
    const Bytes file = Written([](VernWriter& writer) {
        std::vector<VernChunk*> chain{writer.Root()};
        for (uint32_t level = 0; level < kDepth; ++level)
            chain.push_back(Chunk(writer, level + 1, chain.back()));
        // Deepest first: each chunk is written once, after all of its descendants.
        for (uint32_t level = kDepth; level-- > 0;) {
            const uint8_t byte = static_cast<uint8_t>(level);
            ASSERT_EQ(writer.WriteData(&byte, 1, chain[level + 1]), S_OK);
        }
    });
    const Directory directory = DirectoryOf(file);
    ASSERT_EQ(directory.size(), kDepth + 1);
    EXPECT_EQ(directory[0], (Entry{0, 1, kNowhere, 0}));
    for (uint32_t level = 0; level < kDepth; ++level) {
        const Entry expected{level + 1, level + 1 < kDepth ? 1u : 0u, kDepth - 1 - level, 1};
        ASSERT_EQ(directory[level + 1], expected) << "level " << level;
        ASSERT_EQ(file[44 + expected.offset], static_cast<uint8_t>(level));
    }
    // Abandoning and releasing deep trees takes them apart without recursion, too.
    for (bool release : {false, true}) {
        VernWriter writer;
        Begin(writer, dir.File("deep_abandoned.vern3D"));
        VernChunk* parent = writer.Root();
        for (uint32_t level = 0; level < kDepth; ++level)
            parent = Chunk(writer, level, parent);
        EXPECT_EQ(release ? writer.Release() : S_OK, S_OK);
    }
    EXPECT_EQ(testfiles::Entries(dir.Path()), Lines{"written.vern3D"});  // a new file abandoned leaves nothing
}

}  // namespace
