// Converts the input files one after the other, reporting each file's outcome: command line →
// read (Ase/) → scene → selection, directives, checks, preparation (Scene/, Output/) → write
// (Output/), each stage a function of the scene, the settings and the file's Reporter.
#pragma once

#include <string>
#include <vector>

class Reporter;
struct ConvertSettings;
struct Scene;

// Exit code under -batch when at least one input failed (1 stays for a bad command line).
constexpr int kExitInputFailed = 2;

enum class Conversion {
    Converted,
    Failed,       // an error was reported while reading, preparing or checking (or while writing,
                  // when the rules still write the file: see WriteScene)
    WriteFailed,  // the output could not be written, or was refused: -compat would change nothing
};

// Converts `input` into `output`; every report goes through `reporter`. `scene` receives what was
// read, as the later stages left it. With `write` false, everything but the writing is done: a
// trial whose outcome alone counts.
Conversion ConvertFile(const std::string& input, const std::string& output, const ConvertSettings& settings,
                       Reporter& reporter, Scene& scene, bool write = true);

// Returns the process exit code: 0, or kExitInputFailed under -batch after a failed input.
int ConvertFiles(const ConvertSettings& settings, const std::vector<std::string>& inputFiles,
                 const std::string& outputName);
