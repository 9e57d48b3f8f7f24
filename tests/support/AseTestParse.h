// Converts an ASE text as the program does and keeps what a test looks at.
#pragma once

#include "ConversionDriver.h"
#include "ConvertSettings.h"
#include "Parser/Reporter.h"
#include "Scene/Scene.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace asetest {

struct Parsed {
    std::unique_ptr<testfiles::ScratchDirectory> directory = std::make_unique<testfiles::ScratchDirectory>();
    Reporter reporter;
    Scene scene;         // as read, and as the later stages left it
    std::string source;  // the input file's path
    std::string output;  // the output file's path
    std::string printed;
    Conversion outcome = Conversion::Converted;

    bool Failed() const { return reporter.HasError(); }
    const std::string& ErrorText() const { return reporter.ErrorText(); }
    BaseNode* Root() const { return scene.root.get(); }
    // The prefix of this file's reports on `line`.
    std::string At(int line, const char* kind = "warning") const
    {
        return source + "(" + std::to_string(line) + ") " + kind + ": ";
    }
};

// Writes `text` as an ASE file into a fresh directory and converts it there; unless `keepLists` is
// false, the mesh nodes keep their lists (which also keeps the writing on one thread).
inline Parsed ParseAse(const std::string& text, ConvertSettings settings = {}, bool keepLists = true)
{
    Parsed parsed;
    parsed.source = parsed.directory->Write("scene.ase", text);
    parsed.output = parsed.directory->Path() + "/scene.vern3D";
    settings.keepMeshLists = keepLists;
    testing::internal::CaptureStdout();
    parsed.outcome = ConvertFile(parsed.source, parsed.output, settings, parsed.reporter, parsed.scene);
    parsed.printed = testing::internal::GetCapturedStdout();
    return parsed;
}

// A scene block of 30 frames a second and 160 ticks a frame: 4,800 ticks are one second.
inline const std::string kScene = "*SCENE {\n*SCENE_FRAMESPEED 30\n*SCENE_TICKSPERFRAME 160\n}\n";

// The `index`th child of the root, as the node type the test expects.
template <class Node>
const Node& Child(const Parsed& parsed, size_t index = 0)
{
    return static_cast<const Node&>(*parsed.Root()->Children().at(index));
}

// A new node of type `Node` named `name`, added as the last child of `parent`.
template <class Node = TransformNode>
Node& AddNode(BaseNode& parent, const std::string& name)
{
    auto owned = std::make_unique<Node>(name);
    Node& node = *owned;
    parent.AddChild(std::move(owned));
    return node;
}

inline std::vector<std::string> ChildNames(const BaseNode* node)
{
    std::vector<std::string> names;
    for (const auto& child : node->Children())
        names.push_back(child->name);
    return names;
}

}  // namespace asetest
