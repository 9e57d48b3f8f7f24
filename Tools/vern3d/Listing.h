// What `vern3d info` and `vern3d dump` print about a decoded scene.
#pragma once

#include "vern/Vern3DDecoder.h"

#include <cstddef>
#include <ostream>
#include <string>

namespace vern3d {

// One screen: container, counts, texture table, animated nodes and meshes, the scene's sphere.
void PrintInfo(const Scene& scene, const std::string& path, std::ostream& out);

// The same as one JSON document (an object), UTF-8.
std::string InfoJson(const Scene& scene, const std::string& path);

// The whole tree: every node's record, name and keys, every mesh's header, batches, triangles,
// vertices and frames. Lists longer than `limit` are cut after `limit` entries (0: no limit).
void PrintDump(const Scene& scene, std::ostream& out, size_t limit);

// {0AB3F934-9362-11D1-9A2B-080000300512} from the bytes as stored.
std::string FormatGuid(const std::array<uint8_t, 16>& bytes);

// "position normal texture" for component flags.
std::string ComponentNames(uint32_t flags);

}  // namespace vern3d
