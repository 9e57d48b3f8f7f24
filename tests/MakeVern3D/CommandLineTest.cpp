#include "CommandLine.h"
#include "FilePath.h"
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

struct Tokens {
    std::vector<std::pair<CommandLineTokens::Kind, std::string>> list;
};

Tokens Tokenize(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "MakeVern3D");
    CommandLineTokens tokens(static_cast<int>(arguments.size()), arguments.data());
    Tokens result;
    std::string token;
    for (auto kind = tokens.Next(token); kind != CommandLineTokens::TokenEnd; kind = tokens.Next(token))
        result.list.emplace_back(kind, token);
    return result;
}

constexpr auto Arg = CommandLineTokens::TokenArgument;
constexpr auto Opt = CommandLineTokens::TokenOption;

TEST(CommandLineTokens, JoinsArgumentsAndSplitsOnlyOptions)
{
    struct Case {
        std::vector<const char*> arguments;
        std::vector<std::pair<CommandLineTokens::Kind, std::string>> expected;
    };
    const Case cases[] = {
        {{"a.ase", "my scene.ase"}, {{Arg, "a.ase"}, {Arg, "my scene.ase"}}},
        {{"-o out"}, {{Opt, "o"}, {Arg, "out"}}},
        {{"/o", "x"}, {{Opt, "o"}, {Arg, "x"}}},
        {{"-obj a b", "-map", "x.ase"}, {{Opt, "obj"}, {Arg, "a"}, {Arg, "b"}, {Opt, "map"}, {Arg, "x.ase"}}},
        // An argument holding a double quote ends there; the rest becomes a token of its own.
        {{"a\"b"}, {{Arg, "a"}, {Arg, "b\""}}},
        {{"-"}, {{Opt, ""}}},
        {{""}, {{Arg, ""}}},
    };
    for (const Case& test : cases) {
        const Tokens tokens = Tokenize(test.arguments);
        EXPECT_EQ(tokens.list, test.expected) << "first argument: " << test.arguments[0];
    }
}

TEST(CommandLineTokens, EndKeepsThePreviousText)
{
    const char* argv[] = {"MakeVern3D", "x"};
    CommandLineTokens tokens(2, argv);
    std::string token;
    EXPECT_EQ(tokens.Next(token), Arg);
    EXPECT_EQ(tokens.Next(token), CommandLineTokens::TokenEnd);
    EXPECT_EQ(token, "x");
    EXPECT_EQ(CommandLineTokens(1, argv).Line(), "");
}

struct Parsed {
    CommandLineResult result;
    ConvertSettings settings;
    CommandLine line;
    std::string printed;
};

Parsed Parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "MakeVern3D");
    Parsed parsed;
    testing::internal::CaptureStdout();
    parsed.result = ReadCommandLine(static_cast<int>(arguments.size()), arguments.data(), parsed.settings, parsed.line);
    parsed.printed = testing::internal::GetCapturedStdout();
    return parsed;
}

TEST(ReadCommandLine, OptionsFillTheSettings)
{
    const Parsed parsed = Parse({"-obj", "a", "b", "-map", "x.ase", "-mat", "-mam", "-ivertex", "-overtex",
                                 "-ma", "ops.txt", "-analyse", "3rd", "-o", "first", "/o", "second"});
    ASSERT_EQ(parsed.result, CommandLineResult::Ok);
    EXPECT_EQ(parsed.settings.objectNames, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(parsed.settings.meshAnimFlags, 1u | 16u | 8u);
    EXPECT_EQ(parsed.line.inputFiles, (std::vector<std::string>{"x.ase"}));
    EXPECT_TRUE(parsed.settings.ivertex);
    EXPECT_TRUE(parsed.settings.overtex);
    EXPECT_EQ(parsed.settings.meshOpsFile, "ops.txt");
    EXPECT_EQ(parsed.settings.analyse, 3);
    EXPECT_EQ(parsed.line.outputName, "second");  // a later -o replaces an earlier one
}

TEST(ReadCommandLine, WordsAreComparedExactlyAndOnlyAsOptions)
{
    const Parsed parsed = Parse({"-map", "mat", "-O", "-obj", "x", "-obj", "y"});
    EXPECT_EQ(parsed.settings.meshAnimFlags, 1u);
    EXPECT_EQ(parsed.line.inputFiles, (std::vector<std::string>{"mat"}));
    EXPECT_EQ(parsed.line.outputName, "");
    EXPECT_EQ(parsed.settings.objectNames, (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(parsed.printed, "Unknown option '-O' is ignored.\n");
}

TEST(ReadCommandLine, AnalyseTakesTheLeadingNumber)
{
    EXPECT_EQ(Parse({"-analyse", "x"}).settings.analyse, 0);
    EXPECT_EQ(Parse({"-analyse", "-7"}).result, CommandLineResult::MissingValue);  // "-7" is an option
    EXPECT_EQ(Parse({"-analyse", " 12abc"}).settings.analyse, 12);
}

TEST(ReadCommandLine, MissingValuesStopTheRun)
{
    for (const auto& arguments : std::vector<std::vector<const char*>>{
             {"a.ase", "-o"}, {"-o", "-x"}, {"-ma"}, {"-analyse", "/h"}, {"-o -map"}}) {
        EXPECT_EQ(Parse(arguments).result, CommandLineResult::MissingValue) << arguments.back();
    }
}

TEST(ReadCommandLine, HelpIsPrintedWhereItStands)
{
    const std::string help = testfiles::ReadText(MAKEVERN3D_TEST_DATA "/help_text.txt");
    const Parsed twice = Parse({"-h", "a.ase", "-?"});
    EXPECT_EQ(twice.printed, help + help);
    EXPECT_EQ(twice.line.inputFiles, (std::vector<std::string>{"a.ase"}));
}

TEST(OutputFileName, CutsAtTheLastDotOfTheWholePath)
{
    EXPECT_EQ(OutputFileName("scene.ase", ""), "scene.vern3D");
    EXPECT_EQ(OutputFileName("scene", ""), "scene.vern3D");
    EXPECT_EQ(OutputFileName("scene.ase", "out.bin"), "out.vern3D");
    EXPECT_EQ(OutputFileName("scene.ase", "out"), "out.vern3D");
    EXPECT_EQ(OutputFileName("my.dir\\scene", ""), "my.vern3D");
    EXPECT_EQ(OutputFileName("dir/sub.x/scene", ""), "dir/sub.vern3D");
}

TEST(FilePath, SplitsAtBackslashAndDot)
{
    struct Case {
        const char* path;
        const char* withoutExtension;
        const char* fileName;
    };
    const Case cases[] = {
        {"scene.ase", "scene", "scene.ase"},
        {"maps\\wood.tga", "maps\\wood", "wood.tga"},
        {"my.dir\\scene", "my", "scene"},
        {"archive.tar.gz", "archive.tar", "archive.tar.gz"},
        {"dir\\", "dir\\", ""},
        {"plain", "plain", "plain"},
        {".hidden", "", ".hidden"},
        {"a/b/c.tga", "a/b/c", "a/b/c.tga"},
        {"", "", ""},
    };
    for (const Case& test : cases) {
        FilePath path(test.path);
        EXPECT_EQ(path.GetWithoutExtension(), test.withoutExtension) << test.path;
        EXPECT_EQ(path.GetFileName(), test.fileName) << test.path;
    }
}

TEST(FilePath, SettingANewPathForgetsTheOldCutPoints)
{
    FilePath path("a.b\\c");
    EXPECT_EQ(path.GetFileName(), "c");
    path.Set("xyz");
    EXPECT_EQ(path.GetFileName(), "xyz");
    EXPECT_EQ(path.GetWithoutExtension(), "xyz");
}

}  // namespace
