// Writes the grid files that MeshBench reads (once; later runs find them) and prints their paths:
//   build/bench/bench/MakeGrid 100000 500000 1000000
#include "BenchScenes.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        std::printf("%s\n", benchscenes::GridFile(std::atoi(argv[i])).c_str());
    return 0;
}
