#include "CommandLine.h"
#include "FilePath.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using Strings = std::vector<std::string>;
using Token = std::pair<CommandLineTokens::Kind, std::string>;
constexpr auto Arg = CommandLineTokens::TokenArgument;
constexpr auto Opt = CommandLineTokens::TokenOption;

TEST(CommandLineTokens, JoinsArgumentsAndSplitsOnlyOptions)
{
    const std::pair<std::vector<const char*>, std::vector<Token>> cases[] = {
        {{"a.ase", "my scene.ase"}, {{Arg, "a.ase"}, {Arg, "my scene.ase"}}},
        {{"-o out"}, {{Opt, "o"}, {Arg, "out"}}},
        {{"/o", "x"}, {{Opt, "o"}, {Arg, "x"}}},
        {{"-obj a b", "-map", "x.ase"}, {{Opt, "obj"}, {Arg, "a"}, {Arg, "b"}, {Opt, "map"}, {Arg, "x.ase"}}},
        // An argument holding a double quote ends there; the rest becomes a token of its own.
        {{"a\"b"}, {{Arg, "a"}, {Arg, "b\""}}},
        {{"-"}, {{Opt, ""}}},
        {{""}, {{Arg, ""}}},
    };
    for (auto [arguments, expected] : cases) {
        arguments.insert(arguments.begin(), "MakeVern3D");
        CommandLineTokens tokens(static_cast<int>(arguments.size()), arguments.data());
        std::vector<Token> list;
        std::string token;
        for (auto kind = tokens.Next(token); kind != CommandLineTokens::TokenEnd; kind = tokens.Next(token))
            list.emplace_back(kind, token);
        EXPECT_EQ(list, expected) << "first argument: " << arguments[1];
        EXPECT_EQ(token, expected.back().second);  // the end keeps the previous text
    }
    const char* argv[] = {"MakeVern3D"};
    EXPECT_EQ(CommandLineTokens(1, argv).Line(), "");
}

struct Parsed { CommandLineResult result; ConvertSettings settings; CommandLine line; std::string printed; };

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
                                 "-ma", "ops.txt", "-analyse", "3rd", "-o", "first", "/o", "second", "-vertexdir", "v",
                                 "-depfile", "d"});
    ASSERT_EQ(parsed.result, CommandLineResult::Ok);
    const ConvertSettings& set = parsed.settings;
    // -ivertex clears -overtex; a later -o replaces an earlier one.
    EXPECT_EQ(std::tuple(set.objectNames, set.meshAnimFlags, parsed.line.inputFiles, set.ivertex, set.overtex, set.meshOpsFile,
                         set.analyse, set.vertexFolder, set.dependencyFile, parsed.line.outputName),
              std::tuple(Strings{"a", "b"}, 1u | 16u | 8u, Strings{"x.ase"}, true, false, "ops.txt", 3, "v", "d", "second"));
    EXPECT_TRUE(Parse({"-overtex"}).settings.overtex);

    // Words are compared exactly and only as options; -obj lists add up.
    const Parsed words = Parse({"-map", "mat", "-O", "-obj", "x", "-obj", "y"});
    EXPECT_EQ(std::tuple(words.settings.meshAnimFlags, words.line.inputFiles, words.line.outputName, words.settings.objectNames),
              std::tuple(1u, Strings{"mat"}, "", Strings{"x", "y"}));
    EXPECT_EQ(words.printed, "Unknown option '-O' is ignored.\n");

    // -analyse takes the leading number.
    EXPECT_EQ(Parse({"-analyse", "x"}).settings.analyse, 0);
    EXPECT_EQ(Parse({"-analyse", " 12abc"}).settings.analyse, 12);

    // -weld takes a whole number of 0 or more; anything else is said and the tolerance kept.
    EXPECT_EQ(Parse({"-weld", "0.0025"}).settings.weldTolerance, 0.0025);
    EXPECT_EQ(Parse({"-weld", "0"}).settings.weldTolerance, 0.0);
    for (const char* bad : {"0.1x", "", "inf", "nan"}) {
        const Parsed weld = Parse({"-weld", "0.5", "-weld", bad});
        EXPECT_EQ(weld.settings.weldTolerance, 0.5) << bad;
        EXPECT_EQ(weld.printed, "The weld tolerance '" + std::string(bad) + "' is not a number of 0 or more; 0.5 is kept.\n");
    }

    // -threads takes a whole number from 0 to 256 the same way.
    EXPECT_EQ(Parse({}).settings.threads, 0u);
    EXPECT_EQ(Parse({"-threads", "256"}).settings.threads, 256u);
    for (const char* bad : {"257", "2x", "", "99999999999999999999"}) {
        const Parsed threads = Parse({"-threads", "3", "-threads", bad});
        EXPECT_EQ(threads.settings.threads, 3u) << bad;
        EXPECT_EQ(threads.printed, "The thread count '" + std::string(bad) + "' is not a whole number from 0 to 256; 3 is kept.\n");
    }
}

TEST(ReadCommandLine, MissingValuesStopTheRunAndHelpIsPrintedWhereItStands)
{
    for (const auto& arguments : std::vector<std::vector<const char*>>{
             {"a.ase", "-o"}, {"-o", "-x"}, {"-ma"}, {"-analyse", "/h"}, {"-o -map"}, {"-analyse", "-7"},
             {"-vertexdir"}, {"-weld"}, {"-threads"}, {"-depfile", "-batch"}}) {
        EXPECT_EQ(Parse(arguments).result, CommandLineResult::MissingValue) << arguments.back();
    }
    const std::string help = testfiles::ReadText(MAKEVERN3D_TEST_DATA "/help_text.txt");
    const Parsed twice = Parse({"-h", "a.ase", "-?"});
    EXPECT_EQ(twice.printed, help + help);
    EXPECT_EQ(twice.line.inputFiles, (std::vector<std::string>{"a.ase"}));
}

TEST(OutputFileName, CutsAtTheLastDotOfTheWholePath)
{
    const char* const cases[][3] = {
        {"scene.ase", "", "scene.vern3D"},       {"scene", "", "scene.vern3D"},
        {"scene.ase", "out.bin", "out.vern3D"}, {"scene.ase", "out", "out.vern3D"},
        {"my.dir\\scene", "", "my.vern3D"},     {"dir/sub.x/scene", "", "dir/sub.vern3D"},
    };
    for (const auto& [input, output, expected] : cases)
        EXPECT_EQ(OutputFileName(input, output), expected) << input << " " << output;
}

TEST(FilePath, SplitsAtBackslashAndDot)
{
    const char* const cases[][3] = {  // path, without extension, file name
        {"scene.ase", "scene", "scene.ase"}, {"maps\\wood.tga", "maps\\wood", "wood.tga"}, {"my.dir\\scene", "my", "scene"},
        {"archive.tar.gz", "archive.tar", "archive.tar.gz"}, {"dir\\", "dir\\", ""}, {"plain", "plain", "plain"},
        {".hidden", "", ".hidden"}, {"a/b/c.tga", "a/b/c", "a/b/c.tga"}, {"", "", ""},
    };
    // One object for all: setting a new path forgets the old cut points.
    FilePath path("a.b\\c");
    EXPECT_EQ(path.GetFileName(), "c");
    for (const auto& [text, withoutExtension, fileName] : cases) {
        path.Set(text);
        EXPECT_EQ(path.GetWithoutExtension(), withoutExtension) << text;
        EXPECT_EQ(path.GetFileName(), fileName) << text;
        EXPECT_EQ(FilePath(text).GetFileName(), fileName) << text;
    }
}

}  // namespace
