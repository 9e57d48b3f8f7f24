#include "DependencyFile.h"

#include "AbstractData/streams/FileStream.h"
#include "Console.h"
#include "FilePath.h"
#include "resources/Messages.h"

#include <algorithm>
#include <string_view>

bool AppendMakeName(std::string& rule, const std::string& name, bool isOutput)
{
    // Make reads ( ) as an archive member, ; | = as rule syntax and * ? as patterns; Ninja ends a
    // name at the others. Neither has an escape for them that the other reads.
    constexpr std::string_view kUnreadable = "\"&'()*;<=>?^`|";
    std::string escaped;
    size_t backslashes = 0;  // the run of backslashes just before the current character
    for (const char c : name) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20 || code == 0x7F || kUnreadable.find(c) != std::string_view::npos || (c == '%' && isOutput))
            return false;
        if (backslashes > 0 && (c == '#' || c == ':'))
            return false;
        if (c == ' ')
            escaped.append(backslashes + 1, '\\');
        else if (c == '#' || c == ':')
            escaped += '\\';
        else if (c == '$')
            escaped += '$';
        escaped += c;
        backslashes = c == '\\' ? backslashes + 1 : 0;
    }
    if (name.empty() || backslashes > 0 || name.back() == ':')
        return false;
    rule += escaped;
    return true;
}

void DependencyFile::AddRule(const std::string& output, const std::string& input, const std::vector<std::string>& read)
{
    std::vector<std::string> rule = {output, input};
    for (const std::string& path : read)
        if (std::find(rule.begin() + 1, rule.end(), path) == rule.end())
            rule.push_back(path);
    rules.push_back(std::move(rule));
}

bool DependencyFile::Write(const std::string& path) const
{
    std::string text;
    for (const std::vector<std::string>& rule : rules) {
        for (size_t i = 0; i < rule.size(); ++i) {
            text += i == 0 ? "" : i == 1 ? ": " : " \\\n  ";
            if (!AppendMakeName(text, rule[i], i == 0)) {
                PrintErrorLine(kMessageDependencyNameUnreadable, PrintableName(path), PrintableName(rule[i]));
                return false;
            }
        }
        text += '\n';
    }
    FileStream stream;
    HRESULT status = stream.Open(path.c_str(), FileStream::CreateAlways | FileStream::WriteAccess | FileStream::ReplaceOnCommit);
    if (Succeeded(status))
        status = stream.Write(text.data(), static_cast<uint32_t>(text.size()));
    if (Succeeded(status))
        status = stream.Commit();
    if (Failed(status))
        PrintErrorLine(kMessageDependencyFileFailed, PrintableName(path));
    return Succeeded(status);
}
