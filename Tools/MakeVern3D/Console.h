// Console output and the key wait. Texts are always printed as they stand, never as formats.
#pragma once

#include <cstdint>
#include <string_view>

void PrintText(std::string_view text);
void PrintMessage(uint32_t id);
// Formats message `id` with the arguments (printf-style, into at most 1024 characters) and prints it.
void PrintFormattedMessage(uint32_t id, ...);
// Formats message `id` with the arguments (the text grows as needed) and prints it on standard
// error, after what standard output holds so far.
void PrintErrorLine(uint32_t id, ...);

// Whether a key press is pending on the console, without consuming it. Never blocks; false when
// standard input is not a terminal (pipes, files, /dev/null, closed).
bool KeyPressPending();

// Waits until a key press is pending. Returns at once when standard input is not a terminal, so
// that scripted and CI runs never hang; the key is left unread, so later waits end at once.
void WaitForKey();
