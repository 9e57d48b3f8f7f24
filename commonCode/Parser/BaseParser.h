// A reader for text made of symbols: words, quoted strings and the single characters that open
// and close blocks. It loads a file whole, hands out symbols with line counting, runs the
// top-level loop, skips blocks nobody handles and reports errors and warnings with file and line
// through the Reporter it is given (its own messages: Parser/ParserMessages.h). A derived reader
// plugs its grammar in through the virtual operations, and may read blocks of plain lines in
// parts on several threads (Parser/PlainLines.h). A mapped file's pages are given back to the
// system as they are read.
#pragma once

#include "AbstractData/Status.h"
#include "Parser/ParserMessages.h"
#include "Parser/PlainLines.h"
#include "Parser/Reporter.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Releases a loaded text: a mapping of the file (mappedBytes > 0) or an allocated copy.
struct TextRelease {
    TextRelease() noexcept : mappedBytes(0) {}
    explicit TextRelease(size_t bytes) noexcept : mappedBytes(bytes) {}
    void operator()(char* data) const;
    size_t mappedBytes;
};

class BaseParser {
public:
    // The text of the end-of-data symbol.
    static constexpr const char* kEndOfData = "baseparser file end";
    // The longest symbol accepted; a longer one is reported as an error.
    static constexpr size_t kMaxSymbolLength = 4095;
    // Zero bytes after the loaded text's final zero: scanners may read up to that many bytes
    // ahead of any character of the text in one step (LineCursor does).
    static constexpr size_t kTextPadding = 32;

    // Reports go to `reporter`, which each Load begins anew for the file loaded.
    explicit BaseParser(Reporter& reporter);
    BaseParser(const BaseParser&) = delete;
    BaseParser& operator=(const BaseParser&) = delete;

    virtual const char* BlockEnd() const { return "}"; }
    virtual const char* BlockBegin() const { return "{"; }
    virtual void Finish();
    virtual HRESULT Load(const std::string& sourceName);
    virtual void HandleSymbol(std::string& symbol);
    virtual bool IsSingleCharSymbol(char character) const;
    virtual bool NextSymbol(std::string& symbol);
    virtual void ParseSymbols();
    virtual HRESULT ParseFile(const std::string& sourceName);
    virtual ~BaseParser();

    // Next character (0 after reporting an error past the end), and a step back over it.
    char ReadChar();
    void UngetChar();
    static bool IsWhitespace(char character)
    {
        return character == '\t' || character == '\n' || character == '\r' || character == ' ';
    }

    // The next symbol as a view into the loaded text (or a constant), valid while the text is
    // loaded: the same symbols, lines and errors as NextSymbol, without copying the symbol.
    bool NextSymbolView(std::string_view& symbol);
    // The last symbol handed out; a read that fails leaves it in place.
    std::string_view LastSymbol() const { return lastSymbol; }
    // Whether the last symbol scanned was cut at a zero byte inside it.
    bool LastSymbolCut() const { return lastSymbolCut; }

    // Consumes everything up to and including the "}" that matches a "{" just read.
    void SkipBlock(std::string& symbol);

    // Blocks of plain lines (Parser/PlainLines.h).
    // - FindLineBlock: whether the next symbol is a "{" whose block has the shape of a LineBlock
    //   (nothing is consumed; `threads` look for its end).
    // - SplitLines: the block's record lines in at most `maxParts` parts of about `partBytes` or
    //   more, each beginning at a line whose first word is `recordKeyword` (any line when empty).
    // - EndLineBlock: the reading position past the block's "}", which is the last symbol, lines
    //   and column as if the block had been read symbol by symbol (`recordLines`: the newlines of
    //   its records).
    bool FindLineBlock(LineBlock& block, uint32_t threads) const;
    std::vector<TextPart> SplitLines(const LineBlock& block, size_t partBytes, size_t maxParts,
                                     std::string_view recordKeyword) const;
    void EndLineBlock(const LineBlock& block, size_t recordLines);
    const uint8_t* LineClasses() const { return lineClass; }
    // Gives the pages of the mapped text that lie wholly in [begin, end) back to the system, which
    // reads them again from the file if they are ever touched again. Only a file mapped unchanged
    // is released (a copy or a converted text is not); safe from any thread.
    void ReleaseText(const char* begin, const char* end) const;

    bool HasError() const { return reporter.HasError(); }
    const std::string& SourceName() const { return sourceName; }
    int32_t Line() const { return line; }
    int32_t Column() const { return column; }

protected:
    // Reports at the line where reading stands. Kept out of the scanning loops: reports are rare.
    template <MessageValue... Args>
    [[gnu::cold, gnu::noinline]] void Error(Message<Args...> message, std::type_identity_t<Args>... values)
    {
        reporter.Error(line, message, values...);
    }
    template <MessageValue... Args>
    [[gnu::cold, gnu::noinline]] void Warning(Message<Args...> message, std::type_identity_t<Args>... values)
    {
        reporter.Warning(line, message, values...);
    }

    // Blocks whose "{" has been read and whose "}" has not: SkipBlock keeps the count, and so do
    // a derived reader's block loops, so that the end of the text knows what is still open.
    void BlockOpened();
    void BlockClosed();
    // Called once per file when the end of the text closes open blocks (see closeBlocksAtEnd),
    // with the line on which the outermost of them began.
    virtual void BlocksClosedAtEnd(int32_t /*outermostLine*/) {}

    // Leniencies for other writers' files, off by default:
    // - closeBlocksAtEnd: the end of the text closes the blocks still open; each read there gives
    //   BlockEnd() until none is open, then the end-of-data symbol;
    // - joinNanPayloads: a word [sign]"nan" directly followed by "(" letters, digits or "_" ")" is
    //   one word ("-nan(ind)", as C runtimes print it), not a word and three symbols.
    bool closeBlocksAtEnd = false;
    bool joinNanPayloads = false;

    Reporter& reporter;
    std::string sourceName;
    int32_t line = 1;
    int32_t column = 1;
    using TextBuffer = std::unique_ptr<char[], TextRelease>;
    TextBuffer text;  // the whole source followed by a zero byte and kTextPadding more
    uint32_t textSize = 0;         // file size + 1
    uint32_t cursor = 0;           // index of the next character in text
    std::string_view lastSymbol;
    uint64_t openBlocks = 0;
    int32_t outermostBlockLine = 0;
    bool blocksClosedAtEnd = false;  // said for this file
    bool lastSymbolCut = false;

private:
    // The text read so far is released behind the reading position as it moves on (ReleaseText),
    // keeping kKeptBehind bytes before it for the last symbol.
    static constexpr uint32_t kKeptBehind = 1u << 20;
    static constexpr uint32_t kReleaseStep = 4u << 20;
    bool releasable = false;
    uint32_t releasedTo = 0;
    uint32_t releaseMark = 0;  // the position from which the next release is due

    enum CharClass : uint8_t { kWordChar = 0, kWhitespace = 1, kSingleChar = 2, kZero = 3 };

    // Reads the whole file; on failure returns the status, after reporting when that helps the user.
    HRESULT ReadWholeFile(int handle);
    // Maps a large regular file instead of copying it; false when that is not possible.
    bool MapWholeFile(int handle, uint64_t size);
    void TakeText(TextBuffer buffer, uint64_t length);
    void BuildCharClasses();
    bool EndOfText();  // reports "Could not read next char." and answers true at the end
    bool SymbolTooLong(size_t length);
    void ReleaseBehindCursor();
    bool ScanSymbol(std::string_view& symbol);
    // The symbol that the final zero byte gives: the end-of-data symbol, or BlockEnd() while
    // closeBlocksAtEnd has blocks to close.
    std::string_view EndSymbol();
    // With joinNanPayloads: the end of the word [start, end) with a "(payload)" that follows it.
    const char* NanPayloadEnd(const char* start, const char* end) const;

    CharClass charClass[256] = {};
    uint8_t lineClass[256] = {};
};
