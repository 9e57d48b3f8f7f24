// The reports of a file being converted. Every stage that works on the file (its reader, the
// checks, the writer and the frame stream) reports through one Reporter:
// - Error(line, message, values): "<file>(<line>) error: <text>". The file has failed; the last
//   error's text is kept for the caller to show (ErrorText) and echoed on the trace channel.
// - Warning(line, message, values): "<file>(<line>) warning: <text>", printed on standard output
//   at once and echoed on the trace channel.
// - Progress(message, values): the text alone, printed on standard output at once.
// The line is always the caller's: a report says where it belongs, whatever was read last.
// Warnings that may come once per object or list are shown a few times and then counted
// (ShowRepeated), and the counts said once, as a line of their own (SayRepeats).
// A quiet reporter (a trial conversion whose outcome alone counts) prints and echoes nothing;
// errors still count. Not thread-safe: one reporter belongs to one conversion.
#pragma once

#include "AbstractData/Message.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Reporter {
public:
    explicit Reporter(bool quiet = false) : quiet(quiet) {}

    // The reports that follow are about `name`, which has no error so far.
    void BeginFile(std::string name);

    // Reports are rare: their formatting stays out of the loops that may report.
    template <MessageValue... Args>
    [[gnu::cold, gnu::noinline]] void Error(int32_t line, Message<Args...> message, std::type_identity_t<Args>... values)
    {
        SetError(line, FormatMessage(message, values...));
    }
    template <MessageValue... Args>
    [[gnu::cold, gnu::noinline]] void Warning(int32_t line, Message<Args...> message, std::type_identity_t<Args>... values)
    {
        if (!quiet)
            PrintWarning(line, FormatMessage(message, values...));
    }
    template <MessageValue... Args>
    [[gnu::noinline]] void Progress(Message<Args...> message, std::type_identity_t<Args>... values)
    {
        if (!quiet)
            Print(FormatMessage(message, values...));
    }

    // Of each message, the first kShownRepeats warnings are shown (true: print it now); later ones
    // are only counted, with the line of the first of them.
    static constexpr uint32_t kShownRepeats = 3;
    bool ShowRepeated(uint32_t messageId, int32_t line);
    // Says each count of warnings not shown since the last call, in the order of their first
    // appearance, at the line of the first not shown: `countLine` filled with the number and what
    // `words` gives for the message and the number (a message without words is not said).
    using RepeatWords = std::string_view (*)(uint32_t messageId, uint32_t hidden);
    void SayRepeats(Message<uint32_t, Text> countLine, RepeatWords words);

    bool HasError() const { return failed; }
    const std::string& ErrorText() const { return errorText; }

private:
    void SetError(int32_t line, std::string_view text);
    void PrintWarning(int32_t line, std::string_view text);
    static void Print(std::string_view text);

    std::string fileName;
    bool quiet;
    bool failed = false;
    std::string errorText;
    struct Repeated {
        uint32_t messageId;
        uint32_t count;
        int32_t firstHiddenLine;
    };
    std::vector<Repeated> repeats;
};
