// Reader of vern chunk containers, inside the vern3D library (the decoder builds on it; tests and
// tools may use it for raw chunks). The program itself only writes containers.
//
// DecodeVern checks the whole layout (header, directory, the tree the child counts describe,
// every chunk's run of bytes) before it hands anything out, and it never recurses, so arbitrary
// bytes give false and a reason, never a crash. It does not throw: running out of memory is a
// failure like any other. The payload views point into the decoded bytes.
#pragma once

#include "vern/Vern3DLayout.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vern3d {

// The nine header fields as stored.
struct VernFileHeader {
    uint32_t headerSize = 0;
    uint32_t reserved0 = 0;
    std::array<uint8_t, 16> fileType{};
    uint32_t directoryOffset = 0;
    uint32_t directorySize = 0;
    uint32_t reserved1 = 0;
    uint32_t dataOffset = 0;
    uint32_t entrySize = 0;
};

constexpr uint32_t kVernNoParent = 0xFFFFFFFFu;

struct VernDecodedChunk {
    uint32_t id = 0;
    uint32_t offset = kNoOffset;      // relative to the data offset, as in the directory
    uint32_t size = 0;
    uint32_t parent = kVernNoParent;  // index into VernContainer::chunks
    std::vector<uint32_t> children;   // indices into VernContainer::chunks, in directory order
    std::span<const uint8_t> payload;  // view into the decoded bytes; empty when never written
};

struct VernContainer {
    VernFileHeader header;
    // One per directory entry, in directory (pre-)order; chunks[0] is the root. A flat list keeps
    // copying and destroying deep trees free of recursion.
    std::vector<VernDecodedChunk> chunks;
};

// Decodes a whole file. The payload views point into `bytes`, which must outlive the result.
// On failure the container is left empty and `error` (if given) says what is wrong and where.
bool DecodeVern(std::span<const uint8_t> bytes, VernContainer* container, std::string* error);

// Bounds-checked little-endian reads for payload decoders. A read that does not fit fails, yields
// zero (or empty) and leaves the cursor failed, so a decoder may check once at the end.
class VernCursor {
public:
    explicit VernCursor(std::span<const uint8_t> bytes) : bytes(bytes) {}

    bool ReadU8(uint8_t* value);
    bool ReadU16(uint16_t* value);
    bool ReadU32(uint32_t* value);
    bool ReadF32(float* value);
    bool ReadBytes(size_t count, std::span<const uint8_t>* value);
    // A whole record of the layout, copied out of the bytes.
    template <FileRecord Record>
    bool ReadRecord(Record* record)
    {
        const uint8_t* at = nullptr;
        *record = Take(sizeof(Record), &at) ? LoadRecord<Record>(at) : Record{};
        return ok;
    }
    // The container's counted string; only the shortest prefix form for a length is accepted.
    bool ReadCountedString(std::string* value);
    bool Skip(size_t count);

    size_t Position() const { return position; }
    size_t Remaining() const { return bytes.size() - position; }
    bool AtEnd() const { return position == bytes.size(); }
    bool Ok() const { return ok; }

private:
    bool Take(size_t count, const uint8_t** at);

    std::span<const uint8_t> bytes;
    size_t position = 0;
    bool ok = true;
};

}  // namespace vern3d
