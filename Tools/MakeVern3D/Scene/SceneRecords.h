// The plain records that the ASE readers fill: materials, meshes and transform-animation keys.
// The key records are the file's own records.
#pragma once

#include "Scene/TransformMath.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// ---- Materials ----

class TextureEntry {
public:
    virtual ~TextureEntry() = default;
    std::string fileName;  // bitmap file name without directories
    int32_t flags = 0;     // bit 0: serves as an opacity map; 3: additive transparency
};

class TextureSet {
public:
    virtual ~TextureSet() = default;
    std::vector<TextureEntry> entries;
    bool twoSided = false;
};

class MaterialProperties {
public:
    virtual ~MaterialProperties() = default;
    int32_t size = 80;
    float diffuse[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    float ambient[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    float specular[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    float emissive[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    float shineStrength = 0.0f;
    int32_t reserved[2] = {0, 0};
};

struct MaterialSlot {
    int32_t textureSetIndex = 0;
    int32_t propertiesIndex = 0;
    bool twoSided = false;
};

struct MaterialTableEntry {
    MaterialSlot slot;
    std::unique_ptr<std::vector<MaterialSlot>> subMaterials;  // null without sub-materials
};

// ---- Meshes ----

struct MeshFace {
    int32_t a = 0, b = 0, c = 0;
    int32_t ab = 0, bc = 0, ca = 0;
    int32_t smoothingGroup = -1;
    int32_t materialId = 0;
};

struct MeshTexVertex {
    int32_t index = 0;
    float u = 0.0f, v = 0.0f, w = 0.0f;
};

struct MeshTexFace {
    int32_t index = 0;
    int32_t a = 0, b = 0, c = 0;
};

struct MeshFaceNormals {
    int32_t faceIndex = 0;
    Vector3 faceNormal;
    Vector3 vertexNormals[3];
};

struct Mesh {
    std::vector<Vector3> vertices;
    std::vector<MeshFace> faces;
    std::vector<MeshTexVertex> texVertices;
    std::vector<MeshTexFace> texFaces;
    std::vector<MeshFaceNormals> normals;
    int32_t time = 0;
};

// ---- Transform-animation keys: the file's own records (vern/Vern3DLayout.h) ----
// After reading, inTangent and outTangent hold the Bezier control points; a rotation key's matrix
// is filled before output (vern3d::AccumulateRotationKeys).

using PositionKey = vern3d::PositionKey;
using RotationKey = vern3d::RotationKey;
