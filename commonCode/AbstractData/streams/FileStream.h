// An unbuffered byte stream over one open file, with 32-bit positions and status values.
//
// Opened with ReplaceOnCommit (and CreateAlways | WriteAccess), the stream writes a temporary file
// beside the named one (see ReplacementFile.h): Commit puts it in place of the named file, while
// Close and the destructor without Commit remove it, so the earlier file stays as it was. A name
// that is no regular file (a device, a pipe) is written in place, as without the flag.
#pragma once

#include "AbstractData/streams/InputStream.h"
#include "AbstractData/streams/OutputStream.h"
#include "AbstractData/streams/ReplacementFile.h"

#include <cstdint>
#include <memory>

class FileStream : public InputStream, public OutputStream {
public:
    enum OpenFlags : uint32_t {
        CreateAlways = 1,  // create or truncate; without it the file must exist
        WriteAccess = 2,   // write access, no sharing; without it read access shared with readers
        ReadAccess = 4,    // read access in addition
        ReplaceOnCommit = 8,  // with CreateAlways | WriteAccess: the file changes only at Commit
    };

    FileStream() = default;
    ~FileStream() override;
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    HRESULT Open(const char* fileName, uint32_t flags);
    HRESULT Close();
    // Closes the file; a replacing stream then takes the named file's place. On failure (also
    // without an open file) the temporary file is gone and the named file is untouched.
    HRESULT Commit();
    HRESULT Read(void* buffer, uint32_t size) override;
    HRESULT Write(const void* buffer, uint32_t size) override;
    HRESULT GetPosition(uint32_t* position);
    // origin: 0 from the start, 1 from the current position, 2 from the end.
    HRESULT SetPosition(uint32_t origin, int32_t offset);

    bool IsOpen() const { return handle >= 0; }

private:
    template <typename Transfer>
    HRESULT TransferAll(uint32_t access, const void* buffer, uint32_t size, int reportLine, Transfer transfer);

    int handle = -1;  // -1 stands for the null handle
    std::unique_ptr<ReplacementFile> replacement;  // owns `handle` while a replacing stream is open
    uint32_t desiredAccess = 0;
    // Identity of the open file (device, inode) for the in-process sharing rules.
    uint64_t fileDevice = 0;
    uint64_t fileInode = 0;
};
