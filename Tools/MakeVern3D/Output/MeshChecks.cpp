// What is checked before anything is written: a mesh's material reference and corners, or, under
// -ivertex, the vertex file that replaces its render mesh. A FIFO or a device is never waited on;
// nothing read from a vertex file that fails its checks is shown.
#include "ConvertSettings.h"
#include "FilePath.h"
#include "Output/SceneFile.h"
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Reads `count` records of `size` bytes after checking that the file holds them.
template <typename Record>
bool ReadRecords(std::FILE* file, uint64_t& remaining, std::vector<Record>& records)
{
    uint32_t count = 0;
    if (remaining < sizeof count || std::fread(&count, sizeof count, 1, file) != 1)
        return false;
    remaining -= sizeof count;
    if (count > remaining / sizeof(Record))
        return false;
    records.resize(count);
    if (count && std::fread(records.data(), sizeof(Record), count, file) != count)
        return false;
    remaining -= uint64_t{count} * sizeof(Record);
    return true;
}

}  // namespace

bool CheckMeshes(Scene& scene, const ConvertSettings& settings, Reporter& reporter)
{
    std::vector<BaseNode*> pending{scene.root.get()};
    while (!pending.empty()) {
        BaseNode* node = pending.back();
        pending.pop_back();
        if (auto* meshNode = dynamic_cast<MeshNode*>(node); meshNode && !meshNode->CheckBeforeWrite(scene, settings, reporter))
            return false;
        for (auto child = node->Children().rbegin(); child != node->Children().rend(); ++child)
            pending.push_back(child->get());
    }
    return true;
}

bool MeshNode::CheckBeforeWrite(Scene& scene, const ConvertSettings& settings, Reporter& reporter)
{
    if (mesh.faces.empty())
        return true;
    const int32_t line = scene.endLine;
    if (settings.ivertex) {
        if (!ReadVertexFile(settings, reporter, line))
            return false;
        scene.filesRead.push_back(NamedVertexFile(name, settings.vertexFolder, settings.uri));
        return true;
    }
    if (materialRef < -1 || (materialRef >= 0 && static_cast<size_t>(materialRef) >= scene.materialTable.size())) {
        reporter.Error(line, kMessageMaterialRefRange, name, materialRef);
        return false;
    }
    const Mesh& source = SourceMesh(settings.analyse);
    for (size_t f = 0; f < source.faces.size(); ++f) {
        const MeshFace& face = source.faces[f];
        for (int32_t corner : {face.a, face.b, face.c}) {
            if (corner < 0 || static_cast<size_t>(corner) >= source.vertices.size()) {
                reporter.Error(line, kMessageCornerRange, static_cast<int32_t>(f), name, corner);
                return false;
            }
        }
    }
    return true;
}

// The vertex file, named after the node, replaces the render mesh built from the faces. Its name
// must stay inside the vertex folder and the file must be a regular one.
bool MeshNode::ReadVertexFile(const ConvertSettings& settings, Reporter& reporter, int32_t line)
{
    const VertexFileLocation location = nameCut ? VertexFileLocation{VertexFileVerdict::ControlCharacter, {}}
                                                : LocateVertexFile(name, settings.vertexFolder, settings.uri);
    const std::string shown = PrintableName(name);
    switch (location.verdict) {
    case VertexFileVerdict::Inside: break;
    case VertexFileVerdict::Absolute: reporter.Error(line, kMessageVertexNameAbsolute, shown); return false;
    case VertexFileVerdict::ParentStep: reporter.Error(line, kMessageVertexNameParent, shown); return false;
    case VertexFileVerdict::ControlCharacter: reporter.Error(line, kMessageVertexNameControl, shown); return false;
    case VertexFileVerdict::Outside: reporter.Error(line, kMessageVertexFileOutside, shown); return false;
    case VertexFileVerdict::FolderMissing:
        reporter.Error(line, kMessageVertexFolderMissing, PrintableName(settings.vertexFolder));
        return false;
    case VertexFileVerdict::Missing: reporter.Error(line, kMessageVertexFileShort, shown); return false;
    }

    const int descriptor = ::open(location.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    struct stat info {};
    if (descriptor >= 0 && (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode))) {
        ::close(descriptor);
        reporter.Error(line, kMessageVertexFileNotRegular, shown);
        return false;
    }
    std::FILE* file = descriptor >= 0 ? ::fdopen(descriptor, "rb") : nullptr;
    if (file == nullptr && descriptor >= 0)
        ::close(descriptor);
    uint64_t remaining = file ? static_cast<uint64_t>(info.st_size) : 0;
    bool complete = file && ReadRecords(file, remaining, vertexSources);
    complete = complete && remaining >= 4 && std::fread(&materialRef, 4, 1, file) == 1;
    remaining -= complete ? 4 : 0;
    complete = complete && ReadRecords(file, remaining, renderVertices) && ReadRecords(file, remaining, renderTriangles);
    if (file)
        std::fclose(file);
    if (!complete) {
        reporter.Error(line, kMessageVertexFileShort, shown);
        return false;
    }
    if (vertexSources.size() != renderVertices.size()) {
        reporter.Error(line, kMessageVertexFileLists, shown);
        return false;
    }
    verticesLoaded = true;
    return true;
}
