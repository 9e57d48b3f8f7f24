// Reading blocks of records that stand one per line (or per few lines), without the general
// scanner: a block is found and cut into parts at line starts by BaseParser (FindLineBlock,
// SplitLines), each part read by a LineCursor on a thread of its own, and the reading position
// moved past the block at once (EndLineBlock). A LineCursor reads up to 32 bytes ahead of where
// it stands (BaseParser::kTextPadding) and only takes what the general scanner would hand out as
// the same words: a word ends at a blank or a line end, and anything else there (a quote, a
// bracket, a zero byte, a word longer than the scanner takes) fails the line, so that the block
// is read again by the general scanner, whose diagnostics are the only ones. A LineCursor is used
// by one thread; any number of them may read one text.
#pragma once

#include "Parser/NumberScan.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
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
    // Whether the next word is `keyword`, compared in place (it is at most kMaxKeyword long).
    static constexpr size_t kMaxKeyword = 32;
    bool Keyword(std::string_view keyword)
    {
        while (Class(*p) == kLineBlank)
            ++p;
        if (keyword.size() > kMaxKeyword || std::memcmp(p, keyword.data(), keyword.size()) != 0)
            return keyword.size() > kMaxKeyword && Word() == keyword;
        const LineClass next = Class(p[keyword.size()]);
        if (keyword.empty() || (next != kLineBlank && next != kLineEnd))
            return false;
        p += keyword.size();
        return true;
    }
    // The next word scanned as ScanInt / ScanFloat scan it, read in the same pass, eight digits at
    // a time, where it is a short plain number (the usual case); false when there is no word or it
    // does not scan.
    bool Int(int32_t* value)
    {
        while (Class(*p) == kLineBlank)
            ++p;
        const char* start = p;
        const bool negative = *p == '-';
        p += negative;
        const uint64_t chunk = Load8(p);
        const int digits = LeadingDigits(chunk);
        // ScanInt reads no further than the digits, whatever follows them in the word.
        const bool quick = digits > 0 && digits < 8;
        const int32_t magnitude = quick ? static_cast<int32_t>(DigitsValue(chunk, digits)) : 0;
        if (quick)
            p += digits;
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
        // [sign] up to 7 digits [. up to 7 digits] ending the word: ScanShortDecimal's value.
        const char* q = p + (*p == '-' || *p == '+');
        const uint64_t whole = Load8(q);
        const int wholeDigits = LeadingDigits(whole);
        if (wholeDigits < 8) {
            uint64_t significand = DigitsValue(whole, wholeDigits);
            q += wholeDigits;
            int fraction = 0;
            if (*q == '.') {
                const uint64_t part = Load8(q + 1);
                fraction = LeadingDigits(part);
                significand = significand * kTens[std::min(fraction, 7)] + DigitsValue(part, fraction);
                q += 1 + fraction;
            }
            if (fraction < 8 && wholeDigits + fraction > 0 && significand <= (uint64_t{1} << 24) &&
                (Class(*q) == kLineBlank || Class(*q) == kLineEnd)) {
                const float magnitude = ShortDecimalValue(static_cast<uint32_t>(significand), fraction);
                *value = *start == '-' ? -magnitude : magnitude;
                p = q;
                return true;
            }
        }
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
    static constexpr uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
    static uint64_t Load8(const char* at)
    {
        uint64_t bytes;
        std::memcpy(&bytes, at, sizeof bytes);
        return bytes;  // little-endian: the first character in the lowest byte
    }
    // How many of the eight characters are digits before the first that is not (8: all).
    static int LeadingDigits(uint64_t bytes)
    {
        const uint64_t x = bytes ^ 0x3030303030303030u;  // a digit's byte becomes its value
        const uint64_t other = (((x & 0x7F7F7F7F7F7F7F7Fu) + 0x7676767676767676u) | x) & 0x8080808080808080u;
        return other ? std::countr_zero(other) / 8 : 8;
    }
    // The value of the first `count` (0 to 8) digits.
    static uint64_t DigitsValue(uint64_t bytes, int count)
    {
        if (count == 0)
            return 0;
        uint64_t v = (bytes - 0x3030303030303030u) << (8 * (8 - count));  // leading zero digits
        v = v * 10 + (v >> 8);
        return (((v & 0x000000FF000000FFu) * 0x000F424000000064u) +
                (((v >> 16) & 0x000000FF000000FFu) * 0x0000271000000001u)) >> 32;
    }
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

// The first `character` in [begin, end), or null; long texts are searched by `threads` threads.
const char* FindFirst(const char* begin, const char* end, char character, uint32_t threads);
