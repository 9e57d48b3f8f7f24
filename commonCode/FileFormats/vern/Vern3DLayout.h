// The vern3D file layout: every id, size, flag and record of the format, each stated here once.
//
// A vern3D file is a vern chunk container: a 44-byte header tagged with a file type GUID, the
// chunks' bytes, and a directory of the chunk tree written last. Numbers are little-endian,
// integers 32-bit, reals IEEE-754 single precision; nothing is padded or aligned anywhere, so a
// record may start at any byte. Read a record with LoadRecord (a copy of its bytes), never
// through a cast pointer into the file.
//
// The records below are the file's records field for field: their declaration order is the
// order of the fields in the file, every field is four bytes, and each record's size is
// checked against its stated size. Writers append records with StoreRecord, readers copy them
// out with LoadRecord; both are plain copies of bytes.
//
// Contract: constants and plain records only; nothing here allocates, reports or keeps state,
// so everything may be used from any thread.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vern3d {

// ---------------------------------------------------------------- values

// Three f32, in this order.
struct Vector3 {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
};

// 16 f32, row-major (element [i][j] at index 4i + j). Points are row vectors: (x, y, z, 1) * M;
// rows 0..2 are the transformed axes, row 3 the translation, column 3 is (0, 0, 0, 1);
// world = local * parent world.
struct Matrix {
    std::array<float, 16> m{};

    float& operator()(int row, int column) { return m[static_cast<std::size_t>(4 * row + column)]; }
    float operator()(int row, int column) const { return m[static_cast<std::size_t>(4 * row + column)]; }

    static constexpr Matrix Identity() { return {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}}; }
};

// A bounding sphere: centre, then radius.
struct Sphere {
    Vector3 centre;
    float radius = 0.0f;
};

// A GUID in the Windows layout: data1 as u32, data2 and data3 as u16, then data4's bytes.
struct Guid {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
};

// The 16 bytes of a GUID as the file stores them.
constexpr std::array<uint8_t, 16> GuidBytes(const Guid& guid)
{
    std::array<uint8_t, 16> bytes{};
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(guid.data1 >> (8 * i));
    bytes[4] = static_cast<uint8_t>(guid.data2);
    bytes[5] = static_cast<uint8_t>(guid.data2 >> 8);
    bytes[6] = static_cast<uint8_t>(guid.data3);
    bytes[7] = static_cast<uint8_t>(guid.data3 >> 8);
    for (int i = 0; i < 8; ++i)
        bytes[8 + i] = guid.data4[i];
    return bytes;
}

// ---------------------------------------------------------------- the container

// {0AB3F933-9362-11D1-9A2B-080000300512}: the container's own type; an unfinished file keeps it.
inline constexpr Guid kFileTypeVernDefault = {0x0AB3F933u, 0x9362u, 0x11D1u, {0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12}};
// {0AB3F934-9362-11D1-9A2B-080000300512}: a finished vern3D file.
inline constexpr Guid kFileTypeVern3D = {0x0AB3F934u, 0x9362u, 0x11D1u, {0x9A, 0x2B, 0x08, 0x00, 0x00, 0x30, 0x05, 0x12}};

// The header at file offset 0 (44 bytes), fields at these offsets.
inline constexpr uint32_t kContainerHeaderSize = 44;
inline constexpr uint32_t kHeaderSizeAt = 0;        // u32: 44
inline constexpr uint32_t kHeaderReserved0At = 4;   // u32: 0
inline constexpr uint32_t kHeaderFileTypeAt = 8;    // 16 bytes: the file type GUID
inline constexpr uint32_t kDirectoryOffsetAt = 24;  // u32: file offset of the directory; 0 while unfinished
inline constexpr uint32_t kDirectorySizeAt = 28;    // u32: bytes of the directory, 16 per entry
inline constexpr uint32_t kHeaderReserved1At = 32;  // u32: 0
inline constexpr uint32_t kDataOffsetAt = 36;       // u32: file offset of the data area (chunk offsets count from it)
inline constexpr uint32_t kEntrySizeAt = 40;        // u32: 16

// The directory: one entry for the root (id 0, no bytes) and one per chunk, in pre-order; the
// tree follows from the child counts alone. A chunk's size counts its own bytes, not its children's.
struct DirectoryEntry {
    uint32_t id;          // 0 for the root entry
    uint32_t childCount;  // direct children
    uint32_t offset;      // first byte, relative to the data offset; kNoOffset when never written
    uint32_t size;        // bytes of this chunk
};
inline constexpr uint32_t kDirectoryEntrySize = 16;
inline constexpr uint32_t kNoOffset = 0xFFFFFFFFu;

// Counted strings (every string of the file): a length prefix, then the bytes, no terminator.
//   length < 255: one byte; 255 <= length < 65534: 0xFF, u16; 65534 and over: 0xFF, 0xFFFF, u32.
inline constexpr uint32_t kStringShortLimit = 255;     // also the escape byte 0xFF
inline constexpr uint32_t kStringMediumLimit = 65534;  // the u16 form ends before this
inline constexpr uint16_t kStringLongEscape = 0xFFFF;

// ---------------------------------------------------------------- chunks of a vern3D file

// The container root holds the scene root's ChunkNode, then the ChunkTextureTable. A ChunkNode
// holds its children's ChunkNodes (in child order), then at most one ChunkNodeAnimation, then
// at most one ChunkMesh. Every node writes its children before its own bytes.
inline constexpr uint32_t kChunkNode = 0x10000;           // NodeInfo, then the name
inline constexpr uint32_t kChunkNodeAnimation = 0x10001;  // AnimationHeader, position keys, rotation keys
inline constexpr uint32_t kChunkMesh = 0x10002;           // MeshHeader, batches, triangles, the frame stream
inline constexpr uint32_t kChunkTextureTable = 0x10003;   // ValueRecords and counted strings

// ChunkNode: NodeInfo, then the node's name as a counted string.
struct NodeInfo {
    uint32_t size = 0;  // kNodeInfoSize
    uint32_t flags = 0;
    Matrix matrix;       // local transform; zero without kNodeMatrix
    Sphere bounds;       // in the node's own space; zero without kNodeBounds
    Sphere parentBounds; // the same seen in the parent's space; zero without kNodeParentBounds
};
inline constexpr uint32_t kNodeInfoSize = 104;
inline constexpr uint32_t kNodeFilled = 1;                // always set
inline constexpr uint32_t kNodeMatrix = 2;                // matrix present: every node but the scene root
inline constexpr uint32_t kNodeParentBoundsA = 4;         // with kNodeParentBoundsB: parentBounds valid
inline constexpr uint32_t kNodeBounds = 8;                // bounds valid
inline constexpr uint32_t kNodeParentBoundsB = 16;
inline constexpr uint32_t kNodeParentBounds = kNodeParentBoundsA | kNodeParentBoundsB;
// The flag sets that occur: the scene root 1 or 9, every other node 3 or 31.
inline constexpr uint32_t kRootFlags = kNodeFilled;
inline constexpr uint32_t kRootFlagsBounded = kNodeFilled | kNodeBounds;
inline constexpr uint32_t kNodeFlags = kNodeFilled | kNodeMatrix;
inline constexpr uint32_t kNodeFlagsBounded = kNodeFlags | kNodeParentBounds | kNodeBounds;

// ChunkNodeAnimation: AnimationHeader, positionKeyCount PositionKeys, rotationKeyCount RotationKeys.
struct AnimationHeader {
    uint32_t size = 0;               // kAnimationHeaderSize
    uint32_t flags = 0;              // kHasPositionKeys | kHasRotationKeys, as the counts say
    uint32_t rotationKeyOffset = 0;  // from the payload's start: 32 + 40 * positionKeyCount
    uint32_t positionKeyCount = 0;
    uint32_t positionKeySize = 0;    // kPositionKeySize
    uint32_t reserved = 0;           // 0
    uint32_t rotationKeyCount = 0;
    uint32_t rotationKeySize = 0;    // kRotationKeySize
};
inline constexpr uint32_t kAnimationHeaderSize = 32;
inline constexpr uint32_t kHasPositionKeys = 1;
inline constexpr uint32_t kHasRotationKeys = 2;

// Times are milliseconds, compared unsigned by the evaluation (Vern3DAnimation.h).
struct PositionKey {
    int32_t time = 0;
    Vector3 position;
    Vector3 inTangent;   // Bezier control point before the key
    Vector3 outTangent;  // Bezier control point after the key
};
inline constexpr uint32_t kPositionKeySize = 40;

struct RotationKey {
    int32_t time = 0;
    Vector3 axis;
    float angle = 0.0f;  // radians, turning from the previous key; applied negated
    Matrix matrix;       // key k holds the orientation at key k - 1 (keys 0 and 1: the local transform)
};
inline constexpr uint32_t kRotationKeySize = 84;

// ChunkMesh: MeshHeader, batchCount Batches, triangleCount Triangles, then the frame stream:
// FrameHeader and vertexCount complete Vertices for frame 0; for each further stored frame the
// byte kFrameFollows, a FrameHeader and, per vertex, the components of the header's flags in the
// order of the component bits; at the end the byte kFramesEnd.
struct MeshHeader {
    uint32_t size = 0;           // kMeshHeaderSize
    uint32_t flags = 0;          // component flags: what frames after the first store
    uint32_t batchCount = 0;
    uint32_t triangleCount = 0;
    uint32_t vertexCount = 0;
    uint32_t frameCount = 0;     // frames of the animation (1 without); stored frames can be fewer
    Vector3 centre;              // sphere over every frame's positions, node space
    float radius = 0.0f;
};
inline constexpr uint32_t kMeshHeaderSize = 40;

// Consecutive runs of triangles and vertices that share a texture set.
struct Batch {
    uint32_t size = 0;  // kBatchSize
    uint32_t reserved = 0;
    uint32_t firstTriangle = 0;
    uint32_t triangleCount = 0;
    uint32_t firstVertex = 0;
    uint32_t vertexCount = 0;
    uint32_t textureSet = 0;  // index into the texture table's sets
};
inline constexpr uint32_t kBatchSize = 28;

struct Triangle {
    uint32_t flags = 0;                  // visible edges: kEdge01 | kEdge12 | kEdge20
    std::array<uint32_t, 3> corners{};  // relative to the first vertex of the triangle's batch
    uint32_t textureSet = 0;             // its batch's set
};
inline constexpr uint32_t kTriangleSize = 20;
inline constexpr uint32_t kEdge01 = 4;  // the edge between corners 0 and 1 is visible
inline constexpr uint32_t kEdge12 = 2;  // between corners 1 and 2
inline constexpr uint32_t kEdge20 = 1;  // between corners 2 and 0

struct FrameHeader {
    uint32_t size = 0;  // kFrameHeaderSize
    int32_t time = 0;   // milliseconds (0 for a mesh without animation)
    uint32_t one = 0;   // 1
    int32_t delta = 0;  // time minus that of the frame before it, stored or not; 0 for frame 0
};
inline constexpr uint32_t kFrameHeaderSize = 16;
inline constexpr uint8_t kFrameFollows = 0x01;  // before every stored frame after the first
inline constexpr uint8_t kFramesEnd = 0x00;     // ends the frame stream

struct Vertex {
    Vector3 position;                 // node space
    Vector3 normal;                   // unit length
    uint32_t colour = 0xFFFFFFFFu;    // always 0xFFFFFFFF
    uint32_t material = 0;            // index of the material's property record
    float u = 0.0f;
    float v = 0.0f;                   // 1 - v of the source: 0 at the image's top edge
};
inline constexpr uint32_t kVertexSize = 40;

// Component flags (the MeshHeader's flags): what a frame after the first stores per vertex, in
// this order, with these sizes.
inline constexpr uint32_t kComponentPosition = 1;  // 12 bytes
inline constexpr uint32_t kComponentNormal = 2;    // 12 bytes
inline constexpr uint32_t kComponentColour = 4;    // 4 bytes
inline constexpr uint32_t kComponentMaterial = 8;  // 4 bytes
inline constexpr uint32_t kComponentTexture = 16;  // 8 bytes: u, then v
inline constexpr uint32_t kComponentAll = 31;

// Bytes per vertex that a frame after the first stores for `flags`.
constexpr uint32_t StoredVertexBytes(uint32_t flags)
{
    return ((flags & kComponentPosition) ? 12u : 0u) + ((flags & kComponentNormal) ? 12u : 0u) +
           ((flags & kComponentColour) ? 4u : 0u) + ((flags & kComponentMaterial) ? 4u : 0u) +
           ((flags & kComponentTexture) ? 8u : 0u);
}

// ChunkTextureTable: a ValueRecord with the number of sets; per set a ValueRecord with its number
// of entries, then per entry a ValueRecord with the entry's flags and the bitmap's name as a
// counted string.
struct ValueRecord {
    uint32_t size = 0;  // kValueRecordSize
    uint32_t reserved = 0;
    uint32_t value = 0;
};
inline constexpr uint32_t kValueRecordSize = 12;
inline constexpr uint32_t kTextureOpacity = 1;  // entry flag: the bitmap serves as an opacity map

// ---------------------------------------------------------------- records as bytes

// The records above are their file bytes on a little-endian host; the static_asserts below hold
// them to the sizes and offsets stated with them.
static_assert(std::endian::native == std::endian::little, "vern3D records are copied as they stand in the file");
static_assert(sizeof(Vector3) == 12 && sizeof(Matrix) == 64 && sizeof(Sphere) == 16 && sizeof(Guid) == 16);
static_assert(sizeof(DirectoryEntry) == kDirectoryEntrySize);
static_assert(sizeof(NodeInfo) == kNodeInfoSize && offsetof(NodeInfo, bounds) == 72 && offsetof(NodeInfo, parentBounds) == 88);
static_assert(sizeof(AnimationHeader) == kAnimationHeaderSize);
static_assert(sizeof(PositionKey) == kPositionKeySize && offsetof(PositionKey, outTangent) == 28);
static_assert(sizeof(RotationKey) == kRotationKeySize && offsetof(RotationKey, matrix) == 20);
static_assert(sizeof(MeshHeader) == kMeshHeaderSize && offsetof(MeshHeader, centre) == 24);
static_assert(sizeof(Batch) == kBatchSize && offsetof(Batch, textureSet) == 24);
static_assert(sizeof(Triangle) == kTriangleSize && offsetof(Triangle, textureSet) == 16);
static_assert(sizeof(FrameHeader) == kFrameHeaderSize);
static_assert(sizeof(Vertex) == kVertexSize && offsetof(Vertex, colour) == 24 && offsetof(Vertex, u) == 32);
static_assert(sizeof(ValueRecord) == kValueRecordSize);
static_assert(StoredVertexBytes(kComponentAll) == kVertexSize);

template <typename Record>
concept FileRecord = std::is_trivially_copyable_v<Record> && std::is_standard_layout_v<Record>;

// The record whose bytes start at `at` (any alignment; sizeof(Record) bytes must be readable).
template <FileRecord Record>
Record LoadRecord(const uint8_t* at)
{
    Record record;
    std::memcpy(&record, at, sizeof record);
    return record;
}

// Writes the record's bytes to `at` (sizeof(Record) bytes).
template <FileRecord Record>
void StoreRecord(uint8_t* at, const Record& record)
{
    std::memcpy(at, &record, sizeof record);
}

}  // namespace vern3d
