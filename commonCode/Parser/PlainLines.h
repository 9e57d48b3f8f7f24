// Reading blocks of records that stand one per line (or per few lines), without the general
// scanner: a block is found and cut into parts at line starts by BaseParser (FindLineBlock,
// SplitLines), each part read by a LineCursor on a thread of its own, and the reading position
// moved past the block at once (EndLineBlock). A LineCursor only takes what the general scanner
// would hand out as the same words: a word ends at a blank or a line end, and anything else there
// (a quote, a bracket, a zero byte, a word longer than the scanner takes) fails the line, so that
// the block is read again by the general scanner, whose diagnostics are the only ones.
#pragma once

#include "Parser/NumberScan.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

// The classes of the characters for a LineCursor (BaseParser::LineClasses()).
enum LineClass : uint8_t { kLineWord = 0, kLineBlank = 1, kLineEnd = 2, kLineStop = 3 };

// A part of a block: whole lines.
struct TextPart {
    const char* begin;
    const char* end;
};

// A block as FindLineBlock found it: "{", the rest of its line blank, whole lines of records from
// `records` to `recordsEnd` (past the newline of the last), blanks, and its "}" at `close`; a
// block on one line (only blanks between its brackets) has no records (`records` null).
struct LineBlock {
    const char* open = nullptr;
    const char* records = nullptr;
    const char* recordsEnd = nullptr;
    const char* close = nullptr;
};

class LineCursor {
public:
    LineCursor(const uint8_t* classes, size_t maxWord, const char* at) : classes(classes), maxWord(maxWord), p(at) {}

    // The next word of this line; empty (a failure) when the line has ended or the word does not
    // end at a blank or a line end.
    std::string_view Word()
    {
        while (Class(*p) == kLineBlank)
            ++p;
        return RestOfWord(p);
    }
    bool Keyword(std::string_view keyword) { return Word() == keyword; }
    // The next word scanned as ScanInt / ScanFloat scan it, read in the same pass where it is a
    // short plain number (the usual case); false when there is no word or it does not scan.
    bool Int(int32_t* value)
    {
        while (Class(*p) == kLineBlank)
            ++p;
        const char* start = p;
        const bool negative = *p == '-';
        p += negative;
        const char* const digits = p;
        int32_t magnitude = 0;
        for (; static_cast<unsigned char>(*p - '0') < 10 && p - digits < 9; ++p)
            magnitude = magnitude * 10 + (*p - '0');
        // ScanInt reads no further than the digits, whatever follows them in the word.
        const bool quick = p != digits && static_cast<unsigned char>(*p - '0') >= 10;
        const std::string_view word = RestOfWord(start);
        if (word.empty())
            return false;
        if (!quick)
            return ScanInt(word, value);
        *value = negative ? -magnitude : magnitude;
        return true;
    }
    bool Float(float* value)
    {
        while (Class(*p) == kLineBlank)
            ++p;
        const char* start = p;
        // What follows a short decimal in its word changes nothing (it is not e or x).
        const char* decimalEnd = ScanShortDecimal(p, nullptr, value);
        if (decimalEnd)
            p = decimalEnd;
        const std::string_view word = RestOfWord(start);
        return !word.empty() && (decimalEnd || ScanFloat(word, value));
    }
    // Blanks up to the end of the line, which is passed.
    bool EndLine()
    {
        while (Class(*p) == kLineBlank)
            ++p;
        if (Class(*p) != kLineEnd)
            return false;
        ++p;
        return true;
    }
    const char* Position() const { return p; }

private:
    // The word that began at `start`, scanned on from where the cursor stands.
    std::string_view RestOfWord(const char* start)
    {
        while (Class(*p) == kLineWord)
            ++p;
        const size_t length = static_cast<size_t>(p - start);
        if (Class(*p) == kLineStop || length > maxWord)
            return {};
        return {start, length};
    }

    LineClass Class(char c) const { return static_cast<LineClass>(classes[static_cast<uint8_t>(c)]); }

    const uint8_t* classes;
    size_t maxWord;
    const char* p;
};

// The number of newlines in [begin, end).
size_t CountLines(const char* begin, const char* end);
// The first `character` in [begin, end), or null; long texts are searched by `threads` threads.
const char* FindFirst(const char* begin, const char* end, char character, uint32_t threads);
