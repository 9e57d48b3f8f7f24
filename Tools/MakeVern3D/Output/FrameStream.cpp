// Mesh animation output: each frame rebuilt on the render mesh's vertex layout, moved by the
// operations file, compared with the last stored frame and written as a stream in which later
// frames hold only the components chosen on the command line. Frames are rebuilt where they are
// needed rather than kept, so memory holds the render mesh and a few frames, not every frame.
#include "Output/FrameStream.h"

#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "Scene/VertexNormals.h"
#include "resources/Messages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <optional>

void MeshNode::BuildFrameVertices(Mesh& frame, std::vector<MeshVertex>& list, uint32_t parts)
{
    std::optional<VertexNormals> normals;
    if (parts & kFrameNormal) {
        SortFaceNormals(frame);
        normals.emplace(frame);
    }
    list.resize(vertexSources.size());
    for (size_t i = 0; i < vertexSources.size(); ++i) {
        const VertexSource& source = vertexSources[i];
        MeshVertex& vertex = list[i];
        vertex = MeshVertex{};
        // A frame shorter than the sources need reads zero where it has nothing.
        if ((parts & kFramePosition) && source.position >= 0 &&
            static_cast<size_t>(source.position) < frame.vertices.size())
            vertex.position = frame.vertices[static_cast<size_t>(source.position)];
        if (normals) {
            vertex.normal = normals->VertexNormal(source.face, source.position, source.smoothingGroup);
            if (source.flip)
                vertex.normal = {-vertex.normal.x, -vertex.normal.y, -vertex.normal.z};
        }
        vertex.material = source.material;
        if ((parts & kFrameTexture) && source.texVertex >= 0 &&
            static_cast<size_t>(source.texVertex) < frame.texVertices.size()) {
            const MeshTexVertex& tv = frame.texVertices[static_cast<size_t>(source.texVertex)];
            vertex.u = tv.u;
            vertex.v = 1.0f - tv.v;
        }
    }
}

std::vector<MeshMove> ReadMeshMoves(const std::string& path, const Matrix& world, bool* opened)
{
    std::vector<MeshMove> moves;
    std::FILE* file = std::fopen(path.c_str(), "r");
    *opened = file != nullptr;
    if (!file)
        return moves;
    const Matrix m = Inverse(world);
    for (;;) {
        int32_t first = 0, last = 0;
        float x = 0, y = 0, z = 0;
        // The C library's own matching: white space in the format matches any run of white space.
        if (std::fscanf(file, "mesh_move { first_frame %d; last_frame %d; move_x %f; move_y %f; move_z %f; }\n",
                        &first, &last, &x, &y, &z) != 5)
            break;
        const Vector3 d{x * m(0, 0) + y * m(1, 0) + z * m(2, 0), x * m(0, 1) + y * m(1, 1) + z * m(2, 1),
                        x * m(0, 2) + y * m(1, 2) + z * m(2, 2)};
        const auto from = static_cast<uint32_t>(first);
        const auto to = static_cast<uint32_t>(last);
        if (from <= to)
            moves.push_back({from, to, d});
    }
    std::fclose(file);
    return moves;
}

MoveSweep::MoveSweep(const std::vector<MeshMove>& moves) : moves(moves), byFirst(moves.size())
{
    std::iota(byFirst.begin(), byFirst.end(), 0u);
    std::stable_sort(byFirst.begin(), byFirst.end(),
                     [&](uint32_t a, uint32_t b) { return moves[a].first < moves[b].first; });
}

const std::vector<Vector3>& MoveSweep::At(size_t frame)
{
    const size_t before = active.size();
    while (started < byFirst.size() && moves[byFirst[started]].first <= frame)
        active.push_back(byFirst[started++]);
    std::sort(active.begin() + static_cast<std::ptrdiff_t>(before), active.end());
    std::inplace_merge(active.begin(), active.begin() + static_cast<std::ptrdiff_t>(before), active.end());
    std::erase_if(active, [&](uint32_t record) { return moves[record].last < frame; });
    offsets.clear();
    for (const uint32_t record : active)
        offsets.push_back(moves[record].offset);
    return offsets;
}

namespace {

bool Deviates(float a, float b, double tolerance)
{
    return std::fabs(static_cast<double>(a) - static_cast<double>(b)) > tolerance;
}

bool Deviates(const Vector3& a, const Vector3& b, double tolerance)
{
    return Deviates(a.x, b.x, tolerance) || Deviates(a.y, b.y, tolerance) || Deviates(a.z, b.z, tolerance);
}

}  // namespace

bool MeshNode::FramesChanged(const std::vector<MeshVertex>& a, const std::vector<MeshVertex>& b,
                             uint32_t flags) const
{
    const size_t count = std::min({renderVertices.size(), a.size(), b.size()});
    const double positionTolerance = static_cast<double>(0.1f);
    const double textureTolerance = 0.01;
    auto any = [&](auto deviates) {
        for (size_t k = 0; k < count; ++k)
            if (deviates(a[k], b[k]))
                return true;
        return false;
    };
    if ((flags & kFramePosition) &&
        any([&](const MeshVertex& p, const MeshVertex& q) { return Deviates(p.position, q.position, positionTolerance); }))
        return true;
    if ((flags & kFrameNormal) &&
        any([&](const MeshVertex& p, const MeshVertex& q) { return Deviates(p.normal, q.normal, positionTolerance); }))
        return true;
    if ((flags & kFrameColour) && any([](const MeshVertex& p, const MeshVertex& q) { return p.colour != q.colour; }))
        return true;
    if ((flags & kFrameMaterial) &&
        any([](const MeshVertex& p, const MeshVertex& q) { return p.material != q.material; }))
        return true;
    if ((flags & kFrameTexture) && any([&](const MeshVertex& p, const MeshVertex& q) {
            return Deviates(p.u, q.u, textureTolerance) || Deviates(p.v, q.v, textureTolerance);
        }))
        return true;
    return false;
}

void AppendFullVertex(LittleEndianBuffer& out, const MeshVertex& vertex)
{
    out.Append(vertex);
}

void AppendFrameComponents(LittleEndianBuffer& out, const MeshVertex& vertex, uint32_t flags)
{
    if (flags & kFramePosition) {
        out.F32(vertex.position.x);
        out.F32(vertex.position.y);
        out.F32(vertex.position.z);
    }
    if (flags & kFrameNormal) {
        out.F32(vertex.normal.x);
        out.F32(vertex.normal.y);
        out.F32(vertex.normal.z);
    }
    if (flags & kFrameColour)
        out.U32(vertex.colour);
    if (flags & kFrameMaterial)
        out.U32(vertex.material);
    if (flags & kFrameTexture) {
        out.F32(vertex.u);
        out.F32(vertex.v);
    }
}

namespace {

// The first `count` vertices of a frame (zero beyond its list) with the components `parts`.
void AppendFrameVertices(LittleEndianBuffer& out, const std::vector<MeshVertex>& list, size_t count, uint32_t parts)
{
    for (size_t k = 0; k < count; ++k)
        AppendFrameComponents(out, k < list.size() ? list[k] : MeshVertex{}, parts);
}

}  // namespace

HRESULT StreamFrames(MeshNode& node, uint32_t flags, Reporter& reporter, const FrameSink& sink)
{
    const size_t frameCount = node.frames.empty() ? 1 : node.frames.size();
    const size_t vertexCount = node.renderVertices.size();
    const uint32_t components = flags & 0xFFu;
    MoveSweep sweep(node.frameMoves);
    // A list that nothing else holds any more is filled again instead of a new one.
    using List = std::shared_ptr<std::vector<MeshVertex>>;
    List spare;
    const auto build = [&](size_t i, uint32_t parts) {
        List list = spare && spare.use_count() == 1 ? std::move(spare) : std::make_shared<std::vector<MeshVertex>>();
        spare.reset();
        node.BuildFrameVertices(*node.frames[i], *list, parts);
        if (parts & kFramePosition) {
            const std::vector<Vector3>& offsets = sweep.At(i);
            for (size_t k = 0; k < vertexCount && k < list->size() && !offsets.empty(); ++k)
                for (const Vector3& d : offsets)
                    (*list)[k].position = Add((*list)[k].position, d);
        }
        return list;
    };

    // Frame 0 is stored whole; later frames need only the components that are compared and stored.
    List current = node.frames.empty() ? nullptr : build(0, kFrameAll);
    List last = current;
    LittleEndianBuffer out;
    bool storeNext = false;
    HRESULT status = S_OK;
    for (size_t i = 0; i < frameCount && Succeeded(status); ++i) {
        const bool store = i == 0 || storeNext;
        // Whether the next frame differs from the last stored one is decided here, stored or not.
        // Without components no frame ever differs, and later frames are not built at all.
        storeNext = false;
        List next;
        if (i + 1 < frameCount && components != 0) {
            next = build(i + 1, components);
            if (node.FramesChanged(*last, *next, components)) {
                storeNext = true;
                last = next;
            }
        }
        if (!store) {
            reporter.Progress(kMessageFrameNotSaved, static_cast<int32_t>(i));
        } else {
            out.Clear();
            if (i > 0)
                out.U8(vern3d::kFrameFollows);
            const int32_t time = node.frames.empty() ? 0 : node.frames[i]->time;
            const int32_t delta = i == 0 ? 0
                                         : static_cast<int32_t>(static_cast<uint32_t>(time) -
                                                                static_cast<uint32_t>(node.frames[i - 1]->time));
            out.Append(vern3d::FrameHeader{vern3d::kFrameHeaderSize, time, 1, delta});
            AppendFrameVertices(out, current ? *current : node.renderVertices, vertexCount, i == 0 ? kFrameAll : components);
            status = sink(out);
        }
        spare = std::move(current);
        current = std::move(next);
    }
    if (Succeeded(status)) {
        out.Clear();
        out.U8(vern3d::kFramesEnd);
        status = sink(out);
    }
    return status;
}
