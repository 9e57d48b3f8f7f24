// Writing a mesh node: the render mesh and its frames are built before the node's chunk opens
// (the node's sphere must be known when its record is taken), and the mesh chunk follows the
// node's own chunks.
#include "AseParser.h"
#include "CommandLine.h"
#include "FilePath.h"
#include "BaseNode.h"
#include "FrameStream.h"
#include "Messages.h"
#include "NodeWriter.h"
#include "Trace.h"
#include "VernWriter.h"
#include "VertexWelder.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kSource = "Tools/MakeVern3D/BaseNode";
constexpr int kMeshReportLine = 1348;

// The source of the render mesh: frame `analyse` when there is one, else the static mesh.
Mesh& SourceMesh(MeshNode& node, int32_t analyse)
{
    if (analyse > 0 && node.frames.size() >= static_cast<size_t>(analyse) + 1)
        return *node.frames[static_cast<size_t>(analyse)];
    return node.mesh;
}

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

MeshNode::~MeshNode() = default;

// The vertex file, named after the node, replaces the render mesh built from the faces. Its name
// must stay inside the vertex folder and the file must be a regular one; a FIFO or a device is
// never waited on. Nothing read from a file that fails its checks is shown.
bool MeshNode::ReadVertexFile(AseParser& reader)
{
    const ConvertSettings& settings = reader.settings;
    const VertexFileLocation location = nameCut ? VertexFileLocation{VertexFileVerdict::ControlCharacter, {}}
                                                : LocateVertexFile(name, settings.vertexFolder, settings.uri);
    const std::string shown = PrintableName(name);
    switch (location.verdict) {
    case VertexFileVerdict::Inside: break;
    case VertexFileVerdict::Absolute: reader.Error(kMessageVertexNameAbsolute, shown.c_str()); return false;
    case VertexFileVerdict::ParentStep: reader.Error(kMessageVertexNameParent, shown.c_str()); return false;
    case VertexFileVerdict::ControlCharacter: reader.Error(kMessageVertexNameControl, shown.c_str()); return false;
    case VertexFileVerdict::Outside: reader.Error(kMessageVertexFileOutside, shown.c_str()); return false;
    case VertexFileVerdict::FolderMissing:
        reader.Error(kMessageVertexFolderMissing, PrintableName(settings.vertexFolder).c_str());
        return false;
    case VertexFileVerdict::Missing: reader.Error(kMessageVertexFileShort, shown.c_str()); return false;
    }

    const int descriptor = ::open(location.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    struct stat info {};
    if (descriptor >= 0 && (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode))) {
        ::close(descriptor);
        reader.Error(kMessageVertexFileNotRegular, shown.c_str());
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
        reader.Error(kMessageVertexFileShort, shown.c_str());
        return false;
    }
    if (vertexSources.size() != renderVertices.size()) {
        reader.Error(kMessageVertexFileLists, shown.c_str());
        return false;
    }
    verticesLoaded = true;
    return true;
}

bool MeshNode::CheckBeforeWrite(AseParser& reader)
{
    if (mesh.faces.empty())
        return true;
    if (reader.settings.ivertex)
        return ReadVertexFile(reader);
    if (materialRef < -1 || (materialRef >= 0 && static_cast<size_t>(materialRef) >= reader.materialTable.size())) {
        reader.Error(kMessageMaterialRefRange, name.c_str(), materialRef);
        return false;
    }
    const Mesh& source = SourceMesh(*this, reader.settings.analyse);
    for (size_t f = 0; f < source.faces.size(); ++f) {
        const MeshFace& face = source.faces[f];
        for (int32_t corner : {face.a, face.b, face.c}) {
            if (corner < 0 || static_cast<size_t>(corner) >= source.vertices.size()) {
                reader.Error(kMessageCornerRange, static_cast<int>(f), name.c_str(), corner);
                return false;
            }
        }
    }
    return true;
}

HRESULT MeshNode::BeginWrite(NodeWriteContext& context, bool* write)
{
    *write = true;
    if (mesh.faces.empty())
        return S_OK;
    AseParser& reader = context.reader;
    ConvertSettings& settings = reader.settings;
    if (settings.ivertex && settings.overtex)
        settings.overtex = false;

    ToNodeSpace(mesh);
    for (auto& frame : frames)
        ToNodeSpace(*frame);
    if (!verticesLoaded && !BuildRenderMesh(reader, SourceMesh(*this, settings.analyse)))
        return kWriteRefused;
    // Every frame is rebuilt on the render vertices: they count against the bound too.
    if (!frames.empty() && !reader.HasError() && !reader.CountFrameVertices(frames.size(), vertexSources.size(), *this))
        return kWriteRefused;

    // The sphere over every frame's positions (or the render vertices' without frames). Only the
    // positions of a frame's vertices are made here, moved as the operations file says; the
    // stream rebuilds the frames once more.
    Sphere sphere;
    bool first = true;
    auto grow = [&](const Vector3& position) {
        if (first) {
            sphere = {position, 0.0f};
            first = false;
        }
        MergeSphere(sphere, Sphere{position, 0.0f});
    };
    frameMoves.clear();
    if (frames.empty()) {
        for (const MeshVertex& vertex : renderVertices)
            grow(vertex.position);
    } else {
        std::optional<MoveSweep> sweep;
        const size_t count = std::min(renderVertices.size(), vertexSources.size());
        for (size_t i = 0; i < frames.size(); ++i) {
            std::printf("frame %d  ", static_cast<int>(i));
            if (reader.HasError()) {
                *write = false;
                return S_OK;
            }
            if (!sweep) {
                if (!settings.meshOpsFile.empty())
                    frameMoves = ReadMeshMoves(settings.meshOpsFile, world);
                sweep.emplace(frameMoves);
            }
            const std::vector<Vector3>& offsets = sweep->At(i);
            const std::vector<Vector3>& positions = frames[i]->vertices;
            for (size_t k = 0; k < count; ++k) {
                // A frame shorter than the sources need reads zero where it has nothing.
                const int32_t number = vertexSources[k].position;
                Vector3 p = number >= 0 && static_cast<size_t>(number) < positions.size()
                                ? positions[static_cast<size_t>(number)]
                                : Vector3{};
                for (const Vector3& d : offsets)
                    p = Add(p, d);
                grow(p);
            }
        }
    }
    meshSphere = sphere;
    if (!hasBounds) {
        hasBounds = true;
        bounds = sphere;
    } else {
        Sphere merged = sphere;
        MergeSphere(merged, bounds);
        bounds = merged;
    }
    return S_OK;
}

HRESULT MeshNode::EndWrite(NodeWriteContext& context)
{
    HRESULT status = TransformNode::EndWrite(context);
    if (Failed(status) || mesh.faces.empty())
        return status;

    VernWriter& writer = context.writer;
    VernChunk* chunkMesh = nullptr;
    status = writer.CreateChunk(&chunkMesh, vern3d::kChunkMesh, chunk);
    LittleEndianBuffer& out = context.record;
    auto flush = [&](const LittleEndianBuffer& buffer) {
        return writer.WriteData(buffer.Data(), buffer.Size(), chunkMesh);
    };
    if (Succeeded(status)) {
        out.Clear();
        out.Append(vern3d::MeshHeader{vern3d::kMeshHeaderSize, context.reader.settings.meshAnimFlags,
                                      static_cast<uint32_t>(renderBatches.size()),
                                      static_cast<uint32_t>(renderTriangles.size()),
                                      static_cast<uint32_t>(renderVertices.size()),
                                      frames.empty() ? 1u : static_cast<uint32_t>(frames.size()), meshSphere.centre,
                                      meshSphere.radius});
        for (const MeshBatch& batch : renderBatches)
            out.Append(vern3d::Batch{vern3d::kBatchSize, 0, batch.firstTriangle, batch.triangleCount, batch.firstVertex,
                                     batch.vertexCount, renderTriangles[batch.firstTriangle].textureSet});
        status = flush(out);
    }
    // Triangles in pieces, so that a huge mesh never needs a second copy of itself.
    constexpr size_t kPiece = 4096;
    for (size_t first = 0; first < renderTriangles.size() && Succeeded(status); first += kPiece) {
        out.Clear();
        for (size_t t = first; t < std::min(first + kPiece, renderTriangles.size()); ++t)
            out.Append(renderTriangles[t]);
        status = flush(out);
    }
    if (Succeeded(status))
        status = WriteFrameStream(*this, context.reader.settings.meshAnimFlags, flush);
    if (Failed(status))
        AssertHresult(kSource, kMeshReportLine, status);
    return status;
}
