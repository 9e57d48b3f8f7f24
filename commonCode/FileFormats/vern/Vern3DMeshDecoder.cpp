// The ChunkMesh payload: header, batches, triangles and the frame stream, checked in one pass
// and referred to in place.
//
// The frame stream holds frame 0 complete; every further stored frame follows the byte
// kFrameFollows and holds only the components the header's flags select; kFramesEnd ends it.
// Frame access completes a later frame from frame 0: the components a frame does not store are
// those of frame 0, since every later frame stores the same ones.
#include "vern/Vern3DDecoder.h"

#include "vern/VernReader.h"

#include <cstring>

namespace vern3d {

namespace {

// Where a later frame keeps each component of a vertex, in the order of the component bits.
struct ComponentPlaces {
    uint32_t stride = 0;
    int position = -1, normal = -1, colour = -1, material = -1, texture = -1;
};

ComponentPlaces PlacesOf(uint32_t flags)
{
    ComponentPlaces places;
    auto place = [&](uint32_t bit, int& at) {
        if (flags & bit) {
            at = static_cast<int>(places.stride);
            places.stride += StoredVertexBytes(bit);
        }
    };
    place(kComponentPosition, places.position);
    place(kComponentNormal, places.normal);
    place(kComponentColour, places.colour);
    place(kComponentMaterial, places.material);
    place(kComponentTexture, places.texture);
    return places;
}

// "0x01" for the markers in reasons.
std::string ByteText(uint8_t value)
{
    static const char digits[] = "0123456789ABCDEF";
    return std::string("0x") + digits[value >> 4] + digits[value & 15];
}

class MeshReader {
public:
    MeshReader(std::span<const uint8_t> payload, Mesh& mesh, std::string& error, size_t& position)
        : payload(payload), cursor(payload), mesh(mesh), error(error), position(position)
    {
    }

    bool Read() { return ReadHeader() && ReadLists() && CheckRanges() && ReadFrames(); }

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

    // `count` records of the cursor's next bytes as a view (the caller has made sure they fit).
    template <FileRecord Record>
    RecordView<Record> Take(size_t count)
    {
        std::span<const uint8_t> bytes;
        cursor.ReadBytes(count * sizeof(Record), &bytes);
        return RecordView<Record>(bytes.data(), count);
    }

    bool ReadHeader()
    {
        MeshHeader& header = mesh.header;
        if (!cursor.ReadRecord(&header))
            return Fail(0, "mesh header cut short");
        if (header.size != kMeshHeaderSize)
            return Fail(0, "mesh header size is " + std::to_string(header.size) + ", not " + std::to_string(kMeshHeaderSize));
        if ((header.flags & ~kComponentAll) != 0)
            return Fail(offsetof(MeshHeader, flags), "unknown component flags " + std::to_string(header.flags));
        if (header.frameCount == 0)
            return Fail(offsetof(MeshHeader, frameCount), "frame count is 0");
        return true;
    }

    bool ReadLists()
    {
        // Triangles and frame 0 (header, vertices, end marker) follow the batches.
        const uint64_t after = uint64_t{mesh.header.triangleCount} * kTriangleSize + kFrameHeaderSize +
                               uint64_t{mesh.header.vertexCount} * kVertexSize + 1;
        if (!Fits(mesh.header.batchCount, kBatchSize, after, "batches, triangles and vertices"))
            return false;
        mesh.batches = Take<Batch>(mesh.header.batchCount);
        for (size_t b = 0; b < mesh.batches.size(); ++b) {
            const Batch batch = mesh.batches[b];
            if (batch.size != kBatchSize || batch.reserved != 0)
                return Fail(BatchOffset(b), "batch " + std::to_string(b) + " does not begin with {" +
                                                std::to_string(kBatchSize) + ", 0}");
        }
        mesh.triangles = Take<Triangle>(mesh.header.triangleCount);
        return true;
    }

    size_t BatchOffset(size_t index) const { return kMeshHeaderSize + index * kBatchSize; }
    size_t TriangleOffset(size_t index) const { return BatchOffset(mesh.batches.size()) + index * kTriangleSize; }

    bool CornerOutside(size_t t, const Triangle& triangle, uint32_t vertices, const std::string& within)
    {
        for (size_t k = 0; k < 3; ++k) {
            if (triangle.corners[k] >= vertices)
                return !Fail(TriangleOffset(t) + offsetof(Triangle, corners) + 4 * k,
                             "triangle " + std::to_string(t) + " corner " + std::to_string(k) + " is " +
                                 std::to_string(triangle.corners[k]) + ", outside the " + std::to_string(vertices) +
                                 " vertices" + within);
        }
        return false;
    }

    // Batches follow each other without gaps over the whole triangle and vertex lists; each
    // triangle's corners lie inside its batch's vertices and it carries its batch's set.
    bool CheckRanges()
    {
        uint64_t triangles = 0;
        uint64_t vertices = 0;
        for (size_t b = 0; b < mesh.batches.size(); ++b) {
            const Batch batch = mesh.batches[b];
            const size_t at = BatchOffset(b);
            const std::string name = "batch " + std::to_string(b);
            if (batch.firstTriangle != triangles)
                return Fail(at + offsetof(Batch, firstTriangle), name + " starts at triangle " +
                                                                     std::to_string(batch.firstTriangle) + ", not " +
                                                                     std::to_string(triangles));
            if (batch.triangleCount == 0)
                return Fail(at + offsetof(Batch, triangleCount), name + " has no triangle");
            if (batch.firstVertex != vertices)
                return Fail(at + offsetof(Batch, firstVertex), name + " starts at vertex " +
                                                                   std::to_string(batch.firstVertex) + ", not " +
                                                                   std::to_string(vertices));
            triangles += batch.triangleCount;
            vertices += batch.vertexCount;
            if (triangles > mesh.triangles.size())
                return Fail(at + offsetof(Batch, triangleCount),
                            name + " reaches past the " + std::to_string(mesh.triangles.size()) + " triangles");
            if (vertices > mesh.header.vertexCount)
                return Fail(at + offsetof(Batch, vertexCount),
                            name + " reaches past the " + std::to_string(mesh.header.vertexCount) + " vertices");
            // The hot loop of a load: one copy of 20 bytes and four compares per triangle.
            for (uint32_t t = batch.firstTriangle; t < triangles; ++t) {
                const Triangle triangle = mesh.triangles[t];
                if ((triangle.corners[0] | triangle.corners[1] | triangle.corners[2]) >= batch.vertexCount &&
                    CornerOutside(t, triangle, batch.vertexCount, " of its " + name))
                    return false;
                if (triangle.textureSet != batch.textureSet)
                    return Fail(TriangleOffset(t) + offsetof(Triangle, textureSet),
                                "triangle " + std::to_string(t) + " has texture set " +
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
            for (size_t t = 0; t < mesh.triangles.size(); ++t)
                if (CornerOutside(t, mesh.triangles[t], mesh.header.vertexCount, ""))
                    return false;
        }
        return true;
    }

    bool ReadFrameHeader(StoredFrame& frame, size_t index)
    {
        const size_t at = cursor.Position();
        FrameHeader header;
        const std::string name = "frame " + std::to_string(index);
        if (!cursor.ReadRecord(&header))
            return Fail(at, name + " header cut short");
        if (header.size != kFrameHeaderSize || header.one != 1)
            return Fail(at, name + " header does not begin with " + std::to_string(kFrameHeaderSize) +
                                " and hold 1 at byte " + std::to_string(offsetof(FrameHeader, one)));
        frame.time = header.time;
        frame.delta = header.delta;
        frame.dataOffset = cursor.Position();
        return true;
    }

    bool ReadFrames()
    {
        const uint32_t vertexCount = mesh.header.vertexCount;
        const uint32_t stored = StoredVertexBytes(mesh.header.flags);

        StoredFrame first;
        if (!ReadFrameHeader(first, 0))
            return false;
        if (first.delta != 0)
            return Fail(cursor.Position() - sizeof(int32_t), "frame 0 has a time delta");
        mesh.vertices = Take<Vertex>(vertexCount);  // bounded by the check in ReadLists
        first.storedBytes = vertexCount * kVertexSize;
        mesh.frames.push_back(first);

        while (true) {
            const size_t at = cursor.Position();
            uint8_t marker = 0;
            if (!cursor.ReadU8(&marker))
                return Fail(at, "the frame stream ends without its " + ByteText(kFramesEnd) + " marker");
            if (marker == kFramesEnd)
                break;
            if (marker != kFrameFollows)
                return Fail(at, "frame marker is " + std::to_string(marker) + ", not " + ByteText(kFrameFollows) +
                                    " or " + ByteText(kFramesEnd));
            if (mesh.frames.size() >= mesh.header.frameCount)
                return Fail(at, "more frames are stored than the header's " + std::to_string(mesh.header.frameCount));
            // A frame that stores nothing is never written: it would equal the frame before it.
            // Refusing it also bounds the frames by the stored bytes.
            if (stored == 0 && vertexCount > 0)
                return Fail(at, "a later frame is stored although the component flags select nothing");
            const uint64_t bytes = uint64_t{vertexCount} * stored;
            if (bytes + kFrameHeaderSize + 1 > cursor.Remaining())
                return Fail(cursor.Position(), "frame " + std::to_string(mesh.frames.size()) + " (" +
                                                   std::to_string(vertexCount) + " vertices of " + std::to_string(stored) +
                                                   " bytes and a marker) does not fit into the " +
                                                   std::to_string(cursor.Remaining()) + " bytes left");
            StoredFrame frame;
            if (!ReadFrameHeader(frame, mesh.frames.size()))
                return false;
            frame.storedBytes = static_cast<uint32_t>(bytes);
            cursor.Skip(static_cast<size_t>(bytes));
            mesh.frames.push_back(frame);
        }
        if (!cursor.AtEnd())
            return Fail(cursor.Position(), std::to_string(cursor.Remaining()) + " bytes follow the frame stream");
        mesh.payload = payload;
        return true;
    }

    std::span<const uint8_t> payload;
    VernCursor cursor;
    Mesh& mesh;
    std::string& error;
    size_t& position;
};

template <typename Value>
void Overwrite(Value& value, const uint8_t* from, int at)
{
    if (at >= 0)
        std::memcpy(&value, from + at, sizeof value);
}

}  // namespace

Vertex Mesh::FrameVertex(size_t frame, size_t vertex) const
{
    Vertex result = vertices[vertex];
    if (frame == 0)
        return result;
    const ComponentPlaces places = PlacesOf(header.flags);
    const uint8_t* from = payload.data() + frames[frame].dataOffset + vertex * places.stride;
    Overwrite(result.position, from, places.position);
    Overwrite(result.normal, from, places.normal);
    Overwrite(result.colour, from, places.colour);
    Overwrite(result.material, from, places.material);
    if (places.texture >= 0) {
        Overwrite(result.u, from, places.texture);
        Overwrite(result.v, from, places.texture + static_cast<int>(sizeof(float)));
    }
    return result;
}

void Mesh::FrameVertices(size_t frame, std::span<Vertex> out) const
{
    const ComponentPlaces places = PlacesOf(header.flags);
    const uint8_t* from = frame == 0 ? nullptr : payload.data() + frames[frame].dataOffset;
    for (size_t v = 0; v < out.size() && v < vertices.size(); ++v) {
        Vertex& vertex = out[v];
        vertex = vertices[v];
        if (!from)
            continue;
        Overwrite(vertex.position, from, places.position);
        Overwrite(vertex.normal, from, places.normal);
        Overwrite(vertex.colour, from, places.colour);
        Overwrite(vertex.material, from, places.material);
        if (places.texture >= 0) {
            Overwrite(vertex.u, from, places.texture);
            Overwrite(vertex.v, from, places.texture + static_cast<int>(sizeof(float)));
        }
        from += places.stride;
    }
}

std::vector<Vertex> Mesh::FrameVertices(size_t frame) const
{
    std::vector<Vertex> out(vertices.size());
    FrameVertices(frame, out);
    return out;
}

bool DecodeMesh(std::span<const uint8_t> payload, Mesh* mesh, std::string* error, size_t* position)
{
    *mesh = Mesh{};
    std::string reason;
    size_t at = 0;
    bool ok = false;
    try {
        ok = MeshReader(payload, *mesh, reason, at).Read();
    } catch (const std::bad_alloc&) {
        reason = "out of memory";
    }
    if (!ok) {
        *mesh = Mesh{};
        if (error)
            *error = reason;
        if (position)
            *position = at;
    }
    return ok;
}

}  // namespace vern3d
