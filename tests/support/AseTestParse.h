// Runs the ASE reader on a text and keeps what a test looks at.
#pragma once

#include "AseParser.h"
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace asetest {

struct Parsed {
    std::unique_ptr<testfiles::ScratchDirectory> directory = std::make_unique<testfiles::ScratchDirectory>();
    std::unique_ptr<AseParser> reader = std::make_unique<AseParser>();
    std::string source;  // the input file's path
    std::string output;  // the output file's path
    std::string printed;
    HRESULT status = S_OK;

    bool Failed() const { return reader->HasError(); }
    const std::string& ErrorText() const { return reader->ErrorText(); }
    BaseNode* Root() const { return reader->Root(); }
    // The prefix of this file's reports on `line`.
    std::string At(int line, const char* kind = "warning") const
    {
        return source + "(" + std::to_string(line) + ") " + kind + ": ";
    }
};

// Writes `text` as an ASE file into a fresh directory and converts it there.
inline Parsed ParseAse(const std::string& text, const ConvertSettings& settings = {})
{
    Parsed parsed;
    parsed.source = parsed.directory->Write("scene.ase", text);
    parsed.output = parsed.directory->Path() + "/scene.vern3D";
    parsed.reader->settings = settings;
    testing::internal::CaptureStdout();
    parsed.status = parsed.reader->ParseFile(parsed.source, parsed.output);
    parsed.printed = testing::internal::GetCapturedStdout();
    return parsed;
}

inline std::vector<std::string> ChildNames(const BaseNode* node)
{
    std::vector<std::string> names;
    for (const auto& child : node->Children())
        names.push_back(child->name);
    return names;
}

}  // namespace asetest
