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
    errorText = FormatMessage(kMessageErrorPrefix, fileName, line);
    errorText += text;
    if (!quiet)
        TracePrintf("%s(%d) : %s", kSource, kErrorEchoLine, "Error: BaseParser: (%s)\n", errorText.c_str());
}

void Reporter::PrintWarning(int32_t line, std::string_view text)
{
    std::string report = FormatMessage(kMessageWarningPrefix, fileName, line);
    report += text;
    Print(report);
    TracePrintf("%s(%d) : %s", kSource, kWarningEchoLine, "Warning: BaseParser: (%s)\n", report.c_str());
}

void Reporter::Print(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}
