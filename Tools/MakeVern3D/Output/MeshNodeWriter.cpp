// Writing a mesh node: the render mesh and its frames are built before the node's chunk opens
// (the node's sphere must be known when its record is taken), and the mesh chunk follows the
// node's own chunks.
#include "AseParser.h"
#include "CommandLine.h"
#include "BaseNode.h"
#include "FrameStream.h"
#include "Messages.h"
#include "NodeWriter.h"
#include "Trace.h"
#include "VernWriter.h"
#include "VertexWelder.h"

#include <cstdio>
#include <cstring>
#include <optional>
#include <sys/stat.h>

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

bool MeshNode::CheckBeforeWrite(AseParser& reader)
{
    if (mesh.faces.empty())
        return true;
    if (reader.settings.ivertex) {
        // The vertex file, named after the node, replaces the render mesh built from the faces.
        std::FILE* file = std::fopen(PathFromName(name, reader.settings.uri).c_str(), "rb");
        struct stat info {};
        bool complete = file && ::fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode);
        uint64_t remaining = complete ? static_cast<uint64_t>(info.st_size) : 0;
        complete = complete && ReadRecords(file, remaining, vertexSources);
        complete = complete && remaining >= 4 && std::fread(&materialRef, 4, 1, file) == 1;
        remaining -= complete ? 4 : 0;
        complete = complete && ReadRecords(file, remaining, renderVertices) && ReadRecords(file, remaining, renderTriangles);
        if (file)
            std::fclose(file);
        if (!complete) {
            reader.Error(kMessageVertexFileShort, name.c_str());
            return false;
        }
        if (vertexSources.size() != renderVertices.size()) {
            reader.Error(kMessageVertexFileLists, name.c_str(), static_cast<unsigned>(vertexSources.size()),
                         static_cast<unsigned>(renderVertices.size()));
            return false;
        }
        verticesLoaded = true;
        return true;
    }
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
    status = writer.CreateChunk(&chunkMesh, ChunkMesh, chunk);
    LittleEndianBuffer& out = context.record;
    auto flush = [&](const LittleEndianBuffer& buffer) {
        return writer.WriteData(buffer.Data(), buffer.Size(), chunkMesh);
    };
    if (Succeeded(status)) {
        out.Clear();
        out.U32(40);
        out.U32(context.reader.settings.meshAnimFlags);
        out.U32(static_cast<uint32_t>(renderBatches.size()));
        out.U32(static_cast<uint32_t>(renderTriangles.size()));
        out.U32(static_cast<uint32_t>(renderVertices.size()));
        out.U32(frames.empty() ? 1u : static_cast<uint32_t>(frames.size()));
        out.F32(meshSphere.centre.x);
        out.F32(meshSphere.centre.y);
        out.F32(meshSphere.centre.z);
        out.F32(meshSphere.radius);
        for (const MeshBatch& batch : renderBatches) {
            out.U32(28);
            out.U32(0);
            out.U32(batch.firstTriangle);
            out.U32(batch.triangleCount);
            out.U32(batch.firstVertex);
            out.U32(batch.vertexCount);
            out.U32(renderTriangles[batch.firstTriangle].textureSet);
        }
        status = flush(out);
    }
    // Triangles in pieces, so that a huge mesh never needs a second copy of itself.
    constexpr size_t kPiece = 4096;
    for (size_t first = 0; first < renderTriangles.size() && Succeeded(status); first += kPiece) {
        out.Clear();
        for (size_t t = first; t < std::min(first + kPiece, renderTriangles.size()); ++t) {
            const MeshTriangle& triangle = renderTriangles[t];
            out.U32(triangle.flags);
            out.U32(triangle.corners[0]);
            out.U32(triangle.corners[1]);
            out.U32(triangle.corners[2]);
            out.U32(triangle.textureSet);
        }
        status = flush(out);
    }
    if (Succeeded(status))
        status = WriteFrameStream(*this, context.reader.settings.meshAnimFlags, flush);
    if (Failed(status))
        AssertHresult(kSource, kMeshReportLine, status);
    return status;
}
