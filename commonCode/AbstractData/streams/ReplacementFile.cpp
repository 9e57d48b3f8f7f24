#include "AbstractData/streams/ReplacementFile.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Room for ".XXXXXX.tmp" within the longest file name a folder takes.
constexpr size_t kLongestStem = 200;
constexpr int kAttempts = 100;

// Six characters that differ between calls and between processes.
std::string UniqueSuffix()
{
    static std::atomic<uint64_t> counter{0};
    const uint64_t now = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    uint64_t mixed = (now ^ (static_cast<uint64_t>(::getpid()) << 32) ^ (counter++ * 0x9E3779B97F4A7C15ull));
    mixed ^= mixed >> 29;
    mixed *= 0xBF58476D1CE4E5B9ull;
    mixed ^= mixed >> 32;
    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string suffix(6, '0');
    for (char& c : suffix) {
        c = digits[mixed % 62];
        mixed /= 62;
    }
    return suffix;
}

// The target with a link at its end followed; false when that names something other than a
// regular file (or a dangling link), true also when nothing of that name exists.
bool ResolveTarget(const std::string& target, std::string* resolved, struct stat* info, bool* exists)
{
    *exists = false;
    *resolved = target;
    struct stat link {};
    if (::lstat(target.c_str(), &link) != 0)
        return errno == ENOENT;
    if (S_ISLNK(link.st_mode)) {
        char* real = ::realpath(target.c_str(), nullptr);
        if (real == nullptr)
            return false;  // dangling, or a loop
        *resolved = real;
        std::free(real);
        if (::stat(resolved->c_str(), &link) != 0)
            return false;
    }
    *info = link;
    *exists = true;
    return S_ISREG(link.st_mode);
}

}  // namespace

bool ReplacementFile::Replaceable(const std::string& target)
{
    std::string resolved;
    struct stat info {};
    bool exists = false;
    return ResolveTarget(target, &resolved, &info, &exists);
}

int ReplacementFile::Create(const std::string& target)
{
    Discard();
    struct stat info {};
    bool exists = false;
    if (!ResolveTarget(target, &targetPath, &info, &exists))
        return errno = EINVAL;
    // Renaming would replace a file that may not be written: refuse it as opening it would.
    if (exists && ::faccessat(AT_FDCWD, targetPath.c_str(), W_OK, AT_EACCESS) != 0)
        return errno;

    const size_t slash = targetPath.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : targetPath.substr(0, slash + 1);
    std::string stem = slash == std::string::npos ? targetPath : targetPath.substr(slash + 1);
    if (stem.size() > kLongestStem)
        stem.resize(kLongestStem);
    int error = EEXIST;
    for (int attempt = 0; attempt < kAttempts && error == EEXIST; ++attempt) {
        temporaryPath = folder + stem + "." + UniqueSuffix() + ".tmp";
        descriptor = ::open(temporaryPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666);
        error = descriptor < 0 ? errno : 0;
    }
    if (error == 0 && exists && ::fchmod(descriptor, info.st_mode & 07777) != 0)
        error = errno;
    if (error != 0) {
        if (descriptor >= 0)
            Discard();
        temporaryPath.clear();
        return errno = error;
    }
    return 0;
}

int ReplacementFile::Commit()
{
    if (descriptor < 0)
        return errno = EBADF;
    const int fd = descriptor;
    descriptor = -1;
    // Some file systems report a failed delayed write only when the file is closed.
    int error = ::close(fd) != 0 && errno != EINTR ? errno : 0;
    if (error == 0 && std::rename(temporaryPath.c_str(), targetPath.c_str()) != 0)
        error = errno;
    if (error != 0)
        ::unlink(temporaryPath.c_str());
    temporaryPath.clear();
    return errno = error;
}

void ReplacementFile::Discard()
{
    if (descriptor < 0)
        return;
    const int saved = errno;
    ::close(descriptor);
    descriptor = -1;
    ::unlink(temporaryPath.c_str());
    temporaryPath.clear();
    errno = saved;
}
