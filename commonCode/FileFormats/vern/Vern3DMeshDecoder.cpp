// The ChunkMesh payload: header, batches, triangles and the frame stream.
//
// The frame stream holds frame 0 complete; every further stored frame follows the byte 0x01 and
// holds only the components the header's flags select; the byte 0x00 ends it. Decoded frames are
// complete: what a frame does not store is carried from the frame stored before it.
#include "vern/Vern3DDecoder.h"

#include "vern/VernReader.h"

namespace vern3d {

namespace {

class MeshReader {
public:
    MeshReader(std::span<const uint8_t> payload, MeshData& mesh, std::string& error, size_t& position)
        : cursor(payload), mesh(mesh), error(error), position(position)
    {
    }

    bool Read()
    {
        return ReadHeader() && ReadBatches() && ReadTriangles() && CheckRanges() && ReadFrames();
    }

private:
    bool Fail(size_t at, std::string what)
    {
        position = at;
        error = std::move(what);
        return false;
    }

    // A count of records of `size` bytes must fit into what is left, with `reserve` bytes more.
    bool Fits(uint64_t count, uint32_t size, uint64_t reserve, const char* what)
    {
        if (count * size + reserve > cursor.Remaining())
            return Fail(cursor.Position(), std::to_string(count) + " " + what + " of " + std::to_string(size) +
                                               " bytes do not fit into the " + std::to_string(cursor.Remaining()) +
                                               " bytes left");
        return true;
    }

    template <size_t N>
    void ReadFloats(std::array<float, N>& values)
    {
        for (float& value : values)
            cursor.ReadF32(&value);
    }

    bool ReadHeader()
    {
        MeshHeaderRecord& header = mesh.header;
        for (uint32_t* field : {&header.size, &header.flags, &header.batchCount, &header.triangleCount,
                                &header.vertexCount, &header.frameCount})
            cursor.ReadU32(field);
        ReadFloats(header.centre);
        cursor.ReadF32(&header.radius);
        if (!cursor.Ok())
            return Fail(0, "mesh header cut short");
        if (header.size != kMeshHeaderSize)
            return Fail(0, "mesh header size is " + std::to_string(header.size) + ", not 40");
        if ((header.flags & ~kComponentAll) != 0)
            return Fail(4, "unknown component flags " + std::to_string(header.flags));
        if (header.frameCount == 0)
            return Fail(20, "frame count is 0");
        return true;
    }

    bool ReadBatches()
    {
        // Triangles and frame 0 (header, vertices, end marker) follow the batches.
        const uint64_t after = uint64_t{mesh.header.triangleCount} * kTriangleSize + kFrameHeaderSize +
                               uint64_t{mesh.header.vertexCount} * kVertexSize + 1;
        if (!Fits(mesh.header.batchCount, kBatchSize, after, "batches, triangles and vertices"))
            return false;
        mesh.batches.resize(mesh.header.batchCount);
        for (BatchRecord& batch : mesh.batches) {
            const size_t at = cursor.Position();
            for (uint32_t* field : {&batch.size, &batch.reserved, &batch.firstTriangle, &batch.triangleCount,
                                    &batch.firstVertex, &batch.vertexCount, &batch.textureSet})
                cursor.ReadU32(field);
            if (batch.size != kBatchSize || batch.reserved != 0)
                return Fail(at, "batch " + std::to_string(&batch - mesh.batches.data()) +
                                    " does not begin with {28, 0}");
        }
        return true;
    }

    bool ReadTriangles()
    {
        mesh.triangles.resize(mesh.header.triangleCount);
        for (TriangleRecord& triangle : mesh.triangles) {
            cursor.ReadU32(&triangle.flags);
            for (uint32_t& corner : triangle.corners)
                cursor.ReadU32(&corner);
            cursor.ReadU32(&triangle.textureSet);
        }
        return true;
    }

    size_t TriangleOffset(size_t index) const
    {
        return kMeshHeaderSize + mesh.batches.size() * kBatchSize + index * kTriangleSize;
    }

    // Batches follow each other without gaps over the whole triangle and vertex lists; each
    // triangle's corners lie inside its batch's vertices and it carries its batch's set.
    bool CheckRanges()
    {
        uint64_t triangles = 0;
        uint64_t vertices = 0;
        for (size_t b = 0; b < mesh.batches.size(); ++b) {
            const BatchRecord& batch = mesh.batches[b];
            const size_t at = kMeshHeaderSize + b * kBatchSize;
            const std::string name = "batch " + std::to_string(b);
            if (batch.firstTriangle != triangles)
                return Fail(at + 8, name + " starts at triangle " + std::to_string(batch.firstTriangle) + ", not " +
                                        std::to_string(triangles));
            if (batch.triangleCount == 0)
                return Fail(at + 12, name + " has no triangle");
            if (batch.firstVertex != vertices)
                return Fail(at + 16, name + " starts at vertex " + std::to_string(batch.firstVertex) + ", not " +
                                         std::to_string(vertices));
            triangles += batch.triangleCount;
            vertices += batch.vertexCount;
            if (triangles > mesh.triangles.size())
                return Fail(at + 12, name + " reaches past the " + std::to_string(mesh.triangles.size()) + " triangles");
            if (vertices > mesh.header.vertexCount)
                return Fail(at + 20, name + " reaches past the " + std::to_string(mesh.header.vertexCount) + " vertices");
            for (uint32_t t = batch.firstTriangle; t < triangles; ++t) {
                const TriangleRecord& triangle = mesh.triangles[t];
                for (size_t k = 0; k < 3; ++k) {
                    if (triangle.corners[k] >= batch.vertexCount)
                        return Fail(TriangleOffset(t) + 4 + 4 * k,
                                    "triangle " + std::to_string(t) + " corner " + std::to_string(k) + " is " +
                                        std::to_string(triangle.corners[k]) + ", outside the " +
                                        std::to_string(batch.vertexCount) + " vertices of its " + name);
                }
                if (triangle.textureSet != batch.textureSet)
                    return Fail(TriangleOffset(t) + 16, "triangle " + std::to_string(t) + " has texture set " +
                                                            std::to_string(triangle.textureSet) + ", its " + name + " " +
                                                            std::to_string(batch.textureSet));
            }
        }
        if (!mesh.batches.empty() && (triangles != mesh.triangles.size() || vertices != mesh.header.vertexCount))
            return Fail(kMeshHeaderSize, "the batches cover " + std::to_string(triangles) + " triangles and " +
                                             std::to_string(vertices) + " vertices of " +
                                             std::to_string(mesh.triangles.size()) + " and " +
                                             std::to_string(mesh.header.vertexCount));
        // Without batches (render data loaded from a vertex file) corners index the whole list.
        if (mesh.batches.empty()) {
            for (size_t t = 0; t < mesh.triangles.size(); ++t) {
                for (size_t k = 0; k < 3; ++k) {
                    if (mesh.triangles[t].corners[k] >= mesh.header.vertexCount)
                        return Fail(TriangleOffset(t) + 4 + 4 * k,
                                    "triangle " + std::to_string(t) + " corner " + std::to_string(k) +
                                        " is outside the " + std::to_string(mesh.header.vertexCount) + " vertices");
                }
            }
        }
        return true;
    }

    bool ReadFrameHeader(FrameRecord& frame)
    {
        const size_t at = cursor.Position();
        uint32_t time = 0, delta = 0;
        cursor.ReadU32(&frame.headerSize);
        cursor.ReadU32(&time);
        cursor.ReadU32(&frame.one);
        cursor.ReadU32(&delta);
        frame.time = static_cast<int32_t>(time);
        frame.delta = static_cast<int32_t>(delta);
        const std::string name = "frame " + std::to_string(mesh.frames.size() - 1);
        if (!cursor.Ok())
            return Fail(at, name + " header cut short");
        if (frame.headerSize != kFrameHeaderSize || frame.one != 1)
            return Fail(at, name + " header does not begin with 16 and hold 1 at byte 8");
        return true;
    }

    bool ReadFrames()
    {
        const uint32_t vertexCount = mesh.header.vertexCount;
        const uint32_t flags = mesh.header.flags;
        const uint32_t stored = StoredVertexBytes(flags);

        mesh.frames.emplace_back();
        if (!ReadFrameHeader(mesh.frames[0]))
            return false;
        if (mesh.frames[0].delta != 0)
            return Fail(cursor.Position() - 4, "frame 0 has a time delta");
        std::vector<VertexRecord>& first = mesh.frames[0].vertices;
        first.resize(vertexCount);  // bounded by the check in ReadBatches
        for (VertexRecord& vertex : first) {
            ReadFloats(vertex.position);
            ReadFloats(vertex.normal);
            cursor.ReadU32(&vertex.colour);
            cursor.ReadU32(&vertex.material);
            cursor.ReadF32(&vertex.u);
            cursor.ReadF32(&vertex.v);
        }
        mesh.frames[0].storedBytes = vertexCount * kVertexSize;

        while (true) {
            const size_t at = cursor.Position();
            uint8_t marker = 0;
            if (!cursor.ReadU8(&marker))
                return Fail(at, "the frame stream ends without its 0x00 marker");
            if (marker == kFramesEnd)
                break;
            if (marker != kFrameFollows)
                return Fail(at, "frame marker is " + std::to_string(marker) + ", not 0x01 or 0x00");
            if (mesh.frames.size() >= mesh.header.frameCount)
                return Fail(at, "more frames are stored than the header's " + std::to_string(mesh.header.frameCount));
            // A frame that stores nothing is never written: it would equal the frame before it.
            // Refusing it also bounds the decoded frames by the stored bytes.
            if (stored == 0 && vertexCount > 0)
                return Fail(at, "a later frame is stored although the component flags select nothing");
            if (uint64_t{vertexCount} * stored + kFrameHeaderSize + 1 > cursor.Remaining())
                return Fail(cursor.Position(), "frame " + std::to_string(mesh.frames.size()) + " (" +
                                                   std::to_string(vertexCount) + " vertices of " + std::to_string(stored) +
                                                   " bytes and a marker) does not fit into the " +
                                                   std::to_string(cursor.Remaining()) + " bytes left");
            mesh.frames.emplace_back();
            FrameRecord& frame = mesh.frames.back();
            if (!ReadFrameHeader(frame))
                return false;
            frame.vertices = mesh.frames[mesh.frames.size() - 2].vertices;
            frame.storedBytes = vertexCount * stored;
            for (VertexRecord& vertex : frame.vertices) {
                if (flags & kComponentPosition)
                    ReadFloats(vertex.position);
                if (flags & kComponentNormal)
                    ReadFloats(vertex.normal);
                if (flags & kComponentColour)
                    cursor.ReadU32(&vertex.colour);
                if (flags & kComponentMaterial)
                    cursor.ReadU32(&vertex.material);
                if (flags & kComponentTexture) {
                    cursor.ReadF32(&vertex.u);
                    cursor.ReadF32(&vertex.v);
                }
            }
        }
        if (!cursor.Ok())
            return Fail(cursor.Position(), "frame stream cut short");
        if (!cursor.AtEnd())
            return Fail(cursor.Position(), std::to_string(cursor.Remaining()) + " bytes follow the frame stream");
        return true;
    }

    VernCursor cursor;
    MeshData& mesh;
    std::string& error;
    size_t& position;
};

}  // namespace

bool DecodeMesh(std::span<const uint8_t> payload, MeshData* mesh, std::string* error, size_t* position)
{
    *mesh = MeshData{};
    std::string reason;
    size_t at = 0;
    const bool ok = MeshReader(payload, *mesh, reason, at).Read();
    if (!ok) {
        *mesh = MeshData{};
        if (error)
            *error = reason;
        if (position)
            *position = at;
    }
    return ok;
}

}  // namespace vern3d
