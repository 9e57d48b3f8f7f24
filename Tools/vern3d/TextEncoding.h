// Names in vern3D files are bytes in whatever code page the source scene used; JSON and glTF
// need UTF-8. Valid UTF-8 passes unchanged; any other byte is read as Latin-1.
#pragma once

#include <string>

namespace vern3d {

std::string ToUtf8(const std::string& bytes);

}  // namespace vern3d
