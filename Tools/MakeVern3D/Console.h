// Console output and the key wait. Texts are always printed as they stand, never as formats.
#pragma once

#include "AbstractData/Message.h"

#include <cstdint>
#include <string_view>

void PrintText(std::string_view text);
// Message `id` of the program's table as stored (unformatted).
void PrintMessage(uint32_t id);
inline void PrintMessage(Message<> message) { PrintMessage(message.id); }
// A message filled with its values, cut after 1,023 characters (the classic console buffer).
void PrintFormattedText(std::string text);
template <MessageValue... Args>
void PrintFormattedMessage(Message<Args...> message, std::type_identity_t<Args>... values)
{
    PrintFormattedText(FormatMessage(message, values...));
}
// A message filled with its values (the text grows as needed), printed on standard error after
// what standard output holds so far.
void PrintErrorText(std::string_view text);
template <MessageValue... Args>
void PrintErrorLine(Message<Args...> message, std::type_identity_t<Args>... values)
{
    PrintErrorText(FormatMessage(message, values...));
}

// Whether a key press is pending on the console, without consuming it. Never blocks; false when
// standard input is not a terminal (pipes, files, /dev/null, closed).
bool KeyPressPending();

// Waits until a key press is pending. Returns at once when standard input is not a terminal, so
// that scripted and CI runs never hang; the key is left unread, so later waits end at once.
void WaitForKey();
