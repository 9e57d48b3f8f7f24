// A new version of a file, written beside it under a temporary name and put in its place only
// when it is complete, so that a failed or interrupted write leaves the earlier file as it was.
//
// - Create makes "<target>.<6 characters>.tmp" in the target's folder (O_EXCL, mode 0666 less the
//   umask, or the earlier file's mode when there is one). A symbolic link to a regular file is
//   followed: the file it names is replaced, the link stays.
// - Commit closes the temporary file and renames it over the target, in one step for every
//   reader of the folder; on any failure the temporary file is removed.
// - Discard, and the destructor of a file that was not committed, close and remove it.
// Only a process killed between Create and Commit leaves the temporary file behind.
// Every failing call returns an errno value (0: success) and leaves errno set to it.
// Not thread-safe: one owner at a time.
#pragma once

#include <string>

class ReplacementFile {
public:
    ReplacementFile() = default;
    ~ReplacementFile() { Discard(); }
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;

    // Whether `target` can be replaced this way: it does not exist yet, or it is a regular file
    // (or a link to one). Devices, pipes, directories and dangling links are written in place.
    static bool Replaceable(const std::string& target);

    int Create(const std::string& target);
    int Commit();
    void Discard();

    // The open temporary file, -1 before Create and after Commit or Discard.
    int Descriptor() const { return descriptor; }
    const std::string& TemporaryPath() const { return temporaryPath; }
    // The file that Commit replaces (the target, or the file a link to it names).
    const std::string& TargetPath() const { return targetPath; }

private:
    int descriptor = -1;
    std::string targetPath;
    std::string temporaryPath;
};
