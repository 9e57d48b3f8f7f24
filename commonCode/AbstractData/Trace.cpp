#include "AbstractData/Trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

TraceSink& Sink()
{
    static TraceSink sink;
    return sink;
}

bool TraceToStderr()
{
    static const bool enabled = std::getenv("MAKEVERN3D_TRACE") != nullptr;
    return enabled;
}

// The formatter behind the trace: at most 1024 characters including the terminating zero, like
// the fixed buffers the report has always used; longer text is cut.
constexpr int kTraceBufferSize = 1024;

int ClampedLength(int written)
{
    if (written < 0)
        return 0;
    return written >= kTraceBufferSize ? kTraceBufferSize - 1 : written;
}

}  // namespace

void SetTraceSink(TraceSink sink) { Sink() = std::move(sink); }

void TracePrintf(const char* format, const char* source, int line, const char* messageFormat, ...)
{
    if (!Sink() && !TraceToStderr())
        return;

    char place[kTraceBufferSize];
    ClampedLength(std::snprintf(place, sizeof place, format, source, line, messageFormat));

    char text[kTraceBufferSize];
    va_list args;
    va_start(args, messageFormat);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = ClampedLength(std::vsnprintf(text, sizeof text, place, args));
#pragma GCC diagnostic pop
    va_end(args);

    if (Sink()) {
        Sink()(std::string_view(text, static_cast<size_t>(length)));
        return;
    }
    // The result of the write is deliberately not checked: tracing never fails its caller.
    [[maybe_unused]] ssize_t ignored = ::write(STDERR_FILENO, text, static_cast<size_t>(length));
}

HRESULT AssertHresult(const char* source, int line, HRESULT status)
{
    TracePrintf("%s(%d) : %s", source, line, "Error: ASSERT_HRESULT(0x%X)\n", static_cast<unsigned>(status));
    return status;
}
