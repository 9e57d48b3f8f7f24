#include "ConversionDriver.h"

#include "AbstractData/Parallel.h"
#include "Ase/AseParser.h"
#include "CommandLine.h"
#include "Console.h"
#include "ConvertSettings.h"
#include "Output/SceneFile.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"

#include <cstdio>

Conversion ConvertFile(const std::string& input, const std::string& output, const ConvertSettings& settings,
                       Reporter& reporter, Scene& scene, bool write)
{
    // Read: the text becomes a scene (the reader and its text are gone before anything is built).
    // A file that does not load gives nothing to go on with.
    const size_t partBytes = settings.listPartBytes ? settings.listPartBytes : AseParser::kListPartBytes;
    if (Failed(AseParser(reporter, settings.compat, ThreadCount(settings.threads), partBytes).Read(input, scene)))
        return Conversion::Failed;

    // Prepare. Selection and directives work on whatever was read, also after an error; the
    // checks and everything after them only on a scene read without one.
    if (!settings.objectNames.empty())
        SelectObjects(scene, settings.objectNames);
    ApplyNameDirectives(scene, reporter);
    if (!reporter.HasError())
        CheckMeshes(scene, settings, reporter);
    if (reporter.HasError() || !write)
        return reporter.HasError() ? Conversion::Failed : Conversion::Converted;
    PrepareScene(scene);

    // Write.
    if (Failed(WriteScene(scene, settings, output, reporter)))
        return Conversion::WriteFailed;
    return reporter.HasError() ? Conversion::Failed : Conversion::Converted;
}

namespace {

// Whether a file that failed converts with -compat: a quiet conversion that writes nothing.
bool ConvertsWithCompat(const std::string& input, const ConvertSettings& settings)
{
    ConvertSettings trial = settings;
    trial.compat = true;
    Reporter quiet(true);
    Scene scene;
    ConvertFile(input, std::string(), trial, quiet, scene, false);
    return !quiet.HasError();
}

}  // namespace

int ConvertFiles(const ConvertSettings& settings, const std::vector<std::string>& inputFiles,
                 const std::string& outputName)
{
    bool anyFailed = false;
    for (const std::string& input : inputFiles) {
        PrintText(input);
        PrintText(":\n");
        Reporter reporter;
        Scene scene;
        const Conversion outcome = ConvertFile(input, OutputFileName(input, outputName), settings, reporter, scene);
        if (reporter.HasError()) {
            PrintText(reporter.ErrorText());
            anyFailed = true;
            if (!settings.compat && outcome != Conversion::WriteFailed && ConvertsWithCompat(input, settings))
                PrintErrorLine(kMessageConvertsWithCompat, input);
            if (!settings.batch)
                WaitForKey();
        } else {
            PrintMessage(kMessageFileCompiled);
        }
    }
    std::fflush(stdout);
    return settings.batch && anyFailed ? kExitInputFailed : 0;
}
