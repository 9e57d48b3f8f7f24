// Reading and converting grid meshes as real exports write them: a textured material, texture
// vertices and faces, and a full *MESH_NORMALS block; a mesh animation of many frames; and hostile
// shapes that few lines declare (faces at one place, a fan of many normals, many empty frames).
//   cmake --preset bench && cmake --build --preset bench && build/bench/bench/MeshBench
// The generated files (BenchScenes.h and below) stay in the temporary directory for later runs (and
// for measuring the converter's peak memory: /usr/bin/time -v build/bench/Tools/MakeVern3D/MakeVern3D <file>).
#include "BenchScenes.h"
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

using namespace benchscenes;

// A grid of `side` x `side` vertices whose face corners each have a texture vertex of their own
// (three render vertices per face) animated over `frames` frames that list only their vertices:
// each frame is small in the text and large once rebuilt on the render vertices.
std::string UnweldedAnimationFile(int side, int frames)
{
    const std::string file = TempFile("makevern3d-bench-unwelded-" + std::to_string(side) + "x" +
                                      std::to_string(frames) + ".ase");
    if (std::filesystem::exists(file))
        return file;
    std::ofstream out(file, std::ios::binary);
    char line[256];
    const auto vertices = [&](int frame) {
        out << "*MESH_VERTEX_LIST {\n";
        for (int i = 0; i < side * side; ++i) {
            std::snprintf(line, sizeof line, "*MESH_VERTEX %d %d %d %.2f\n", i, i % side, i / side,
                          0.01 * ((i * 7919) % 29) + 0.1 * frame);
            out << line;
        }
        out << "}\n";
    };
    out << "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n*GEOMOBJECT {\n*NODE_NAME \"Unwelded\"\n*MATERIAL_REF 0\n*MESH {\n";
    vertices(0);
    out << "*MESH_FACE_LIST {\n";
    for (int f = 0, cell = 0; cell < (side - 1) * (side - 1); ++cell) {
        const int base = cell / (side - 1) * side + cell % (side - 1);
        const int faces[2][3] = {{base, base + 1, base + side + 1}, {base, base + side + 1, base + side}};
        for (const auto& corners : faces)
            out << "*MESH_FACE " << f++ << ": A: " << corners[0] << " B: " << corners[1] << " C: " << corners[2]
                << " AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING 1 *MESH_MTLID 0\n";
    }
    const int corners = 6 * (side - 1) * (side - 1);
    out << "}\n*MESH_TVERTLIST {\n";
    for (int k = 0; k < corners; ++k) {
        std::snprintf(line, sizeof line, "*MESH_TVERT %d %.4f %.4f 0\n", k, 0.0025 * (k % 400), 0.0025 * (k / 400));
        out << line;
    }
    out << "}\n*MESH_TFACELIST {\n";
    for (int f = 0; f < corners / 3; ++f)
        out << "*MESH_TFACE " << f << " " << 3 * f << " " << 3 * f + 1 << " " << 3 * f + 2 << "\n";
    out << "}\n}\n*MESH_ANIMATION {\n";
    for (int frame = 0; frame < frames; ++frame) {
        out << "*MESH {\n";
        vertices(frame);
        out << "}\n";
    }
    out << "}\n}\n";
    return file;
}

// Hostile shapes that a few lines declare. A mesh whose faces are declared by their number alone
// (the last face line names face `faces` - 1): every corner lies at vertex 0, its face normal is
// not a number and it welds with nothing. The file has the same few lines for every size.
std::string CoincidingFile(int faces)
{
    const std::string file = TempFile("makevern3d-bench-coinciding-" + std::to_string(faces) + ".ase");
    std::ofstream out(file, std::ios::binary);
    out << "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n*GEOMOBJECT {\n*NODE_NAME \"x\"\n*MATERIAL_REF 0\n*MESH {\n"
           "*MESH_NUMVERTEX 1\n*MESH_FACE_LIST {\n*MESH_FACE "
        << faces - 1 << ": A: 0 B: 0 C: 0 AB: 0 BC: 0 CA: 0 *MESH_SMOOTHING 0 *MESH_MTLID 0\n}\n}\n}\n";
    return file;
}

// A fan of `faces` faces around vertex 0: the centre's corners share one position, each with its
// own face normal (the rim climbs a cone) and its own texture coordinate.
std::string FanFile(int faces)
{
    const std::string file = TempFile("makevern3d-bench-fan-" + std::to_string(faces) + ".ase");
    if (std::filesystem::exists(file))
        return file;
    std::ofstream out(file, std::ios::binary);
    char line[256];
    out << "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n*GEOMOBJECT {\n*NODE_NAME \"Fan\"\n*MATERIAL_REF 0\n*MESH {\n"
           "*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 0 0 0\n";
    for (int i = 0; i <= faces; ++i) {
        const double angle = 0.05 * i, height = 0.001 * i;
        std::snprintf(line, sizeof line, "*MESH_VERTEX %d %.6f %.6f %.6f\n", i + 1, std::cos(angle), std::sin(angle), height);
        out << line;
    }
    out << "}\n*MESH_FACE_LIST {\n";
    for (int f = 0; f < faces; ++f)
        out << "*MESH_FACE " << f << ": A: 0 B: " << f + 1 << " C: " << f + 2 << " AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING *MESH_MTLID 0\n";
    out << "}\n*MESH_TVERTLIST {\n";
    for (int f = 0; f < faces; ++f) {
        std::snprintf(line, sizeof line, "*MESH_TVERT %d %.4f 0 0\n", f, 0.002 * f);
        out << line;
    }
    out << "}\n*MESH_TFACELIST {\n";
    for (int f = 0; f < faces; ++f)
        out << "*MESH_TFACE " << f << " " << f << " " << f << " " << f << "\n";
    out << "}\n}\n}\n";
    return file;
}

// `frames` empty frames of a mesh of `vertices` vertices declared by number (all at one place).
std::string EmptyFramesFile(int vertices, int frames)
{
    const std::string file = TempFile("makevern3d-bench-emptyframes-" + std::to_string(vertices) + "x" +
                                      std::to_string(frames) + ".ase");
    std::ofstream out(file, std::ios::binary);
    out << "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n*GEOMOBJECT {\n*NODE_NAME \"x\"\n*MATERIAL_REF 0\n*MESH {\n"
           "*MESH_VERTEX_LIST {\n*MESH_VERTEX "
        << vertices - 1 << " 0 0 0\n}\n*MESH_FACE_LIST {\n*MESH_FACE " << vertices / 3 - 1
        << ": A: 0 B: 0 C: 0 AB: 0 BC: 0 CA: 0 *MESH_SMOOTHING 0 *MESH_MTLID 0\n}\n}\n*MESH_ANIMATION {\n";
    for (int frame = 0; frame < frames; ++frame)
        out << "*MESH {}\n";
    out << "}\n}\n";
    return file;
}

// The converter's own console text (frame progress, warnings) goes to /dev/null while one lives.
class QuietConsole {
public:
    QuietConsole()
    {
        std::fflush(stdout);
        ::dup2(null, STDOUT_FILENO);
    }
    ~QuietConsole()
    {
        std::fflush(stdout);
        ::dup2(console, STDOUT_FILENO);
        ::close(console);
        ::close(null);
    }
    QuietConsole(const QuietConsole&) = delete;
    QuietConsole& operator=(const QuietConsole&) = delete;

private:
    int console = ::dup(STDOUT_FILENO);
    int null = ::open("/dev/null", O_WRONLY);
};

// `mayFail`: a refusal is a result too (hostile inputs beyond the file's bounds). `fresh`: no
// earlier output is replaced (it is removed while the clock stands), so that the file system's
// release of the replaced file's blocks, which follows the commit on either thread count, is left out.
void Run(benchmark::State& state, const std::string& file, const ConvertSettings& settings, bool mayFail = false,
         bool fresh = false)
{
    const std::string output = TempFile("makevern3d-bench-out.vern3D");
    bool failed = false;
    {
        const QuietConsole quiet;
        for (auto _ : state) {
            if (fresh) {
                state.PauseTiming();
                std::remove(output.c_str());
                state.ResumeTiming();
            }
            Reporter reporter;
            Scene scene;
            failed = ConvertFile(file, output, settings, reporter, scene) != Conversion::Converted || failed;
        }
    }
    if (failed && !mayFail)
        state.SkipWithError("conversion failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(file)));
}

// Load, scan and every value into the records: -obj with no such object leaves nothing to write.
// The second argument is -threads (0: one per core).
void ReadGrid(benchmark::State& state)
{
    ConvertSettings settings;
    settings.objectNames = {"no such object"};
    settings.threads = static_cast<uint32_t>(state.range(1));
    Run(state, GridFile(static_cast<int>(state.range(0))), settings);
}

// The whole conversion: read, render mesh, write; the second argument is -threads.
void ConvertGrid(benchmark::State& state)
{
    ConvertSettings settings;
    settings.threads = static_cast<uint32_t>(state.range(1));
    Run(state, GridFile(static_cast<int>(state.range(0))), settings);
}

// The second argument is -threads (1: one thread; 0: one per core).
void ConvertObjects(benchmark::State& state)
{
    ConvertSettings settings;
    settings.threads = static_cast<uint32_t>(state.range(1));
    Run(state, ObjectsFile(static_cast<int>(state.range(0))), settings);
}

// As ConvertObjects, into a new file each time.
void ConvertObjectsFresh(benchmark::State& state)
{
    ConvertSettings settings;
    settings.threads = static_cast<uint32_t>(state.range(1));
    Run(state, ObjectsFile(static_cast<int>(state.range(0))), settings, false, true);
}

// The machine's own ceiling for two threads: one conversion of the 10,000 objects on one thread
// (argument 1), or two of them at once (2), each on its own thread and file, nothing shared but the
// process. Two conversions in the time of one would be a factor of 2.
void IndependentConversions(benchmark::State& state)
{
    const std::string file = ObjectsFile(10'000);
    const std::string copy = TempFile("makevern3d-bench-objects-10000-copy.ase");
    std::filesystem::copy_file(file, copy, std::filesystem::copy_options::overwrite_existing);
    ConvertSettings settings;
    settings.threads = 1;
    auto convert = [&settings](const std::string& input, const std::string& output) {
        Reporter reporter;
        Scene scene;
        return ConvertFile(input, output, settings, reporter, scene) == Conversion::Converted;
    };
    const std::string outputA = TempFile("makevern3d-bench-out-a.vern3D");
    const std::string outputB = TempFile("makevern3d-bench-out-b.vern3D");
    const QuietConsole quiet;
    bool converted = true;
    for (auto _ : state) {
        if (state.range(0) == 1) {
            converted = convert(file, outputA) && converted;
            continue;
        }
        bool other = false;
        std::thread second([&] { other = convert(copy, outputB); });
        converted = convert(file, outputA) && converted;
        second.join();
        converted = other && converted;
    }
    if (!converted)
        state.SkipWithError("conversion failed");
}

void ConvertAnimation(benchmark::State& state)
{
    ConvertSettings settings;
    settings.meshAnimFlags = 1 | 2;
    Run(state, AnimationFile(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))), settings);
}

void ConvertUnweldedAnimation(benchmark::State& state)
{
    ConvertSettings settings;
    settings.meshAnimFlags = 1 | 2;
    Run(state, UnweldedAnimationFile(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))), settings);
}

void ConvertCoinciding(benchmark::State& state) { Run(state, CoincidingFile(static_cast<int>(state.range(0))), {}, true); }

void ConvertFan(benchmark::State& state) { Run(state, FanFile(static_cast<int>(state.range(0))), {}); }

void ConvertEmptyFrames(benchmark::State& state)
{
    ConvertSettings settings;
    settings.meshAnimFlags = 1;
    Run(state, EmptyFramesFile(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))), settings, true);
}

BENCHMARK(ReadGrid)->ArgsProduct({{10'000, 100'000, 1'000'000}, {1, 0}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertGrid)->ArgsProduct({{10'000, 100'000, 1'000'000}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertObjects)->ArgsProduct({{1'000, 10'000, 30'000}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(IndependentConversions)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertObjectsFresh)->ArgsProduct({{10'000}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertAnimation)->Args({10'000, 100})->Args({10'000, 400})->Args({10'000, 1000})->Unit(benchmark::kMillisecond)->UseRealTime();
// 100 x 100 vertices, 58,806 render vertices (2.4 MB a frame rebuilt), 100 / 400 frames.
BENCHMARK(ConvertUnweldedAnimation)->Args({100, 100})->Args({100, 400})->Unit(benchmark::kMillisecond)->UseRealTime();
// 4,000 to 1,048,000 faces at one place (the largest is refused: its render vertices pass the bound).
BENCHMARK(ConvertCoinciding)->Arg(4'000)->Arg(16'000)->Arg(64'000)->Arg(1'048'000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ConvertFan)->Arg(4'000)->Arg(16'000)->Arg(64'000)->Unit(benchmark::kMillisecond)->UseRealTime();
// 48,000 vertices: 15 frames fit the bound, 500 are refused before any frame is built.
BENCHMARK(ConvertEmptyFrames)->Args({48'000, 15})->Args({48'000, 500})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
