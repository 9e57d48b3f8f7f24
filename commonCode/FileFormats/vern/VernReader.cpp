#include "vern/VernReader.h"

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

namespace vern3d {

namespace {

uint32_t LoadU32(const uint8_t* at) { return LoadRecord<uint32_t>(at); }

// "header, file offset 28: " for the reasons that concern one header field.
std::string HeaderPlace(uint32_t field) { return "header, file offset " + std::to_string(field) + ": "; }

bool Reject(std::string* error, std::string reason)
{
    if (error != nullptr)
        *error = std::move(reason);
    return false;
}

// "directory entry 3, file offset 1234: " for the reasons that concern one entry.
std::string EntryPlace(const VernFileHeader& header, uint32_t entry)
{
    return "directory entry " + std::to_string(entry) + ", file offset " +
           std::to_string(uint64_t{header.directoryOffset} + uint64_t{entry} * kDirectoryEntrySize) + ": ";
}

bool Decode(std::span<const uint8_t> bytes, VernContainer* container, std::string* error)
{
    if (bytes.size() < kContainerHeaderSize)
        return Reject(error, HeaderPlace(kHeaderSizeAt) + "the file is " + std::to_string(bytes.size()) + " bytes, shorter than the header");
    VernFileHeader& header = container->header;
    header.headerSize = LoadU32(&bytes[kHeaderSizeAt]);
    header.reserved0 = LoadU32(&bytes[kHeaderReserved0At]);
    std::copy_n(&bytes[kHeaderFileTypeAt], header.fileType.size(), header.fileType.begin());
    header.directoryOffset = LoadU32(&bytes[kDirectoryOffsetAt]);
    header.directorySize = LoadU32(&bytes[kDirectorySizeAt]);
    header.reserved1 = LoadU32(&bytes[kHeaderReserved1At]);
    header.dataOffset = LoadU32(&bytes[kDataOffsetAt]);
    header.entrySize = LoadU32(&bytes[kEntrySizeAt]);

    if (header.headerSize != kContainerHeaderSize)
        return Reject(error, HeaderPlace(kHeaderSizeAt) + "header size is not " + std::to_string(kContainerHeaderSize));
    if (header.entrySize != kDirectoryEntrySize)
        return Reject(error, HeaderPlace(kEntrySizeAt) + "directory entry size is not " + std::to_string(kDirectoryEntrySize));
    if (header.dataOffset < kContainerHeaderSize || header.dataOffset > header.directoryOffset)
        return Reject(error, HeaderPlace(kDataOffsetAt) + "data area does not lie between header and directory");
    if (uint64_t{header.directoryOffset} + header.directorySize > bytes.size())
        return Reject(error, HeaderPlace(kDirectoryOffsetAt) + "directory reaches past the end of the file");
    if (header.directorySize % kDirectoryEntrySize != 0)
        return Reject(error, HeaderPlace(kDirectorySizeAt) + "directory size is not a multiple of " + std::to_string(kDirectoryEntrySize));
    if (header.directorySize == 0)
        return Reject(error, HeaderPlace(kDirectorySizeAt) + "directory has no root entry");

    const uint32_t count = header.directorySize / kDirectoryEntrySize;
    std::vector<VernDecodedChunk>& chunks = container->chunks;
    chunks.resize(count);
    std::vector<uint32_t> childCounts(count);
    for (uint32_t i = 0; i < count; ++i) {
        const auto entry = LoadRecord<DirectoryEntry>(&bytes[header.directoryOffset + size_t{i} * kDirectoryEntrySize]);
        chunks[i].id = entry.id;
        childCounts[i] = entry.childCount;
        chunks[i].offset = entry.offset;
        chunks[i].size = entry.size;
    }
    if (chunks[0].id != 0 || chunks[0].offset != kNoOffset || chunks[0].size != 0)
        return Reject(error, EntryPlace(header, 0) + "root entry is not {0, n, 0xFFFFFFFF, 0}");

    // Pre-order with child counts: the next entry is always the next child of the innermost
    // chunk that still expects one.
    struct Open {
        uint32_t index;
        uint32_t remaining;
    };
    std::vector<Open> open{{0, childCounts[0]}};
    uint32_t next = 1;
    while (!open.empty()) {
        Open& top = open.back();
        if (top.remaining == 0) {
            open.pop_back();
            continue;
        }
        if (next == count)
            return Reject(error, EntryPlace(header, top.index) + "child counts ask for more entries than the directory holds");
        --top.remaining;
        chunks[next].parent = top.index;
        chunks[top.index].children.push_back(next);
        open.push_back({next, childCounts[next]});
        ++next;
    }
    if (next != count)
        return Reject(error, EntryPlace(header, next) + "directory holds entries that belong to no chunk");

    // Each written chunk owns one run inside the data area, and no two runs share a byte.
    struct Run {
        uint64_t begin;
        uint64_t end;
        uint32_t entry;
    };
    std::vector<Run> runs;
    for (uint32_t i = 0; i < count; ++i) {
        VernDecodedChunk& chunk = chunks[i];
        if (chunk.offset == kNoOffset) {
            if (chunk.size != 0)
                return Reject(error, EntryPlace(header, i) + "chunk without an offset has a size");
            continue;
        }
        const uint64_t begin = uint64_t{header.dataOffset} + chunk.offset;
        const uint64_t end = begin + chunk.size;
        if (end > header.directoryOffset)
            return Reject(error, EntryPlace(header, i) + "chunk bytes reach past the data area");
        runs.push_back({begin, end, i});
        chunk.payload = bytes.subspan(static_cast<size_t>(begin), chunk.size);
    }
    std::sort(runs.begin(), runs.end(),
              [](const Run& a, const Run& b) { return a.begin != b.begin ? a.begin < b.begin : a.end < b.end; });
    for (size_t i = 1; i < runs.size(); ++i) {
        if (runs[i].begin < runs[i - 1].end)
            return Reject(error, EntryPlace(header, runs[i].entry) + "chunk bytes overlap those of directory entry " +
                                     std::to_string(runs[i - 1].entry));
    }
    return true;
}

}  // namespace

bool DecodeVern(std::span<const uint8_t> bytes, VernContainer* container, std::string* error)
{
    *container = VernContainer{};
    bool ok = false;
    try {
        ok = Decode(bytes, container, error);
    } catch (const std::bad_alloc&) {
        ok = Reject(error, "out of memory");
    }
    if (!ok)
        *container = VernContainer{};
    return ok;
}

bool VernCursor::Take(size_t count, const uint8_t** at)
{
    if (!ok || count > Remaining()) {
        ok = false;
        return false;
    }
    *at = bytes.data() + position;
    position += count;
    return true;
}

bool VernCursor::ReadU8(uint8_t* value)
{
    const uint8_t* at = nullptr;
    *value = Take(1, &at) ? at[0] : 0;
    return ok;
}

bool VernCursor::ReadU16(uint16_t* value)
{
    const uint8_t* at = nullptr;
    *value = Take(2, &at) ? static_cast<uint16_t>(at[0] | at[1] << 8) : 0;
    return ok;
}

bool VernCursor::ReadU32(uint32_t* value)
{
    const uint8_t* at = nullptr;
    *value = Take(4, &at) ? LoadU32(at) : 0;
    return ok;
}

bool VernCursor::ReadF32(float* value)
{
    uint32_t bits = 0;
    ReadU32(&bits);
    *value = std::bit_cast<float>(bits);
    return ok;
}

bool VernCursor::ReadBytes(size_t count, std::span<const uint8_t>* value)
{
    const uint8_t* at = nullptr;
    *value = Take(count, &at) ? std::span<const uint8_t>(at, count) : std::span<const uint8_t>();
    return ok;
}

bool VernCursor::Skip(size_t count)
{
    const uint8_t* at = nullptr;
    return Take(count, &at);
}

bool VernCursor::ReadCountedString(std::string* value)
{
    value->clear();
    uint8_t shortLength = 0;
    uint16_t mediumLength = 0;
    uint32_t length = 0;
    if (!ReadU8(&shortLength))
        return false;
    if (shortLength < kStringShortLimit) {
        length = shortLength;
    } else if (!ReadU16(&mediumLength)) {
        return false;
    } else if (mediumLength != kStringLongEscape) {
        length = mediumLength;
        if (length < kStringShortLimit || length >= kStringMediumLimit)
            ok = false;  // the writer uses the short form below 255 and the long form from 65534
    } else if (!ReadU32(&length) || length < kStringMediumLimit) {
        ok = false;
    }
    std::span<const uint8_t> text;
    if (ok && ReadBytes(length, &text))
        value->assign(text.begin(), text.end());
    return ok;
}

}  // namespace vern3d
