// Any bytes as a vern3D file: decoding ends in a scene or a reason; a scene that decodes is also
// walked whole (every stored frame's vertices, every node's transform at a few times),
// summarised, printed and exported in memory, as vern3d would.
#include "GltfExport.h"
#include "Listing.h"
#include "vern/Vern3DDecoder.h"

#include <tiny_gltf.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vern3d::Scene scene;
    std::string error;
    if (!vern3d::Decode(std::span<const uint8_t>(data, size), &scene, &error)) {
        if (error.empty())
            std::abort();  // a failure always says why
        return 0;
    }
    std::vector<vern3d::Vertex> vertices;
    const uint32_t times[] = {0, 500, size > 4 ? static_cast<uint32_t>(data[0] | data[1] << 8 | data[2] << 16) : 7u,
                              UINT32_MAX};
    for (uint32_t n = 0; n < scene.nodes.size(); ++n) {
        const vern3d::Node& node = scene.nodes[n];
        for (uint32_t time : times)
            (void)vern3d::WorldTransformAt(scene, n, time);
        if (!node.hasMesh)
            continue;
        vertices.resize(node.mesh.vertices.size());
        for (size_t f = 0; f < node.mesh.frames.size(); ++f) {
            node.mesh.FrameVertices(f, vertices);
            if (!vertices.empty()) {
                const vern3d::Vertex single = node.mesh.FrameVertex(f, vertices.size() - 1);
                if (std::memcmp(&single, &vertices.back(), sizeof single) != 0)
                    std::abort();  // one vertex and the whole frame agree
            }
        }
    }
    std::ostringstream text;
    vern3d::PrintInfo(scene, "input", text);
    vern3d::PrintDump(scene, text, 4);
    (void)vern3d::InfoJson(scene, "input");
    tinygltf::Model model;
    vern3d::ExportOptions options;
    options.maxSamplesPerNode = 200;
    options.maxSamplesPerScene = 20000;
    options.maxMorphTargets = 64;
    vern3d::BuildGltf(scene, options, &model, &error);
    return 0;
}
