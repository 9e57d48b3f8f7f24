// MakeVern3D: compiles ASE scene files into vern3D files.
#include "CommandLine.h"
#include "Console.h"
#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "resources/Messages.h"

#include <cstdio>

int main(int argc, char** argv)
{
    PrintMessage(kMessageBanner);
    ConvertSettings settings;
    CommandLine commandLine;
    if (ReadCommandLine(argc, argv, settings, commandLine) == CommandLineResult::MissingValue) {
        PrintMessage(kMessageOptionValueMissing);
        std::fflush(stdout);
        return 1;
    }
    return ConvertFiles(settings, commandLine.inputFiles, commandLine.outputName);
}
