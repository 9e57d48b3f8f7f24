// Messages: an id in a message table together with the types of the values its text takes.
//
// A message's text is a printf-style format with four conversions, %s (a text), %d (a signed and
// %u an unsigned 32-bit number), %g (a double), and %% for a percent sign. The types are part of
// the message (Message<Text, int32_t> for "'%s' ... %d"), so a call with the wrong number or kinds of values
// does not compile, and formatting never reads a value as something it is not: no varargs. A text
// whose conversions disagree with its message's types is a bug (asserted while formatting).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

// Finds the text of message `id` in one table; false when that table has none.
using MessageLookup = bool (*)(uint32_t id, std::string_view* text);

// The running program's own table. Each program (and each test binary) links exactly one, the way
// a Windows module carries its own string resources.
bool FindModuleString(uint32_t id, std::string_view* text);

// One value of a message: a text for %s, a number for %d, %u or %g.
class MessageArgument {
public:
    enum class Kind : uint8_t { Text, Signed, Unsigned, Real };

    MessageArgument(std::string_view text) : kind(Kind::Text), text(text) {}
    MessageArgument(int32_t value) : kind(Kind::Signed), number(value) {}
    MessageArgument(uint32_t value) : kind(Kind::Unsigned), number(value) {}
    MessageArgument(double value) : kind(Kind::Real), real(value) {}

    Kind kind;
    std::string_view text;
    int64_t number = 0;
    double real = 0.0;
};

// The argument types a message may take.
using Text = std::string_view;
template <typename T>
concept MessageValue =
    std::is_same_v<T, Text> || std::is_same_v<T, int32_t> || std::is_same_v<T, uint32_t> || std::is_same_v<T, double>;

// Message `id` of the table that `lookup` searches (the program's own by default), taking Args.
template <MessageValue... Args>
struct Message {
    uint32_t id;
    MessageLookup lookup = FindModuleString;
};

// The text of message `id`, its conversions filled with `arguments` in order; a %s shows its text
// up to a zero byte, as printf does. The text grows as needed; a missing text gives "".
std::string FormatMessage(uint32_t id, MessageLookup lookup, std::span<const MessageArgument> arguments);

template <MessageValue... Args>
std::string FormatMessage(Message<Args...> message, std::type_identity_t<Args>... arguments)
{
    if constexpr (sizeof...(Args) == 0) {
        return FormatMessage(message.id, message.lookup, {});
    } else {
        const MessageArgument list[] = {MessageArgument(arguments)...};
        return FormatMessage(message.id, message.lookup, list);
    }
}
