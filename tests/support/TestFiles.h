// Scratch files and program runs for the tests.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testfiles {

// A fresh, empty directory for one test, removed again with its contents at destruction.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string File(const std::string& name) const { return path + "/" + name; }
    // Writes `contents` to Path()/name and returns that path.
    std::string Write(const std::string& name, const std::string& contents) const;

private:
    std::string path;
};

std::string ReadText(const std::string& path);
std::vector<unsigned char> ReadBytes(const std::string& path);
inline bool Exists(const std::string& path) { return std::filesystem::exists(path); }
// The names in a folder, sorted.
std::vector<std::string> Entries(const std::string& folder);

struct RunResult {
    int exitCode = -1;
    std::string output;  // standard output and standard error
    long peakKilobytes = 0;  // the program's peak resident memory
};

// Runs `program` with `arguments` in `directory`, standard input from /dev/null.
RunResult Run(const std::string& directory, const std::string& program, const std::vector<std::string>& arguments);

}  // namespace testfiles
