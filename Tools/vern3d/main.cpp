// vern3d: inspect, check and export vern3D files.
#include "Commands.h"

#include <iostream>

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    try {
        return vern3d::RunCommand(arguments, std::cout, std::cerr);
    } catch (const std::exception& failure) {
        std::cerr << "vern3d: " << failure.what() << "\n";
        return vern3d::kExitBadFile;
    }
}
