// VernReader: little-endian cursor, decoding what VernWriter wrote, and refusing damaged files.
#include "vern/VernReader.h"
#include "vern/VernWriter.h"

#include "support/TestFiles.h"
#include "support/Vern3DBuilder.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace vern3d;
using vern3dtest::Bytes;
using vern3dtest::PutU32;

uint32_t Between(std::mt19937& rng, uint32_t low, uint32_t high)
{
    return std::uniform_int_distribution<uint32_t>(low, high)(rng);
}

const Bytes kVern3DGuid = {0x34, 0xF9, 0xB3, 0x0A, 0x62, 0x93, 0xD1, 0x11,
                           0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12};

TEST(VernCursor, ReadsLittleEndianValuesWithinBounds)
{
    const Bytes bytes = {0x01, 0x34, 0x12, 0x78, 0x56, 0x34, 0x12, 0x00, 0x00, 0x80, 0x3F, 0xAA};
    VernCursor cursor(bytes);
    uint8_t u8 = 0;
    uint16_t u16 = 0;
    uint32_t u32 = 0;
    float f32 = 0;
    EXPECT_TRUE(cursor.ReadU8(&u8) && cursor.ReadU16(&u16) && cursor.ReadU32(&u32) && cursor.ReadF32(&f32));
    EXPECT_TRUE(u8 == 0x01 && u16 == 0x1234 && u32 == 0x12345678u && f32 == 1.0f && cursor.Remaining() == 1u);
    EXPECT_FALSE(cursor.ReadU16(&u16));  // one byte short
    EXPECT_EQ(u16, 0);
    EXPECT_FALSE(cursor.ReadU8(&u8) || cursor.Ok());  // would fit, but the cursor has failed
    EXPECT_EQ(cursor.Position(), 11u);

    VernCursor skipping(bytes);
    std::span<const uint8_t> view;
    EXPECT_TRUE(skipping.Skip(11) && skipping.ReadBytes(1, &view));
    EXPECT_EQ(Bytes(view.begin(), view.end()), Bytes{0xAA});
    EXPECT_TRUE(skipping.AtEnd() && !skipping.Skip(1));
}

TEST(VernCursor, CountedStringsAcceptOnlyTheWrittenForms)
{
    const struct { Bytes prefix; size_t textLength; bool ok; } cases[] = {  // textLength: characters following the prefix
        {{0x00}, 0, true}, {{0x05}, 5, true}, {{0xFE}, 254, true}, {{0xFF, 0xFF, 0x00}, 255, true},
        {{0xFF, 0xFD, 0xFF}, 65533, true}, {{0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}, 65534, true},
        {{0xFF, 0x05, 0x00}, 5, false},  // short length in the middle form
        {{0xFF, 0xFE, 0xFF}, 65534, false}, {{0xFF, 0xFF, 0xFF, 0x05, 0x00, 0x00, 0x00}, 5, false},
        {{0x05}, 3, false},  // characters missing
        {{0xFF, 0xFF}, 0, false}, {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 10, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.prefix.size() << "-byte prefix, " << c.textLength);
        std::string text(c.textLength, '\0');
        for (size_t i = 0; i < c.textLength; ++i)
            text[i] = static_cast<char>('A' + i % 23);
        Bytes bytes = c.prefix;
        bytes.insert(bytes.end(), text.begin(), text.end());
        VernCursor cursor(bytes);
        std::string decoded = "stale";
        EXPECT_EQ(cursor.ReadCountedString(&decoded), c.ok);
        EXPECT_EQ(decoded, c.ok ? text : std::string());
        EXPECT_TRUE(!c.ok || cursor.AtEnd());
    }
}

// A container built from a random plan, with what a reader must find in it worked out from the
// plan alone: offsets are the running total of bytes in the order of first writes.
struct ModelChunk {
    uint32_t id = 0;
    int parent = -1;  // -1: the root
    std::vector<int> children;
    bool written = false;
    uint32_t offset = 0;
    Bytes payload;
    VernChunk* handle = nullptr;
};

struct Model {
    std::vector<ModelChunk> chunks;
    std::vector<int> topLevel;
    uint32_t dataBytes = 0;
};

Model WriteRandomContainer(const std::string& path, std::mt19937& rng, int maxChunks)
{
    Model model;
    VernWriter writer;
    EXPECT_EQ(writer.SetFileType(FileTypeVern3D), S_OK);
    EXPECT_EQ(writer.Open(path.c_str(), true), S_OK);
    EXPECT_EQ(writer.BeginFile(), S_OK);
    const int count = static_cast<int>(Between(rng, 0, maxChunks));
    model.chunks.resize(count);
    std::vector<int> order(count);
    std::iota(order.begin(), order.end(), 0);
    for (int i = 0; i < count; ++i) {
        ModelChunk& chunk = model.chunks[i];
        chunk.id = static_cast<uint32_t>(rng());
        chunk.parent = std::uniform_int_distribution<int>(-1, i - 1)(rng);
        VernChunk* parent = chunk.parent < 0 ? writer.Root() : model.chunks[chunk.parent].handle;
        EXPECT_EQ(writer.CreateChunk(&chunk.handle, chunk.id, parent), S_OK);
        (chunk.parent < 0 ? model.topLevel : model.chunks[chunk.parent].children).push_back(i);
    }
    std::shuffle(order.begin(), order.end(), rng);
    for (int index : order) {
        ModelChunk& chunk = model.chunks[index];
        const uint32_t kind = Between(rng, 0, 4);
        if (kind == 0)
            continue;  // never written
        chunk.written = true;
        chunk.offset = model.dataBytes;
        if (kind == 1)
            EXPECT_EQ(writer.WriteData(nullptr, 0, chunk.handle), S_OK);
        else if (kind == 2) {
            std::string text(Between(rng, 0, 300), '\0');
            for (char& c : text)
                c = static_cast<char>(rng());
            OutputStream* view = nullptr;
            EXPECT_EQ(writer.BeginDirectWrite(&view, chunk.handle), S_OK);
            EXPECT_EQ(VernWriter::WriteCountedString(text, view), S_OK);
            EXPECT_EQ(writer.EndDirectWrite(view, chunk.handle), S_OK);
            // The length prefix: 1 byte below 255, else 3 bytes below 65534.
            const auto low = static_cast<uint8_t>(text.size()), high = static_cast<uint8_t>(text.size() >> 8);
            chunk.payload = text.size() < 255 ? Bytes{low} : Bytes{0xFF, low, high};
            chunk.payload.insert(chunk.payload.end(), text.begin(), text.end());
        } else {
            for (uint32_t p = 0, pieces = Between(rng, 1, 3); p < pieces; ++p) {
                Bytes piece(Between(rng, 0, 120));
                for (uint8_t& b : piece)
                    b = static_cast<uint8_t>(rng());
                EXPECT_EQ(writer.WriteData(piece.data(), static_cast<uint32_t>(piece.size()), chunk.handle), S_OK);
                chunk.payload.insert(chunk.payload.end(), piece.begin(), piece.end());
            }
        }
        model.dataBytes += static_cast<uint32_t>(chunk.payload.size());
    }
    EXPECT_EQ(writer.Close(), S_OK);
    return model;
}

class VernReaderTest : public ::testing::Test {
protected:
    testfiles::ScratchDirectory dir;
};

TEST_F(VernReaderTest, DecodesWhatTheWriterWrote)
{
    std::mt19937 rng(20240611u);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        const std::string path = dir.File("random.vern3D");
        const Model model = WriteRandomContainer(path, rng, 60);
        const Bytes file = testfiles::ReadBytes(path);
        const uint32_t entries = static_cast<uint32_t>(model.chunks.size()) + 1;
        ASSERT_EQ(file.size(), 44 + model.dataBytes + 16 * entries);

        VernContainer container;
        std::string error;
        ASSERT_TRUE(DecodeVern(file, &container, &error)) << error;
        const VernFileHeader& h = container.header;
        EXPECT_EQ(Bytes(h.fileType.begin(), h.fileType.end()), kVern3DGuid);
        EXPECT_EQ((std::vector<uint32_t>{h.headerSize, h.reserved0, h.directoryOffset, h.directorySize, h.reserved1,
                                         h.dataOffset, h.entrySize}),
                  (std::vector<uint32_t>{44, 0, 44 + model.dataBytes, 16 * entries, 0, 44, 16}));
        // Directory order is the pre-order of the plan; -1 stands for the root.
        std::vector<int> order, pending = {-1};
        while (!pending.empty()) {
            const int next = pending.back();
            pending.pop_back();
            order.push_back(next);
            const std::vector<int>& children = next < 0 ? model.topLevel : model.chunks[next].children;
            pending.insert(pending.end(), children.rbegin(), children.rend());
        }
        ASSERT_EQ(container.chunks.size(), order.size());
        std::vector<uint32_t> positionOf(model.chunks.size());
        for (size_t k = 1; k < order.size(); ++k)
            positionOf[order[k]] = static_cast<uint32_t>(k);
        EXPECT_EQ(container.chunks[0].children.size(), model.topLevel.size());
        for (size_t k = 1; k < order.size(); ++k) {
            SCOPED_TRACE(k);
            const ModelChunk& expected = model.chunks[order[k]];
            const VernDecodedChunk& chunk = container.chunks[k];
            EXPECT_EQ(chunk.id, expected.id);
            EXPECT_EQ(chunk.parent, expected.parent < 0 ? 0u : positionOf[expected.parent]);
            std::vector<uint32_t> children;
            for (int child : expected.children)
                children.push_back(positionOf[child]);
            EXPECT_EQ(chunk.children, children);
            EXPECT_EQ(chunk.offset, expected.written ? expected.offset : 0xFFFFFFFFu);
            EXPECT_EQ(chunk.size, expected.payload.size());
            EXPECT_EQ(Bytes(chunk.payload.begin(), chunk.payload.end()), expected.payload);
        }
    }
}

// Root {A {B}, C}: A holds 5 bytes, B 3 bytes, C none.
// Data 44..51, directory at 52: root 52, A 68, B 84, C 100; 116 bytes in all.
Bytes SmallContainer(const std::string& path)
{
    VernWriter writer;
    EXPECT_EQ(writer.Open(path.c_str(), true), S_OK);
    EXPECT_EQ(writer.BeginFile(), S_OK);
    VernChunk *a = nullptr, *b = nullptr, *c = nullptr;
    EXPECT_TRUE(writer.CreateChunk(&a, 1, writer.Root()) == S_OK && writer.CreateChunk(&b, 2, a) == S_OK &&
                writer.CreateChunk(&c, 3, writer.Root()) == S_OK);
    EXPECT_EQ(writer.WriteData("AAAAA", 5, a), S_OK);
    EXPECT_EQ(writer.WriteData("BBB", 3, b), S_OK);
    EXPECT_EQ(writer.Close(), S_OK);
    return testfiles::ReadBytes(path);
}

TEST_F(VernReaderTest, RefusesInconsistentLayoutsAndEveryTruncation)
{
    const Bytes valid = SmallContainer(dir.File("small.vern"));
    ASSERT_EQ(valid.size(), 116u);
    const struct { const char* name; size_t at; uint32_t value; bool accepted; } cases[] = {
        {"header size 45", 0, 45, false}, {"entry size 8", 40, 8, false}, {"directory past the end", 24, 53, false},
        {"directory size not a multiple of 16", 28, 63, false}, {"no directory entries", 28, 0, false},
        {"data offset inside the header", 36, 43, false}, {"data offset behind the directory", 36, 53, false},
        {"root with an id", 52, 9, false}, {"root with bytes", 52 + 8, 0, false},
        {"root asks for a child too many", 52 + 4, 3, false}, {"root asks for a child too few", 52 + 4, 1, false},
        {"a leaf asks for a child", 84 + 4, 1, false}, {"child count beyond all entries", 68 + 4, 0xFFFFFFFF, false},
        {"chunk reaches into the directory", 68 + 12, 9, false},
        {"chunk offset far outside", 84 + 8, 0xFFFFFFF0, false}, {"runs overlap", 84 + 8, 4, false},
        {"never written, yet sized", 100 + 12, 1, false}, {"empty run inside another run", 100 + 8, 2, false},
        {"empty run at the end of the data", 100 + 8, 8, true}, {"chunk id is free", 84, 0xDEADBEEF, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes damaged = valid;
        PutU32(damaged, c.at, c.value);
        VernContainer container;
        std::string error;
        EXPECT_EQ(DecodeVern(damaged, &container, &error), c.accepted) << error;
        EXPECT_EQ(error.empty(), c.accepted);
        EXPECT_EQ(container.chunks.empty(), !c.accepted);
    }
    for (size_t length = 0; length < valid.size(); ++length) {
        VernContainer container;
        std::string error;
        ASSERT_FALSE(DecodeVern(std::span<const uint8_t>(valid.data(), length), &container, &error))
            << "length " << length;
        EXPECT_FALSE(error.empty());
    }
}

// The decoder's promises on anything it accepts.
void ExpectConsistent(const Bytes& bytes, const VernContainer& container)
{
    ASSERT_FALSE(container.chunks.empty());
    ASSERT_EQ(container.chunks.size(), container.header.directorySize / 16);
    size_t links = 0;
    for (size_t i = 0; i < container.chunks.size(); ++i) {
        const VernDecodedChunk& chunk = container.chunks[i];
        if (!chunk.payload.empty()) {
            ASSERT_GE(chunk.payload.data(), bytes.data());
            ASSERT_LE(chunk.payload.data() + chunk.payload.size(), bytes.data() + container.header.directoryOffset);
        }
        ASSERT_EQ(chunk.payload.size(), chunk.size);
        for (uint32_t child : chunk.children) {
            ASSERT_LT(child, container.chunks.size());
            ASSERT_EQ(container.chunks[child].parent, i);
        }
        links += chunk.children.size();
    }
    ASSERT_EQ(links, container.chunks.size() - 1);
}

TEST_F(VernReaderTest, SurvivesRandomDamage)
{
    std::mt19937 rng(7u);
    Model model;
    do
        model = WriteRandomContainer(dir.File("victim.vern3D"), rng, 12);
    while (model.chunks.size() < 6);
    const Bytes valid = testfiles::ReadBytes(dir.File("victim.vern3D"));
    // Half of the flips go to the header and the directory, where most of the checks look.
    const size_t directory = 44 + model.dataBytes;
    int refused = 0;
    for (int round = 0; round < 4000; ++round) {
        Bytes damaged = valid;
        for (uint32_t f = 0, flips = Between(rng, 1, 4); f < flips; ++f) {
            size_t at = Between(rng, 0, static_cast<uint32_t>(damaged.size() - 1));
            if (rng() % 2 == 0) {
                const size_t pick = at % (44 + damaged.size() - directory);
                at = pick < 44 ? pick : directory + (pick - 44);
            }
            damaged[at] ^= static_cast<uint8_t>(Between(rng, 1, 255));
        }
        VernContainer container;
        if (!DecodeVern(damaged, &container, nullptr))
            ++refused;
        else
            ExpectConsistent(damaged, container);
    }
    EXPECT_GT(refused, 0);
    // Noise; every other buffer carries a plausible header and directory, so that the tree and
    // run checks see small random trees rather than stopping at the header.
    int acceptedNoise = 0;
    for (int round = 0; round < 4000; ++round) {
        Bytes noise(Between(rng, 0, 200));
        for (uint8_t& b : noise)
            b = static_cast<uint8_t>(rng());
        if (round % 2 == 0 && noise.size() >= 60) {
            const uint32_t size = static_cast<uint32_t>(noise.size());
            const uint32_t dirAt = Between(rng, 44, size - 16);
            const uint32_t entries = Between(rng, 1, (size - dirAt) / 16);
            for (auto [at, value] : {std::pair<size_t, uint32_t>{0, 44}, {24, dirAt}, {28, 16 * entries}, {36, 44}, {40, 16}})
                PutU32(noise, at, value);
            for (uint32_t e = 0; e < entries; ++e) {
                const size_t at = dirAt + 16 * e;
                const bool placed = e > 0 && rng() % 2 == 0;
                PutU32(noise, at, e == 0 ? 0 : static_cast<uint32_t>(rng()));
                PutU32(noise, at + 4, Between(rng, 0, 2));
                const uint32_t offset = Between(rng, 0, dirAt - 44 + 1);
                PutU32(noise, at + 8, placed ? offset : 0xFFFFFFFF);
                PutU32(noise, at + 12, placed ? Between(rng, 0, 8) : 0);
            }
        }
        VernContainer container;
        if (DecodeVern(noise, &container, nullptr)) {
            ExpectConsistent(noise, container);
            ++acceptedNoise;
        }
    }
    EXPECT_GT(acceptedNoise, 0);  // the generator does reach the deeper checks
}

}  // namespace
