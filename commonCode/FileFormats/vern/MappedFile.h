// A whole file's bytes, read-only, for the decoder: mapped into memory where the platform maps
// files, read into memory elsewhere. Private to the vern3D library.
//
// While a file is mapped, another program that truncates it can make a later access end the
// process with a bus error; the decoder's users are told so.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace vern3d {

class MappedFile {
public:
    // The file's bytes, or null with a reason (the file cannot be opened, is not a regular file,
    // cannot be mapped or read, or memory runs out).
    static std::unique_ptr<MappedFile> Open(const std::string& path, std::string* error);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::span<const uint8_t> Bytes() const { return {data, size}; }

private:
    MappedFile() = default;

    const uint8_t* data = nullptr;
    size_t size = 0;
    bool mapped = false;
    std::unique_ptr<uint8_t[]> copy;  // where the file was read instead of mapped
};

}  // namespace vern3d
