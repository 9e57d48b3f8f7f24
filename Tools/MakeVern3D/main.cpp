// MakeVern3D: compiles ASE scene files into vern3D files.
#include "AseParser.h"
#include "CommandLine.h"
#include "Console.h"
#include "ConversionDriver.h"
#include "Messages.h"

#include <cstdio>

int main(int argc, char** argv)
{
    // The reader exists first: it carries the settings that the command line fills.
    AseParser reader;
    PrintMessage(kMessageBanner);
    CommandLine commandLine;
    if (ReadCommandLine(argc, argv, reader.settings, commandLine) == CommandLineResult::MissingValue) {
        PrintMessage(kMessageOptionValueMissing);
        std::fflush(stdout);
        return 1;
    }
    return ConvertFiles(reader, commandLine.inputFiles, commandLine.outputName);
}
