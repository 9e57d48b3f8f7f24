#include "vern/VernWriter.h"

#include "AbstractData/Platform.h"
#include "AbstractData/Trace.h"
#include "AbstractData/streams/FileStream.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

namespace {

constexpr const char* kSource = "commonCode/FileFormats/vern/vern";
constexpr const char* kStringSource = "commonCode/AbstractData/ResString";

// The places the reports name; tools that read the trace know the container by these lines.
enum ReportLine : int {
    kLineOpen = 97,
    kLineBeginFile = 132,
    kLineCreateChunk = 170,
    kLineWriteData = 215,
    kLineBeginDirectWrite = 250,
    kLineEndDirectWrite = 271,
    kLineClose = 321,
    kLineWriteCountedString = 432,
    kLineDirectoryEntry = 509,
};

using vern3d::kContainerHeaderSize;
using vern3d::kDirectoryEntrySize;
constexpr uint64_t kMaxPosition = 0xFFFFFFFFu;

// The writer makes many small writes (records of 1 to 104 bytes); gathering them keeps the
// number of system calls down without changing a byte of the file.
constexpr size_t kBufferSize = 64 * 1024;

// Little-endian stores: the one place where numbers become file bytes.
void StoreU16(uint8_t* at, uint16_t value)
{
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

void StoreU32(uint8_t* at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<uint8_t>(value >> (8 * i));
}

void StoreGuid(uint8_t* at, const Guid& guid)
{
    const auto bytes = vern3d::GuidBytes(guid);
    std::copy(bytes.begin(), bytes.end(), at);
}

using EntryBytes = std::array<uint8_t, kDirectoryEntrySize>;

EntryBytes EncodeEntry(const VernChunk& chunk)
{
    EntryBytes bytes{};
    vern3d::StoreRecord(bytes.data(), vern3d::DirectoryEntry{chunk.id, static_cast<uint32_t>(chunk.children.size()),
                                                              chunk.offset, chunk.size});
    return bytes;
}

// Moves to an absolute 32-bit position with the stream's signed 32-bit offsets.
HRESULT SeekTo(FileStream& file, uint32_t position)
{
    constexpr uint32_t kStep = 0x7FFFFFFFu;
    uint32_t remaining = position - std::min(position, kStep);
    HRESULT status = file.SetPosition(0, static_cast<int32_t>(std::min(position, kStep)));
    while (Succeeded(status) && remaining > 0) {
        const uint32_t step = std::min(remaining, kStep);
        status = file.SetPosition(1, static_cast<int32_t>(step));
        remaining -= step;
    }
    return status;
}

}  // namespace

VernChunk::~VernChunk()
{
    std::vector<std::unique_ptr<VernChunk>> pending = std::move(children);
    while (!pending.empty()) {
        std::unique_ptr<VernChunk> chunk = std::move(pending.back());
        pending.pop_back();
        for (std::unique_ptr<VernChunk>& child : chunk->children)
            pending.push_back(std::move(child));
        chunk->children.clear();  // so that its own destructor finds nothing left to do
    }
}

// Sequential buffered view of the output file. Every data and directory byte goes through it,
// in file order; the first failed flush is kept, because the bytes it held are lost.
class VernWriter::BufferedOutput final : public OutputStream {
public:
    BufferedOutput(FileStream& file, uint32_t position) : file(file), position(position) {}

    HRESULT Write(const void* data, uint32_t size) override
    {
        if (Failed(failure))
            return failure;
        if (size == 0)
            return S_OK;
        if (data == nullptr)
            return E_INVALIDARG;
        if (position + uint64_t{size} > kMaxPosition) {
            // Offsets and sizes are 32-bit: the container ends below 4 GiB.
            platform::SetLastError(platform::ERROR_FILE_TOO_LARGE_CODE);
            return HResultFromWin32(platform::ERROR_FILE_TOO_LARGE_CODE);
        }
        const auto* bytes = static_cast<const uint8_t*>(data);
        if (buffer.size() + size > kBufferSize) {
            const HRESULT status = Flush();
            if (Failed(status))
                return status;
        }
        if (size >= kBufferSize) {
            const HRESULT status = file.Write(bytes, size);
            if (Failed(status))
                return failure = status;
        } else {
            try {
                if (buffer.capacity() == 0)
                    buffer.reserve(kBufferSize);
                buffer.insert(buffer.end(), bytes, bytes + size);
            } catch (const std::bad_alloc&) {
                return E_OUTOFMEMORY;
            }
        }
        position += size;
        return S_OK;
    }

    HRESULT Flush()
    {
        if (Failed(failure) || buffer.empty())
            return failure;
        const HRESULT status = file.Write(buffer.data(), static_cast<uint32_t>(buffer.size()));
        buffer.clear();
        if (Failed(status))
            failure = status;
        return status;
    }

    // Continues at an earlier position, so that the next bytes overwrite the ones behind it, as
    // with a stream that is positioned before every write.
    HRESULT MoveBackTo(uint32_t target)
    {
        if (target == position || Failed(failure))
            return failure;
        HRESULT status = Flush();
        if (Succeeded(status))
            status = SeekTo(file, target);
        if (Failed(status))
            return failure = status;
        position = target;
        return S_OK;
    }

    // File position just behind the last byte accepted.
    uint32_t Position() const { return position; }
    HRESULT Failure() const { return failure; }

private:
    FileStream& file;
    std::vector<uint8_t> buffer;
    uint32_t position;
    HRESULT failure = S_OK;
};

VernWriter::VernWriter()
{
    header.headerSize = kContainerHeaderSize;
    header.fileType = FileTypeVernDefault;
    root.closed = true;  // the root never holds bytes; top-level chunks are its children
}

VernWriter::~VernWriter() { Release(); }

HRESULT VernWriter::SetFileType(const Guid& type)
{
    header.fileType = type;
    return S_OK;
}

HRESULT VernWriter::Open(const char* fileName, bool create)
{
    HRESULT status = S_OK;
    if (stream) {
        status = E_UNEXPECTED;
    } else {
        try {
            stream = std::make_unique<FileStream>();
        } catch (const std::bad_alloc&) {
            status = E_OUTOFMEMORY;
        }
        if (Succeeded(status))
            status = stream->Open(fileName, create ? FileStream::CreateAlways | FileStream::WriteAccess |
                                                         FileStream::ReplaceOnCommit
                                                   : 0);
    }
    if (Failed(status)) {
        AssertHresult(kSource, kLineOpen, status);
        Release();
    }
    return status;
}

HRESULT VernWriter::BeginFile()
{
    HRESULT status = stream && !output ? S_OK : E_UNEXPECTED;
    if (Succeeded(status))
        status = stream->GetPosition(&headerPosition);
    if (Succeeded(status)) {
        // The placeholder: the default type and no directory mark the file as unfinished until
        // Close rewrites it. Written at once, so that an unwritable file shows here.
        std::array<uint8_t, kContainerHeaderSize> placeholder{};
        StoreU32(placeholder.data() + vern3d::kHeaderSizeAt, kContainerHeaderSize);
        StoreGuid(placeholder.data() + vern3d::kHeaderFileTypeAt, FileTypeVernDefault);
        status = stream->Write(placeholder.data(), kContainerHeaderSize);
    }
    if (Succeeded(status))
        status = stream->GetPosition(&end);
    if (Succeeded(status)) {
        dataStart = end;
        header.dataOffset = end;
        try {
            output = std::make_unique<BufferedOutput>(*stream, end);
        } catch (const std::bad_alloc&) {
            status = E_OUTOFMEMORY;
        }
    }
    if (Failed(status))
        AssertHresult(kSource, kLineBeginFile, status);
    return status;
}

HRESULT VernWriter::CreateChunk(VernChunk** chunk, uint32_t id, VernChunk* parent)
{
    HRESULT status = chunk != nullptr && parent != nullptr ? S_OK : E_INVALIDARG;
    if (Succeeded(status)) {
        *chunk = nullptr;
        try {
            auto created = std::make_unique<VernChunk>();
            created->id = id;
            parent->children.push_back(std::move(created));
            *chunk = parent->children.back().get();
        } catch (const std::bad_alloc&) {
            status = E_OUTOFMEMORY;
        }
    }
    if (Failed(status))
        AssertHresult(kSource, kLineCreateChunk, status);
    return status;
}

// Every write continues at `end`: bytes that went through the view without being credited
// (outside a direct-write bracket, or refused by EndDirectWrite) are overwritten.
HRESULT VernWriter::SeekToEnd()
{
    return output ? output->MoveBackTo(end) : E_UNEXPECTED;
}

HRESULT VernWriter::SelectTarget(VernChunk* chunk)
{
    if (chunk != current) {
        current->closed = true;
        current = chunk;
    }
    if (chunk->closed)
        return VERN_E_CHUNK_CLOSED;
    if (chunk->offset == kVernNoOffset)
        chunk->offset = end - dataStart;
    return S_OK;
}

HRESULT VernWriter::WriteData(const void* data, uint32_t size, VernChunk* chunk)
{
    HRESULT status = chunk != nullptr && (data != nullptr || size == 0) ? SeekToEnd() : E_INVALIDARG;
    if (Succeeded(status))
        status = SelectTarget(chunk);
    if (Succeeded(status))
        status = output->Write(data, size);
    if (Succeeded(status)) {
        chunk->size += size;
        end = output->Position();
    }
    if (Failed(status))
        AssertHresult(kSource, kLineWriteData, status);
    return status;
}

HRESULT VernWriter::BeginDirectWrite(OutputStream** view, VernChunk* chunk)
{
    HRESULT status = view != nullptr && chunk != nullptr ? SeekToEnd() : E_INVALIDARG;
    if (view != nullptr)
        *view = nullptr;
    if (Succeeded(status))
        status = SelectTarget(chunk);
    if (Succeeded(status))
        *view = output.get();
    if (Failed(status))
        AssertHresult(kSource, kLineBeginDirectWrite, status);
    return status;
}

HRESULT VernWriter::EndDirectWrite(OutputStream* view, VernChunk* chunk)
{
    // Only bytes that went through this writer's own view can be credited; the chunk argument
    // is not consulted, the bytes belong to the chunk that BeginDirectWrite made current.
    HRESULT status = output && view == output.get() ? output->Failure() : E_INVALIDARG;
    if (Succeeded(status)) {
        const uint32_t position = output->Position();
        current->size += position - end;
        end = position;
    }
    if (Failed(status))
        AssertHresult(kSource, kLineEndDirectWrite, status);
    return status;
}

// Pre-order walk with an explicit stack: chunk trees can be far deeper than the call stack.
HRESULT VernWriter::WriteDirectory()
{
    struct Pending {
        const VernChunk* chunk;
        uint32_t depth;
    };
    std::vector<Pending> pending;
    try {
        pending.push_back({&root, 0});
        while (!pending.empty()) {
            const Pending next = pending.back();
            pending.pop_back();
            const EntryBytes entry = EncodeEntry(*next.chunk);
            const HRESULT status = output->Write(entry.data(), kDirectoryEntrySize);
            if (Failed(status)) {
                // The walk has always reported once for every tree level the failure leaves.
                for (uint32_t level = 0; level <= next.depth; ++level)
                    AssertHresult(kSource, kLineDirectoryEntry, status);
                return status;
            }
            const auto& children = next.chunk->children;
            for (auto child = children.rbegin(); child != children.rend(); ++child)
                pending.push_back({child->get(), next.depth + 1});
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT VernWriter::Close()
{
    HRESULT status = SeekToEnd();
    if (Succeeded(status)) {
        header.directoryOffset = end;
        status = WriteDirectory();
    }
    if (Succeeded(status)) {
        header.directorySize = output->Position() - end;
        header.entrySize = kDirectoryEntrySize;
        status = output->Flush();
    }
    if (Succeeded(status))
        status = SeekTo(*stream, headerPosition);
    if (Succeeded(status)) {
        std::array<uint8_t, kContainerHeaderSize> bytes{};
        StoreU32(bytes.data() + vern3d::kHeaderSizeAt, header.headerSize);
        StoreU32(bytes.data() + vern3d::kHeaderReserved0At, header.reserved0);
        StoreGuid(bytes.data() + vern3d::kHeaderFileTypeAt, header.fileType);
        StoreU32(bytes.data() + vern3d::kDirectoryOffsetAt, header.directoryOffset);
        StoreU32(bytes.data() + vern3d::kDirectorySizeAt, header.directorySize);
        StoreU32(bytes.data() + vern3d::kHeaderReserved1At, header.reserved1);
        StoreU32(bytes.data() + vern3d::kDataOffsetAt, header.dataOffset);
        StoreU32(bytes.data() + vern3d::kEntrySizeAt, header.entrySize);
        status = stream->Write(bytes.data(), kContainerHeaderSize);
    }
    if (Succeeded(status))
        status = stream->Commit();  // a delayed write error may only show now
    if (Failed(status))
        AssertHresult(kSource, kLineClose, status);
    Release();
    return status;
}

HRESULT VernWriter::Release()
{
    // A file that is not closed is abandoned: a new file (written under a temporary name) goes
    // and the earlier one stays. What was accepted still reaches a device or pipe written in
    // place, as it would have without a buffer; its placeholder header marks it as unfinished.
    if (output) {
        output->Flush();
        output.reset();
    }
    stream.reset();
    root.children.clear();
    current = &root;
    end = kVernNoOffset;
    return S_OK;
}

HRESULT VernWriter::WriteCountedString(std::string_view text, OutputStream* stream)
{
    HRESULT status = stream != nullptr && text.size() <= kMaxPosition ? S_OK : E_INVALIDARG;
    const auto length = static_cast<uint32_t>(text.size());
    // Each piece of the prefix is its own write, then the characters.
    std::array<uint8_t, 4> piece{};
    if (Succeeded(status) && length < vern3d::kStringShortLimit) {
        piece[0] = static_cast<uint8_t>(length);
        status = stream->Write(piece.data(), 1);
    } else if (Succeeded(status)) {
        piece[0] = static_cast<uint8_t>(vern3d::kStringShortLimit);
        status = stream->Write(piece.data(), 1);
        if (Succeeded(status)) {
            // 0xFFFF says that the real length follows as u32.
            StoreU16(piece.data(),
                     static_cast<uint16_t>(length < vern3d::kStringMediumLimit ? length : vern3d::kStringLongEscape));
            status = stream->Write(piece.data(), 2);
        }
        if (Succeeded(status) && length >= vern3d::kStringMediumLimit) {
            StoreU32(piece.data(), length);
            status = stream->Write(piece.data(), 4);
        }
    }
    if (Succeeded(status) && length > 0)
        status = stream->Write(text.data(), length);
    if (Failed(status))
        AssertHresult(kStringSource, kLineWriteCountedString, status);
    return status;
}
