// The vern3d command line: info, dump, check and export over the decoder.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vern3d {

constexpr int kExitOk = 0;
constexpr int kExitBadFile = 1;  // a file that does not decode, or an export that failed
constexpr int kExitUsage = 2;

int RunCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace vern3d
