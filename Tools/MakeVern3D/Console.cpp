#include "Console.h"

#include "ResString.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

void PrintText(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void PrintMessage(uint32_t id)
{
    ResString text;
    text.Load(id);
    PrintText(text);
}

void PrintFormattedMessage(uint32_t id, ...)
{
    ResString format;
    format.Load(id);
    char buffer[1024];
    va_list args;
    va_start(args, id);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::vsnprintf(buffer, sizeof buffer, format.c_str(), args);
#pragma GCC diagnostic pop
    va_end(args);
    if (length > 0)
        PrintText(std::string_view(buffer, std::min<size_t>(static_cast<size_t>(length), sizeof buffer - 1)));
}

void PrintErrorLine(uint32_t id, ...)
{
    ResString format;
    format.Load(id);
    va_list args;
    va_start(args, id);
    va_list copy;
    va_copy(copy, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::vsnprintf(nullptr, 0, format.c_str(), copy);
    va_end(copy);
    std::string text(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format.c_str(), args);
#pragma GCC diagnostic pop
    va_end(args);
    text.resize(static_cast<size_t>(std::max(length, 0)));
    std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

namespace {

// A key that was seen once stays pending: it is never read, as with the console's own key buffer.
bool keySeen = false;

// Raw (non-canonical, no echo) mode only while we look, so that a single key counts as pending.
bool TerminalHasInput(int timeoutMilliseconds)
{
    termios saved{};
    if (::tcgetattr(STDIN_FILENO, &saved) != 0)
        return false;
    termios raw = saved;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    ::tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const int ready = ::poll(&input, 1, timeoutMilliseconds);
    int available = 0;
    if (ready > 0)
        ::ioctl(STDIN_FILENO, FIONREAD, &available);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    // A hang-up or error on the terminal ends the wait too, so that it never spins forever.
    return ready > 0 && (available > 0 || (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0);
}

}  // namespace

bool KeyPressPending()
{
    if (keySeen)
        return true;
    if (!::isatty(STDIN_FILENO))
        return false;
    keySeen = TerminalHasInput(0);
    return keySeen;
}

void WaitForKey()
{
    std::fflush(stdout);
    if (keySeen || !::isatty(STDIN_FILENO))
        return;
    while (!keySeen) {
        keySeen = TerminalHasInput(100);
        if (!::isatty(STDIN_FILENO))
            return;  // the terminal went away
    }
}
