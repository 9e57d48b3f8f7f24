// An unbuffered byte stream over one open file, with 32-bit positions and status values.
#pragma once

#include "InputStream.h"
#include "OutputStream.h"

#include <cstdint>

class FileStream : public InputStream, public OutputStream {
public:
    enum OpenFlags : uint32_t {
        CreateAlways = 1,  // create or truncate; without it the file must exist
        WriteAccess = 2,   // write access, no sharing; without it read access shared with readers
        ReadAccess = 4,    // read access in addition
    };

    FileStream() = default;
    ~FileStream() override;
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    HRESULT Open(const char* fileName, uint32_t flags);
    HRESULT Close();
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
    uint32_t desiredAccess = 0;
    // Identity of the open file (device, inode) for the in-process sharing rules.
    uint64_t fileDevice = 0;
    uint64_t fileInode = 0;
};
