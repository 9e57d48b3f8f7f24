// Writing a mesh node: its output (render mesh, frames counted, sphere) is built before the node's
// chunk opens, since the node's sphere must be known when its record is taken; the mesh chunk
// follows the node's own chunks. Outputs are built ahead, node by node on any thread; what ties
// a build to the moment its node's writing begins (the reports, the bound of list entries, an
// error of an earlier node) is settled when the writer takes it over.
#include "AbstractData/Parallel.h"
#include "AbstractData/Trace.h"
#include "ConvertSettings.h"
#include "Output/FrameStream.h"
#include "Output/NodeWriter.h"
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"
#include "vern/VernWriter.h"

#include <cassert>
#include <optional>

namespace {

constexpr const char* kSource = "Tools/MakeVern3D/BaseNode";
constexpr int kMeshReportLine = 1348;

}  // namespace

MeshNode::~MeshNode() = default;

std::vector<MeshBuild> PlanMeshBuilds(BaseNode& root, uint64_t allowed)
{
    // The writer's own walk (BaseNode::Write): pre-order, a node's subtree after its BeginWrite.
    // The only error that writing reports and goes on after is a mesh without material (error 14,
    // at its first face); a node with frames after it is left out, with its subtree.
    std::vector<MeshBuild> builds;
    bool error = false;
    std::vector<BaseNode*> pending{&root};
    while (!pending.empty()) {
        BaseNode* node = pending.back();
        pending.pop_back();
        auto* mesh = dynamic_cast<MeshNode*>(node);
        if (mesh && !mesh->mesh.faces.empty()) {
            mesh->PlanSpaces();
            MeshBuild& build = builds.emplace_back();
            build.node = mesh;
            build.errorBefore = error;
            build.allowed = allowed;
            error = error || (!mesh->verticesLoaded && mesh->materialRef == -1);
            if (error && !mesh->frames.empty())
                continue;
        }
        for (auto child = node->Children().rbegin(); child != node->Children().rend(); ++child)
            pending.push_back(child->get());
    }
    return builds;
}

void MeshNode::PlanSpaces()
{
    meshChunk = true;
    spaces.clear();
    spaces.push_back(Inverse(GetTransform(static_cast<uint32_t>(mesh.time))));
    for (const auto& frame : frames)
        spaces.push_back(Inverse(GetTransform(static_cast<uint32_t>(frame->time))));
}

void MeshNode::BuildOutput(MeshBuild& build, const Scene& scene, const ConvertSettings& settings)
{
    const uint32_t threads = ThreadCount(settings.threads);
    ToNodeSpace(mesh, spaces[0], threads);
    for (size_t i = 0; i < frames.size(); ++i)
        ToNodeSpace(*frames[i], spaces[i + 1], threads);
    uint64_t taken = 0;
    if (!verticesLoaded) {
        build.count = BuildRenderMeshWithin(scene, settings, build.renderReports, SourceMesh(settings.analyse),
                                            build.allowed);
        taken = build.count.welded;
    }
    const bool error = build.errorBefore || build.renderReports.HasError();
    // Frames that pass the bound even with every entry still free are refused when taken over:
    // their sphere is not worth making.
    build.framesPast = !frames.empty() && !error && (taken > build.allowed ||
                                                     uint64_t{frames.size()} * vertexSources.size() > build.allowed - taken);
    if (build.count.peak > build.allowed || build.framesPast)
        return;

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
            build.frameReports.Progress(kMessageFrameProgress, static_cast<int32_t>(i));
            if (error) {
                build.built = Built::LeftOut;
                return;
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
    // The mesh has given what it holds (the stream rebuilds frames from their own meshes).
    if (!settings.keepMeshLists)
        mesh = Mesh{};
}

MeshNode::Built MeshNode::TakeOutput(MeshBuild& build, Scene& scene, const ConvertSettings& settings, Reporter& reporter)
{
    assert(reporter.HasError() == build.errorBefore);
    if (!verticesLoaded) {
        // The bound stops a build at the first face past the entries free now: when the build
        // ahead went beyond them, the build made now is another one (and is refused).
        if (build.count.peak > scene.lists.Free())
            build.count = BuildRenderMeshWithin(scene, settings, reporter, SourceMesh(settings.analyse), scene.lists.Free());
        else
            build.renderReports.Forward(reporter);
        if (!scene.lists.Take(build.count.welded)) {
            reporter.Error(meshLine, kMessageRenderMeshTooLarge, name, scene.lists.Shown());
            return Built::Refused;
        }
    }
    // Every frame is rebuilt on the render vertices: they count against the bound too (both
    // factors are below 2^32, so the product does not overflow).
    if (!frames.empty() && !reporter.HasError() && !scene.lists.Take(uint64_t{frames.size()} * vertexSources.size())) {
        reporter.Error(animationLine, kMessageFramesTooLarge, name, static_cast<uint32_t>(vertexSources.size()),
                       scene.lists.Shown());
        return Built::Refused;
    }
    assert(!build.framesPast);
    build.frameReports.Forward(reporter);
    if (build.built != Built::Ready)
        return build.built;
    if (!hasBounds) {
        hasBounds = true;
        bounds = meshSphere;
    } else {
        Sphere merged = meshSphere;
        MergeSphere(merged, bounds);
        bounds = merged;
    }
    return Built::Ready;
}

void MeshNode::FreeLists()
{
    mesh = Mesh{};
    frames = decltype(frames)();
    vertexSources = decltype(vertexSources)();
    renderVertices = decltype(renderVertices)();
    renderTriangles = decltype(renderTriangles)();
    renderBatches = decltype(renderBatches)();
    frameMoves = decltype(frameMoves)();
}

HRESULT MeshNode::BeginWrite(NodeWriteContext& context, bool* write)
{
    *write = true;
    if (!meshChunk)
        return S_OK;
    const size_t index = context.nextBuild++;
    MeshBuild& build = (*context.builds)[index];
    assert(build.node == this);
    context.work->Wait(index);
    const Built built = TakeOutput(build, context.scene, context.settings, context.reporter);
    context.work->Done(index);
    switch (built) {
    case Built::Ready: return S_OK;
    case Built::LeftOut: *write = false; return S_OK;
    case Built::Refused: break;
    }
    return kWriteRefused;
}

HRESULT MeshNode::EndWrite(NodeWriteContext& context)
{
    HRESULT status = TransformNode::EndWrite(context);
    if (Failed(status) || !meshChunk)
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
    if (!context.settings.keepMeshLists)
        FreeLists();
    return status;
}
