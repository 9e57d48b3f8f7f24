// Any bytes as a vern3D file: decoding ends in a scene or a reason; a scene that decodes is also
// summarised, printed and exported in memory, as vern3d would.
#include "GltfExport.h"
#include "Listing.h"
#include "Vern3DDecoder.h"

#include <tiny_gltf.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vern3d::Scene scene;
    std::string error;
    if (!vern3d::Decode(std::span<const uint8_t>(data, size), &scene, &error)) {
        if (error.empty())
            std::abort();  // a failure always says why
        return 0;
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
