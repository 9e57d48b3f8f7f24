// A file path taken apart at its last "." and its last "\" (only the backslash separates
// directories here; "/" is an ordinary character). The cut points are found once and cached.
#pragma once

#include <cstdint>
#include <string>

class FilePath {
public:
    FilePath() = default;
    explicit FilePath(std::string path) : path(std::move(path)) {}
    virtual ~FilePath() = default;

    void Set(std::string newPath);
    const std::string& Get() const { return path; }

    void Analyse();
    // The path up to, not including, its last "." (the whole path when it has none).
    std::string GetWithoutExtension();
    // The part after the last "\" (the whole path when it has none).
    std::string GetFileName();

private:
    bool analysed = false;
    std::string path;
    int32_t lastBackslash = -1;  // index after the last "\", or -1
    int32_t lastDot = -1;        // index after the last ".", or -1
};
