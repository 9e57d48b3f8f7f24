#include "ConversionDriver.h"

#include "AseParser.h"
#include "CommandLine.h"
#include "Console.h"
#include "Messages.h"

#include <cstdio>

int ConvertFiles(AseParser& reader, const std::vector<std::string>& inputFiles, const std::string& outputName)
{
    bool anyFailed = false;
    for (const std::string& input : inputFiles) {
        PrintText(input);
        PrintText(":\n");
        reader.ParseFile(input, OutputFileName(input, outputName));
        if (reader.HasError()) {
            PrintText(reader.ErrorText());
            anyFailed = true;
            if (!reader.settings.compat && reader.ConvertsWithCompat(input))
                PrintErrorLine(kMessageConvertsWithCompat, input.c_str());
            if (!reader.settings.batch)
                WaitForKey();
        } else {
            PrintMessage(kMessageFileCompiled);
        }
    }
    std::fflush(stdout);
    return reader.settings.batch && anyFailed ? kExitInputFailed : 0;
}
