// The command line: the arguments are joined into one line and read back as tokens, so that an
// argument holding spaces stays one input name while an option argument splits at its spaces.
#pragma once

#include "ConvertSettings.h"

#include <string>
#include <vector>

class CommandLineTokens {
public:
    enum Kind { TokenArgument = 0, TokenOption = 1, TokenEnd = 2 };

    CommandLineTokens(int argc, const char* const* argv);

    // Fills `token` with the next token's text (an option without its "-" or "/").
    // At the end the token keeps its previous text.
    Kind Next(std::string& token);

    const std::string& Line() const { return line; }

private:
    void ReadWord(std::string& token);

    std::string line;
    size_t position = 0;
};

struct CommandLine {
    std::vector<std::string> inputFiles;
    std::string outputName;  // empty without -o
};

enum class CommandLineResult { Ok, MissingValue };

// Reads every token: arguments become input files, options fill `settings` and `result`.
// Prints the help text for -h and -? at the point where it stands. Returns MissingValue when
// -o, -ma, -analyse, -vertexdir or -depfile is not followed by an argument (the caller prints
// message 3 and stops).
CommandLineResult ReadCommandLine(int argc, const char* const* argv, ConvertSettings& settings,
                                  CommandLine& result);

// A file name as given on the command line, or under -uri with a leading "file:" taken off:
// file:/a/b.ase and file:///a/b.ase name /a/b.ase, file:b.ase names b.ase. Other names, and
// every name without -uri, stay as they are.
std::string PathFromName(const std::string& name, bool uri);

// The output file name of an input: the -o name if given, else the input name, cut at its last
// "." and extended with ".vern3D".
std::string OutputFileName(const std::string& inputName, const std::string& outputName);
