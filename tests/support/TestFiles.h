// Scratch files and program runs for the tests.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testfiles {

// A fresh, empty directory for one test, removed again with its contents at destruction.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string File(const std::string& name) const { return path + "/" + name; }
    // Writes `contents` to Path()/name and returns that path.
    std::string Write(const std::string& name, const std::string& contents) const;

private:
    std::string path;
};

std::string ReadText(const std::string& path);
std::vector<unsigned char> ReadBytes(const std::string& path);
inline bool Exists(const std::string& path) { return std::filesystem::exists(path); }
// The names in a folder, sorted.
std::vector<std::string> Entries(const std::string& folder);

struct RunResult {
    int exitCode = -1;
    std::string output;  // standard output and standard error
    long peakKilobytes = 0;  // the program's peak resident memory
};

// Runs `program` with `arguments` in `directory`, standard input from /dev/null.
RunResult Run(const std::string& directory, const std::string& program, const std::vector<std::string>& arguments);
#ifdef MAKEVERN3D_EXE
inline RunResult Convert(const ScratchDirectory& directory, const std::vector<std::string>& arguments)
{
    return Run(directory.Path(), MAKEVERN3D_EXE, arguments);
}
#endif

inline const std::string kCompiled = "File successful compiled.\n";
// ASE text: a mesh of one triangle (material 0), and an object named `name` holding it, then `extra`.
inline const std::string kTriangleMesh =
    "*MESH {\n*MESH_NUMVERTEX 3\n*MESH_NUMFACES 1\n*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 0 0 0\n*MESH_VERTEX 1 1 0 0\n"
    "*MESH_VERTEX 2 0 1 0\n}\n*MESH_FACE_LIST {\n*MESH_FACE 0: A: 0 B: 1 C: 2 AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING 1 "
    "*MESH_MTLID 0\n}\n}\n";
inline std::string TriangleObject(const std::string& name, const std::string& extra = "*MATERIAL_REF 0\n")
{
    return "*GEOMOBJECT {\n*NODE_NAME \"" + name + "\"\n" + kTriangleMesh + extra + "}\n";
}

}  // namespace testfiles
