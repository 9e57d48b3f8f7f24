#include "CommandLine.h"

#include "Console.h"
#include "FilePath.h"
#include "resources/Messages.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

CommandLineTokens::CommandLineTokens(int argc, const char* const* argv)
{
    for (int i = 1; i < argc; ++i) {
        if (!line.empty())
            line += ' ';
        const std::string argument = argv[i] ? argv[i] : "";
        if (!argument.empty() && (argument[0] == '-' || argument[0] == '/')) {
            line += argument;
        } else {
            line += '"';
            line += argument;
            line += '"';
        }
    }
}

void CommandLineTokens::ReadWord(std::string& token)
{
    token.clear();
    if (position < line.size() && line[position] == '"') {
        ++position;
        const size_t close = line.find('"', position);
        const size_t end = close == std::string::npos ? line.size() : close;
        token.assign(line, position, end - position);
        position = close == std::string::npos ? end : close + 1;
        return;
    }
    const size_t space = line.find(' ', position);
    const size_t end = space == std::string::npos ? line.size() : space;
    token.assign(line, position, end - position);
    position = end;
}

CommandLineTokens::Kind CommandLineTokens::Next(std::string& token)
{
    while (position < line.size() && line[position] == ' ')
        ++position;
    if (position >= line.size())
        return TokenEnd;
    if (line[position] == '-' || line[position] == '/') {
        ++position;
        ReadWord(token);
        return TokenOption;
    }
    ReadWord(token);
    return TokenArgument;
}

namespace {

struct FlagOption {
    const char* word;
    uint32_t bit;
};

// More threads than this would only wait for one another.
constexpr uint32_t kMaxThreads = 256;

constexpr FlagOption kMeshAnimOptions[] = {
    {"map", 1}, {"man", 2}, {"mac", 4}, {"mam", 8}, {"mat", 16},
};

}  // namespace

CommandLineResult ReadCommandLine(int argc, const char* const* argv, ConvertSettings& settings,
                                  CommandLine& result)
{
    CommandLineTokens tokens(argc, argv);
    std::string token;
    CommandLineTokens::Kind kind = tokens.Next(token);

    // Reads the value of an option that needs one; false when the next token is no argument.
    auto takeValue = [&](std::string& value) {
        kind = tokens.Next(token);
        if (kind != CommandLineTokens::TokenArgument)
            return false;
        value = token;
        return true;
    };

    while (kind != CommandLineTokens::TokenEnd) {
        if (kind == CommandLineTokens::TokenArgument) {
            result.inputFiles.push_back(token);
            kind = tokens.Next(token);
            continue;
        }
        const std::string option = token;
        if (option == "h" || option == "?") {
            PrintMessage(2);
        } else if (option == "o") {
            if (!takeValue(result.outputName))
                return CommandLineResult::MissingValue;
        } else if (option == "ma") {
            if (!takeValue(settings.meshOpsFile))
                return CommandLineResult::MissingValue;
        } else if (option == "vertexdir") {
            if (!takeValue(settings.vertexFolder))
                return CommandLineResult::MissingValue;
        } else if (option == "depfile") {
            if (!takeValue(settings.dependencyFile))
                return CommandLineResult::MissingValue;
        } else if (option == "analyse") {
            std::string value;
            if (!takeValue(value))
                return CommandLineResult::MissingValue;
            settings.analyse = static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10));  // atol's reading, without its overflow
        } else if (option == "weld") {
            std::string value;
            if (!takeValue(value))
                return CommandLineResult::MissingValue;
            char* end = nullptr;
            const double tolerance = std::strtod(value.c_str(), &end);
            if (value.empty() || *end != '\0' || !std::isfinite(tolerance) || tolerance < 0.0)
                PrintFormattedMessage(kMessageWeldToleranceInvalid, value.c_str(), settings.weldTolerance);
            else
                settings.weldTolerance = tolerance;
        } else if (option == "threads") {
            std::string value;
            if (!takeValue(value))
                return CommandLineResult::MissingValue;
            char* end = nullptr;
            const unsigned long count = std::strtoul(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || count > kMaxThreads)
                PrintFormattedMessage(kMessageThreadCountInvalid, value.c_str(), kMaxThreads, settings.threads);
            else
                settings.threads = static_cast<uint32_t>(count);
        } else if (option == "ivertex") {
            settings.ivertex = true;
        } else if (option == "overtex") {
            settings.overtex = true;
        } else if (option == "compat") {
            settings.compat = true;
        } else if (option == "batch") {
            settings.batch = true;
        } else if (option == "uri") {
            settings.uri = true;
        } else if (option == "obj") {
            kind = tokens.Next(token);
            while (kind == CommandLineTokens::TokenArgument) {
                settings.objectNames.push_back(token);
                kind = tokens.Next(token);
            }
            continue;  // the token that ended the list is processed normally
        } else {
            bool known = false;
            for (const FlagOption& flag : kMeshAnimOptions) {
                if (option == flag.word) {
                    settings.meshAnimFlags |= flag.bit;
                    known = true;
                }
            }
            // An unknown option is named and skipped, so that a script with a retired switch
            // still converts its files.
            if (!known)
                PrintFormattedMessage(kMessageUnknownOption, option.c_str());
        }
        kind = tokens.Next(token);
    }
    // -overtex is accepted and changes nothing; -ivertex clears it (the render data then comes
    // from vertex files), once, here: settings stay as read while files are converted.
    if (settings.ivertex)
        settings.overtex = false;
    // Under -uri the names are taken apart once the whole line has been read, so the switch may
    // stand anywhere.
    if (settings.uri) {
        for (std::string& input : result.inputFiles)
            input = PathFromName(input, true);
        result.outputName = PathFromName(result.outputName, true);
        settings.meshOpsFile = PathFromName(settings.meshOpsFile, true);
        settings.vertexFolder = PathFromName(settings.vertexFolder, true);
        settings.dependencyFile = PathFromName(settings.dependencyFile, true);
    }
    return CommandLineResult::Ok;
}

std::string PathFromName(const std::string& name, bool uri)
{
    constexpr std::string_view kScheme = "file:";
    if (!uri || name.compare(0, kScheme.size(), kScheme) != 0)
        return name;
    std::string path = name.substr(kScheme.size());
    // file://PATH with an empty host: the path keeps its own leading "/".
    if (path.compare(0, 3, "///") == 0)
        path.erase(0, 2);
    return path;
}

std::string OutputFileName(const std::string& inputName, const std::string& outputName)
{
    FilePath path(outputName.empty() ? inputName : outputName);
    return path.GetWithoutExtension() + ".vern3D";
}
