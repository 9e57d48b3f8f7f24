// Writing a mesh node: its output (render mesh, frames counted, sphere) is built before the node's
// chunk opens, since the node's sphere must be known when its record is taken; the mesh chunk
// follows the node's own chunks. Outputs are built ahead, node by node on any thread, most of them
// down to the bytes of their mesh chunk; what ties a build to the moment its node's writing begins
// (the reports, the bound of list entries, an error of an earlier node) is settled when the writer
// takes it over.
#include "AbstractData/Parallel.h"
#include "AbstractData/Trace.h"
#include "ConvertSettings.h"
#include "Output/EarlyBuilds.h"
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
// A mesh with frames has its chunk's payload made ahead when it takes little more room than its
// render mesh (the frames are not kept, so the stored ones are not kept ahead either).
constexpr uint64_t kPayloadSlack = 64 << 10;

uint64_t SaturatedAdd(uint64_t a, uint64_t b) { return a + b < a ? UINT64_MAX : a + b; }

// The mesh chunk's payload in the pieces it is written in: the header with the batches, the
// triangles 4096 at a time, then the frame stream (a stored frame at a time). The first failure
// ends it.
HRESULT StreamMeshChunk(MeshNode& node, uint32_t flags, Reporter& reporter, LittleEndianBuffer& out,
                        const FrameSink& sink)
{
    out.Clear();
    out.Append(vern3d::MeshHeader{vern3d::kMeshHeaderSize, flags, static_cast<uint32_t>(node.renderBatches.size()),
                                  static_cast<uint32_t>(node.renderTriangles.size()),
                                  static_cast<uint32_t>(node.renderVertices.size()),
                                  node.frames.empty() ? 1u : static_cast<uint32_t>(node.frames.size()),
                                  node.meshSphere.centre, node.meshSphere.radius});
    for (const MeshBatch& batch : node.renderBatches)
        out.Append(vern3d::Batch{vern3d::kBatchSize, 0, batch.firstTriangle, batch.triangleCount, batch.firstVertex,
                                 batch.vertexCount, node.renderTriangles[batch.firstTriangle].textureSet});
    HRESULT status = sink(out);
    // Triangles in pieces, so that a huge mesh never needs a second copy of itself.
    constexpr size_t kPiece = 4096;
    const std::vector<MeshTriangle>& triangles = node.renderTriangles;
    for (size_t first = 0; first < triangles.size() && Succeeded(status); first += kPiece) {
        out.Clear();
        for (size_t t = first; t < std::min(first + kPiece, triangles.size()); ++t)
            out.Append(triangles[t]);
        status = sink(out);
    }
    if (Succeeded(status))
        status = StreamFrames(node, flags, reporter, sink);
    return status;
}

// The payload of a mesh without frames, made in place: the bytes and pieces StreamMeshChunk gives
// (the header with the batches, the triangles 4096 at a time, frame 0, the end byte), with the
// triangles and vertices stored on several threads.
void StoreWithoutFrames(const MeshNode& node, uint32_t flags, MeshBuild& build, uint32_t threads)
{
    constexpr size_t kPiece = 4096;
    const std::vector<MeshTriangle>& triangles = node.renderTriangles;
    const std::vector<MeshVertex>& vertices = node.renderVertices;
    const size_t head = vern3d::kMeshHeaderSize + size_t{vern3d::kBatchSize} * node.renderBatches.size();
    const size_t trianglesEnd = head + sizeof(MeshTriangle) * triangles.size();
    const size_t frameEnd = trianglesEnd + vern3d::kFrameHeaderSize + sizeof(MeshVertex) * vertices.size();
    build.size = frameEnd + 1;
    build.bytes.reset(new uint8_t[build.size]);
    uint8_t* const out = build.bytes.get();

    vern3d::StoreRecord(out, vern3d::MeshHeader{vern3d::kMeshHeaderSize, flags,
                                                static_cast<uint32_t>(node.renderBatches.size()),
                                                static_cast<uint32_t>(triangles.size()),
                                                static_cast<uint32_t>(vertices.size()), 1u, node.meshSphere.centre,
                                                node.meshSphere.radius});
    uint8_t* at = out + vern3d::kMeshHeaderSize;
    for (const MeshBatch& batch : node.renderBatches) {
        vern3d::StoreRecord(at, vern3d::Batch{vern3d::kBatchSize, 0, batch.firstTriangle, batch.triangleCount,
                                              batch.firstVertex, batch.vertexCount,
                                              triangles[batch.firstTriangle].textureSet});
        at += vern3d::kBatchSize;
    }
    build.pieces.push_back({head, 0});
    for (size_t first = 0; first < triangles.size(); first += kPiece)
        build.pieces.push_back({head + sizeof(MeshTriangle) * std::min(first + kPiece, triangles.size()), 0});
    build.pieces.push_back({frameEnd, 0});
    build.pieces.push_back({build.size, 0});

    constexpr size_t kBlock = 1 << 16;
    ParallelFor((triangles.size() + kBlock - 1) / kBlock, threads, [&](size_t block) {
        for (size_t t = block * kBlock; t < std::min(triangles.size(), (block + 1) * kBlock); ++t)
            vern3d::StoreRecord(out + head + sizeof(MeshTriangle) * t, triangles[t]);
    });
    vern3d::StoreRecord(out + trianglesEnd, vern3d::FrameHeader{vern3d::kFrameHeaderSize, 0, 1, 0});
    const size_t vertexStart = trianglesEnd + vern3d::kFrameHeaderSize;
    ParallelFor((vertices.size() + kBlock - 1) / kBlock, threads, [&](size_t block) {
        for (size_t k = block * kBlock; k < std::min(vertices.size(), (block + 1) * kBlock); ++k)
            vern3d::StoreRecord(out + vertexStart + sizeof(MeshVertex) * k, vertices[k]);
    });
    out[frameEnd] = vern3d::kFramesEnd;
}

// The bytes of the payload with every frame stored.
uint64_t PayloadBound(const MeshNode& node, uint32_t flags)
{
    uint64_t perVertex = 0;
    for (const auto& [flag, bytes] : {std::pair{kFramePosition, 12}, {kFrameNormal, 12}, {kFrameColour, 4},
                                      {kFrameMaterial, 4}, {kFrameTexture, 8}})
        perVertex += (flags & flag) ? bytes : 0;
    const uint64_t vertices = node.renderVertices.size();
    return vern3d::kMeshHeaderSize + uint64_t{vern3d::kBatchSize} * node.renderBatches.size() +
           20 * uint64_t{node.renderTriangles.size()} + 18 + 40 * vertices +
           uint64_t{node.frames.size()} * (17 + perVertex * vertices);
}

}  // namespace

MeshNode::~MeshNode() = default;

std::vector<MeshBuild> PlanMeshBuilds(const Scene& scene, std::span<const uint8_t> setKinds,
                                      const ConvertSettings& settings, EarlyBuilds* early)
{
    BaseNode& root = *scene.root;
    const uint64_t allowed = scene.lists.Free();
    // The writer's own walk (BaseNode::Write): pre-order, a node's subtree after its BeginWrite.
    // The only error that writing reports and goes on after is a mesh without material (error 14,
    // at its first face); a node with frames after it is left out, with its subtree.
    std::vector<MeshBuild> builds;
    size_t meshes = 0;
    for (std::vector<BaseNode*> pending{&root}; !pending.empty();) {
        BaseNode* node = pending.back();
        pending.pop_back();
        meshes += dynamic_cast<MeshNode*>(node) != nullptr;
        for (const auto& child : node->Children())
            pending.push_back(child.get());
    }
    builds.reserve(meshes);
    bool error = false;
    uint64_t most = 0;  // the most entries the planned builds can count against the bound
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
            build.materials = MaterialsOf(scene, setKinds, mesh->materialRef);
            if (early)
                early->TakeOver(build);
            // A face gives at most six render vertices (three, and three for its back), and a
            // frame is rebuilt on them.
            const uint64_t frames = mesh->frames.size();
            const uint64_t vertices = mesh->verticesLoaded ? mesh->vertexSources.size()
                                                           : 6 * uint64_t{mesh->SourceMesh(settings.analyse).faces.size()};
            most = SaturatedAdd(most, SaturatedAdd(mesh->verticesLoaded ? 0 : vertices, frames * vertices));
            error = error || (!mesh->verticesLoaded && mesh->materialRef == -1);
            if (error && !mesh->frames.empty())
                continue;
        }
        for (auto child = node->Children().rbegin(); child != node->Children().rend(); ++child)
            pending.push_back(child->get());
    }
    for (MeshBuild& build : builds)
        build.withinBound = most <= allowed;
    return builds;
}

void MeshNode::PlanSpaces()
{
    meshChunk = true;
    spaces.clear();
    spaces.push_back(GetTransform(static_cast<uint32_t>(mesh.time)));
    for (const auto& frame : frames)
        spaces.push_back(GetTransform(static_cast<uint32_t>(frame->time)));
}

void MeshNode::BuildOutput(MeshBuild& build, const ConvertSettings& settings)
{
    const uint32_t threads = ThreadCount(settings.threads);
    build.frameCount = frames.size();
    ToNodeSpace(mesh, Inverse(spaces[0]), threads);
    for (size_t i = 0; i < frames.size(); ++i)
        ToNodeSpace(*frames[i], Inverse(spaces[i + 1]), threads);
    build.inNodeSpace = true;
    uint64_t taken = 0;
    if (!verticesLoaded) {
        build.count = BuildRenderMeshWithin(build.materials, settings, build.renderReports,
                                            SourceMesh(settings.analyse), build.allowed);
        taken = build.count.welded;
    }
    build.sourceCount = vertexSources.size();
    const bool error = build.errorBefore || build.renderReports.HasError();
    // Frames that pass the bound even with every entry still free are refused when taken over:
    // their sphere is not worth making.
    build.framesPast = !frames.empty() && !error &&
                       (taken > build.allowed || build.frameCount * build.sourceCount > build.allowed - taken);
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
                    frameMoves = ReadMeshMoves(settings.meshOpsFile, world, &build.operationsOpened);
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

    // The payload, unless its frames take more room than the render mesh (the writer streams those).
    const uint64_t renderBytes = (sizeof(MeshVertex) + sizeof(VertexSource)) * uint64_t{renderVertices.size()} +
                                 sizeof(MeshTriangle) * uint64_t{renderTriangles.size()};
    if (!frames.empty() && PayloadBound(*this, settings.meshAnimFlags) > renderBytes + kPayloadSlack)
        return;
    build.serialised = true;
    if (frames.empty()) {
        StoreWithoutFrames(*this, settings.meshAnimFlags, build, threads);
    } else {
        // The stream cannot fail here: the pieces only gather.
        LittleEndianBuffer out;
        std::vector<uint8_t> bytes;
        StreamMeshChunk(*this, settings.meshAnimFlags, build.streamReports, out, [&](const LittleEndianBuffer& piece) {
            bytes.insert(bytes.end(), piece.Data(), piece.Data() + piece.Size());
            build.pieces.push_back({bytes.size(), build.streamReports.KeptCount()});
            return S_OK;
        });
        build.size = bytes.size();
        build.bytes.reset(new uint8_t[build.size]);
        std::copy(bytes.begin(), bytes.end(), build.bytes.get());
    }
    if (settings.keepMeshLists)
        return;
    // The render mesh is in the bytes; the source lists may be needed once more when the node is
    // taken over (see TakeOutput), unless no build of the plan can pass the bound.
    if (build.withinBound) {
        FreeLists();
    } else {
        renderVertices = decltype(renderVertices)();
        renderTriangles = decltype(renderTriangles)();
        renderBatches = decltype(renderBatches)();
        vertexSources = decltype(vertexSources)();
    }
}

MeshNode::Built MeshNode::TakeOutput(MeshBuild& build, Scene& scene, const ConvertSettings& settings, Reporter& reporter)
{
    assert(reporter.HasError() == build.errorBefore);
    if (!verticesLoaded) {
        // The bound stops a build at the first face past the entries free now: when the build
        // ahead went beyond them, the build made now stops earlier (and is refused).
        if (build.count.peak > scene.lists.Free()) {
            if (!build.inNodeSpace) {
                ToNodeSpace(mesh, Inverse(spaces[0]));
                for (size_t i = 0; i < frames.size(); ++i)
                    ToNodeSpace(*frames[i], Inverse(spaces[i + 1]));
            }
            build.count = BuildRenderMeshWithin(build.materials, settings, reporter, SourceMesh(settings.analyse),
                                                scene.lists.Free());
        } else {
            build.renderReports.Forward(reporter);
        }
        if (!scene.lists.Take(build.count.welded)) {
            reporter.Error(meshLine, kMessageRenderMeshTooLarge, name, scene.lists.Shown());
            return Built::Refused;
        }
    }
    // Every frame is rebuilt on the render vertices: they count against the bound too (both
    // factors are below 2^32, so the product does not overflow). A fresh build of the render mesh
    // (above) is refused, so the counts of the build ahead are those of the node.
    if (build.frameCount > 0 && !reporter.HasError() && !scene.lists.Take(build.frameCount * build.sourceCount)) {
        reporter.Error(animationLine, kMessageFramesTooLarge, name, static_cast<uint32_t>(build.sourceCount),
                       scene.lists.Shown());
        return Built::Refused;
    }
    assert(!build.framesPast);
    build.frameReports.Forward(reporter);
    if (build.built != Built::Ready)
        return build.built;
    if (build.operationsOpened)
        scene.filesRead.push_back(settings.meshOpsFile);
    if (!hasBounds) {
        hasBounds = true;
        bounds = meshSphere;
    } else {
        Sphere merged = meshSphere;
        MergeSphere(merged, bounds);
        bounds = merged;
    }
    output = &build;
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
    VernChunk* chunkMesh = nullptr;
    status = writer.CreateChunk(&chunkMesh, vern3d::kChunkMesh, chunk);
    MeshBuild& build = *output;
    if (build.serialised) {
        // The pieces as the stream made them, each after the reports made before it.
        size_t start = 0, reported = 0;
        for (const MeshBuild::Piece& piece : build.pieces) {
            if (Failed(status))
                break;
            build.streamReports.Forward(context.reporter, piece.reports - reported);
            reported = piece.reports;
            status = writer.WriteData(build.bytes.get() + start, static_cast<uint32_t>(piece.end - start), chunkMesh);
            start = piece.end;
        }
        build.bytes.reset();
    } else if (Succeeded(status)) {
        status = StreamMeshChunk(*this, context.settings.meshAnimFlags, context.reporter, context.record,
                                 [&](const LittleEndianBuffer& piece) {
                                     return writer.WriteData(piece.Data(), piece.Size(), chunkMesh);
                                 });
    }
    if (Failed(status))
        AssertHresult(kSource, kMeshReportLine, status);
    output = nullptr;
    if (!context.settings.keepMeshLists)
        FreeLists();
    return status;
}
