// Converts the input files one after the other with one reader, reporting each file's outcome.
#pragma once

#include <string>
#include <vector>

class AseParser;

// Exit code under -batch when at least one input failed (1 stays for a bad command line).
constexpr int kExitInputFailed = 2;

// Returns the process exit code: 0, or kExitInputFailed under -batch after a failed input.
int ConvertFiles(AseParser& reader, const std::vector<std::string>& inputFiles, const std::string& outputName);
