#include "AbstractData/streams/FileStream.h"

#include "AbstractData/Platform.h"
#include "AbstractData/Trace.h"
#include "AbstractData/streams/ReplacementFile.h"

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSource = "commonCode/AbstractData/streams/FileStream";

// The places the reports name; tools that read the trace know the stream by these lines.
enum ReportLine : int {
    kLineDestructor = 24,
    kLineOpenMessage = 68,
    kLineOpen = 71,
    kLineRead = 107,
    kLineWrite = 130,
    kLineGetPosition = 161,
    kLineSetPosition = 187,
};

// Access and share bits as the Windows sharing rules use them.
constexpr uint32_t kAccessRead = 1;
constexpr uint32_t kAccessWrite = 2;
constexpr uint32_t kShareRead = 1;

constexpr uint64_t kMaxPosition = 0xFFFFFFFFu;
constexpr uint32_t kInvalidPosition = 0xFFFFFFFFu;

HRESULT FailWith(uint32_t code)
{
    platform::SetLastError(code);
    return HResultFromWin32(code);
}

HRESULT FailFromErrno() { return HResultFromWin32(platform::SetLastErrorFromErrno()); }

// Windows refuses a second open of a file whose holders did not share the access it asks for
// (and the other way round). POSIX has no such rule, so the process keeps its own book of the
// files it holds open; other processes are not covered.
class ShareRegistry {
public:
    static ShareRegistry& Instance()
    {
        static ShareRegistry registry;
        return registry;
    }

    bool TryAdd(std::pair<uint64_t, uint64_t> file, const FileStream* owner, uint32_t access, uint32_t share)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        std::vector<Holder>& holders = opens[file];
        for (const Holder& holder : holders) {
            const bool compatible = ((access & kAccessRead) == 0 || (holder.share & kShareRead) != 0) &&
                                    ((access & kAccessWrite) == 0) &&  // nobody ever shares writing
                                    ((holder.access & kAccessRead) == 0 || (share & kShareRead) != 0) &&
                                    ((holder.access & kAccessWrite) == 0);
            if (!compatible)
                return false;
        }
        holders.push_back({owner, access, share});
        return true;
    }

    void Remove(std::pair<uint64_t, uint64_t> file, const FileStream* owner)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = opens.find(file);
        if (found == opens.end())
            return;
        std::vector<Holder>& holders = found->second;
        for (auto it = holders.begin(); it != holders.end(); ++it) {
            if (it->owner == owner) {
                holders.erase(it);
                break;
            }
        }
        if (holders.empty())
            opens.erase(found);
    }

private:
    struct Holder {
        const FileStream* owner;
        uint32_t access;
        uint32_t share;
    };
    std::mutex mutex;
    std::map<std::pair<uint64_t, uint64_t>, std::vector<Holder>> opens;
};

// Positions are 32-bit: a transfer that would carry the position past 4 GiB is refused before
// any byte moves, instead of leaving a file whose positions can no longer be told.
bool TransferFits(int fd, uint32_t size)
{
    const off_t position = ::lseek(fd, 0, SEEK_CUR);
    return position < 0 || static_cast<uint64_t>(position) + size <= kMaxPosition;
}

}  // namespace

FileStream::~FileStream()
{
    const HRESULT status = Close();
    if (Failed(status))
        AssertHresult(kSource, kLineDestructor, status);
}

HRESULT FileStream::Open(const char* fileName, uint32_t flags)
{
    Close();
    const char* name = fileName != nullptr ? fileName : "";
    const bool write = (flags & WriteAccess) != 0;
    const bool read = !write || (flags & ReadAccess) != 0;
    const bool create = (flags & CreateAlways) != 0;
    const uint32_t access = (read ? kAccessRead : 0) | (write ? kAccessWrite : 0);
    const uint32_t share = write ? 0 : kShareRead;

    int mode = O_RDONLY;
    if (write)
        mode = read ? O_RDWR : O_WRONLY;
    else if (create)
        mode = O_RDWR;  // truncating needs a writable descriptor; Write still refuses by access
    // No O_TRUNC: a file whose open is refused for sharing must keep its contents.
    const int openFlags = mode | O_CLOEXEC | O_NOCTTY | (create ? O_CREAT : 0);

    int fd = -1;
    if (write && create && (flags & ReplaceOnCommit) != 0 && ReplacementFile::Replaceable(name)) {
        auto file = std::make_unique<ReplacementFile>();
        if (file->Create(name) == 0) {
            fd = file->Descriptor();
            replacement = std::move(file);
        }
    } else {
        do
            fd = ::open(name, openFlags, 0666);
        while (fd < 0 && errno == EINTR);
    }

    HRESULT status = S_OK;
    if (fd < 0) {
        status = HResultFromWin32(platform::SetLastErrorFromOpenErrno(name));
    } else {
        struct stat info {};
        const bool known = ::fstat(fd, &info) == 0;
        // A replacing stream holds the file it is going to replace, for the sharing rules.
        struct stat target {};
        if (known && replacement && ::stat(replacement->TargetPath().c_str(), &target) == 0)
            info = target;
        if (!known) {
            status = FailFromErrno();
        } else if (S_ISDIR(info.st_mode)) {
            status = FailWith(platform::ERROR_ACCESS_DENIED_CODE);  // a directory is no file stream
        } else if (!ShareRegistry::Instance().TryAdd({info.st_dev, info.st_ino}, this, access, share)) {
            status = FailWith(platform::ERROR_SHARING_VIOLATION_CODE);
        } else if (create && !replacement && S_ISREG(info.st_mode) && ::ftruncate(fd, 0) != 0) {
            status = FailFromErrno();
            ShareRegistry::Instance().Remove({info.st_dev, info.st_ino}, this);
        }
        if (Failed(status) && replacement) {
            replacement.reset();  // removes the temporary file
        } else if (Failed(status)) {
            ::close(fd);
        } else {
            handle = fd;
            desiredAccess = access;
            fileDevice = info.st_dev;
            fileInode = info.st_ino;
        }
    }

    if (Failed(status)) {
        TracePrintf("%s(%d) : %s", kSource, kLineOpenMessage, "Error: Open file '%s' failed.\n", name);
        AssertHresult(kSource, kLineOpen, status);
    }
    return status;
}

HRESULT FileStream::Close()
{
    if (handle < 0)
        return S_OK;
    ShareRegistry::Instance().Remove({fileDevice, fileInode}, this);
    const int fd = handle;
    handle = -1;
    desiredAccess = 0;
    if (replacement) {
        replacement.reset();  // not committed: the temporary file goes, the named file stays
        return S_OK;
    }
    // Some file systems report a failed delayed write only here; EINTR still closes on Linux.
    if (::close(fd) != 0 && errno != EINTR)
        return FailFromErrno();
    return S_OK;
}

HRESULT FileStream::Commit()
{
    if (!replacement)
        return handle < 0 ? E_UNEXPECTED : Close();
    ShareRegistry::Instance().Remove({fileDevice, fileInode}, this);
    handle = -1;
    desiredAccess = 0;
    const int error = replacement->Commit();
    replacement.reset();
    return error == 0 ? S_OK : FailFromErrno();
}

// One logical transfer of `size` bytes. POSIX may move them in pieces, so keep going until the
// end of the file or an error; moving a different number of bytes than asked is a failure
// whatever the platform said.
template <typename Transfer>
HRESULT FileStream::TransferAll(uint32_t access, const void* buffer, uint32_t size, int reportLine, Transfer transfer)
{
    if (handle < 0)
        return AssertHresult(kSource, reportLine, E_UNEXPECTED);

    HRESULT status = S_OK;
    uint32_t done = 0;
    if ((desiredAccess & access) == 0) {
        status = FailWith(platform::ERROR_ACCESS_DENIED_CODE);
    } else if (size > 0 && buffer == nullptr) {
        status = FailWith(platform::ERROR_INVALID_PARAMETER_CODE);
    } else if (!TransferFits(handle, size)) {
        status = FailWith(platform::ERROR_FILE_TOO_LARGE_CODE);
    } else {
        while (done < size) {
            const ssize_t count = transfer(done);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                status = FailFromErrno();
            if (count <= 0)
                break;
            done += static_cast<uint32_t>(count);
        }
    }
    if (done != size)
        status = E_FAIL;
    if (Failed(status))
        AssertHresult(kSource, reportLine, status);
    return status;
}

HRESULT FileStream::Read(void* buffer, uint32_t size)
{
    auto* bytes = static_cast<uint8_t*>(buffer);
    return TransferAll(kAccessRead, buffer, size, kLineRead,
                       [&](uint32_t done) { return ::read(handle, bytes + done, size - done); });
}

HRESULT FileStream::Write(const void* buffer, uint32_t size)
{
    // A short write (a full disk, a file size limit) is followed by one that names the error.
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    return TransferAll(kAccessWrite, buffer, size, kLineWrite,
                       [&](uint32_t done) { return ::write(handle, bytes + done, size - done); });
}

HRESULT FileStream::GetPosition(uint32_t* position)
{
    HRESULT status = S_OK;
    uint32_t value = kInvalidPosition;
    if (handle < 0) {
        status = FailWith(platform::ERROR_INVALID_HANDLE_CODE);
    } else {
        const off_t current = ::lseek(handle, 0, SEEK_CUR);
        if (current < 0)
            status = FailFromErrno();
        else if (static_cast<uint64_t>(current) > kMaxPosition)
            status = FailWith(platform::ERROR_FILE_TOO_LARGE_CODE);
        else
            value = static_cast<uint32_t>(current);
    }
    if (position != nullptr)
        *position = value;
    else if (Succeeded(status))
        status = E_INVALIDARG;
    if (Failed(status))
        AssertHresult(kSource, kLineGetPosition, status);
    return status;
}

HRESULT FileStream::SetPosition(uint32_t origin, int32_t offset)
{
    HRESULT status = S_OK;
    if (origin > 2) {
        status = FailWith(platform::ERROR_INVALID_PARAMETER_CODE);
    } else if (handle < 0) {
        status = FailWith(platform::ERROR_INVALID_HANDLE_CODE);
    } else {
        // Work out the target first so that a refused move leaves the position where it was.
        int64_t base = 0;
        if (origin == 1) {
            base = ::lseek(handle, 0, SEEK_CUR);
        } else if (origin == 2) {
            struct stat info {};
            base = ::fstat(handle, &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
        }
        const int64_t target = base + offset;
        if (base < 0)
            status = FailFromErrno();
        else if (target < 0)
            status = FailWith(platform::ERROR_NEGATIVE_SEEK_CODE);
        else if (static_cast<uint64_t>(target) > kMaxPosition)
            status = FailWith(platform::ERROR_INVALID_PARAMETER_CODE);
        else if (::lseek(handle, static_cast<off_t>(target), SEEK_SET) < 0)
            status = FailFromErrno();
    }
    if (Failed(status))
        AssertHresult(kSource, kLineSetPosition, status);
    return status;
}
