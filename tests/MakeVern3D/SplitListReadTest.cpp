// Mesh lists read in parts on 1, 2 and 8 threads give what the block readers give alone: the same
// scene, the same output bytes, the same console text and errors in the same order, wherever the
// first line that is not plain stands in a list (in a late part too) and however large the file
// (a mapped file's parts are given back to the system before a late line sends the list back).
#include "Ase/AseParser.h"
#include "support/AseTestParse.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

// Settings are given by designated initializers: the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

// A mesh of n vertices and faces with every list, and a symbol after them that is reported with
// the line counted past the lists. The record `at` of list `list` (V, F, TV, TF, N) is `edit`.
struct Edit {
    std::string list;
    int at = -1;
    std::string text;
};

std::string SceneText(int n, const Edit& edit)
{
    std::string text = "*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n"
                       "*MATERIAL_LIST {\n*MATERIAL 0 {\n}\n}\n*GEOMOBJECT {\n*NODE_NAME \"grid\"\n*MATERIAL_REF 0\n"
                       "*MESH {\n*MESH_NUMVERTEX " + std::to_string(n) + "\n";
    const auto list = [&](const std::string& name, const char* open, auto record) {
        text += std::string(open) + " {\n";
        for (int i = 0; i < n; ++i)
            text += name == edit.list && i == edit.at ? edit.text : record(std::to_string(i));
        text += "\t}\n";
    };
    list("V", "*MESH_VERTEX_LIST", [](const std::string& i) { return "\t*MESH_VERTEX " + i + "\t" + i + ".5\t-0.25\t1e1\n"; });
    list("F", "*MESH_FACE_LIST", [&](const std::string& i) {
        return "*MESH_FACE " + i + ": A: " + i + " B: " + std::to_string((std::stoi(i) + 1) % n) +
               " C: 0 AB: 1 BC: 1 CA: 0 *MESH_SMOOTHING 1,2 *MESH_MTLID 0\n";
    });
    list("TV", "*MESH_TVERTLIST", [](const std::string& i) { return "*MESH_TVERT " + i + " 0.125 0." + i + " 0\r\n"; });
    list("TF", "*MESH_TFACELIST", [](const std::string& i) { return "*MESH_TFACE " + i + " " + i + " 0 1\n"; });
    list("N", "*MESH_NORMALS", [](const std::string& i) {
        std::string record = "*MESH_FACENORMAL " + i + " 0 0 1\n";
        for (int corner = 0; corner < 3; ++corner)
            record += "  *MESH_VERTEXNORMAL " + i + " 0.5 -0 " + std::to_string(corner) + "\n";
        return record;
    });
    return text + "*AFTER_THE_LISTS\n}\n}\n";
}

// Every mesh list of the scene, byte for byte.
std::string Lists(const BaseNode& node)
{
    std::string bytes;
    const auto add = [&](const auto& list) {
        bytes.append(reinterpret_cast<const char*>(list.data()), list.size() * sizeof(list[0])).push_back('|');
    };
    if (const auto* mesh = dynamic_cast<const MeshNode*>(&node))
        add(mesh->mesh.vertices), add(mesh->mesh.faces), add(mesh->mesh.texVertices), add(mesh->mesh.texFaces),
            add(mesh->mesh.normals);
    for (const auto& child : node.Children())
        bytes += Lists(*child);
    return bytes;
}

// A conversion of the folder's scene.ase: what it shows, the lists it read, the bytes it wrote.
struct Converted {
    std::string shown;
    std::string lists;
    std::vector<unsigned char> bytes;
};

Converted Convert(const testfiles::ScratchDirectory& folder, const ConvertSettings& settings)
{
    const std::string output = folder.File("scene.vern3D");
    std::remove(output.c_str());
    Reporter reporter;
    Scene scene;
    testing::internal::CaptureStdout();
    const auto outcome = static_cast<int>(ConvertFile(folder.File("scene.ase"), output, settings, reporter, scene));
    return {testing::internal::GetCapturedStdout() + "#" + reporter.ErrorText() + "#" + std::to_string(outcome), Lists(*scene.root),
            testfiles::Exists(output) ? testfiles::ReadBytes(output) : std::vector<unsigned char>{}};
}

TEST(SplitListReading, AgreesWithTheBlockReadersOnEveryThreadCount)
{
    const std::string face = " A: 1 B: 2 C: 3 AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING 1 *MESH_MTLID 0\n";
    struct Case {
        Edit edit;
        bool compat;
        const char* shown;  // what the block readers report first, in part (empty: anything)
        int line = -1;      // its line, counted from the edit's first line (-1: not checked)
        int n = 40;
    };
    const Case cases[] = {
        {{}, false, ""},
        {{}, true, ""},
        {{}, false, "", -1, 16000},  // a mapped file
        // The first error in the second half of a split list.
        {{"V", 30, "*MESH_VERTEX 30 1.0 x 2.0\n"}, false, "error: Symbol 'x' could not scanned.", 0},
        {{"V", 15000, "*MESH_VERTEX 15000 1.0 x 2.0\n"}, false, "error: Symbol 'x' could not scanned.", 0, 16000},
        {{"N", 35, "*MESH_FACENORMAL 35 0 0 1\n*MESH_VERTEXNORMAL 35 0 0 1\n"}, false, "error: Aspected symbol", 2},
        {{"F", 38, "*MESH_FACE 38: A: 1 B: 2 C: 3 AB: 1 BC: 1 CA: 1 *MESH_SMOOTHING 1\n"}, false, "error: Aspected", 1},
        {{"V", 33, "*MESH_VERTEX 99999999 0 0 0\n"}, false, "error: Vertex or face number", 0},
        // A second vertex list over the first, failing after entries it set.
        {{"TF", 39, "*MESH_TFACE 39 39 0 1\n}\n*MESH_VERTEX_LIST {\n*MESH_VERTEX 0 9 9 9\n*MESH_VERTEX 1 8 8 8\n"
                    "*MESH_VERTEX 2 8 x 8\n*MESH_VERTEX 3 7 7 7\n*MESH_VERTEX 4 6 6 6\n*MESH_VERTEX 5 6 6 6\n"},
         false, "error: Symbol 'x'", 5},
        // Warnings in a later part; the list goes on after them.
        {{"F", 31, "*MESH_FACE 31:" + face + "*MESH_UNKNOWN\n"}, false, "warning: Do not know what symbol", 1},
        {{"TV", 36, "*MESH_TVERT 36 0.5 0.5 1.#QNAN\n"}, true, "warning:", 4},
        {{"N", 37, "*MESH_FACENORMAL 37 0 0 1\n"}, true, "warning: Face normals come without", 0},
        {{"F", 30, "*MESH_FACE 30: A: 1 B: 2 C: 3 *MESH_SMOOTHING 1 *MESH_MTLID 0\n"}, true, "warning: Faces come", 0},
        // Not plain, read without a report: out of order, twice, across lines, a block, "}" on a line.
        {{"F", 32, "*MESH_FACE 45:" + face}, false, ""},
        {{"TV", 25, "*MESH_TVERT 7 0.5 0.5 0\n"}, false, ""},
        {{"V", 20, "*MESH_VERTEX 3 7 7 7\n"}, false, ""},
        {{"TF", 34, "*MESH_TFACE 34 1\n 2 3\n"}, false, ""},
        {{"V", 25, "*MESH_VERTEX 25 1 1 1 { nested }\n"}, false, ""},
        {{"TF", 39, "*MESH_TFACE 39 1 2 3 }\n"}, false, ""},
        {{"TV", 29, "*MESH_TVERT 29 0x1p-2 1e-3 \"0\"\n"}, false, ""},
    };
    for (const Case& c : cases) {
        const testfiles::ScratchDirectory folder;
        const std::string text = SceneText(c.n, c.edit);
        folder.Write("scene.ase", text);
        ConvertSettings settings{.compat = c.compat, .threads = 1, .listPartBytes = AseParser::kBlockReadersOnly};
        const Converted reference = Convert(folder, settings);
        EXPECT_NE(reference.shown.find(c.shown), std::string::npos) << reference.shown;
        if (!std::string_view(c.shown).starts_with("error")) {  // reported after the lines were counted
            EXPECT_NE(reference.shown.find("'*AFTER_THE_LISTS'"), std::string::npos) << reference.shown;
        }
        if (c.line >= 0) {
            const auto line = 1 + c.line + std::count(text.begin(), text.begin() + text.find(c.edit.text), '\n');
            EXPECT_NE(reference.shown.find("scene.ase(" + std::to_string(line) + ") " + c.shown), std::string::npos)
                << reference.shown;
        }
        for (const uint32_t threads : {1u, 2u, 8u}) {
            settings.threads = threads;
            settings.listPartBytes = 64;
            const Converted split = Convert(folder, settings);
            SCOPED_TRACE(c.edit.text + " on " + std::to_string(threads) + " threads");
            EXPECT_EQ(split.shown, reference.shown);
            EXPECT_EQ(split.lists, reference.lists);
            EXPECT_EQ(split.bytes, reference.bytes);
        }
    }
}

}  // namespace
