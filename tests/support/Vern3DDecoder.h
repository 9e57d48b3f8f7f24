// Decodes a vern3D file completely, checking its structure, so that tests compare decoded values.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vern3d {

struct NodeInfoRecord {
    uint32_t size = 0;
    uint32_t flags = 0;
    std::array<float, 16> matrix{};
    std::array<float, 4> bounds{};
    std::array<float, 4> parentBounds{};
};

struct PositionKeyRecord {
    int32_t time = 0;
    std::array<float, 3> position{}, inTangent{}, outTangent{};
};

struct RotationKeyRecord {
    int32_t time = 0;
    std::array<float, 3> axis{};
    float angle = 0.0f;
    std::array<float, 16> matrix{};
};

struct Animation {
    uint32_t flags = 0;
    std::vector<PositionKeyRecord> positionKeys;
    std::vector<RotationKeyRecord> rotationKeys;
};

struct Node {
    NodeInfoRecord info;
    std::string name;
    uint32_t parent = UINT32_MAX;    // index into Scene::nodes
    std::vector<uint32_t> children;  // indices into Scene::nodes, in file order
    bool hasAnimation = false;
    Animation animation;
    bool hasMesh = false;
    std::vector<uint8_t> meshPayload;
    uint32_t chunkOffset = 0;  // where the node's bytes lie in the data area
};

struct TextureEntryRecord {
    uint32_t flags = 0;
    std::string fileName;
};

struct Scene {
    std::array<uint8_t, 16> fileType{};
    std::vector<Node> nodes;  // nodes[0] is the scene's root node; pre-order
    std::vector<std::vector<TextureEntryRecord>> textureSets;
};

// Decodes and checks a whole file; false with a reason on anything out of place.
bool DecodeFile(const std::string& path, Scene* scene, std::string* error);
bool Decode(const std::vector<uint8_t>& bytes, Scene* scene, std::string* error);

}  // namespace vern3d
