#include "AbstractData/Message.h"

#include <algorithm>
#include <cassert>
#include <cstdio>

std::string FormatMessage(uint32_t id, MessageLookup lookup, std::span<const MessageArgument> arguments)
{
    std::string_view format;
    if (!lookup(id, &format))
        return {};
    std::string text;
    text.reserve(format.size() + 16 * arguments.size());
    size_t next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        const char character = format[i];
        if (character != '%' || i + 1 == format.size()) {
            text += character;
            continue;
        }
        const char conversion = format[++i];
        if (conversion == '%') {
            text += '%';
            continue;
        }
        assert(next < arguments.size() && "a message takes fewer values than its text converts");
        if (next == arguments.size())
            continue;
        const MessageArgument& argument = arguments[next++];
        using Kind = MessageArgument::Kind;
        assert(((conversion == 's' && argument.kind == Kind::Text) || (conversion == 'd' && argument.kind == Kind::Signed) ||
                (conversion == 'u' && argument.kind == Kind::Unsigned) || (conversion == 'g' && argument.kind == Kind::Real)) &&
               "a message's text converts a value as another type");
        if (argument.kind == Kind::Text) {
            text += argument.text.substr(0, argument.text.find('\0'));
        } else if (argument.kind == Kind::Real) {
            char number[32];  // "%g" gives at most 6 significant digits and a 3-digit exponent
            const int length = std::snprintf(number, sizeof number, "%g", argument.real);
            text.append(number, static_cast<size_t>(std::max(length, 0)));
        } else {
            text += std::to_string(argument.number);
        }
    }
    assert(next == arguments.size() && "a message takes more values than its text converts");
    return text;
}
