// The finishing step of a read file: selection, name directives, preparation and the vern3D file.
#include "AseParser.h"
#include "LittleEndian.h"
#include "Messages.h"
#include "NodeWriter.h"
#include "VernWriter.h"

#include <cstdio>

void AseParser::Finish()
{
    if (settings.compat && !errorFlag) {
        LinkLaterParents();
        GiveDefaultMaterials();
    }
    if (settings.compat)
        ReportRepeats();
    if (!settings.objectNames.empty())
        root->SelectObjects(settings.objectNames);
    root->ApplyNameDirectives(*this);
    if (!errorFlag)
        CheckMeshes();
    // The text is not needed once it has been read; the render meshes need the room.
    text.reset();
    if (!errorFlag && writeOutput) {
        const HRESULT status = WriteSceneFile();
        writeFailed = Failed(status);
        if (writeFailed && status != kWriteRefused)
            Error(kMessageWriteFailed, outputName.c_str());
    }
    // Warnings of the writing (meshes welded within a smaller tolerance) are counted the same way.
    if (settings.compat)
        ReportRepeats();
    BaseParser::Finish();
}

void AseParser::CheckMeshes()
{
    std::vector<BaseNode*> pending{root.get()};
    while (!pending.empty() && !errorFlag) {
        BaseNode* node = pending.back();
        pending.pop_back();
        if (auto* meshNode = dynamic_cast<MeshNode*>(node); meshNode && !meshNode->CheckBeforeWrite(*this))
            return;
        for (auto child = node->Children().rbegin(); child != node->Children().rend(); ++child)
            pending.push_back(child->get());
    }
}

void AseParser::DiscardOutput(VernWriter& writer)
{
    writer.Release();
    std::remove(outputName.c_str());
}

HRESULT AseParser::WriteSceneFile()
{
    root->Prepare();

    VernWriter writer;
    writer.SetFileType(FileTypeVern3D);
    HRESULT status = writer.Open(outputName.c_str(), true);
    if (Succeeded(status))
        status = writer.BeginFile();
    if (Succeeded(status))
        status = root->Write(writer, *this, writer.Root());
    if (status == kWriteRefused) {
        DiscardOutput(writer);
        return status;
    }

    // The texture table: the number of sets, then per set its entry count and each entry's
    // flags and bitmap name. After a failure nothing more is written.
    VernChunk* table = nullptr;
    if (Succeeded(status))
        status = writer.CreateChunk(&table, vern3d::kChunkTextureTable, writer.Root());
    LittleEndianBuffer record;
    auto writeValue = [&](uint32_t value) {
        if (Failed(status))
            return;
        record.Clear();
        record.Append(vern3d::ValueRecord{vern3d::kValueRecordSize, 0, value});
        status = writer.WriteData(record.Data(), record.Size(), table);
    };
    writeValue(static_cast<uint32_t>(textureSets.size()));
    for (const auto& set : textureSets) {
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
    // Only Close puts the file in place. An error reported while writing (an object without
    // material) still gives the whole file, as the rules say, except under -batch, where an input
    // that failed leaves no new output: the writer then abandons it, as it does after a failure.
    if (Succeeded(status) && !(settings.batch && errorFlag))
        status = writer.Close();
    return status;
}
