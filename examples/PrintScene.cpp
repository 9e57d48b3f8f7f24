// Loads a vern3D file, prints its node tree, and each animated node's transform at a time.
//
//   print-scene FILE [MILLISECONDS]
//
// Built against the installed vern3D library (see CMakeLists.txt, or with pkg-config:
// c++ -std=c++20 PrintScene.cpp $(pkg-config --cflags --libs vern3d) -o print-scene).
#include "vern/Vern3DDecoder.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

void PrintMatrix(const char* label, const vern3d::Matrix& m)
{
    std::printf("    %s", label);
    for (int row = 0; row < 4; ++row)
        std::printf(" (%g %g %g %g)", m(row, 0), m(row, 1), m(row, 2), m(row, 3));
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: %s FILE [MILLISECONDS]\n", argv[0]);
        return 2;
    }
    const uint32_t time = argc == 3 ? static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)) : 0;

    vern3d::Scene scene;
    std::string error;
    if (!vern3d::DecodeFile(argv[1], &scene, &error)) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.c_str());
        return 1;
    }

    // The tree: nodes come in pre-order, each knowing its depth.
    std::printf("%zu nodes\n", scene.nodes.size());
    for (const vern3d::Node& node : scene.nodes)
        std::printf("%*s%s\n", static_cast<int>(2 * node.depth), "", node.name.c_str());

    std::printf("animated nodes at %u ms\n", time);
    for (uint32_t i = 0; i < scene.nodes.size(); ++i) {
        const vern3d::Node& node = scene.nodes[i];
        if (!node.hasAnimation)
            continue;
        std::printf("  %s: %zu position keys, %zu rotation keys\n", node.name.c_str(),
                    node.animation.positionKeys.size(), node.animation.rotationKeys.size());
        PrintMatrix("local", vern3d::LocalTransformAt(node, time));
        PrintMatrix("world", vern3d::WorldTransformAt(scene, i, time));
    }
    return 0;
}
