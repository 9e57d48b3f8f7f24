#include "Vern3DBuilder.h"

#include "TestFiles.h"
#include "VernWriter.h"
#include "vern/Vern3DLayout.h"

#include <bit>
#include <cstdlib>
#include <functional>

namespace vern3dtest {

using namespace vern3d;

void AppendU32(Bytes& bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void AppendF32(Bytes& bytes, float value) { AppendU32(bytes, std::bit_cast<uint32_t>(value)); }

void PutU32(Bytes& bytes, size_t at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t GetU32(const Bytes& bytes, size_t at)
{
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | bytes.at(at + i);
    return value;
}

namespace {

template <FileRecord Record>
void AppendRecord(Bytes& bytes, const Record& record)
{
    bytes.resize(bytes.size() + sizeof record);
    StoreRecord(bytes.data() + bytes.size() - sizeof record, record);
}

template <size_t N>
void AppendFloats(Bytes& bytes, const std::array<float, N>& values)
{
    for (float value : values)
        AppendF32(bytes, value);
}

}  // namespace

Bytes EncodeMesh(const MeshData& mesh)
{
    Bytes bytes;
    const MeshHeaderRecord& h = mesh.header;
    for (uint32_t value : {h.size, h.flags, h.batchCount, h.triangleCount, h.vertexCount, h.frameCount})
        AppendU32(bytes, value);
    AppendFloats(bytes, h.centre);
    AppendF32(bytes, h.radius);
    for (const BatchRecord& b : mesh.batches)
        for (uint32_t value : {b.size, b.reserved, b.firstTriangle, b.triangleCount, b.firstVertex, b.vertexCount, b.textureSet})
            AppendU32(bytes, value);
    for (const TriangleRecord& t : mesh.triangles)
        for (uint32_t value : {t.flags, t.corners[0], t.corners[1], t.corners[2], t.textureSet})
            AppendU32(bytes, value);
    for (size_t f = 0; f < mesh.frames.size(); ++f) {
        const FrameRecord& frame = mesh.frames[f];
        if (f > 0)
            bytes.push_back(kFrameFollows);
        for (uint32_t value : {frame.headerSize, static_cast<uint32_t>(frame.time), frame.one, static_cast<uint32_t>(frame.delta)})
            AppendU32(bytes, value);
        const uint32_t flags = f == 0 ? kComponentAll : h.flags;
        for (const VertexRecord& v : frame.vertices) {
            if (flags & kComponentPosition)
                AppendFloats(bytes, v.position);
            if (flags & kComponentNormal)
                AppendFloats(bytes, v.normal);
            if (flags & kComponentColour)
                AppendU32(bytes, v.colour);
            if (flags & kComponentMaterial)
                AppendU32(bytes, v.material);
            if (flags & kComponentTexture) {
                AppendF32(bytes, v.u);
                AppendF32(bytes, v.v);
            }
        }
    }
    bytes.push_back(kFramesEnd);
    return bytes;
}

Bytes EncodeAnimation(const Animation& animation)
{
    Bytes bytes;
    const auto positions = static_cast<uint32_t>(animation.positionKeys.size());
    const auto rotations = static_cast<uint32_t>(animation.rotationKeys.size());
    const uint32_t flags = (positions ? kHasPositionKeys : 0u) | (rotations ? kHasRotationKeys : 0u);
    for (uint32_t value : {kAnimationHeaderSize, flags, kAnimationHeaderSize + kPositionKeySize * positions, positions,
                           kPositionKeySize, 0u, rotations, kRotationKeySize})
        AppendU32(bytes, value);
    for (const PositionKey& key : animation.positionKeys)
        AppendRecord(bytes, key);
    for (const RotationKey& key : animation.rotationKeys)
        AppendRecord(bytes, key);
    return bytes;
}

NodeInfoRecord InfoFor(const std::array<float, 16>& matrix)
{
    NodeInfoRecord info;
    info.flags = kNodeFlags;
    info.matrix = matrix;
    return info;
}

Bytes BuildFile(const NodeShape& root, const std::vector<std::vector<TextureEntryRecord>>& textureSets)
{
    testfiles::ScratchDirectory directory;
    const std::string path = directory.File("built.vern3D");
    VernWriter writer;
    bool ok = Succeeded(writer.SetFileType(FileTypeVern3D)) && Succeeded(writer.Open(path.c_str(), true)) &&
              Succeeded(writer.BeginFile());
    auto write = [&](VernChunk* chunk, const Bytes& bytes) {
        ok = ok && Succeeded(writer.WriteData(bytes.data(), static_cast<uint32_t>(bytes.size()), chunk));
    };
    // Shallow trees only: the tests build a few levels.
    std::function<void(const NodeShape&, VernChunk*)> writeNode = [&](const NodeShape& shape, VernChunk* parent) {
        VernChunk* chunk = nullptr;
        ok = ok && Succeeded(writer.CreateChunk(&chunk, kChunkNode, parent));
        if (!ok)
            return;
        for (const NodeShape& child : shape.children)
            writeNode(child, chunk);
        Bytes record;
        AppendU32(record, kNodeInfoSize);
        AppendU32(record, shape.info.flags);
        AppendFloats(record, shape.info.matrix);
        AppendFloats(record, shape.info.bounds);
        AppendFloats(record, shape.info.parentBounds);
        write(chunk, record);
        OutputStream* stream = nullptr;
        ok = ok && Succeeded(writer.BeginDirectWrite(&stream, chunk)) &&
             Succeeded(VernWriter::WriteCountedString(shape.name, stream)) &&
             Succeeded(writer.EndDirectWrite(stream, chunk));
        for (auto [id, bytes] : {std::pair{kChunkNodeAnimation, shape.animation ? EncodeAnimation(*shape.animation) : Bytes()},
                                 std::pair{kChunkMesh, shape.mesh ? EncodeMesh(*shape.mesh) : Bytes()}}) {
            if (bytes.empty())
                continue;
            VernChunk* sub = nullptr;
            ok = ok && Succeeded(writer.CreateChunk(&sub, id, chunk));
            write(sub, bytes);
        }
    };
    writeNode(root, writer.Root());
    VernChunk* table = nullptr;
    ok = ok && Succeeded(writer.CreateChunk(&table, kChunkTextureTable, writer.Root()));
    Bytes values;
    auto value = [&](uint32_t v) {
        for (uint32_t field : {kValueRecordSize, 0u, v})
            AppendU32(values, field);
    };
    value(static_cast<uint32_t>(textureSets.size()));
    write(table, values);
    for (const auto& set : textureSets) {
        values.clear();
        value(static_cast<uint32_t>(set.size()));
        write(table, values);
        for (const TextureEntryRecord& entry : set) {
            values.clear();
            value(entry.flags);
            write(table, values);
            OutputStream* stream = nullptr;
            ok = ok && Succeeded(writer.BeginDirectWrite(&stream, table)) &&
                 Succeeded(VernWriter::WriteCountedString(entry.fileName, stream)) &&
                 Succeeded(writer.EndDirectWrite(stream, table));
        }
    }
    ok = ok && Succeeded(writer.Close());
    if (!ok)
        std::abort();  // a builder that cannot write is a broken test machine
    const auto bytes = testfiles::ReadBytes(path);
    return Bytes(bytes.begin(), bytes.end());
}

}  // namespace vern3dtest
