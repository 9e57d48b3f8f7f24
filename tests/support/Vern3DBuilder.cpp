#include "support/Vern3DBuilder.h"

#include "support/TestFiles.h"
#include "vern/VernWriter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace vern3dtest {

using namespace vern3d;

// Both check the range first (std::out_of_range fails the test).
void PutU32(Bytes& bytes, size_t at, uint32_t value)
{
    (void)bytes.at(at + 3);
    StoreRecord(bytes.data() + at, value);
}

uint32_t GetU32(const Bytes& bytes, size_t at)
{
    (void)bytes.at(at + 3);
    return LoadRecord<uint32_t>(bytes.data() + at);
}

namespace {

template <FileRecord Record>
void Append(Bytes& bytes, const Record& record)
{
    bytes.resize(bytes.size() + sizeof record);
    StoreRecord(bytes.data() + bytes.size() - sizeof record, record);
}

}  // namespace

Bytes EncodeMesh(const MeshShape& mesh)
{
    Bytes bytes;
    Append(bytes, mesh.header);
    for (const Batch& batch : mesh.batches)
        Append(bytes, batch);
    for (const Triangle& triangle : mesh.triangles)
        Append(bytes, triangle);
    for (size_t f = 0; f < mesh.frames.size(); ++f) {
        const FrameShape& frame = mesh.frames[f];
        if (f > 0)
            bytes.push_back(kFrameFollows);
        Append(bytes, frame.header);
        const uint32_t flags = f == 0 ? kComponentAll : mesh.header.flags;
        for (const Vertex& v : frame.vertices) {
            if (flags & kComponentPosition)
                Append(bytes, v.position);
            if (flags & kComponentNormal)
                Append(bytes, v.normal);
            if (flags & kComponentColour)
                Append(bytes, v.colour);
            if (flags & kComponentMaterial)
                Append(bytes, v.material);
            if (flags & kComponentTexture) {
                Append(bytes, v.u);
                Append(bytes, v.v);
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
    Append(bytes, AnimationHeader{kAnimationHeaderSize, (positions ? kHasPositionKeys : 0u) | (rotations ? kHasRotationKeys : 0u),
                                  kAnimationHeaderSize + kPositionKeySize * positions, positions, kPositionKeySize, 0,
                                  rotations, kRotationKeySize});
    for (const PositionKey& key : animation.positionKeys)
        Append(bytes, key);
    for (const RotationKey& key : animation.rotationKeys)
        Append(bytes, key);
    return bytes;
}

NodeInfo InfoFor(const Matrix& matrix)
{
    NodeInfo info;
    info.flags = kNodeFlags;
    info.matrix = matrix;
    return info;
}

NodeShape Root(std::vector<NodeShape> children)
{
    NodeShape root{"root", {}, nullptr, nullptr, std::move(children)};
    root.info.flags = kRootFlags;
    return root;
}

NodeShape Child(std::string name, const Animation* animation, const MeshShape* mesh)
{
    return {std::move(name), InfoFor(kIdentity), animation, mesh, {}};
}

Scene BuildScene(const NodeShape& root, const std::vector<std::vector<TextureEntry>>& textureSets)
{
    Scene scene;
    std::string error;
    EXPECT_TRUE(Decode(BuildFile(root, textureSets), &scene, &error)) << error;
    return scene;
}

MeshShape TriangleMesh(uint32_t flags, std::vector<FrameShape> frames)
{
    MeshShape mesh;
    mesh.header = {kMeshHeaderSize, flags, 1, 1, 3, static_cast<uint32_t>(frames.size()), {}, 1};
    mesh.batches = {{kBatchSize, 0, 0, 1, 0, 3, 0}};
    mesh.triangles = {{7, {0, 2, 1}, 0}};
    mesh.frames = std::move(frames);
    return mesh;
}

Bytes BuildFile(const NodeShape& root, const std::vector<std::vector<TextureEntry>>& textureSets)
{
    testfiles::ScratchDirectory directory;
    const std::string path = directory.File("built.vern3D");
    VernWriter writer;
    bool ok = Succeeded(writer.SetFileType(FileTypeVern3D)) && Succeeded(writer.Open(path.c_str(), true)) &&
              Succeeded(writer.BeginFile());
    auto write = [&](VernChunk* chunk, const Bytes& bytes) {
        ok = ok && Succeeded(writer.WriteData(bytes.data(), static_cast<uint32_t>(bytes.size()), chunk));
    };
    auto writeString = [&](VernChunk* chunk, const std::string& text) {
        OutputStream* stream = nullptr;
        ok = ok && Succeeded(writer.BeginDirectWrite(&stream, chunk)) &&
             Succeeded(VernWriter::WriteCountedString(text, stream)) && Succeeded(writer.EndDirectWrite(stream, chunk));
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
        NodeInfo info = shape.info;
        info.size = kNodeInfoSize;
        Append(record, info);
        write(chunk, record);
        writeString(chunk, shape.name);
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
    auto value = [&](uint32_t v) {
        Bytes bytes;
        Append(bytes, ValueRecord{kValueRecordSize, 0, v});
        write(table, bytes);
    };
    value(static_cast<uint32_t>(textureSets.size()));
    for (const auto& set : textureSets) {
        value(static_cast<uint32_t>(set.size()));
        for (const TextureEntry& entry : set) {
            value(entry.flags);
            writeString(table, entry.fileName);
        }
    }
    ok = ok && Succeeded(writer.Close());
    if (!ok)
        std::abort();  // a builder that cannot write is a broken test machine
    const auto bytes = testfiles::ReadBytes(path);
    return Bytes(bytes.begin(), bytes.end());
}

}  // namespace vern3dtest
