#include "vern/MappedFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#if __has_include(<sys/mman.h>)
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#define VERN3D_MAP_FILES 1
#endif

namespace vern3d {

namespace {

std::unique_ptr<MappedFile> Refuse(std::string* error, const std::string& reason)
{
    if (error)
        *error = reason;
    return nullptr;
}

}  // namespace

MappedFile::~MappedFile()
{
#ifdef VERN3D_MAP_FILES
    if (mapped)
        ::munmap(const_cast<uint8_t*>(data), size);
#endif
}

std::unique_ptr<MappedFile> MappedFile::Open(const std::string& path, std::string* error)
{
    std::unique_ptr<MappedFile> file(new (std::nothrow) MappedFile);
    if (!file)
        return Refuse(error, "out of memory");
#ifdef VERN3D_MAP_FILES
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return Refuse(error, "cannot read " + path + ": " + std::strerror(errno));
    struct stat info {};
    if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(descriptor);
        return Refuse(error, "cannot read " + path + ": not a regular file");
    }
    file->size = static_cast<size_t>(info.st_size);
    if (file->size > 0) {
        // The decoder checks every byte's structure at once: bring the pages in with one call.
        int flags = MAP_PRIVATE;
#ifdef MAP_POPULATE
        flags |= MAP_POPULATE;
#endif
        void* at = ::mmap(nullptr, file->size, PROT_READ, flags, descriptor, 0);
        if (at == MAP_FAILED) {
            const int code = errno;
            ::close(descriptor);
            return Refuse(error, "cannot map " + path + ": " + std::strerror(code));
        }
        file->data = static_cast<const uint8_t*>(at);
        file->mapped = true;
    }
    ::close(descriptor);
    return file;
#else
    std::FILE* stream = std::fopen(path.c_str(), "rb");
    if (!stream)
        return Refuse(error, "cannot read " + path);
    std::string reason;
    if (std::fseek(stream, 0, SEEK_END) == 0) {
        const long length = std::ftell(stream);
        if (length >= 0 && std::fseek(stream, 0, SEEK_SET) == 0) {
            file->size = static_cast<size_t>(length);
            file->copy.reset(new (std::nothrow) uint8_t[file->size + 1]);
            if (!file->copy)
                reason = "out of memory";
            else if (std::fread(file->copy.get(), 1, file->size, stream) != file->size)
                reason = "cannot read " + path;
            file->data = file->copy.get();
        } else {
            reason = "cannot read " + path;
        }
    } else {
        reason = "cannot read " + path;
    }
    std::fclose(stream);
    if (!reason.empty())
        return Refuse(error, reason);
    return file;
#endif
}

}  // namespace vern3d
