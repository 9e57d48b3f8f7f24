// Cost bounded by the input: hostile shapes at two sizes in one run, failing when the cost grows
// faster than n log n (welding work counted, conversion time and peak heap bytes measured; the
// figures themselves belong to bench/MeshBench). And output beyond the file's bounds: refused
// with its line, nothing left behind.
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Output/VertexWelder.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>
#include <new>
#include <string>
#include <vector>

// Settings are given by designated initializers: the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

// Every allocation of this test program carries its size, so that the peak of live heap bytes
// can be read.
namespace {
std::atomic<size_t> liveBytes{0}, peakBytes{0};
constexpr size_t kHeader = 16;

void* Allocate(size_t size) noexcept
{
    auto* block = static_cast<char*>(std::malloc(size + kHeader));
    if (!block)
        return nullptr;
    *reinterpret_cast<size_t*>(block) = size;
    const size_t live = liveBytes += size;
    for (size_t peak = peakBytes; live > peak && !peakBytes.compare_exchange_weak(peak, live);) {}
    return block + kHeader;
}
}  // namespace

void* operator new(size_t size)
{
    if (void* pointer = Allocate(size))
        return pointer;
    throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* pointer) noexcept
{
    if (!pointer)
        return;
    char* block = static_cast<char*>(pointer) - kHeader;
    liveBytes -= *reinterpret_cast<size_t*>(block);
    std::free(block);
}
void operator delete[](void* pointer) noexcept { operator delete(pointer); }
void operator delete(void* pointer, size_t) noexcept { operator delete(pointer); }
void operator delete[](void* pointer, size_t) noexcept { operator delete(pointer); }
void operator delete(void* pointer, const std::nothrow_t&) noexcept { operator delete(pointer); }
void operator delete[](void* pointer, const std::nothrow_t&) noexcept { operator delete(pointer); }

namespace {

const std::string kMaterial = "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n";

// An object whose faces are declared by their number alone: every corner lies at vertex 0, its
// face normal is not a number, and it welds with nothing. `frames` frames follow, each moving
// vertex 0 by its number (or empty frames).
std::string AtOnePlace(int faces, int frames = 0, bool emptyFrames = false, const std::string& name = "x")
{
    std::string text = "*GEOMOBJECT {\n*NODE_NAME \"" + name + "\"\n*MATERIAL_REF 0\n*MESH {\n*MESH_VERTEX_LIST {\n"
                       "*MESH_VERTEX 0 0 0 0\n}\n*MESH_FACE_LIST {\n*MESH_FACE " + std::to_string(faces - 1) +
                       ": A: 0 B: 0 C: 0 AB: 0 BC: 0 CA: 0 *MESH_SMOOTHING 0 *MESH_MTLID 0\n}\n}\n";
    for (int f = 0; f < frames; ++f)
        text += (f == 0 ? "*MESH_ANIMATION {\n" : "") +
                (emptyFrames ? "*MESH {}\n" : "*MESH {\n*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 " + std::to_string(f) + " 0 0\n}\n}\n");
    return text + (frames > 0 ? "}\n}\n" : "}\n");
}

// Processor time, the least of the runs; the peak of live heap bytes, in the last run.
struct Cost { double seconds = std::numeric_limits<double>::max(); size_t peak = 0; };

// Converts each text with -map five times, the texts taking turns, so that the load of the machine
// falls on both alike.
std::vector<Cost> Convert(const std::vector<std::string>& texts)
{
    testfiles::ScratchDirectory directory;
    std::vector<Cost> costs(texts.size());
    for (int run = 0; run < 5; ++run) {
        for (size_t i = 0; i < texts.size(); ++i) {
            const std::string source = directory.Write("scene" + std::to_string(i) + ".ase", texts[i]);
            Reporter reporter;
            Scene scene;
            peakBytes = liveBytes.load();
            const size_t before = liveBytes;
            testing::internal::CaptureStdout();
            const std::clock_t start = std::clock();  // processor time of the process
            ConvertFile(source, directory.File("scene.vern3D"), {.meshAnimFlags = 1}, reporter, scene);
            const double took = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
            testing::internal::GetCapturedStdout();
            EXPECT_FALSE(reporter.HasError()) << reporter.ErrorText();
            costs[i].seconds = std::min(costs[i].seconds, took);
            costs[i].peak = peakBytes - before;
        }
    }
    return costs;
}

TEST(Resources, ConversionTimeAndMemoryGrowNoFasterThanTheInput)
{
    // Each family at n and 4n: a cost of n log n grows about 4.6 times, a quadratic one 16 times.
    // `frameBytes`: what keeping every rebuilt frame would add at 4n beyond n.
    struct Family { const char* what; std::function<std::string(int)> text; int n; size_t frameBytes; };
    const Family families[] = {
        {"faces declared at one place, not-a-number normals", [](int n) { return kMaterial + AtOnePlace(n); }, 16000, 0},
        {"empty frames of a mesh of 3,000 render vertices",
         [](int n) { return kMaterial + AtOnePlace(1000, n, true); }, 40, 3 * 40 * 3000 * 40},
        {"frames over 12 meshes of 150 render vertices", [](int n) {
             std::string text = kMaterial;
             for (int m = 0; m < 12; ++m)
                 text += AtOnePlace(50, n, false, "m" + std::to_string(m));
             return text;
         }, 40, 3 * 40 * 12 * 150 * 40},
    };
    for (const Family& family : families) {
        const std::vector<Cost> costs = Convert({family.text(family.n), family.text(4 * family.n)});
        const auto& [small, large] = std::tie(costs[0], costs[1]);
        EXPECT_LT(large.seconds, 10 * small.seconds) << family.what << ": " << small.seconds << " s, then " << large.seconds;
        if (family.frameBytes) {
            EXPECT_LT(large.peak, small.peak + family.frameBytes / 10)
                << family.what << ": peak " << small.peak << " bytes, then " << large.peak;
        }
    }
}

TEST(Resources, WeldingWorkGrowsNoFasterThanTheCorners)
{
    // Corners at one place that differ in what each family varies, by more than the tolerance;
    // each value comes twice, the second time it matches.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto step = [](int k, int across, float size) {
        return std::pair{static_cast<float>(k % across) * size, static_cast<float>(k / across) * size};
    };
    struct Family { const char* what; std::function<MeshVertex(int)> corner; };
    const Family families[] = {
        {"not-a-number normals", [&](int) { return MeshVertex{{0, 0, 0}, {0, 0, nan}}; }},
        {"many normals", [&](int k) { const auto [x, y] = step(k, 200, 0.15f); return MeshVertex{{0, 0, 0}, {x, y, 1}}; }},
        {"many texture coordinates",
         [&](int k) { const auto [u, v] = step(k, 200, 0.0015f); return MeshVertex{{0, 0, 0}, {0, 0, 1}, 0xFFFFFFFFu, 0, u, v}; }},
        {"many materials", [](int k) { return MeshVertex{{0, 0, 0}, {0, 0, 1}, 0xFFFFFFFFu, static_cast<uint32_t>(k)}; }},
        {"many positions in one wide cell",
         [&](int k) { const auto [x, y] = step(k, 200, 0.15f); return MeshVertex{{x, y, 0}, {0, 0, 1}}; }},
    };
    for (const Family& family : families) {
        uint64_t work[2] = {0, 0};
        for (int size : {0, 1}) {
            std::vector<MeshVertex> list;
            VertexWelder welder(list, 0, 40.0);  // cells of 40 units: the position grid alone does not separate
            for (int i = 0; i < (size ? 40000 : 10000); ++i) {
                const MeshVertex corner = family.corner(i / 2);
                if (welder.Find(corner) < 0) {
                    list.push_back(corner);
                    welder.Added();
                }
            }
            work[size] = welder.Work();
        }
        EXPECT_LE(work[1], 6 * work[0]) << family.what << ": work " << work[0] << ", then " << work[1];
    }
}

TEST(Resources, OutputBeyondTheFileBoundIsRefusedAndNothingIsLeft)
{
    // 350,000 faces give 1,050,000 render vertices; 16,000 faces and 30 frames rebuild 48,000 each.
    struct Case { std::string text; int line; const char* message; };
    const Case cases[] = {
        {kMaterial + AtOnePlace(350000), 8, "The render mesh of object 'x' would take the vertex and face lists"},
        {kMaterial + AtOnePlace(16000, 30, true), 16,
         "The animation frames of object 'x', each rebuilt on its 48000 render vertices, would take"},
    };
    testfiles::ScratchDirectory directory;
    for (const Case& c : cases) {
        const std::string source = directory.Write("scene.ase", c.text);
        const std::string output = directory.File("scene.vern3D");
        Reporter reporter;
        Scene scene;
        testing::internal::CaptureStdout();
        ConvertFile(source, output, {}, reporter, scene);
        EXPECT_EQ(testing::internal::GetCapturedStdout().find("frame 0"), std::string::npos);  // no frame is built
        EXPECT_EQ(reporter.ErrorText().rfind(source + "(" + std::to_string(c.line) + ") error: " + c.message, 0), 0u)
            << reporter.ErrorText();
        EXPECT_FALSE(testfiles::Exists(output));
    }
}

}  // namespace
