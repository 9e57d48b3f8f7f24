// The small portable layer under the file and resource services: a per-thread "last error"
// in the Windows numbering, so that status values read the same on every platform.
#pragma once

#include <cstdint>

namespace platform {

// Windows error codes that the system forms from POSIX errors.
enum : uint32_t {
    ERROR_SUCCESS_CODE = 0,
    ERROR_FILE_NOT_FOUND_CODE = 2,
    ERROR_PATH_NOT_FOUND_CODE = 3,
    ERROR_TOO_MANY_OPEN_FILES_CODE = 4,
    ERROR_ACCESS_DENIED_CODE = 5,
    ERROR_INVALID_HANDLE_CODE = 6,
    ERROR_NOT_ENOUGH_MEMORY_CODE = 8,
    ERROR_WRITE_PROTECT_CODE = 19,
    ERROR_GEN_FAILURE_CODE = 31,
    ERROR_SHARING_VIOLATION_CODE = 32,
    ERROR_HANDLE_DISK_FULL_CODE = 39,
    ERROR_FILE_EXISTS_CODE = 80,
    ERROR_INVALID_PARAMETER_CODE = 87,
    ERROR_DISK_FULL_CODE = 112,
    ERROR_NEGATIVE_SEEK_CODE = 131,
    ERROR_SEEK_ON_DEVICE_CODE = 132,
    ERROR_FILENAME_EXCED_RANGE_CODE = 206,
    ERROR_FILE_TOO_LARGE_CODE = 223,
    ERROR_RESOURCE_NAME_NOT_FOUND_CODE = 1814,
    ERROR_IO_DEVICE_CODE = 1117,
};

uint32_t GetLastError();
void SetLastError(uint32_t code);

// Maps an errno value to the Windows error code a program on Windows would have seen.
uint32_t Win32ErrorFromErrno(int error);

// Sets the last error from errno and returns it.
uint32_t SetLastErrorFromErrno();

// Sets the last error for a failed open of `path` and returns it. POSIX says ENOENT both for a
// missing file and for a missing directory on the way to it; Windows tells the two apart
// (ERROR_FILE_NOT_FOUND / ERROR_PATH_NOT_FOUND), so the directory part is looked at.
uint32_t SetLastErrorFromOpenErrno(const char* path);

}  // namespace platform
