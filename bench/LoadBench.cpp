// Loading vern3D files as an engine does: map, check everything a reader relies on, and hand out
// the scene (vern/Vern3DDecoder.h). The files are the converter's outputs of the 1,000,000-face
// grid (about 40 MB) and of a 160-vertex mesh animated over 10,000 frames (-map -man).
//   cmake --preset bench && cmake --build --preset bench && build/bench/bench/LoadBench
// Peak memory of one load: /usr/bin/time -v build/bench/Tools/vern3d/vern3d check <file>, on the
// vern3d-bench-*.vern3D files this leaves in the temporary directory.
#include "BenchScenes.h"
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "vern/Vern3DDecoder.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

using namespace benchscenes;

// The converter's output for `source`, converted once (its console text goes to /dev/null).
std::string Converted(const std::string& source, const std::string& name, uint32_t componentFlags)
{
    const std::string output = TempFile(name);
    if (std::filesystem::exists(output))
        return output;
    ConvertSettings settings;
    settings.meshAnimFlags = componentFlags;
    Reporter reporter;
    Scene scene;
    std::fflush(stdout);
    const int console = ::dup(STDOUT_FILENO);
    const int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, STDOUT_FILENO);
    const std::string partial = output + ".part";
    const bool ok = ConvertFile(source, partial, settings, reporter, scene) == Conversion::Converted;
    std::fflush(stdout);
    ::dup2(console, STDOUT_FILENO);
    ::close(console);
    ::close(null);
    if (ok)
        std::filesystem::rename(partial, output);
    return output;
}

void Load(benchmark::State& state, const std::string& file)
{
    for (auto _ : state) {
        vern3d::Scene scene;
        std::string error;
        if (!vern3d::DecodeFile(file, &scene, &error)) {
            state.SkipWithError(error.c_str());
            return;
        }
        benchmark::DoNotOptimize(scene.nodes.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(file)));
    state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(file)) / 1e6;
}

void LoadGrid(benchmark::State& state)
{
    Load(state, Converted(GridFile(1'000'000), "vern3d-bench-grid-1000000.vern3D", 0));
}

void LoadAnimation(benchmark::State& state)
{
    Load(state, Converted(AnimationFile(160, 10'000), "vern3d-bench-anim-160x10000.vern3D", 1 | 2));
}

BENCHMARK(LoadGrid)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LoadAnimation)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
