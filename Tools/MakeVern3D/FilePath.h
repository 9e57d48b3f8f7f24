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

// Where the vertex file of an object lies (-ivertex). The object's name (under -uri with a
// leading "file:" taken off) is a path relative to the vertex folder (-vertexdir, else the
// current folder). The name itself is judged before anything is looked up: an absolute name, a
// ".." component and control characters (NUL included) are refused. Then the path is resolved,
// symbolic links followed, and must stay inside the folder as resolved.
enum class VertexFileVerdict {
    Inside,            // `path` is the resolved file, inside the folder
    Absolute,
    ParentStep,        // a ".." component
    ControlCharacter,
    Outside,           // resolves (through a link) outside the folder
    Missing,           // nothing of that name, or the name is empty
    FolderMissing,     // the vertex folder itself cannot be resolved
};

struct VertexFileLocation {
    VertexFileVerdict verdict = VertexFileVerdict::Missing;
    std::string path;
};

VertexFileLocation LocateVertexFile(const std::string& objectName, const std::string& folder, bool uri);
// The vertex file as named, before links are followed: the folder joined with the object's name.
std::string NamedVertexFile(const std::string& objectName, const std::string& folder, bool uri);

// A name as a message may show it: control characters as \xNN, so that none reaches the console.
std::string PrintableName(const std::string& name);
