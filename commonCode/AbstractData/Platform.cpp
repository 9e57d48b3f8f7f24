#include "AbstractData/Platform.h"

#include <cerrno>
#include <string>
#include <sys/stat.h>

namespace platform {

namespace {
thread_local uint32_t lastError = 0;
}

uint32_t GetLastError() { return lastError; }
void SetLastError(uint32_t code) { lastError = code; }

uint32_t Win32ErrorFromErrno(int error)
{
    switch (error) {
    case 0: return ERROR_SUCCESS_CODE;
    case ENOENT: return ERROR_FILE_NOT_FOUND_CODE;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND_CODE;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES_CODE;
    case EACCES:
    case EPERM:
    case EISDIR: return ERROR_ACCESS_DENIED_CODE;
    case EBADF: return ERROR_INVALID_HANDLE_CODE;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY_CODE;
    case EROFS: return ERROR_WRITE_PROTECT_CODE;
    case EBUSY:
    case ETXTBSY: return ERROR_SHARING_VIOLATION_CODE;
    case EEXIST: return ERROR_FILE_EXISTS_CODE;
    case EINVAL: return ERROR_INVALID_PARAMETER_CODE;
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL_CODE;
    case EFBIG: return ERROR_HANDLE_DISK_FULL_CODE;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE_CODE;
    case EIO: return ERROR_IO_DEVICE_CODE;
    case ESPIPE: return ERROR_SEEK_ON_DEVICE_CODE;
    default: return ERROR_GEN_FAILURE_CODE;
    }
}

uint32_t SetLastErrorFromErrno()
{
    lastError = Win32ErrorFromErrno(errno);
    return lastError;
}

namespace {

bool DirectoryPartExists(const char* path)
{
    std::string directory(path);
    while (directory.size() > 1 && directory.back() == '/')
        directory.pop_back();
    const size_t slash = directory.rfind('/');
    if (slash == std::string::npos)
        return true;  // a bare name lives in the current directory
    directory.resize(slash == 0 ? 1 : slash);
    struct stat info {};
    return ::stat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

uint32_t SetLastErrorFromOpenErrno(const char* path)
{
    const int error = errno;
    if (error == ENOENT && (path == nullptr || *path == '\0' || !DirectoryPartExists(path)))
        lastError = ERROR_PATH_NOT_FOUND_CODE;
    else
        lastError = Win32ErrorFromErrno(error);
    return lastError;
}

}  // namespace platform
