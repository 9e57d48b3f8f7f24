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
// errors still count. A deferred reporter (Deferred) keeps its reports, in order, until Forward
// hands them to another reporter, which then prints, counts and echoes them as if they had been
// made to it at that moment: work done on another thread, or before it is known whether its
// reports count, reports through one and forwards it where a sequential run reports. Not
// thread-safe: one reporter belongs to one conversion, or to one piece of work of it.
#pragma once

#include "AbstractData/Message.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Reporter {
public:
    explicit Reporter(bool quiet = false) : quiet(quiet) {}
    // A reporter that keeps its reports for Forward; HasError tells whether it has kept an error.
    static Reporter Deferred();

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
    // A warning that may come once per object: shown while ShowRepeated allows it, else counted.
    template <MessageValue... Args>
    [[gnu::cold, gnu::noinline]] void RepeatedWarning(int32_t line, Message<Args...> message,
                                                      std::type_identity_t<Args>... values)
    {
        if (deferred)
            Keep(Kept::RepeatedWarning, line, message.id, FormatMessage(message, values...));
        else if (ShowRepeated(message.id, line))
            Warning(line, message, values...);
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

    // Hands the first `count` reports this deferred reporter has kept (all of them by default) to
    // `to`, in order, and forgets them.
    void Forward(Reporter& to, size_t count = SIZE_MAX);
    size_t KeptCount() const { return kept.size() - forwarded; }

private:
    struct Kept {
        enum Kind : uint8_t { Error, Warning, RepeatedWarning, Progress } kind;
        int32_t line;
        uint32_t messageId;  // for RepeatedWarning
        std::string text;
    };

    void SetError(int32_t line, std::string_view text);
    void PrintWarning(int32_t line, std::string_view text);
    void Print(std::string_view text);
    void Keep(Kept::Kind kind, int32_t line, uint32_t messageId, std::string text);

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
    bool deferred = false;
    std::vector<Kept> kept;  // a deferred reporter's reports
    size_t forwarded = 0;    // ... of which the first ones are handed on
};
