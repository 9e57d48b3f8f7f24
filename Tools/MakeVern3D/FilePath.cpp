#include "FilePath.h"

#include "CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

void FilePath::Set(std::string newPath)
{
    path = std::move(newPath);
    analysed = false;
}

void FilePath::Analyse()
{
    if (analysed)
        return;
    lastBackslash = -1;
    lastDot = -1;
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\')
            lastBackslash = static_cast<int32_t>(i + 1);
        else if (path[i] == '.')
            lastDot = static_cast<int32_t>(i + 1);
    }
    analysed = true;
}

std::string FilePath::GetWithoutExtension()
{
    Analyse();
    if (lastDot == -1)
        return path;
    return path.substr(0, static_cast<size_t>(lastDot - 1));
}

std::string FilePath::GetFileName()
{
    Analyse();
    if (lastBackslash == -1)
        return path;
    return path.substr(static_cast<size_t>(lastBackslash));
}

namespace {

bool IsControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

std::string Resolved(const std::string& path)
{
    char* real = ::realpath(path.c_str(), nullptr);
    if (real == nullptr)
        return {};
    std::string resolved = real;
    std::free(real);
    return resolved;
}

}  // namespace

VertexFileLocation LocateVertexFile(const std::string& objectName, const std::string& folder, bool uri)
{
    const std::string name = PathFromName(objectName, uri);
    if (std::any_of(name.begin(), name.end(), IsControl))
        return {VertexFileVerdict::ControlCharacter, {}};
    if (!name.empty() && name[0] == '/')
        return {VertexFileVerdict::Absolute, {}};
    for (size_t start = 0; start <= name.size();) {
        const size_t slash = std::min(name.find('/', start), name.size());
        if (name.compare(start, slash - start, "..") == 0 && slash - start == 2)
            return {VertexFileVerdict::ParentStep, {}};
        start = slash + 1;
    }
    if (name.empty())
        return {VertexFileVerdict::Missing, {}};

    const std::string root = Resolved(folder.empty() ? "." : folder);
    if (root.empty())
        return {VertexFileVerdict::FolderMissing, {}};
    const std::string file = Resolved(NamedVertexFile(objectName, folder, uri));
    if (file.empty())
        return {VertexFileVerdict::Missing, {}};
    // The folder itself counts as inside: it is then refused as no regular file.
    const bool inside = root == "/" || file == root ||
                        (file.compare(0, root.size(), root) == 0 && file[root.size()] == '/');
    if (!inside)
        return {VertexFileVerdict::Outside, {}};
    return {VertexFileVerdict::Inside, file};
}

std::string NamedVertexFile(const std::string& objectName, const std::string& folder, bool uri)
{
    const std::string name = PathFromName(objectName, uri);
    return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

std::string PrintableName(const std::string& name)
{
    std::string printable;
    for (char c : name) {
        if (IsControl(c)) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
            printable += escaped;
        } else {
            printable += c;
        }
    }
    return printable;
}
