// Collects what the trace channel receives while it is alive.
#pragma once

#include "AbstractData/Trace.h"

#include <string>
#include <vector>

class TraceCapture {
public:
    TraceCapture()
    {
        SetTraceSink([this](std::string_view text) { lines.emplace_back(text); });
    }
    ~TraceCapture() { SetTraceSink({}); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::string Text() const
    {
        std::string all;
        for (const auto& line : lines)
            all += line;
        return all;
    }

    std::vector<std::string> lines;
};
