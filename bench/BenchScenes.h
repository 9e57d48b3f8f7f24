// Generated ASE scenes for the benchmarks, written once into the temporary directory and kept
// there for later runs: textured grid meshes with full normals, a mesh animated over many frames,
// many small objects sharing materials.
#pragma once

#include <string>

namespace benchscenes {

// A path in the temporary directory.
std::string TempFile(const std::string& name);
// A square grid of about `faces` triangles, one smoothing group, a diffuse map.
std::string GridFile(int faces);
// A mesh of `vertices` vertices (a strip of triangles) animated over `frames` frames.
std::string AnimationFile(int vertices, int frames);
// Many small objects (a closed box of 12 faces each, every third one two-sided) sharing three
// materials, in a flat list under the root.
std::string ObjectsFile(int objects);

}  // namespace benchscenes
