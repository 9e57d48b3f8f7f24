// Reading and writing scenes of many helper objects, in long parent chains and wide fans, to show
// that the cost grows linearly with the number of objects.
//   cmake --preset bench && cmake --build --preset bench && build/bench/bench/SceneBench
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// Chains of `chain` helpers, each hanging under the previous one, and every tenth helper the
// root of a fan of further helpers.
std::string WriteScene(int objects, int chain)
{
    const std::string file = (std::filesystem::temp_directory_path() /
                              ("makevern3d-bench-scene-" + std::to_string(objects) + "-" + std::to_string(chain) + ".ase"))
                                 .string();
    std::ofstream out(file, std::ios::binary);
    out << "*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n";
    for (int i = 0; i < objects; ++i) {
        out << "*HELPEROBJECT {\n*NODE_NAME \"h" << i << "\"\n";
        if (i % chain != 0)
            out << "*NODE_PARENT \"h" << (i % 10 == 5 ? (i / chain) * chain : i - 1) << "\"\n";
        out << "*HELPER_CLASS \"Dummy\"\n*NODE_TM {\n*TM_ROW0 1 0 0\n*TM_ROW1 0 1 0\n*TM_ROW2 0 0 1\n*TM_ROW3 "
            << i % 7 << " 1 2\n}\n}\n";
    }
    return file;
}

void ConvertHelpers(benchmark::State& state)
{
    const int objects = static_cast<int>(state.range(0));
    const int chain = static_cast<int>(state.range(1));
    const std::string file = WriteScene(objects, chain);
    const std::string output = file + ".vern3D";
    for (auto _ : state) {
        Reporter reporter;
        Scene scene;
        ConvertFile(file, output, {}, reporter, scene);
        if (reporter.HasError())
            state.SkipWithError(reporter.ErrorText().c_str());
    }
    state.SetItemsProcessed(state.iterations() * objects);
}
BENCHMARK(ConvertHelpers)
    ->Args({10000, 10000})
    ->Args({30000, 30000})
    ->Args({100000, 100000})
    ->Args({100000, 100})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
