#include "Commands.h"

#include "GltfExport.h"
#include "Listing.h"
#include "vern/Vern3DDecoder.h"

#include <charconv>

namespace vern3d {

namespace {

const char kUsage[] =
    "usage: vern3d <command> [arguments]\n"
    "\n"
    "Inspect, check and export vern3D files written by MakeVern3D.\n"
    "\n"
    "  info FILE... [--json]       what each file holds: container, counts, texture table,\n"
    "                              animated nodes and meshes, the scene's bounding sphere\n"
    "  dump FILE [--limit N]       the whole decoded tree; lists are cut after N entries\n"
    "                              (default 8, 0 for all)\n"
    "  check FILE...               validate every structure a reader relies on\n"
    "  export FILE -o OUT.glb      a glTF 2.0 scene (.glb binary or .gltf text)\n"
    "  --help                      this text\n"
    "\n"
    "Exit code 0 on success, 1 when a file does not decode or cannot be written, 2 on a usage error.\n";

int Usage(std::ostream& err, const std::string& problem)
{
    err << "vern3d: " << problem << "\n\n" << kUsage;
    return kExitUsage;
}

bool Load(const std::string& path, Scene* scene, std::ostream& err)
{
    std::string error;
    if (DecodeFile(path, scene, &error))
        return true;
    err << path << ": error: " << error << "\n";
    return false;
}

int Info(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    bool json = false;
    std::vector<std::string> files;
    for (const std::string& argument : arguments) {
        if (argument == "--json")
            json = true;
        else if (argument.starts_with("--"))
            return Usage(err, "unknown option for info: " + argument);
        else
            files.push_back(argument);
    }
    if (files.empty())
        return Usage(err, "info needs at least one file");
    int status = kExitOk;
    for (const std::string& file : files) {
        Scene scene;
        if (!Load(file, &scene, err)) {
            status = kExitBadFile;
            continue;
        }
        if (json)
            out << InfoJson(scene, file) << "\n";
        else
            PrintInfo(scene, file, out);
    }
    return status;
}

int Dump(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    size_t limit = 8;
    std::vector<std::string> files;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--limit") {
            if (i + 1 == arguments.size())
                return Usage(err, "--limit needs a number");
            const std::string& text = arguments[++i];
            const auto result = std::from_chars(text.data(), text.data() + text.size(), limit);
            if (result.ec != std::errc() || result.ptr != text.data() + text.size())
                return Usage(err, "--limit needs a number, not '" + text + "'");
        } else if (arguments[i].starts_with("--")) {
            return Usage(err, "unknown option for dump: " + arguments[i]);
        } else {
            files.push_back(arguments[i]);
        }
    }
    if (files.size() != 1)
        return Usage(err, "dump takes one file");
    Scene scene;
    if (!Load(files[0], &scene, err))
        return kExitBadFile;
    PrintDump(scene, out, limit);
    return kExitOk;
}

int Check(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    if (arguments.empty())
        return Usage(err, "check needs at least one file");
    int status = kExitOk;
    for (const std::string& file : arguments) {
        if (file.starts_with("--"))
            return Usage(err, "unknown option for check: " + file);
        Scene scene;
        if (!Load(file, &scene, err)) {
            status = kExitBadFile;
            continue;
        }
        const Totals totals = CountTotals(scene);
        out << file << ": ok: " << totals.nodes << " nodes, " << totals.meshes << " meshes, " << totals.triangles
            << " triangles, " << totals.textureSets << " texture sets\n";
    }
    return status;
}

int Export(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    std::string input, output;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "-o") {
            if (i + 1 == arguments.size())
                return Usage(err, "-o needs an output file name");
            output = arguments[++i];
        } else if (arguments[i].starts_with("-")) {
            return Usage(err, "unknown option for export: " + arguments[i]);
        } else if (input.empty()) {
            input = arguments[i];
        } else {
            return Usage(err, "export takes one file");
        }
    }
    if (input.empty() || output.empty())
        return Usage(err, "export needs a file and -o OUT.glb or OUT.gltf");
    if (!output.ends_with(".glb") && !output.ends_with(".gltf"))
        return Usage(err, "the output name must end in .glb or .gltf");
    Scene scene;
    if (!Load(input, &scene, err))
        return kExitBadFile;
    std::string error;
    std::vector<std::string> notes;
    const bool exported = ExportGltf(scene, output, ExportOptions{}, &error, &notes);
    for (const std::string& note : notes)
        err << input << ": note: " << note << "\n";
    if (!exported) {
        err << input << ": export failed: " << error << "\n";
        return kExitBadFile;
    }
    out << "wrote " << output << "\n";
    return kExitOk;
}

}  // namespace

int RunCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err)
{
    if (arguments.empty())
        return Usage(err, "no command given");
    const std::string& command = arguments[0];
    const std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
    if (command == "--help" || command == "-h" || command == "help") {
        out << kUsage;
        return kExitOk;
    }
    if (command == "info")
        return Info(rest, out, err);
    if (command == "dump")
        return Dump(rest, out, err);
    if (command == "check")
        return Check(rest, out, err);
    if (command == "export")
        return Export(rest, out, err);
    return Usage(err, "unknown command '" + command + "'");
}

}  // namespace vern3d
