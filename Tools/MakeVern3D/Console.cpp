#include "Console.h"

#include "AbstractData/ResString.h"

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

void PrintFormattedText(std::string text)
{
    constexpr size_t kBuffer = 1024;
    if (text.size() >= kBuffer)
        text.resize(kBuffer - 1);
    PrintText(text);
}

void PrintErrorText(std::string_view text)
{
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
