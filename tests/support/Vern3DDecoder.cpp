#include "Vern3DDecoder.h"

#include "VernReader.h"

#include <cmath>

namespace vern3d {

namespace {

constexpr uint32_t kChunkNode = 0x10000;
constexpr uint32_t kChunkNodeAnimation = 0x10001;
constexpr uint32_t kChunkMesh = 0x10002;
constexpr uint32_t kChunkTextureTable = 0x10003;

bool Fail(std::string* error, const std::string& reason)
{
    if (error)
        *error = reason;
    return false;
}

template <size_t N>
void ReadFloats(VernCursor& cursor, std::array<float, N>& values)
{
    for (float& value : values)
        cursor.ReadF32(&value);
}

bool DecodeNodePayload(std::span<const uint8_t> payload, Node& node, bool isRoot, std::string* error)
{
    VernCursor cursor(payload);
    NodeInfoRecord& info = node.info;
    cursor.ReadU32(&info.size);
    cursor.ReadU32(&info.flags);
    ReadFloats(cursor, info.matrix);
    ReadFloats(cursor, info.bounds);
    ReadFloats(cursor, info.parentBounds);
    cursor.ReadCountedString(&node.name);
    if (!cursor.Ok() || !cursor.AtEnd())
        return Fail(error, "node payload is not a NodeInfo and a counted name");
    if (info.size != 104)
        return Fail(error, "NodeInfo size is not 104");
    const bool valid = isRoot ? (info.flags == 1 || info.flags == 9) : (info.flags == 3 || info.flags == 31);
    if (!valid)
        return Fail(error, "unexpected NodeInfo flags " + std::to_string(info.flags) + " for " + node.name);
    auto allZero = [](const auto& values) {
        for (float value : values)
            if (value != 0.0f || std::signbit(value))
                return false;
        return true;
    };
    if (!(info.flags & 2) && !allZero(info.matrix))
        return Fail(error, "matrix set without its flag");
    if (!(info.flags & 8) && !allZero(info.bounds))
        return Fail(error, "bounds set without their flag");
    if (!(info.flags & 16) && !allZero(info.parentBounds))
        return Fail(error, "parent bounds set without their flag");
    return true;
}

bool DecodeAnimation(std::span<const uint8_t> payload, Animation& animation, std::string* error)
{
    VernCursor cursor(payload);
    uint32_t header[8] = {};
    for (uint32_t& field : header)
        cursor.ReadU32(&field);
    const uint32_t positions = header[3];
    const uint32_t rotations = header[6];
    if (!cursor.Ok() || header[0] != 32 || header[4] != 40 || header[5] != 0 || header[7] != 84)
        return Fail(error, "bad animation header");
    if (header[2] != 32 + 40 * positions)
        return Fail(error, "rotation key offset does not follow the position keys");
    if (header[1] != ((positions ? 1u : 0u) | (rotations ? 2u : 0u)) || header[1] == 0)
        return Fail(error, "animation flags do not match the key counts");
    if (payload.size() != 32 + 40ull * positions + 84ull * rotations)
        return Fail(error, "animation payload size does not match the key counts");
    animation.flags = header[1];
    animation.positionKeys.resize(positions);
    for (PositionKeyRecord& key : animation.positionKeys) {
        uint32_t time = 0;
        cursor.ReadU32(&time);
        key.time = static_cast<int32_t>(time);
        ReadFloats(cursor, key.position);
        ReadFloats(cursor, key.inTangent);
        ReadFloats(cursor, key.outTangent);
    }
    animation.rotationKeys.resize(rotations);
    for (RotationKeyRecord& key : animation.rotationKeys) {
        uint32_t time = 0;
        cursor.ReadU32(&time);
        key.time = static_cast<int32_t>(time);
        ReadFloats(cursor, key.axis);
        cursor.ReadF32(&key.angle);
        ReadFloats(cursor, key.matrix);
    }
    if (!cursor.Ok() || !cursor.AtEnd())
        return Fail(error, "animation keys do not fill the payload");
    return true;
}

bool DecodeTextureTable(std::span<const uint8_t> payload, Scene& scene, std::string* error)
{
    VernCursor cursor(payload);
    auto value = [&](uint32_t* out) {
        uint32_t size = 0, reserved = 1;
        cursor.ReadU32(&size);
        cursor.ReadU32(&reserved);
        cursor.ReadU32(out);
        return cursor.Ok() && size == 12 && reserved == 0;
    };
    uint32_t setCount = 0;
    if (!value(&setCount) || setCount > payload.size())
        return Fail(error, "bad texture set count");
    scene.textureSets.resize(setCount);
    for (auto& set : scene.textureSets) {
        uint32_t entryCount = 0;
        if (!value(&entryCount) || entryCount > payload.size())
            return Fail(error, "bad texture entry count");
        set.resize(entryCount);
        for (TextureEntryRecord& entry : set) {
            if (!value(&entry.flags) || !cursor.ReadCountedString(&entry.fileName))
                return Fail(error, "bad texture entry");
        }
    }
    if (!cursor.AtEnd())
        return Fail(error, "texture table has trailing bytes");
    return true;
}

}  // namespace

bool Decode(const std::vector<uint8_t>& bytes, Scene* scene, std::string* error)
{
    VernContainer container;
    std::string reason;
    if (Failed(DecodeVern(bytes, &container, &reason)))
        return Fail(error, "container: " + reason);
    scene->fileType = container.header.fileType;
    if (scene->fileType != EncodeGuid(FileTypeVern3D))
        return Fail(error, "file type is not vern3D");

    const VernDecodedChunk& top = container.chunks[0];
    if (top.children.size() != 2 || container.chunks[top.children[0]].id != kChunkNode ||
        container.chunks[top.children[1]].id != kChunkTextureTable)
        return Fail(error, "the container root must hold the root node and the texture table");

    // Walk the node chunks in directory order (pre-order), iteratively.
    struct Pending {
        uint32_t chunk;
        uint32_t parentNode;
    };
    std::vector<Pending> pending{{top.children[0], UINT32_MAX}};
    while (!pending.empty()) {
        const Pending item = pending.back();
        pending.pop_back();
        const VernDecodedChunk& chunk = container.chunks[item.chunk];
        const auto index = static_cast<uint32_t>(scene->nodes.size());
        scene->nodes.emplace_back();
        Node& node = scene->nodes.back();
        node.parent = item.parentNode;
        node.chunkOffset = chunk.offset;
        if (item.parentNode != UINT32_MAX)
            scene->nodes[item.parentNode].children.push_back(index);
        if (!DecodeNodePayload(chunk.payload, scene->nodes[index], item.parentNode == UINT32_MAX, error))
            return false;

        // Child chunks: node chunks first, then at most one animation chunk, then at most one mesh.
        std::vector<uint32_t> childNodes;
        int stage = 0;
        for (uint32_t child : chunk.children) {
            const VernDecodedChunk& sub = container.chunks[child];
            if (sub.id == kChunkNode && stage == 0) {
                if (sub.offset == kVernNoOffset || sub.offset >= chunk.offset)
                    return Fail(error, "a child node's bytes must come before its parent's");
                childNodes.push_back(child);
            } else if (sub.id == kChunkNodeAnimation && stage < 1) {
                stage = 1;
                scene->nodes[index].hasAnimation = true;
                if (!DecodeAnimation(sub.payload, scene->nodes[index].animation, error))
                    return false;
            } else if (sub.id == kChunkMesh && stage < 2) {
                stage = 2;
                scene->nodes[index].hasMesh = true;
                scene->nodes[index].meshPayload.assign(sub.payload.begin(), sub.payload.end());
            } else {
                return Fail(error, "unexpected chunk " + std::to_string(sub.id) + " under a node");
            }
        }
        for (auto child = childNodes.rbegin(); child != childNodes.rend(); ++child)
            pending.push_back({*child, index});
    }
    return DecodeTextureTable(container.chunks[top.children[1]].payload, *scene, error);
}

bool DecodeFile(const std::string& path, Scene* scene, std::string* error)
{
    std::vector<uint8_t> bytes;
    if (Failed(ReadFileBytes(path.c_str(), &bytes)))
        return Fail(error, "cannot read " + path);
    return Decode(bytes, scene, error);
}

}  // namespace vern3d
