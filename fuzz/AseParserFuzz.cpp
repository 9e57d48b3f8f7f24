// Any bytes as an ASE file: the conversion must end in an error or a valid vern3D file.
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string directory = [] {
        char pattern[] = "/tmp/makevern3d-fuzz-XXXXXX";
        const char* made = ::mkdtemp(pattern);
        return std::string(made ? made : "/tmp");
    }();
    const std::string input = directory + "/input.ase";
    const std::string output = directory + "/input.vern3D";
    if (FILE* file = std::fopen(input.c_str(), "wb")) {
        if (size > 0)
            std::fwrite(data, 1, size, file);
        std::fclose(file);
    }
    // Warnings go to standard output; keep the fuzzer's console readable.
    std::FILE* quiet = std::freopen("/dev/null", "w", stdout);
    (void)quiet;
    // The input's length picks the frame components, the analysed frame and -compat, so that every
    // kind of frame stream and the readers of other exporters' files are reached.
    ConvertSettings settings;
    settings.meshAnimFlags = static_cast<uint32_t>(size % 32);
    settings.analyse = static_cast<int32_t>(size / 32 % 3);
    settings.compat = size / 96 % 2 == 1;
    // Lists are read in parts of a few lines (on one thread), so that the parts' joins are fuzzed.
    settings.threads = 1;
    settings.listPartBytes = 64;
    Reporter reporter;
    Scene scene;
    ConvertFile(input, output, settings, reporter, scene);
    return 0;
}
