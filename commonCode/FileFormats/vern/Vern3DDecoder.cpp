// The vern3D layout over the container: node chunks with their records, names, key chunks and
// mesh chunks, and the texture table. Every failure names its chunk and file offset.
#include "vern/Vern3DDecoder.h"

#include "vern/MappedFile.h"
#include "vern/Vern3DAnimation.h"
#include "vern/Vern3DMath.h"
#include "vern/VernReader.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace vern3d {

namespace {

bool Fail(std::string* error, const std::string& reason)
{
    if (error)
        *error = reason;
    return false;
}

std::string Hex(uint32_t value)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text = "0x";
    for (int shift = 28; shift >= 0; shift -= 4)
        text += digits[(value >> shift) & 0xF];
    return text;
}

// A chunk's place in the file, for the reasons of failures.
class ChunkPlace {
public:
    ChunkPlace(const VernContainer& container, uint32_t index, std::string owner)
        : label(Describe(container.chunks[index].id) + owner + " (directory entry " + std::to_string(index) + ")"),
          start(uint64_t{container.header.dataOffset} + container.chunks[index].offset)
    {
    }

    bool Fail(std::string* error, size_t position, const std::string& what) const
    {
        return vern3d::Fail(error, label + ", file offset " + std::to_string(start + position) + ": " + what);
    }

private:
    static std::string Describe(uint32_t id)
    {
        switch (id) {
        case kChunkNode: return "ChunkNode";
        case kChunkNodeAnimation: return "ChunkNodeAnimation";
        case kChunkMesh: return "ChunkMesh";
        case kChunkTextureTable: return "ChunkTextureTable";
        default: return "chunk " + Hex(id);
        }
    }

    std::string label;
    uint64_t start;
};

bool AllZero(std::span<const float> values)
{
    for (float value : values)
        if (value != 0.0f || std::signbit(value))
            return false;
    return true;
}

bool AllZero(const Sphere& sphere)
{
    return AllZero(std::array{sphere.centre.x, sphere.centre.y, sphere.centre.z, sphere.radius});
}

bool DecodeNodePayload(std::span<const uint8_t> payload, Node& node, bool isRoot, const ChunkPlace& place,
                       std::string* error)
{
    VernCursor cursor(payload);
    NodeInfo& info = node.info;
    if (!cursor.ReadRecord(&info))
        return place.Fail(error, 0, "node record cut short: " + std::to_string(payload.size()) + " bytes");
    if (info.size != kNodeInfoSize)
        return place.Fail(error, 0, "NodeInfo size is " + std::to_string(info.size) + ", not " + std::to_string(kNodeInfoSize));
    if (!cursor.ReadCountedString(&node.name))
        return place.Fail(error, kNodeInfoSize, "the name is not a counted string");
    if (!cursor.AtEnd())
        return place.Fail(error, cursor.Position(), std::to_string(cursor.Remaining()) + " bytes follow the name");
    const bool valid = isRoot ? (info.flags == kRootFlags || info.flags == kRootFlagsBounded)
                              : (info.flags == kNodeFlags || info.flags == kNodeFlagsBounded);
    if (!valid)
        return place.Fail(error, offsetof(NodeInfo, flags),
                          "NodeInfo flags " + std::to_string(info.flags) + " of node '" + node.name + "' are not " +
                              (isRoot ? std::to_string(kRootFlags) + " or " + std::to_string(kRootFlagsBounded) + " (scene root)"
                                      : std::to_string(kNodeFlags) + " or " + std::to_string(kNodeFlagsBounded)));
    if (!(info.flags & kNodeMatrix) && !AllZero(info.matrix.m))
        return place.Fail(error, offsetof(NodeInfo, matrix), "matrix set without its flag");
    if (!(info.flags & kNodeBounds) && !AllZero(info.bounds))
        return place.Fail(error, offsetof(NodeInfo, bounds), "bounds set without their flag");
    if ((info.flags & kNodeParentBounds) != kNodeParentBounds && !AllZero(info.parentBounds))
        return place.Fail(error, offsetof(NodeInfo, parentBounds), "parent bounds set without their flag");
    return true;
}

bool DecodeAnimation(std::span<const uint8_t> payload, Animation& animation, const ChunkPlace& place,
                     std::string* error)
{
    VernCursor cursor(payload);
    AnimationHeader header;
    if (!cursor.ReadRecord(&header))
        return place.Fail(error, 0, "key header cut short");
    const uint32_t positions = header.positionKeyCount;
    const uint32_t rotations = header.rotationKeyCount;
    if (header.size != kAnimationHeaderSize || header.positionKeySize != kPositionKeySize || header.reserved != 0 ||
        header.rotationKeySize != kRotationKeySize)
        return place.Fail(error, 0,
                          "key header is not {" + std::to_string(kAnimationHeaderSize) + ", flags, offset, n, " +
                              std::to_string(kPositionKeySize) + ", 0, m, " + std::to_string(kRotationKeySize) + "}");
    if (header.flags != ((positions ? kHasPositionKeys : 0u) | (rotations ? kHasRotationKeys : 0u)) || header.flags == 0)
        return place.Fail(error, offsetof(AnimationHeader, flags),
                          "key flags " + std::to_string(header.flags) + " do not match the key counts");
    const uint64_t rotationStart = kAnimationHeaderSize + uint64_t{kPositionKeySize} * positions;
    if (header.rotationKeyOffset != rotationStart)
        return place.Fail(error, offsetof(AnimationHeader, rotationKeyOffset),
                          "rotation key offset does not follow the position keys");
    const uint64_t expected = rotationStart + uint64_t{kRotationKeySize} * rotations;
    if (payload.size() != expected)
        return place.Fail(error, offsetof(AnimationHeader, positionKeyCount),
                          "the key counts ask for " + std::to_string(expected) + " bytes, the chunk holds " +
                              std::to_string(payload.size()));
    animation.flags = header.flags;
    animation.positionKeys.resize(positions);
    for (PositionKey& key : animation.positionKeys)
        cursor.ReadRecord(&key);
    animation.rotationKeys.resize(rotations);
    for (RotationKey& key : animation.rotationKeys)
        cursor.ReadRecord(&key);
    return true;
}

bool DecodeTextureTable(std::span<const uint8_t> payload, Scene& scene, const ChunkPlace& place, std::string* error)
{
    VernCursor cursor(payload);
    auto value = [&](uint32_t* out, const char* what) {
        const size_t at = cursor.Position();
        ValueRecord record;
        if (!cursor.ReadRecord(&record))
            return place.Fail(error, at, std::string(what) + " cut short");
        if (record.size != kValueRecordSize || record.reserved != 0)
            return place.Fail(error, at, std::string(what) + " is not a value record {" +
                                             std::to_string(kValueRecordSize) + ", 0, value}");
        *out = record.value;
        return true;
    };
    uint32_t setCount = 0;
    if (!value(&setCount, "texture set count"))
        return false;
    // Every set takes at least one value record.
    if (uint64_t{setCount} * kValueRecordSize > cursor.Remaining())
        return place.Fail(error, offsetof(ValueRecord, value),
                          std::to_string(setCount) + " texture sets do not fit into the table");
    scene.textureSets.resize(setCount);
    for (auto& set : scene.textureSets) {
        uint32_t entryCount = 0;
        const size_t at = cursor.Position();
        if (!value(&entryCount, "texture entry count"))
            return false;
        // Every entry takes a value record and at least one byte of name.
        if (uint64_t{entryCount} * (kValueRecordSize + 1) > cursor.Remaining())
            return place.Fail(error, at + offsetof(ValueRecord, value),
                              std::to_string(entryCount) + " texture entries do not fit into the table");
        set.resize(entryCount);
        for (TextureEntry& entry : set) {
            if (!value(&entry.flags, "texture entry"))
                return false;
            const size_t nameAt = cursor.Position();
            if (!cursor.ReadCountedString(&entry.fileName))
                return place.Fail(error, nameAt, "texture file name is not a counted string");
        }
    }
    if (!cursor.AtEnd())
        return place.Fail(error, cursor.Position(), std::to_string(cursor.Remaining()) + " bytes follow the texture sets");
    return true;
}

struct MeshPlace {
    uint32_t node;
    uint32_t chunk;
};

// Texture set indices name sets of the table. A triangle carries its batch's set, so the batches
// answer for their triangles; only a mesh without batches has its triangles looked at.
bool CheckTextureSets(const Scene& scene, const VernContainer& container, const std::vector<MeshPlace>& meshes,
                      std::string* error)
{
    const size_t sets = scene.textureSets.size();
    for (const MeshPlace& place : meshes) {
        const Node& node = scene.nodes[place.node];
        const Mesh& mesh = node.mesh;
        const ChunkPlace where(container, place.chunk, " of node '" + node.name + "'");
        for (size_t b = 0; b < mesh.batches.size(); ++b) {
            const uint32_t set = mesh.batches[b].textureSet;
            if (set >= sets)
                return where.Fail(error, kMeshHeaderSize + kBatchSize * b + offsetof(Batch, textureSet),
                                  "batch " + std::to_string(b) + " names texture set " + std::to_string(set) + " of " +
                                      std::to_string(sets));
        }
        if (!mesh.batches.empty())
            continue;
        for (size_t t = 0; t < mesh.triangles.size(); ++t) {
            const uint32_t set = mesh.triangles[t].textureSet;
            if (set >= sets)
                return where.Fail(error, kMeshHeaderSize + kTriangleSize * t + offsetof(Triangle, textureSet),
                                  "triangle " + std::to_string(t) + " names texture set " + std::to_string(set) +
                                      " of " + std::to_string(sets));
        }
    }
    return true;
}

bool DecodeScene(std::span<const uint8_t> bytes, Scene* scene, std::string* error)
{
    VernContainer container;
    std::string reason;
    if (!DecodeVern(bytes, &container, &reason))
        return Fail(error, "container: " + reason);
    scene->fileType = container.header.fileType;
    scene->headerSize = container.header.headerSize;
    scene->entrySize = container.header.entrySize;
    scene->chunkCount = static_cast<uint32_t>(container.chunks.size());
    scene->fileSize = bytes.size();
    if (scene->fileType != GuidBytes(kFileTypeVern3D))
        return Fail(error, "header, file offset " + std::to_string(kHeaderFileTypeAt) +
                               ": the file type GUID is not that of vern3D");

    const VernDecodedChunk& top = container.chunks[0];
    if (top.children.size() != 2 || container.chunks[top.children[0]].id != kChunkNode ||
        container.chunks[top.children[1]].id != kChunkTextureTable)
        return Fail(error, "directory, file offset " + std::to_string(container.header.directoryOffset) +
                               ": the container root must hold the root node and then the texture table");

    // Walk the node chunks in directory order (pre-order) with an explicit stack.
    struct Pending {
        uint32_t chunk;
        uint32_t parentNode;
    };
    std::vector<Pending> pending{{top.children[0], UINT32_MAX}};
    std::vector<MeshPlace> meshes;
    while (!pending.empty()) {
        const Pending item = pending.back();
        pending.pop_back();
        const VernDecodedChunk& chunk = container.chunks[item.chunk];
        const auto index = static_cast<uint32_t>(scene->nodes.size());
        scene->nodes.emplace_back();
        Node& node = scene->nodes.back();
        node.parent = item.parentNode;
        node.chunkOffset = chunk.offset;
        if (item.parentNode != UINT32_MAX) {
            scene->nodes[item.parentNode].children.push_back(index);
            node.depth = scene->nodes[item.parentNode].depth + 1;
        }
        const ChunkPlace place(container, item.chunk, "");
        if (chunk.offset == kNoOffset)
            return place.Fail(error, 0, "node chunk holds no bytes");
        if (!DecodeNodePayload(chunk.payload, node, item.parentNode == UINT32_MAX, place, error))
            return false;

        // Child chunks: node chunks first, then at most one key chunk, then at most one mesh.
        std::vector<uint32_t> childNodes;
        int stage = 0;
        for (uint32_t child : chunk.children) {
            const VernDecodedChunk& sub = container.chunks[child];
            const ChunkPlace subPlace(container, child, " of node '" + node.name + "'");
            if (sub.id == kChunkNode && stage == 0) {
                if (sub.offset == kNoOffset || sub.offset >= chunk.offset)
                    return subPlace.Fail(error, 0, "a child node's bytes must come before its parent's");
                childNodes.push_back(child);
            } else if (sub.id == kChunkNodeAnimation && stage < 1) {
                stage = 1;
                if (!(node.info.flags & kNodeMatrix))
                    return subPlace.Fail(error, 0, "the scene root has keys");
                node.hasAnimation = true;
                if (!DecodeAnimation(sub.payload, node.animation, subPlace, error))
                    return false;
            } else if (sub.id == kChunkMesh && stage < 2) {
                stage = 2;
                if (!(node.info.flags & kNodeMatrix))
                    return subPlace.Fail(error, 0, "the scene root has a mesh");
                node.hasMesh = true;
                std::string what;
                size_t at = 0;
                if (!DecodeMesh(sub.payload, &node.mesh, &what, &at))
                    return subPlace.Fail(error, at, what);
                meshes.push_back({index, child});
            } else {
                return subPlace.Fail(error, 0, "unexpected chunk under a node (order: nodes, keys, mesh)");
            }
        }
        for (auto child = childNodes.rbegin(); child != childNodes.rend(); ++child)
            pending.push_back({*child, index});
    }
    const ChunkPlace tablePlace(container, top.children[1], "");
    if (!DecodeTextureTable(container.chunks[top.children[1]].payload, *scene, tablePlace, error))
        return false;
    return CheckTextureSets(*scene, container, meshes, error);
}

}  // namespace

bool Decode(std::span<const uint8_t> bytes, Scene* scene, std::string* error)
{
    *scene = Scene{};
    bool ok = false;
    try {
        ok = DecodeScene(bytes, scene, error);
    } catch (const std::bad_alloc&) {
        ok = Fail(error, "out of memory");
    }
    if (!ok)
        *scene = Scene{};
    return ok;
}

bool Decode(std::vector<uint8_t>&& bytes, Scene* scene, std::string* error)
{
    std::shared_ptr<std::vector<uint8_t>> owned;
    try {
        owned = std::make_shared<std::vector<uint8_t>>(std::move(bytes));
    } catch (const std::bad_alloc&) {
        *scene = Scene{};
        return Fail(error, "out of memory");
    }
    if (!Decode(std::span<const uint8_t>(*owned), scene, error))
        return false;
    scene->storage = std::move(owned);
    return true;
}

bool DecodeFile(const std::string& path, Scene* scene, std::string* error)
{
    std::string reason;
    std::shared_ptr<MappedFile> file;
    try {
        file = MappedFile::Open(path, &reason);
    } catch (const std::bad_alloc&) {
        reason = "out of memory";
    }
    if (!file) {
        *scene = Scene{};
        return Fail(error, reason);
    }
    if (!Decode(file->Bytes(), scene, error))
        return false;
    scene->storage = std::move(file);
    return true;
}

Totals CountTotals(const Scene& scene)
{
    Totals totals;
    totals.nodes = scene.nodes.size();
    for (const Node& node : scene.nodes) {
        totals.maxDepth = std::max<uint64_t>(totals.maxDepth, node.depth);
        if (node.hasAnimation) {
            ++totals.animatedNodes;
            totals.positionKeys += static_cast<uint64_t>(node.animation.positionKeys.size());
            totals.rotationKeys += static_cast<uint64_t>(node.animation.rotationKeys.size());
        }
        if (node.hasMesh) {
            const Mesh& mesh = node.mesh;
            ++totals.meshes;
            totals.batches += mesh.header.batchCount;
            totals.triangles += mesh.header.triangleCount;
            totals.vertices += mesh.header.vertexCount;
            totals.frames += mesh.header.frameCount;
            totals.storedFrames += static_cast<uint64_t>(mesh.frames.size());
            if (mesh.header.frameCount > 1)
                ++totals.animatedMeshes;
        }
    }
    totals.textureSets = static_cast<uint64_t>(scene.textureSets.size());
    for (const auto& set : scene.textureSets)
        totals.textures += static_cast<uint64_t>(set.size());
    return totals;
}

Matrix LocalTransformAt(const Node& node, uint32_t time)
{
    if (!(node.info.flags & kNodeMatrix))
        return Matrix::Identity();
    return LocalTransformAt(node.info.matrix, node.animation.positionKeys, node.animation.rotationKeys, time);
}

Matrix WorldTransformAt(const Scene& scene, uint32_t node, uint32_t time)
{
    // Top-down from the topmost node with a matrix: world = local * parent world.
    std::vector<uint32_t> chain;
    for (uint32_t n = node; n < scene.nodes.size() && (scene.nodes[n].info.flags & kNodeMatrix); n = scene.nodes[n].parent)
        chain.push_back(n);
    Matrix world = Matrix::Identity();
    for (auto n = chain.rbegin(); n != chain.rend(); ++n)
        world = Multiply(LocalTransformAt(scene.nodes[*n], time), world);
    return world;
}

}  // namespace vern3d
