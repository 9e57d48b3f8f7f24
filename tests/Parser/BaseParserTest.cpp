#include "Parser/BaseParser.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

namespace {

using testfiles::ScratchDirectory;

// Records the symbols that reach the top level instead of warning about them, and the blocks
// that the end of the text closes; `lenient` switches on the leniencies for other writers.
class RecordingParser : public BaseParser {
public:
    explicit RecordingParser(Reporter& reporter, bool lenient = false) : BaseParser(reporter)
    {
        closeBlocksAtEnd = lenient;
        joinNanPayloads = lenient;
    }
    void HandleSymbol(std::string& symbol) override
    {
        handled.push_back(symbol);
        lines.push_back(Line());
    }
    void BlocksClosedAtEnd(int32_t outermostLine) override { closedAt.push_back(outermostLine); }
    std::vector<std::string> handled;
    std::vector<int> lines;
    std::vector<int> closedAt;
};

// All symbols of a text, up to and including the end-of-data symbol or the first failure.
struct Scan { std::vector<std::string> symbols; std::vector<int> lines; bool failed = false; std::string errorText; };

Scan ScanText(const std::string& contents, bool lenient = false)
{
    ScratchDirectory directory;
    const std::string file = directory.Write("t.ase", contents);
    Reporter reporter;
    RecordingParser parser(reporter, lenient);
    Scan scan;
    if (Failed(parser.Load(file)))
        return scan;
    std::string symbol;
    for (int guard = 0; guard < 1000; ++guard) {
        if (!parser.NextSymbol(symbol)) {
            scan.failed = true;
            scan.errorText = reporter.ErrorText();
            break;
        }
        scan.symbols.push_back(symbol);
        scan.lines.push_back(parser.Line());
        if (symbol == BaseParser::kEndOfData)
            break;
    }
    return scan;
}

const std::string kEnd = BaseParser::kEndOfData;

TEST(SymbolScanner, CutsWordsStringsAndBraces)
{
    struct Case {
        std::string text;
        std::vector<std::string> symbols;
        std::string error = "";  // the end of the error text, if reading fails
        std::vector<int> lines = {};  // if given: the line after each symbol
    };
    const std::string fits(BaseParser::kMaxSymbolLength, 'w');
    const Case cases[] = {
        {"", {kEnd}}, {"}", {"}", kEnd}}, {"abc{d}\n", {"abc", "{", "d", "}", kEnd}}, {"\t\r\n *KEY\r\n", {"*KEY", kEnd}},
        {"\"a b\" \"{\" \"\"\n", {"a b", "{", "", kEnd}}, {"\"two\nlines\" x\n", {"two\nlines", "x", kEnd}},
        {"a(b)c\"d\" ", {"a", "(", "b", ")", "c", "d", kEnd}},
        // A word at the end of a line still counts on its line; the quoted string ends on line 3.
        {"a\nb \"c\nd\"\n\n\n\n\ne\n", {"a", "b", "c\nd", "e", kEnd}, "", {1, 2, 3, 8, 9}},
        // A zero byte where a symbol starts ends the data.
        {std::string("a \0 b\n", 6), {"a", kEnd}},
        // Inside a word it is kept, and the symbol ends at it.
        {std::string("ab\0cd e\n", 8), {"ab", "e", kEnd}},
        // A quoted text that reads "baseparser file end" is the end-of-data symbol to callers.
        {"\"baseparser file end\" more\n", {kEnd}},
        // Bytes above 127 are word characters.
        {"\xc3\xa9t\xc3\xa9 x\n", {"\xc3\xa9t\xc3\xa9", "x", kEnd}},
        // A word or quoted string that runs into the end of the text is not returned.
        {"word", {}, ") error: Could not read next char.\n"},
        {"x \"open", {"x"}, ") error: Could not read next char.\n"},
        // Symbols have a length limit, quoted or not.
        {fits + "\n", {fits, kEnd}},
        {"\n" + fits + "w\n", {}, "(2) error: Symbol is longer than 4095 characters.\n"},
        {"\"" + fits + "q\"\n", {}, ") error: Symbol is longer than 4095 characters.\n"},
    };
    for (const Case& test : cases) {
        const Scan scan = ScanText(test.text);
        EXPECT_EQ(scan.symbols, test.symbols) << test.text;
        EXPECT_EQ(scan.failed, !test.error.empty()) << test.text;
        EXPECT_TRUE(scan.errorText.ends_with(test.error)) << scan.errorText;
        if (!test.lines.empty()) {
            EXPECT_EQ(scan.lines, test.lines) << test.text;
        }
    }
}

// C runtimes print not-a-number as "-nan(ind)"; leniently that is one word, and only that.
TEST(SymbolScanner, NanPayloadsJoinTheirWordWhenLenient)
{
    const std::string text = "-nan(ind) NAN(IND) +nan(0x1_f) xnan(ind) nan(i d) nan() nan(\n";
    EXPECT_EQ(ScanText(text).symbols,
              (std::vector<std::string>{"-nan", "(", "ind", ")", "NAN", "(", "IND", ")", "+nan", "(", "0x1_f", ")", "xnan",
                                        "(", "ind", ")", "nan", "(", "i", "d", ")", "nan", "(", ")", "nan", "(", kEnd}));
    EXPECT_EQ(ScanText(text, true).symbols,
              (std::vector<std::string>{"-nan(ind)", "NAN(IND)", "+nan(0x1_f)", "xnan", "(", "ind", ")", "nan", "(", "i",
                                        "d", ")", "nan()", "nan", "(", kEnd}));
}

// Characters one by one: the terminating zero is one, and reading past it is an error that sticks.
TEST(SymbolScanner, ReadCharUngetCharAndReadingPastTheEnd)
{
    ScratchDirectory directory;
    Reporter reporter;
    BaseParser parser(reporter);
    ASSERT_EQ(parser.Load(directory.Write("t.ase", "x\ny")), S_OK);
    EXPECT_EQ(parser.ReadChar(), 'x');
    EXPECT_EQ(parser.Column(), 2);
    EXPECT_EQ(parser.ReadChar(), '\n');
    EXPECT_EQ(std::pair(parser.Line(), parser.Column()), std::pair(2, 1));
    parser.UngetChar();
    EXPECT_EQ(parser.Line(), 1);
    EXPECT_EQ(parser.ReadChar(), '\n');
    EXPECT_EQ(parser.ReadChar(), 'y');
    EXPECT_EQ(parser.ReadChar(), '\0');
    EXPECT_FALSE(parser.HasError());
    EXPECT_EQ(parser.ReadChar(), '\0');
    EXPECT_TRUE(parser.HasError());

    Reporter symbols;
    BaseParser next(symbols);
    ASSERT_EQ(next.Load(directory.Write("u.ase", "a\n")), S_OK);
    std::string symbol;
    EXPECT_TRUE(next.NextSymbol(symbol));
    EXPECT_TRUE(next.NextSymbol(symbol));
    EXPECT_EQ(symbol, kEnd);
    EXPECT_FALSE(next.NextSymbol(symbol));
    EXPECT_EQ(symbol, kEnd);  // the symbol keeps its text
    EXPECT_EQ(symbols.ErrorText(), directory.Path() + "/u.ase(2) error: Could not read next char.\n");
    EXPECT_FALSE(next.NextSymbol(symbol));
}

TEST(ParseLoop, SkipsBlocksAndHandsOnOtherSymbols)
{
    ScratchDirectory directory;
    Reporter reporter;
    RecordingParser parser(reporter);
    EXPECT_EQ(parser.ParseFile(directory.Write("t.ase", "{a{b}d}\nfoo\n12\n}\n")), S_OK);
    EXPECT_EQ(parser.handled, (std::vector<std::string>{"foo", "12", "}"}));
    EXPECT_EQ(parser.lines, (std::vector<int>{2, 3, 4}));
    // An open block at the end fails the file; leniently the end closes it, said once with the
    // line where the outermost open block began. A zero byte inside the text ends nothing.
    const std::string open = directory.Write("u.ase", "x\n{ a {\nb }\n{ c\n");
    EXPECT_EQ(parser.ParseFile(open), E_FAIL);
    EXPECT_NE(reporter.ErrorText().find("(5) error: Could not read next char.\n"), std::string::npos);
    RecordingParser lenient(reporter, true);
    EXPECT_EQ(lenient.ParseFile(open), S_OK);
    EXPECT_EQ(lenient.handled, (std::vector<std::string>{"x"}));
    EXPECT_EQ(lenient.closedAt, (std::vector<int>{2}));
    RecordingParser zero(reporter, true);
    EXPECT_EQ(zero.ParseFile(directory.Write("v.ase", std::string("{\n\0\n}\ny\n", 8))), S_OK);
    EXPECT_EQ(zero.handled, (std::vector<std::string>{"y"}));
    EXPECT_TRUE(zero.closedAt.empty());

    // Blocks are skipped with a counter, not by recursion: any depth.
    RecordingParser deep(reporter);
    const std::string nested = std::string(1000000, '{') + std::string(1000000, '}') + "\nafter\n";
    EXPECT_EQ(deep.ParseFile(directory.Write("d.ase", nested)), S_OK);
    EXPECT_EQ(deep.handled, (std::vector<std::string>{"after"}));
    const std::string unbalanced = directory.Write("e.ase", "\n" + std::string(1000000, '{'));
    EXPECT_EQ(RecordingParser(reporter).ParseFile(unbalanced), E_FAIL);
    RecordingParser closed(reporter, true);
    EXPECT_EQ(closed.ParseFile(unbalanced), S_OK);
    EXPECT_EQ(closed.closedAt, (std::vector<int>{2}));
}

TEST(ParseFile, MissingAndUnreadableFiles)
{
    ScratchDirectory directory;
    Reporter reporter;
    BaseParser parser(reporter);
    EXPECT_EQ(static_cast<uint32_t>(parser.ParseFile("no-such-file.ase")), 0x80070002u);
    EXPECT_TRUE(reporter.HasError());
    EXPECT_EQ(reporter.ErrorText(), "no-such-file.ase(1) error: Could not open file 'no-such-file.ase'.\n");

    EXPECT_TRUE(Failed(parser.ParseFile(directory.Path())));
    EXPECT_EQ(reporter.ErrorText(), directory.Path() + "(1) error: Could not read from file '" + directory.Path() + "'.\n");

    // The same parser reads the next file with a clear state.
    EXPECT_EQ(parser.ParseFile(directory.Write("good.ase", "{ }\n")), S_OK);
    EXPECT_FALSE(reporter.HasError());
    EXPECT_EQ(parser.Line(), 2);
}

// Reports name the file and the line the caller gives; texts are never used as formats; the last
// error is kept; a quiet reporter prints nothing and still counts errors.
TEST(Diagnostics, ReportsShowFileLineAndText)
{
    ScratchDirectory directory;
    Reporter reporter;
    BaseParser parser(reporter);
    const std::string file = directory.Write("100%s.ase", "foo\n%d%n\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(parser.ParseFile(file), S_OK);
    reporter.Warning(7, kMessageUnknownSymbol, "%s");
    reporter.Progress(kMessageSymbolTooLong, -5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), file + "(1) warning: Do not know what symbol 'foo' means.\n" +
                                                          file + "(2) warning: Do not know what symbol '%d%n' means.\n" +
                                                          file + "(7) warning: Do not know what symbol '%s' means.\n" +
                                                          "Symbol is longer than -5 characters.\n");
    EXPECT_FALSE(reporter.HasError());
    reporter.Error(9, kMessageExpectedSymbol, "%s%s%s", std::string("a\0b", 3));
    EXPECT_EQ(reporter.ErrorText(), file + "(9) error: Aspected symbol '%s%s%s' but found symbol 'a'.\n");
    reporter.Error(3, kMessageMissingSymbol, "SECOND");
    EXPECT_EQ(reporter.ErrorText(), file + "(3) error: Missing symbol 'SECOND'.\n");

    Reporter quiet(true);
    quiet.BeginFile(file);
    testing::internal::CaptureStdout();
    quiet.Warning(1, kMessageUnknownSymbol, "x");
    quiet.Progress(kMessageCouldNotReadChar);
    quiet.Error(2, kMessageCouldNotReadChar);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(quiet.HasError());
    EXPECT_EQ(quiet.ErrorText(), file + "(2) error: Could not read next char.\n");
}

std::string Utf16(const std::string& ascii, bool little)
{
    std::string out = little ? std::string("\xFF\xFE", 2) : std::string("\xFE\xFF", 2);
    for (char character : ascii) {
        const char units[2] = {little ? character : '\0', little ? '\0' : character};
        out.append(units, 2);
    }
    return out;
}

// A wide text with its byte-order mark reads as its 8-bit original; a UTF-8 mark is dropped. From
// 1 MiB on, files are mapped rather than copied, and the marks rewrite (or replace) the mapped
// text as they do a copied one.
TEST(SymbolScanner, ByteOrderMarksAndLargeFilesReadAlike)
{
    const std::string head = "*KEY \"a b\" {\nx }\n";
    // Exactly 2 MiB (a whole number of pages): the zero that ends the text lies beyond the last page.
    const std::string large = head + std::string((2u << 20) - head.size() - 3, ' ') + "\nz\n";
    ASSERT_EQ(large.size(), 2u << 20);
    const Scan mapped = ScanText(large);
    EXPECT_EQ(mapped.symbols, (std::vector<std::string>{"*KEY", "a b", "{", "x", "}", "z", kEnd})) << mapped.errorText;
    EXPECT_EQ(mapped.lines, (std::vector<int>{1, 1, 1, 2, 2, 4, 5}));
    for (const std::string& text : {head, large}) {
        const Scan plain = ScanText(text);
        for (const std::string& marked : {Utf16(text, true), Utf16(text, false), "\xEF\xBB\xBF" + text}) {
            const Scan wide = ScanText(marked);
            EXPECT_EQ(wide.symbols, plain.symbols) << text.size();
            EXPECT_EQ(wide.lines, plain.lines) << text.size();
        }
    }
    // A character beyond ASCII arrives as UTF-8; a lone surrogate as U+FFFD.
    EXPECT_EQ(ScanText(std::string("\xFF\xFE\xE9\x00\x20\x00\x00\xD8\x0A\x00", 10)).symbols,
              (std::vector<std::string>{"\xC3\xA9", "\xEF\xBF\xBD", kEnd}));
    // Half a mark is no mark: the bytes read as they stand.
    for (const std::string half : {"\xFF" "x y\n", "\xFE" "x y\n", "x\xFE y\n", "x\xFF y\n"})
        EXPECT_EQ(ScanText(half).symbols, (std::vector<std::string>{half.substr(0, 2), "y", kEnd}));
}

}  // namespace
