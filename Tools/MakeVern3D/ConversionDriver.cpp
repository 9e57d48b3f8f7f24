#include "ConversionDriver.h"

#include "Ase/AseParser.h"
#include "AbstractData/Parallel.h"
#include "CommandLine.h"
#include "Console.h"
#include "ConvertSettings.h"
#include "DependencyFile.h"
#include "Output/EarlyBuilds.h"
#include "Output/SceneFile.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"

#include <cstdio>
#include <optional>

Conversion ConvertFile(const std::string& input, const std::string& output, const ConvertSettings& settings,
                       Reporter& reporter, Scene& scene, bool write)
{
    // Read: the text becomes a scene (the reader and its text are gone before anything is built).
    // A file that does not load gives nothing to go on with. On more than one thread, large mesh
    // lists are read in parts, and objects are built as they are read, for the writing to take
    // over where it may.
    std::optional<EarlyBuilds> early;
    if (write && ThreadCount(settings.threads) > 1 && !settings.ivertex && !settings.keepMeshLists)
        early.emplace(settings);
    {
        const size_t partBytes = settings.listPartBytes ? settings.listPartBytes : AseParser::kListPartBytes;
        AseParser reader(reporter, settings.compat, ThreadCount(settings.threads), partBytes);
        if (early)
            reader.objectRead = [&](MeshNode& node, const Scene& read) { early->ObjectRead(node, read); };
        if (Failed(reader.Read(input, scene)))
            return Conversion::Failed;
    }
    if (early)
        early->Finish();

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
    if (Failed(WriteScene(scene, settings, output, reporter, early ? &*early : nullptr)))
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
    DependencyFile dependencies;
    for (const std::string& input : inputFiles) {
        PrintText(input);
        PrintText(":\n");
        Reporter reporter;
        Scene scene;
        const std::string output = OutputFileName(input, outputName);
        const Conversion outcome = ConvertFile(input, output, settings, reporter, scene);
        if (reporter.HasError()) {
            PrintText(reporter.ErrorText());
            anyFailed = true;
            if (!settings.compat && outcome != Conversion::WriteFailed && ConvertsWithCompat(input, settings))
                PrintErrorLine(kMessageConvertsWithCompat, input);
            if (!settings.batch)
                WaitForKey();
        } else {
            PrintMessage(kMessageFileCompiled);
            dependencies.AddRule(output, input, scene.filesRead);
        }
    }
    if (!settings.dependencyFile.empty() && !dependencies.Write(settings.dependencyFile))
        anyFailed = true;
    std::fflush(stdout);
    return settings.batch && anyFailed ? kExitInputFailed : 0;
}
