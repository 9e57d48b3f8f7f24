// Writing a mesh node: its output (render mesh, frames counted, sphere) is built before the node's
// chunk opens, since the node's sphere must be known when its record is taken; the mesh chunk
// follows the node's own chunks.
#include "AbstractData/Trace.h"
#include "ConvertSettings.h"
#include "Output/FrameStream.h"
#include "Output/NodeWriter.h"
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"
#include "vern/VernWriter.h"

#include <optional>

namespace {

constexpr const char* kSource = "Tools/MakeVern3D/BaseNode";
constexpr int kMeshReportLine = 1348;

}  // namespace

MeshNode::~MeshNode() = default;

MeshNode::Built MeshNode::BuildOutput(Scene& scene, const ConvertSettings& settings, Reporter& reporter)
{
    ToNodeSpace(mesh);
    for (auto& frame : frames)
        ToNodeSpace(*frame);
    if (!verticesLoaded && !BuildRenderMesh(scene, settings, reporter, SourceMesh(settings.analyse)))
        return Built::Refused;
    // Every frame is rebuilt on the render vertices: they count against the bound too (both
    // factors are below 2^32, so the product does not overflow).
    if (!frames.empty() && !reporter.HasError() && !scene.lists.Take(uint64_t{frames.size()} * vertexSources.size())) {
        reporter.Error(animationLine, kMessageFramesTooLarge, name, static_cast<uint32_t>(vertexSources.size()),
                       scene.lists.Shown());
        return Built::Refused;
    }

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
            reporter.Progress(kMessageFrameProgress, static_cast<int32_t>(i));
            if (reporter.HasError())
                return Built::LeftOut;
            if (!sweep) {
                bool opened = false;
                if (!settings.meshOpsFile.empty())
                    frameMoves = ReadMeshMoves(settings.meshOpsFile, world, &opened);
                if (opened)
                    scene.filesRead.push_back(settings.meshOpsFile);
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
    return Built::Ready;
}

HRESULT MeshNode::BeginWrite(NodeWriteContext& context, bool* write)
{
    *write = true;
    if (mesh.faces.empty())
        return S_OK;
    switch (BuildOutput(context.scene, context.settings, context.reporter)) {
    case Built::Ready: return S_OK;
    case Built::LeftOut: *write = false; return S_OK;
    case Built::Refused: break;
    }
    return kWriteRefused;
}

HRESULT MeshNode::EndWrite(NodeWriteContext& context)
{
    HRESULT status = TransformNode::EndWrite(context);
    if (Failed(status) || mesh.faces.empty())
        return status;

    VernWriter& writer = context.writer;
    const uint32_t flags = context.settings.meshAnimFlags;
    VernChunk* chunkMesh = nullptr;
    status = writer.CreateChunk(&chunkMesh, vern3d::kChunkMesh, chunk);
    LittleEndianBuffer& out = context.record;
    auto flush = [&](const LittleEndianBuffer& buffer) {
        return writer.WriteData(buffer.Data(), buffer.Size(), chunkMesh);
    };
    if (Succeeded(status)) {
        out.Clear();
        out.Append(vern3d::MeshHeader{vern3d::kMeshHeaderSize, flags, static_cast<uint32_t>(renderBatches.size()),
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
        status = StreamFrames(*this, flags, context.reporter, flush);
    if (Failed(status))
        AssertHresult(kSource, kMeshReportLine, status);
    return status;
}
