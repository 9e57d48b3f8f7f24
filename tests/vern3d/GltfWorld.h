// World-space vertex positions two ways, for comparing an export with its vern3D file: from the
// glTF node matrices (or translation, rotation, scale) and accessors, and from the vern3D nodes'
// row-vector matrices followed by the export's axis change.
#pragma once

#include "vern/Vern3DDecoder.h"

#include <tiny_gltf.h>

#include <array>
#include <cstring>
#include <vector>

namespace gltfworld {

using Mat = std::array<double, 16>;  // column-major, column vectors
using Point = std::array<double, 3>;

inline Mat Multiply(const Mat& a, const Mat& b)
{
    Mat m{};
    for (int c = 0; c < 4; ++c)
        for (int r = 0; r < 4; ++r)
            for (int k = 0; k < 4; ++k)
                m[4 * c + r] += a[4 * k + r] * b[4 * c + k];
    return m;
}

constexpr Mat kIdentity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

inline Mat LocalMatrix(const tinygltf::Node& node)
{
    Mat m = kIdentity;
    if (node.matrix.size() == 16) {
        std::copy(node.matrix.begin(), node.matrix.end(), m.begin());
        return m;
    }
    // T * R * S, written out from the quaternion.
    const std::vector<double> t = node.translation.size() == 3 ? node.translation : std::vector<double>{0, 0, 0};
    const std::vector<double> q = node.rotation.size() == 4 ? node.rotation : std::vector<double>{0, 0, 0, 1};
    const std::vector<double> s = node.scale.size() == 3 ? node.scale : std::vector<double>{1, 1, 1};
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    for (int c = 0; c < 3; ++c)
        for (int row = 0; row < 3; ++row)
            m[4 * c + row] = r[row][c] * s[c];
    m[12] = t[0], m[13] = t[1], m[14] = t[2];
    return m;
}

// World matrix of every node of the default scene's tree (parents before children).
inline std::vector<Mat> WorldMatrices(const tinygltf::Model& model)
{
    std::vector<Mat> world(model.nodes.size(), kIdentity);
    std::vector<std::pair<int, Mat>> open;
    for (int root : model.scenes.at(0).nodes)
        open.push_back({root, kIdentity});
    while (!open.empty()) {
        const auto [index, parent] = open.back();
        open.pop_back();
        world[index] = Multiply(parent, LocalMatrix(model.nodes[index]));
        for (int child : model.nodes[index].children)
            open.push_back({child, world[index]});
    }
    return world;
}

// An accessor's values as stored: floats of any vector type, or 32-bit indices.
template <typename T>
std::vector<T> Read(const tinygltf::Model& model, int accessorIndex)
{
    const tinygltf::Accessor& accessor = model.accessors.at(accessorIndex);
    const tinygltf::BufferView& view = model.bufferViews.at(accessor.bufferView);
    std::vector<T> values(accessor.count * static_cast<size_t>(tinygltf::GetNumComponentsInType(accessor.type)));
    std::memcpy(values.data(), model.buffers.at(view.buffer).data.data() + view.byteOffset + accessor.byteOffset,
                values.size() * sizeof(T));
    return values;
}

// Positions of every primitive of node `index`'s mesh, in primitive order, in world space.
inline std::vector<Point> GltfWorldPositions(const tinygltf::Model& model, const std::vector<Mat>& world, size_t index)
{
    std::vector<Point> points;
    const tinygltf::Node& node = model.nodes[index];
    if (node.mesh < 0)
        return points;
    const Mat& m = world[index];
    for (const tinygltf::Primitive& primitive : model.meshes[node.mesh].primitives) {
        const std::vector<float> p = Read<float>(model, primitive.attributes.at("POSITION"));
        for (size_t i = 0; i + 2 < p.size(); i += 3)
            points.push_back({m[0] * p[i] + m[4] * p[i + 1] + m[8] * p[i + 2] + m[12],
                              m[1] * p[i] + m[5] * p[i + 1] + m[9] * p[i + 2] + m[13],
                              m[2] * p[i] + m[6] * p[i + 1] + m[10] * p[i + 2] + m[14]});
    }
    return points;
}

// Positions of frame 0 of node `index` in world space: (p, 1) * local * parent local * ..., then
// the export's turn of Z-up into Y-up, (x, y, z) -> (x, z, -y).
inline std::vector<Point> Vern3DWorldPositions(const vern3d::Scene& scene, size_t index)
{
    std::vector<Point> points;
    const vern3d::Node& node = scene.nodes[index];
    if (!node.hasMesh)
        return points;
    for (const vern3d::Vertex vertex : node.mesh.vertices) {
        std::array<double, 4> p = {vertex.position.x, vertex.position.y, vertex.position.z, 1.0};
        for (uint32_t n = static_cast<uint32_t>(index); n != UINT32_MAX; n = scene.nodes[n].parent) {
            const vern3d::NodeInfo& info = scene.nodes[n].info;
            if (!(info.flags & vern3d::kNodeMatrix))
                continue;
            std::array<double, 4> q{};
            for (int c = 0; c < 4; ++c)
                for (int r = 0; r < 4; ++r)
                    q[c] += p[r] * info.matrix(r, c);
            p = q;
        }
        points.push_back({p[0], p[2], -p[1]});
    }
    return points;
}

}  // namespace gltfworld
