// Damaged real files: whatever the bytes, the reader ends in a reported error or in a file that
// decodes and passes every structural check.
#include "support/AseTestParse.h"
#include "support/RandomScenes.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

namespace {

std::string Damage(std::string text, randomscenes::Random& random)
{
    static const std::string pieces[] = {"{", "}", "\"", "*GEOMOBJECT", "*HELPEROBJECT", "*NODE_PARENT",
                                         "*TM_ANIMATION", "*SCENE", "*GROUP", "convert(delete)", "-1", "1e99",
                                         std::string(1, '\0'), "\n"};
    for (int edits = random.Int(1, 8); edits > 0 && !text.empty(); --edits) {
        const auto at = static_cast<size_t>(random.Int(0, static_cast<int>(text.size()) - 1));
        switch (random.Int(0, 3)) {
        case 0: text[at] = static_cast<char>(random.Int(0, 255)); break;
        case 1: text.insert(at, pieces[random.Int(0, static_cast<int>(std::size(pieces)) - 1)]); break;
        case 2: text.erase(at, static_cast<size_t>(random.Int(0, 63))); break;
        default: text.resize(at); break;
        }
    }
    return text;
}

TEST(Robustness, DamagedCorpusFilesFailCleanlyOrConvert)
{
    const char* sources[] = {"RotatingCube.ASE", "anim.ASE", "CameraRollAnimWithChildObject.ase", "ThreeCubesGreen.ASE",
                             "xreal-blender241-weapon_marker.ase"};
    randomscenes::Random random(99);
    int converted = 0;
    int failed = 0;
    for (const char* source : sources) {
        const std::string original = testfiles::ReadText(std::string(MAKEVERN3D_SHARED_CORPUS "/") + source);
        ASSERT_FALSE(original.empty()) << source;
        for (int round = 0; round < 60; ++round) {
            const auto parsed = asetest::ParseAse(Damage(original, random), {}, false);
            if (parsed.Failed()) {
                ++failed;
                EXPECT_EQ(parsed.ErrorText().rfind(parsed.source + "(", 0), 0u) << parsed.ErrorText();
                // Only an object without material is found while the file is written, which goes on.
                const bool whileWriting = parsed.ErrorText().find("Invalid material id '-1'") != std::string::npos;
                if (!whileWriting || !testfiles::Exists(parsed.output)) {
                    EXPECT_FALSE(testfiles::Exists(parsed.output)) << parsed.ErrorText();
                    continue;
                }
            } else {
                ++converted;
            }
            vern3d::Scene scene;
            std::string error;
            EXPECT_TRUE(vern3d::DecodeFile(parsed.output, &scene, &error)) << source << " round " << round << ": " << error;
        }
    }
    // Both outcomes occur, so both checks above were exercised.
    EXPECT_GT(converted, 10);
    EXPECT_GT(failed, 10);
}

}  // namespace
