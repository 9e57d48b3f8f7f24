// Scanning and dispatch speed on a large generated ASE file (a grid mesh with normals and texture
// coordinates, about 110 MB), reported as bytes per second.
//   cmake --preset bench && cmake --build --preset bench && build/bench/bench/ParseBench
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/BaseParser.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

const std::string& LargeFile()
{
    static const std::string path = [] {
        const std::string file = (std::filesystem::temp_directory_path() / "makevern3d-bench-grid.ase").string();
        if (std::filesystem::exists(file) && std::filesystem::file_size(file) > 100'000'000)
            return file;
        std::ofstream out(file, std::ios::binary);
        out << "*3DSMAX_ASCIIEXPORT\t200\n*SCENE {\n\t*SCENE_FRAMESPEED 30\n\t*SCENE_TICKSPERFRAME 160\n}\n";
        const int side = 520;
        out << "*GEOMOBJECT {\n\t*NODE_NAME \"Grid\"\n\t*MESH {\n\t\t*TIMEVALUE 0\n";
        out << "\t\t*MESH_NUMVERTEX " << side * side << "\n\t\t*MESH_VERTEX_LIST {\n";
        char line[256];
        for (int i = 0; i < side * side; ++i) {
            std::snprintf(line, sizeof line, "\t\t\t*MESH_VERTEX %5d\t%.4f\t%.4f\t%.4f\n", i, (i % side) * 1.5,
                          (i / side) * 1.5, 0.0);
            out << line;
        }
        out << "\t\t}\n\t\t*MESH_FACE_LIST {\n";
        int face = 0;
        for (int y = 0; y + 1 < side; ++y) {
            for (int x = 0; x + 1 < side; ++x) {
                const int a = y * side + x;
                for (int half = 0; half < 2; ++half) {
                    std::snprintf(line, sizeof line,
                                  "\t\t\t*MESH_FACE %5d:    A: %5d B: %5d C: %5d AB:    1 BC:    1 CA:    0\t "
                                  "*MESH_SMOOTHING 1 \t*MESH_MTLID 0\n",
                                  face++, a, half ? a + side + 1 : a + 1, half ? a + side : a + side + 1);
                    out << line;
                }
            }
        }
        out << "\t\t}\n\t\t*MESH_NUMTVERTEX " << side * side << "\n\t\t*MESH_TVERTLIST {\n";
        for (int i = 0; i < side * side; ++i) {
            std::snprintf(line, sizeof line, "\t\t\t*MESH_TVERT %d\t%.4f\t%.4f\t0.0000\n", i,
                          (i % side) / double(side), (i / side) / double(side));
            out << line;
        }
        out << "\t\t}\n\t\t*MESH_NORMALS {\n";
        for (int f = 0; f < face; ++f) {
            std::snprintf(line, sizeof line,
                          "\t\t\t*MESH_FACENORMAL %d\t0.0000\t0.0000\t1.0000\n"
                          "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n"
                          "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n"
                          "\t\t\t\t*MESH_VERTEXNORMAL %d\t0.0000\t0.0000\t1.0000\n",
                          f, f, f, f);
            out << line;
        }
        out << "\t\t}\n\t}\n}\n";
        return file;
    }();
    return path;
}

// Hands every top-level symbol to a counter: the scanner and the parse loop alone (the grid's
// block is skipped symbol by symbol).
class CountingParser : public BaseParser {
public:
    using BaseParser::BaseParser;
    void HandleSymbol(std::string&) override { ++symbols; }
    uint64_t symbols = 0;
};

void ScanAndDispatch(benchmark::State& state)
{
    const std::string& file = LargeFile();
    const auto bytes = static_cast<int64_t>(std::filesystem::file_size(file));
    for (auto _ : state) {
        // Loading is one read into one buffer; ReadAseFile below measures it with everything else.
        state.PauseTiming();
        Reporter reporter;
        CountingParser parser(reporter);
        if (Failed(parser.Load(file)))
            state.SkipWithError("cannot load");
        state.ResumeTiming();
        parser.ParseSymbols();
        benchmark::DoNotOptimize(parser.symbols);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}
BENCHMARK(ScanAndDispatch)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole reader on the same file, including loading it and skipping the blocks it does not
// read; the output goes to a scratch file.
void ReadAseFile(benchmark::State& state)
{
    const std::string& file = LargeFile();
    const auto bytes = static_cast<int64_t>(std::filesystem::file_size(file));
    const std::string output = (std::filesystem::temp_directory_path() / "makevern3d-bench-grid.vern3D").string();
    // The reader's warnings go to standard output; send them away while measuring.
    std::fflush(stdout);
    const int console = ::dup(STDOUT_FILENO);
    const int sink = ::open("/dev/null", O_WRONLY);
    ::dup2(sink, STDOUT_FILENO);
    for (auto _ : state) {
        Reporter reporter;
        Scene scene;
        ConvertFile(file, output, {}, reporter, scene);
        if (reporter.HasError())
            state.SkipWithError(reporter.ErrorText().c_str());
    }
    std::fflush(stdout);
    ::dup2(console, STDOUT_FILENO);
    ::close(console);
    ::close(sink);
    state.SetBytesProcessed(state.iterations() * bytes);
}
BENCHMARK(ReadAseFile)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
