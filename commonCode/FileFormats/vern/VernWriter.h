// Writer of vern chunk containers: a 44-byte GUID-tagged header, the chunks' bytes, and a
// directory of the chunk tree written last.
//
// A file opened with `create` is written under a temporary name beside it and takes its name
// only when Close succeeds. Release, the destructor, or a failed Close abandon it: the
// temporary file is removed and an earlier file of that name stays as it was. Abandoning is the
// one way to make a write leave no output.
#pragma once

#include "AbstractData/Status.h"
#include "AbstractData/streams/OutputStream.h"
#include "vern/Vern3DLayout.h"

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

class FileStream;

// The file types and the container's layout are the vern3D library's (vern/Vern3DLayout.h).
using Guid = vern3d::Guid;
inline constexpr const Guid& FileTypeVernDefault = vern3d::kFileTypeVernDefault;
inline constexpr const Guid& FileTypeVern3D = vern3d::kFileTypeVern3D;

constexpr HRESULT VERN_E_CHUNK_CLOSED = static_cast<HRESULT>(0x80044010u);
constexpr uint32_t kVernNoOffset = vern3d::kNoOffset;

struct VernChunk {
    // Takes the subtree apart without recursion: chunk trees can be very deep.
    ~VernChunk();

    uint32_t id = 0;
    uint32_t offset = kVernNoOffset;
    uint32_t size = 0;
    bool closed = false;
    std::vector<std::unique_ptr<VernChunk>> children;
};

class VernWriter {
public:
    VernWriter();
    ~VernWriter();
    VernWriter(const VernWriter&) = delete;
    VernWriter& operator=(const VernWriter&) = delete;

    HRESULT SetFileType(const Guid& type);
    HRESULT Open(const char* fileName, bool create);
    HRESULT BeginFile();
    HRESULT CreateChunk(VernChunk** chunk, uint32_t id, VernChunk* parent);
    HRESULT WriteData(const void* data, uint32_t size, VernChunk* chunk);
    HRESULT BeginDirectWrite(OutputStream** stream, VernChunk* chunk);
    HRESULT EndDirectWrite(OutputStream* stream, VernChunk* chunk);
    HRESULT Close();
    HRESULT Release();

    VernChunk* Root() { return &root; }

    // Length prefix (1, 3 or 7 bytes), then the bytes, no terminator.
    static HRESULT WriteCountedString(std::string_view text, OutputStream* stream);

private:
    // The header fields in file order; turned into bytes only when written.
    struct Header {
        uint32_t headerSize = 0;
        uint32_t reserved0 = 0;
        Guid fileType{};
        uint32_t directoryOffset = 0;
        uint32_t directorySize = 0;
        uint32_t reserved1 = 0;
        uint32_t dataOffset = 0;
        uint32_t entrySize = 0;
    };
    class BufferedOutput;

    HRESULT SeekToEnd();
    HRESULT SelectTarget(VernChunk* chunk);
    HRESULT WriteDirectory();

    // Declaration order is destruction order: the buffered view refers to the stream.
    std::unique_ptr<FileStream> stream;
    std::unique_ptr<BufferedOutput> output;  // from BeginFile to Release; all data goes through it
    uint32_t headerPosition = 0;
    uint32_t dataStart = 0;
    uint32_t end = kVernNoOffset;
    Header header;
    VernChunk root;
    VernChunk* current = &root;
};
