#include "Platform.h"

#include <cerrno>

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
    default: return ERROR_GEN_FAILURE_CODE;
    }
}

uint32_t SetLastErrorFromErrno()
{
    lastError = Win32ErrorFromErrno(errno);
    return lastError;
}

}  // namespace platform
