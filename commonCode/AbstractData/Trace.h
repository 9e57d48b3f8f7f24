// The trace channel and the ASSERT_HRESULT report.
//
// Every failed status check reports "<source>(<line>) : Error: ASSERT_HRESULT(0x<hex>)" here, and
// the parser echoes its errors and warnings here. Nothing in the program reads the channel back;
// it is silent unless the environment variable MAKEVERN3D_TRACE is set (then it goes to standard
// error) or a sink is installed (the tests do that).
#pragma once

#include "AbstractData/Status.h"

#include <functional>
#include <string_view>

// Formats `format` ("%s(%d) : %s") with source, line and messageFormat, then formats that result
// again with the remaining arguments, and writes it to the trace channel. Never fails.
void TracePrintf(const char* format, const char* source, int line, const char* messageFormat, ...);

// Reports a failed status with the place of the check and hands the status back unchanged.
HRESULT AssertHresult(const char* source, int line, HRESULT status);

// Where trace text goes. An empty sink restores the default (environment-controlled) channel.
using TraceSink = std::function<void(std::string_view)>;
void SetTraceSink(TraceSink sink);
