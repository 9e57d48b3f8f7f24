// Reading and converting grid meshes as real exports write them: a textured material, texture
// vertices and faces, and a full *MESH_NORMALS block; and a mesh animation of many frames.
//   cmake --preset bench && cmake --build --preset bench && build/bench/bench/MeshBench
// The generated files (BenchScenes.h) stay in the temporary directory for later runs (and for
// measuring the converter's peak memory: /usr/bin/time -v build/bench/Tools/MakeVern3D/MakeVern3D <file>).
#include "AseParser.h"
#include "BenchScenes.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using namespace benchscenes;

void Run(benchmark::State& state, const std::string& file, const ConvertSettings& settings)
{
    const std::string output = TempFile("makevern3d-bench-out.vern3D");
    AseParser reader;
    reader.settings = settings;
    // The converter's own console text (frame progress, warnings) goes to /dev/null meanwhile.
    std::fflush(stdout);
    const int console = ::dup(STDOUT_FILENO);
    const int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, STDOUT_FILENO);
    bool failed = false;
    for (auto _ : state)
        failed = Failed(reader.ParseFile(file, output)) || failed;
    std::fflush(stdout);
    ::dup2(console, STDOUT_FILENO);
    ::close(console);
    ::close(null);
    if (failed)
        state.SkipWithError("conversion failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(file)));
}

// Load, scan and every value into the records: -obj with no such object leaves nothing to write.
void ReadGrid(benchmark::State& state)
{
    ConvertSettings settings;
    settings.objectNames = {"no such object"};
    Run(state, GridFile(static_cast<int>(state.range(0))), settings);
}

// The whole conversion: read, render mesh, write.
void ConvertGrid(benchmark::State& state) { Run(state, GridFile(static_cast<int>(state.range(0))), {}); }

void ConvertObjects(benchmark::State& state) { Run(state, ObjectsFile(static_cast<int>(state.range(0))), {}); }

void ConvertAnimation(benchmark::State& state)
{
    ConvertSettings settings;
    settings.meshAnimFlags = 1 | 2;
    Run(state, AnimationFile(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))), settings);
}

BENCHMARK(ReadGrid)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertGrid)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertObjects)->Arg(1'000)->Arg(10'000)->Arg(30'000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertAnimation)->Args({10'000, 100})->Args({10'000, 1000})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
