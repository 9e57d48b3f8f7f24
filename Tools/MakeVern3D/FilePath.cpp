#include "FilePath.h"

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
