#include "Parser/Reporter.h"

#include "AbstractData/Trace.h"
#include "Parser/ParserMessages.h"

#include <algorithm>
#include <cstdio>

namespace {

// Trace echoes carry the place that has always made them.
constexpr const char* kSource = "commonCode/Parser/BaseParser";
constexpr int kErrorEchoLine = 555;
constexpr int kWarningEchoLine = 570;

}  // namespace

Reporter Reporter::Deferred()
{
    Reporter reporter;
    reporter.deferred = true;
    return reporter;
}

void Reporter::Keep(Kept::Kind kind, int32_t line, uint32_t messageId, std::string text)
{
    kept.push_back({kind, line, messageId, std::move(text)});
}

void Reporter::Forward(Reporter& to, size_t count)
{
    const size_t end = forwarded + std::min(count, kept.size() - forwarded);
    for (; forwarded < end; ++forwarded) {
        Kept& report = kept[forwarded];
        switch (report.kind) {
        case Kept::Error: to.SetError(report.line, report.text); break;
        case Kept::Warning:
            if (!to.quiet)
                to.PrintWarning(report.line, report.text);
            break;
        case Kept::RepeatedWarning:
            if (to.ShowRepeated(report.messageId, report.line) && !to.quiet)
                to.PrintWarning(report.line, report.text);
            break;
        case Kept::Progress:
            if (!to.quiet)
                to.Print(report.text);
            break;
        }
        report.text = std::string();
    }
    if (forwarded == kept.size()) {
        kept.clear();
        forwarded = 0;
    }
}

void Reporter::BeginFile(std::string name)
{
    fileName = std::move(name);
    failed = false;
    repeats.clear();
}

bool Reporter::ShowRepeated(uint32_t messageId, int32_t line)
{
    auto entry = std::find_if(repeats.begin(), repeats.end(), [&](const Repeated& r) { return r.messageId == messageId; });
    if (entry == repeats.end())
        entry = repeats.insert(repeats.end(), Repeated{messageId, 0, 0});
    if (++entry->count == kShownRepeats + 1)
        entry->firstHiddenLine = line;
    return entry->count <= kShownRepeats;
}

void Reporter::SayRepeats(Message<uint32_t, Text> countLine, RepeatWords words)
{
    for (const Repeated& entry : repeats) {
        if (entry.count <= kShownRepeats)
            continue;
        const uint32_t hidden = entry.count - kShownRepeats;
        const std::string_view said = words(entry.messageId, hidden);
        if (!said.empty())
            Warning(entry.firstHiddenLine, countLine, hidden, said);
    }
    repeats.clear();
}

void Reporter::SetError(int32_t line, std::string_view text)
{
    failed = true;
    if (deferred)
        return Keep(Kept::Error, line, 0, std::string(text));
    errorText = FormatMessage(kMessageErrorPrefix, fileName, line);
    errorText += text;
    if (!quiet)
        TracePrintf("%s(%d) : %s", kSource, kErrorEchoLine, "Error: BaseParser: (%s)\n", errorText.c_str());
}

void Reporter::PrintWarning(int32_t line, std::string_view text)
{
    if (deferred)
        return Keep(Kept::Warning, line, 0, std::string(text));
    std::string report = FormatMessage(kMessageWarningPrefix, fileName, line);
    report += text;
    Print(report);
    TracePrintf("%s(%d) : %s", kSource, kWarningEchoLine, "Warning: BaseParser: (%s)\n", report.c_str());
}

void Reporter::Print(std::string_view text)
{
    if (deferred)
        return Keep(Kept::Progress, 0, 0, std::string(text));
    std::fwrite(text.data(), 1, text.size(), stdout);
}
