#include "Parser/BaseParser.h"

#include "AbstractData/Platform.h"
#include "AbstractData/Trace.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstdint>

namespace {

constexpr const char* kSource = "commonCode/Parser/BaseParser";

// The largest text a 32-bit size can describe with its terminating zero.
constexpr uint64_t kMaxFileSize = 0xFFFFFFFEull;
// Files from this size on are mapped.
constexpr uint64_t kMapThreshold = 1u << 20;

// Text with a byte-order mark is taken as what the mark says: UTF-16 (either byte order) becomes
// UTF-8 and a UTF-8 mark is dropped, so that such files read like the 8-bit text they hold.
// Answers the new length; `buffer` has room for one byte more (the terminating zero) and the
// padding.
template <typename Buffer>
uint64_t NormalizeEncoding(Buffer& buffer, uint64_t length)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(buffer.get());
    if (length >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
        std::memmove(buffer.get(), buffer.get() + 3, length - 3);
        return length - 3;
    }
    if (length < 2 || !((bytes[0] == 0xFF && bytes[1] == 0xFE) || (bytes[0] == 0xFE && bytes[1] == 0xFF)))
        return length;
    const bool little = bytes[0] == 0xFF;
    const uint64_t units = (length - 2) / 2;
    // At most 3 UTF-8 bytes per 16-bit unit (a surrogate pair: 4 bytes for 2 units).
    std::unique_ptr<char[]> converted(new (std::nothrow) char[units * 3 + 1 + BaseParser::kTextPadding]);
    if (!converted)
        return length;
    uint64_t out = 0;
    auto unit = [&](uint64_t index) -> uint32_t {
        const unsigned char a = bytes[2 + 2 * index];
        const unsigned char b = bytes[3 + 2 * index];
        return little ? static_cast<uint32_t>(a | (b << 8)) : static_cast<uint32_t>(b | (a << 8));
    };
    auto put = [&](uint32_t byte) { converted[out++] = static_cast<char>(byte); };
    for (uint64_t i = 0; i < units; ++i) {
        uint32_t code = unit(i);
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < units && unit(i + 1) >= 0xDC00 && unit(i + 1) < 0xE000) {
            code = 0x10000 + ((code - 0xD800) << 10) + (unit(i + 1) - 0xDC00);
            ++i;
        } else if (code >= 0xD800 && code < 0xE000) {
            code = 0xFFFD;  // a lone surrogate
        }
        if (code < 0x80) {
            put(code);
        } else if (code < 0x800) {
            put(0xC0 | (code >> 6));
            put(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            put(0xE0 | (code >> 12));
            put(0x80 | ((code >> 6) & 0x3F));
            put(0x80 | (code & 0x3F));
        } else {
            put(0xF0 | (code >> 18));
            put(0x80 | ((code >> 12) & 0x3F));
            put(0x80 | ((code >> 6) & 0x3F));
            put(0x80 | (code & 0x3F));
        }
    }
    buffer = Buffer(converted.release());
    return out;
}

}  // namespace

BaseParser::BaseParser(Reporter& reporter) : reporter(reporter) {}

BaseParser::~BaseParser() = default;

void BaseParser::Finish()
{
    text.reset();
    textSize = 0;
    cursor = 0;
}

bool BaseParser::IsSingleCharSymbol(char character) const
{
    return character == '"' || character == '(' || character == ')' || character == '{' || character == '}';
}

void BaseParser::BuildCharClasses()
{
    for (int value = 0; value < 256; ++value) {
        const char character = static_cast<char>(value);
        if (value == 0)
            charClass[value] = kZero;
        else if (IsWhitespace(character))
            charClass[value] = kWhitespace;
        else if (IsSingleCharSymbol(character))
            charClass[value] = kSingleChar;
        else
            charClass[value] = kWordChar;
        lineClass[value] = charClass[value] == kWordChar     ? kLineWord
                           : character == '\n'              ? kLineEnd
                           : charClass[value] == kWhitespace ? kLineBlank
                                                             : kLineStop;
    }
}

void TextRelease::operator()(char* data) const
{
    if (mappedBytes)
        ::munmap(data, mappedBytes);
    else
        delete[] data;
}

bool BaseParser::MapWholeFile(int handle, uint64_t size)
{
    // A private, writable view of the file followed by zero bytes: an anonymous reservation
    // longer than the file by the final zero and the padding, with the file mapped over its start. The rest of
    // the file's last page reads as zero, and so does the reservation beyond it.
    const long page = ::sysconf(_SC_PAGESIZE);
    if (page <= 0)
        return false;
    const auto pageBytes = static_cast<uint64_t>(page);
    const uint64_t length = (size + 1 + kTextPadding + pageBytes - 1) / pageBytes * pageBytes;
    void* reserved = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (reserved == MAP_FAILED)
        return false;
    void* mapped = ::mmap(reserved, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, handle, 0);
    if (mapped == MAP_FAILED) {
        ::munmap(reserved, length);
        return false;
    }
    // Read in order from start to end: let the kernel read ahead. Pages that are only read stay
    // shared with the page cache; only written ones (the final zero, a dropped byte-order mark)
    // are copied.
    ::madvise(mapped, size, MADV_SEQUENTIAL);
    ::madvise(mapped, size, MADV_WILLNEED);
    TakeText(TextBuffer(static_cast<char*>(reserved), TextRelease{length}), size);
    return true;
}

void BaseParser::TakeText(TextBuffer buffer, uint64_t length)
{
    const uint64_t loaded = length;
    length = NormalizeEncoding(buffer, length);
    std::memset(buffer.get() + length, 0, 1 + kTextPadding);
    text = std::move(buffer);
    textSize = static_cast<uint32_t>(length + 1);
    cursor = 0;
    // Released pages come back from the file when touched: only a mapping left as the file is.
    releasable = text.get_deleter().mappedBytes > 0 && length == loaded;
    releasedTo = 0;
    releaseMark = kKeptBehind + kReleaseStep;
}

void BaseParser::ReleaseText(const char* begin, const char* end) const
{
    static const uintptr_t page = static_cast<uintptr_t>(std::max(::sysconf(_SC_PAGESIZE), 1L));
    if (!releasable || !text)
        return;
    // The page of the final zero was written: it is never released.
    end = std::min<const char*>(end, text.get() + textSize - 1);
    const uintptr_t from = (reinterpret_cast<uintptr_t>(begin) + page - 1) / page * page;
    const uintptr_t to = reinterpret_cast<uintptr_t>(end) / page * page;
    if (from < to)
        ::madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED);
}

void BaseParser::ReleaseBehindCursor()
{
    releaseMark = cursor < UINT32_MAX - kReleaseStep ? cursor + kReleaseStep : UINT32_MAX;
    if (!releasable || cursor < kKeptBehind)
        return;
    const uint32_t to = cursor - kKeptBehind;
    if (to > releasedTo)
        ReleaseText(text.get() + releasedTo, text.get() + to);
    releasedTo = std::max(releasedTo, to);
}

HRESULT BaseParser::ReadWholeFile(int handle)
{
    struct stat info {};
    if (::fstat(handle, &info) != 0)
        return HResultFromWin32(platform::SetLastErrorFromErrno());
    if (S_ISDIR(info.st_mode))
        return HResultFromWin32(platform::ERROR_ACCESS_DENIED_CODE);
    // Large files are mapped rather than copied (the copy costs more than the scan of the text).
    // Smaller ones, pipes and anything that cannot be mapped are read.
    if (S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) >= kMapThreshold &&
        static_cast<uint64_t>(info.st_size) <= kMaxFileSize && MapWholeFile(handle, static_cast<uint64_t>(info.st_size)))
        return S_OK;

    // Sized from the file's length and read to its end, so that a file that grows or shrinks
    // meanwhile (or a pipe) is taken as it is; the count actually read is what counts.
    uint64_t capacity = S_ISREG(info.st_mode) ? static_cast<uint64_t>(info.st_size) : 65536;
    if (capacity > kMaxFileSize)
        return HResultFromWin32(platform::ERROR_NOT_ENOUGH_MEMORY_CODE);
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[capacity + 1 + kTextPadding]);
    if (!buffer)
        return E_OUTOFMEMORY;
    uint64_t used = 0;
    for (;;) {
        char probe[4096];
        char* target = used < capacity ? buffer.get() + used : probe;
        const size_t room = used < capacity ? static_cast<size_t>(std::min<uint64_t>(capacity - used, 1u << 30))
                                            : sizeof probe;
        const ssize_t count = ::read(handle, target, room);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return HResultFromWin32(platform::SetLastErrorFromErrno());
        }
        if (count == 0)
            break;
        if (target == probe) {
            // More than expected: grow and keep the probed bytes.
            const uint64_t grown = std::max<uint64_t>(capacity * 2, capacity + static_cast<uint64_t>(count));
            if (grown > kMaxFileSize)
                return HResultFromWin32(platform::ERROR_NOT_ENOUGH_MEMORY_CODE);
            std::unique_ptr<char[]> larger(new (std::nothrow) char[grown + 1 + kTextPadding]);
            if (!larger)
                return E_OUTOFMEMORY;
            std::memcpy(larger.get(), buffer.get(), used);
            std::memcpy(larger.get() + used, probe, static_cast<size_t>(count));
            buffer = std::move(larger);
            capacity = grown;
        }
        used += static_cast<uint64_t>(count);
    }
    TakeText(TextBuffer(buffer.release()), used);
    return S_OK;
}

HRESULT BaseParser::Load(const std::string& newSourceName)
{
    line = 1;
    column = 1;
    openBlocks = 0;
    outermostBlockLine = 0;
    blocksClosedAtEnd = false;
    sourceName = newSourceName;
    reporter.BeginFile(sourceName);
    BuildCharClasses();

    HRESULT status = S_OK;
    const int handle = ::open(sourceName.c_str(), O_RDONLY | O_CLOEXEC);
    if (handle < 0) {
        status = HResultFromWin32(platform::SetLastErrorFromErrno());
        Error(kMessageCouldNotOpen, sourceName);
    } else {
        text.reset();
        textSize = 0;
        cursor = 0;
        status = ReadWholeFile(handle);
        if (::close(handle) != 0 && Succeeded(status))
            status = HResultFromWin32(platform::SetLastErrorFromErrno());
        // A file that opens but cannot be read is an error the user must see, not a silent
        // success: report it like an unreadable file.
        if (Failed(status))
            Error(kMessageCouldNotRead, sourceName);
    }
    if (Failed(status))
        AssertHresult(kSource, __LINE__, status);
    return status;
}

bool BaseParser::EndOfText()
{
    if (cursor < textSize)
        return false;
    Error(kMessageCouldNotReadChar);
    return true;
}

char BaseParser::ReadChar()
{
    if (EndOfText())
        return 0;
    const char character = text[cursor++];
    ++column;
    if (character == '\n') {
        column = 1;
        ++line;
    }
    return character;
}

void BaseParser::UngetChar()
{
    if (cursor == 0)
        return;
    const int32_t rememberedLine = line;
    const int32_t rememberedColumn = column;
    --cursor;
    ReadChar();
    line = 2 * rememberedLine - line;
    column = 2 * rememberedColumn - column;
    --cursor;
}

bool BaseParser::SymbolTooLong(size_t length)
{
    if (length <= kMaxSymbolLength)
        return false;
    Error(kMessageSymbolTooLong, static_cast<int32_t>(kMaxSymbolLength));
    return true;
}

bool BaseParser::ScanSymbol(std::string_view& symbol)
{
    lastSymbolCut = false;
    if (HasError())
        return false;
    if (!text || EndOfText()) {
        if (!text)
            Error(kMessageCouldNotReadChar);  // nothing loaded: the same as reading past the end
        return false;
    }

    // The scanner works on the loaded text in place; line and column follow the rules of ReadChar
    // and UngetChar. The zero byte that ends the text has a class of its own, so the loops below
    // need no bounds checks: they stop at it at the latest.
    const char* const data = text.get();
    const char* const last = data + textSize - 1;  // the terminating zero
    const char* p = data + cursor;
    // White space: the lines it ends are counted, the column is taken once from where the last
    // of them ended.
    const char* const blankStart = p;
    const char* lineStart = nullptr;
    for (; charClass[static_cast<uint8_t>(*p)] == kWhitespace; ++p) {
        if (*p == '\n') {
            ++line;
            lineStart = p + 1;
        }
    }
    column = lineStart ? static_cast<int32_t>(p - lineStart) + 1 : column + static_cast<int32_t>(p - blankStart);
    const char first = *p++;
    ++column;
    cursor = static_cast<uint32_t>(p - data);

    if (first == '\0') {
        // A zero byte inside the text ends the data there too, but reading goes on after it.
        symbol = p - 1 == last ? EndSymbol() : kEndOfData;
        return true;
    }

    if (first == '"') {
        // Up to the next double quote; there is no escape character.
        const char* close = static_cast<const char*>(std::memchr(p, '"', static_cast<size_t>(last - p + 1)));
        const char* end = close ? close : last + 1;
        for (const char* q = p; q < end; ++q) {
            ++column;
            if (*q == '\n') {
                ++line;
                column = 1;
            }
        }
        if (!close) {
            cursor = textSize;
            Error(kMessageCouldNotReadChar);
            return false;
        }
        ++column;  // the closing quote
        cursor = static_cast<uint32_t>(close + 1 - data);
        const size_t length = static_cast<size_t>(close - p);
        if (SymbolTooLong(length))
            return false;
        // The symbol ends at its first zero byte, like the buffer it was always assembled in.
        const void* zero = std::memchr(p, '\0', length);
        lastSymbolCut = zero != nullptr;
        symbol = std::string_view(p, zero ? static_cast<size_t>(static_cast<const char*>(zero) - p) : length);
        return true;
    }

    if (charClass[static_cast<uint8_t>(first)] == kSingleChar) {
        symbol = std::string_view(p - 1, 1);
        return true;
    }

    // A word: up to white space or a single-character symbol, which is left for the next call.
    // A zero byte inside it belongs to it (and cuts the symbol); the final zero does not end it.
    const char* start = p - 1;
    const char* zero = nullptr;
    for (;;) {
        while (charClass[static_cast<uint8_t>(*p)] == kWordChar)
            ++p;
        if (*p != '\0')
            break;
        if (!zero)
            zero = p;
        if (p == last) {
            column += static_cast<int32_t>(p + 1 - start) - 1;
            cursor = textSize;
            Error(kMessageCouldNotReadChar);
            return false;
        }
        ++p;
    }
    if (*p == '(' && joinNanPayloads && !zero)
        p = NanPayloadEnd(start, p);
    column += static_cast<int32_t>(p - start) - 1;
    cursor = static_cast<uint32_t>(p - data);
    const size_t length = static_cast<size_t>(p - start);
    if (SymbolTooLong(length))
        return false;
    lastSymbolCut = zero != nullptr;
    symbol = std::string_view(start, zero ? static_cast<size_t>(zero - start) : length);
    return true;
}

std::string_view BaseParser::EndSymbol()
{
    if (!closeBlocksAtEnd || openBlocks == 0)
        return kEndOfData;
    if (!blocksClosedAtEnd) {
        blocksClosedAtEnd = true;
        BlocksClosedAtEnd(outermostBlockLine);
    }
    // Every later read comes back to the final zero, until the readers have closed their blocks.
    cursor = textSize - 1;
    --column;
    return BlockEnd();
}

const char* BaseParser::NanPayloadEnd(const char* start, const char* end) const
{
    if (end - start == 4 && (*start == '-' || *start == '+'))
        ++start;
    if (end - start != 3 || (start[0] | 0x20) != 'n' || (start[1] | 0x20) != 'a' || (start[2] | 0x20) != 'n')
        return end;
    const char* q = end + 1;  // past "("
    while ((*q >= '0' && *q <= '9') || ((*q | 0x20) >= 'a' && (*q | 0x20) <= 'z') || *q == '_')
        ++q;
    return *q == ')' ? q + 1 : end;
}

void BaseParser::BlockOpened()
{
    if (openBlocks++ == 0)
        outermostBlockLine = line;
}

void BaseParser::BlockClosed()
{
    if (openBlocks > 0)
        --openBlocks;
}

bool BaseParser::NextSymbol(std::string& symbol)
{
    std::string_view view;
    if (!NextSymbolView(view))
        return false;
    symbol.assign(view);
    return true;
}

bool BaseParser::NextSymbolView(std::string_view& symbol)
{
    if (!ScanSymbol(symbol))
        return false;
    lastSymbol = symbol;
    if (cursor >= releaseMark)
        ReleaseBehindCursor();
    return true;
}

bool BaseParser::FindLineBlock(LineBlock& block, uint32_t threads) const
{
    const char* begin = BlockBegin();
    const char* end = BlockEnd();
    if (!text || HasError() || cursor >= textSize || begin[0] == '\0' || begin[1] != '\0' || end[0] == '\0' ||
        end[1] != '\0')
        return false;
    const char* const data = text.get();
    const char* const last = data + textSize - 1;
    const char* p = data + cursor;
    while (charClass[static_cast<uint8_t>(*p)] == kWhitespace)
        ++p;
    if (*p != begin[0] || charClass[static_cast<uint8_t>(*p)] != kSingleChar ||
        charClass[static_cast<uint8_t>(end[0])] != kSingleChar)
        return false;
    const char* inside = p + 1;
    const char* close = FindFirst(inside, last, end[0], threads);
    if (!close)
        return false;
    const auto blanks = [&](const char* from, const char* to) {
        return std::all_of(from, to, [&](char c) { return lineClass[static_cast<uint8_t>(c)] == kLineBlank; });
    };
    const size_t length = static_cast<size_t>(close - inside);
    const auto* first = static_cast<const char*>(std::memchr(inside, '\n', length));
    block = LineBlock{p, nullptr, nullptr, close};
    if (!first)
        return blanks(inside, close);
    const auto* lastNewline = static_cast<const char*>(::memrchr(inside, '\n', length));
    block.records = first + 1;
    block.recordsEnd = lastNewline + 1;
    return blanks(inside, first) && blanks(lastNewline + 1, close);
}

std::vector<TextPart> BaseParser::SplitLines(const LineBlock& block, size_t partBytes, size_t maxParts,
                                             std::string_view recordKeyword) const
{
    std::vector<TextPart> parts;
    if (!block.records || block.records == block.recordsEnd)
        return parts;
    const char* const end = block.recordsEnd;
    // The first line at or after `at` that begins a record, or null within a few lines.
    const auto recordLine = [&](const char* at) -> const char* {
        for (int tries = 0; tries < 64; ++tries) {
            if (at[-1] != '\n') {
                at = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
                if (!at || ++at == end)
                    return nullptr;
            }
            LineCursor line(lineClass, kMaxSymbolLength, at);
            if (recordKeyword.empty() || line.Keyword(recordKeyword))
                return at;
            ++at;
        }
        return nullptr;
    };
    const size_t bytes = static_cast<size_t>(end - block.records);
    const size_t count = std::clamp<size_t>(bytes / std::max<size_t>(partBytes, 1), 1, std::max<size_t>(maxParts, 1));
    const char* start = block.records;
    for (size_t k = 1; k < count; ++k) {
        const char* target = block.records + bytes / count * k;
        if (target <= start)
            continue;
        const char* cut = recordLine(target);
        if (!cut)
            break;
        parts.push_back({start, cut});
        start = cut;
    }
    parts.push_back({start, end});
    return parts;
}

void BaseParser::EndLineBlock(const LineBlock& block, size_t recordLines)
{
    // Line and column as the scanner counts them, symbol by symbol.
    const char* const data = text.get();
    for (const char* p = data + cursor; p < block.open; ++p) {
        if (*p == '\n') {
            ++line;
            column = 0;
        }
        ++column;
    }
    ++column;  // the "{"
    BlockOpened();
    if (block.records) {
        line += static_cast<int32_t>(1 + recordLines);
        column = static_cast<int32_t>(block.close - block.recordsEnd) + 2;
    } else {
        column += static_cast<int32_t>(block.close - block.open);
    }
    BlockClosed();
    cursor = static_cast<uint32_t>(block.close + 1 - data);
    lastSymbol = std::string_view(block.close, 1);
    lastSymbolCut = false;
    if (cursor >= releaseMark)
        ReleaseBehindCursor();
}

void BaseParser::HandleSymbol(std::string& symbol)
{
    Warning(kMessageUnknownSymbol, symbol);
}

void BaseParser::ParseSymbols()
{
    const std::string begin = BlockBegin();
    const std::string endOfData = kEndOfData;
    std::string symbol;
    if (!NextSymbol(symbol))
        return;
    while (!HasError()) {
        if (symbol == begin)
            SkipBlock(symbol);
        else if (symbol == endOfData)
            return;
        else
            HandleSymbol(symbol);
        // At the top level every block reader has returned: none of its blocks is open, even
        // when a reader left early without its "}".
        openBlocks = 0;
        if (!NextSymbol(symbol))
            return;
    }
}

void BaseParser::SkipBlock(std::string& symbol)
{
    // Iterative: the depth of nesting is only a counter, however deep the input goes.
    const std::string begin = BlockBegin();
    const std::string end = BlockEnd();
    uint64_t depth = 1;
    BlockOpened();
    while (depth > 0) {
        if (!NextSymbol(symbol) || HasError()) {
            openBlocks -= std::min(openBlocks, depth);
            return;
        }
        if (symbol == begin) {
            ++depth;
            BlockOpened();
        } else if (symbol == end) {
            --depth;
            BlockClosed();
        }
    }
}

HRESULT BaseParser::ParseFile(const std::string& newSourceName)
{
    const HRESULT status = Load(newSourceName);
    if (Failed(status))
        return AssertHresult(kSource, __LINE__, status);
    if (HasError())
        return E_FAIL;
    ParseSymbols();
    Finish();
    return HasError() ? E_FAIL : S_OK;
}
