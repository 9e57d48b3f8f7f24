// Mesh animation output: each frame rebuilt on the render mesh's vertex layout, moved by the
// operations file, compared with the last stored frame and written as a stream in which later
// frames hold only the components chosen on the command line.
#include "AseParser.h"
#include "BaseNode.h"
#include "FrameStream.h"
#include "VertexNormals.h"

#include <cmath>
#include <cstdio>

void MeshNode::BuildFrameVertices(AseParser&, Mesh& frame, std::vector<MeshVertex>& list)
{
    SortFaceNormals(frame);
    const VertexNormals normals(frame);
    list.resize(vertexSources.size());
    for (size_t i = 0; i < vertexSources.size(); ++i) {
        const VertexSource& source = vertexSources[i];
        MeshVertex& vertex = list[i];
        vertex = MeshVertex{};
        // A frame shorter than the sources need reads zero where it has nothing.
        if (source.position >= 0 && static_cast<size_t>(source.position) < frame.vertices.size())
            vertex.position = frame.vertices[static_cast<size_t>(source.position)];
        vertex.normal = normals.VertexNormal(source.face, source.position, source.smoothingGroup);
        if (source.flip)
            vertex.normal = {-vertex.normal.x, -vertex.normal.y, -vertex.normal.z};
        vertex.material = source.material;
        if (source.texVertex >= 0 && static_cast<size_t>(source.texVertex) < frame.texVertices.size()) {
            const MeshTexVertex& tv = frame.texVertices[static_cast<size_t>(source.texVertex)];
            vertex.u = tv.u;
            vertex.v = 1.0f - tv.v;
        }
    }
}

void MeshNode::ApplyMeshOperations(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (!file)
        return;
    const Matrix m = Inverse(world);
    const size_t count = renderVertices.size();
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
        if (from > to)
            continue;
        // Frames that do not exist are left alone.
        for (uint64_t f = from; f <= to && f < frameVertices.size(); ++f) {
            std::vector<MeshVertex>& list = *frameVertices[f];
            for (size_t i = 0; i < count && i < list.size(); ++i)
                list[i].position = Add(list[i].position, d);
        }
    }
    std::fclose(file);
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

bool MeshNode::FramesChanged(size_t first, size_t second, uint32_t flags) const
{
    if (frameVertices.empty())
        return false;
    const std::vector<MeshVertex>& a = *frameVertices[first];
    const std::vector<MeshVertex>& b = *frameVertices[second];
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

HRESULT WriteFrameStream(MeshNode& node, uint32_t flags, const FrameSink& write)
{
    const size_t frameCount = node.frames.empty() ? 1 : node.frames.size();
    const size_t vertexCount = node.renderVertices.size();
    const uint32_t components = flags & 0xFFu;
    LittleEndianBuffer out;
    size_t last = 0;
    bool storeNext = false;
    HRESULT status = S_OK;
    for (size_t i = 0; i < frameCount && Succeeded(status); ++i) {
        const bool store = i == 0 || storeNext;
        // Whether the next frame differs from the last stored one is decided here, stored or not.
        storeNext = false;
        if (i + 1 < frameCount && node.FramesChanged(last, i + 1, components)) {
            storeNext = true;
            last = i + 1;
        }
        if (!store) {
            std::printf("Warning: Frame %d not saved. Because it equals the last frame.\n", static_cast<int>(i));
            continue;
        }
        out.Clear();
        if (i > 0)
            out.U8(vern3d::kFrameFollows);
        const int32_t time = node.frames.empty() ? 0 : node.frames[i]->time;
        const int32_t delta = i == 0 ? 0
                                     : static_cast<int32_t>(static_cast<uint32_t>(time) -
                                                            static_cast<uint32_t>(node.frames[i - 1]->time));
        out.Append(vern3d::FrameHeader{vern3d::kFrameHeaderSize, time, 1, delta});
        const std::vector<MeshVertex>& list = node.frameVertices.empty() ? node.renderVertices : *node.frameVertices[i];
        for (size_t k = 0; k < vertexCount; ++k) {
            const MeshVertex vertex = k < list.size() ? list[k] : MeshVertex{};
            if (i == 0)
                AppendFullVertex(out, vertex);
            else
                AppendFrameComponents(out, vertex, components);
        }
        status = write(out);
    }
    if (Succeeded(status)) {
        out.Clear();
        out.U8(vern3d::kFramesEnd);
        status = write(out);
    }
    return status;
}
