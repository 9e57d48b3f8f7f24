// Reader of vern chunk containers, for tests and tools. The program itself only writes them.
//
// DecodeVern checks the whole layout (header, directory, the tree the child counts describe,
// every chunk's run of bytes) before it hands anything out, and it never recurses, so arbitrary
// bytes give a failure status and a reason, never a crash.
#pragma once

#include "Status.h"
#include "VernWriter.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

constexpr HRESULT VERN_E_MALFORMED = static_cast<HRESULT>(0x8007000Du);  // ERROR_INVALID_DATA

using GuidBytes = std::array<uint8_t, 16>;

// The Windows layout of a GUID as it appears in the file.
GuidBytes EncodeGuid(const Guid& guid);

// The nine header fields as stored.
struct VernFileHeader {
    uint32_t headerSize = 0;
    uint32_t reserved0 = 0;
    GuidBytes fileType{};
    uint32_t directoryOffset = 0;
    uint32_t directorySize = 0;
    uint32_t reserved1 = 0;
    uint32_t dataOffset = 0;
    uint32_t entrySize = 0;
};

constexpr uint32_t kVernNoParent = 0xFFFFFFFFu;

struct VernDecodedChunk {
    uint32_t id = 0;
    uint32_t offset = kVernNoOffset;  // relative to the data offset, as in the directory
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
// On failure the container is left empty and `error` (if given) says what is wrong.
HRESULT DecodeVern(std::span<const uint8_t> bytes, VernContainer* container, std::string* error);

// Reads a whole file into memory.
HRESULT ReadFileBytes(const char* path, std::vector<uint8_t>* bytes);

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
