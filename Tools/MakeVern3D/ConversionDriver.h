// Converts the input files one after the other with one reader, reporting each file's outcome.
#pragma once

#include <string>
#include <vector>

class AseParser;

// Returns the process exit code (0).
int ConvertFiles(AseParser& reader, const std::vector<std::string>& inputFiles, const std::string& outputName);
