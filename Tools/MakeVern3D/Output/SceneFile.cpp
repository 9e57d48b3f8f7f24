// The vern3D file of a scene: the node tree's chunks, then the texture table.
#include "Output/SceneFile.h"

#include "AbstractData/Parallel.h"
#include "ConvertSettings.h"
#include "Output/LittleEndian.h"
#include "Output/NodeWriter.h"
#include "Parser/ParserMessages.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "resources/Messages.h"
#include "vern/VernWriter.h"

#include <cstdio>

namespace {

// The texture table: the number of sets, then per set its entry count and each entry's flags and
// bitmap name. After a failure nothing more is written.
HRESULT WriteTextureTable(VernWriter& writer, const Scene& scene)
{
    VernChunk* table = nullptr;
    HRESULT status = writer.CreateChunk(&table, vern3d::kChunkTextureTable, writer.Root());
    LittleEndianBuffer record;
    auto writeValue = [&](uint32_t value) {
        if (Failed(status))
            return;
        record.Clear();
        record.Append(vern3d::ValueRecord{vern3d::kValueRecordSize, 0, value});
        status = writer.WriteData(record.Data(), record.Size(), table);
    };
    writeValue(static_cast<uint32_t>(scene.textureSets.size()));
    for (const auto& set : scene.textureSets) {
        writeValue(static_cast<uint32_t>(set->entries.size()));
        for (const TextureEntry& entry : set->entries) {
            writeValue(static_cast<uint32_t>(entry.flags));
            if (Failed(status))
                continue;
            OutputStream* stream = nullptr;
            status = writer.BeginDirectWrite(&stream, table);
            if (Succeeded(status))
                status = VernWriter::WriteCountedString(entry.fileName, stream);
            if (Succeeded(status))
                status = writer.EndDirectWrite(stream, table);
        }
    }
    return status;
}

HRESULT WriteFile(Scene& scene, const ConvertSettings& settings, const std::string& outputName, Reporter& reporter,
                  EarlyBuilds* early)
{
    VernWriter writer;
    writer.SetFileType(FileTypeVern3D);
    HRESULT status = writer.Open(outputName.c_str(), true);
    if (Succeeded(status))
        status = writer.BeginFile();
    if (Succeeded(status)) {
        // Mesh outputs are built ahead of the writing, within a window of faces (their memory).
        constexpr uint64_t kFacesAhead = 1 << 20;
        const std::vector<uint8_t> setKinds = TextureSetKinds(scene.textureSets);
        std::vector<MeshBuild> builds = PlanMeshBuilds(scene, setKinds, settings, early);
        OrderedWork work(
            builds.size(), ThreadCount(settings.threads), kFacesAhead,
            [&](size_t i) { return builds[i].made ? 0 : uint64_t{builds[i].node->mesh.faces.size()}; },
            [&](size_t i) {
                if (!builds[i].made)
                    builds[i].node->BuildOutput(builds[i], settings);
            });
        NodeWriteContext context{writer, scene, settings, reporter, {}, {}, &builds, &work};
        status = scene.root->Write(context, writer.Root());
    }
    if (status == kWriteRefused) {
        writer.Release();
        std::remove(outputName.c_str());
        return status;
    }
    if (Succeeded(status))
        status = WriteTextureTable(writer, scene);
    // Only Close puts the file in place; the writer abandons a file that is not closed.
    if (Succeeded(status) && !(settings.batch && reporter.HasError()))
        status = writer.Close();
    return status;
}

}  // namespace

HRESULT WriteScene(Scene& scene, const ConvertSettings& settings, const std::string& outputName, Reporter& reporter,
                   EarlyBuilds* early)
{
    const HRESULT status = WriteFile(scene, settings, outputName, reporter, early);
    if (Failed(status) && status != kWriteRefused)
        reporter.Error(scene.endLine, kMessageWriteFailed, outputName);
    // Warnings of the writing that repeat (meshes welded within a smaller tolerance) are counted
    // as those of the reading are.
    reporter.SayRepeats(kMessageMoreOfTheSame, RepeatWords);
    return status;
}
