// The wait after a failed file, on a real terminal: it holds the run until a key is pressed, and
// a key pressed once ends every later wait.
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <chrono>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// Reads what the terminal shows until `wanted` appears or `milliseconds` pass.
bool ReadUntil(int terminal, std::string& seen, const std::string& wanted, int milliseconds)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (seen.find(wanted) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd ready{terminal, POLLIN, 0};
        char buffer[4096];
        ssize_t count = 0;
        if (left <= 0 || (::poll(&ready, 1, static_cast<int>(left)) > 0 && (count = ::read(terminal, buffer, sizeof buffer)) <= 0))
            return false;  // the time is up, or the terminal has closed
        seen.append(buffer, static_cast<size_t>(count));
    }
    return true;
}

// The converter on a pseudo-terminal in a directory holding one good scene; -1 where no
// pseudo-terminal can be had.
pid_t StartOnTerminal(const testfiles::ScratchDirectory& directory, std::vector<const char*> arguments, int* terminal)
{
    directory.Write("good.ase", "*HELPEROBJECT {\n*HELPER_CLASS \"Dummy\"\n}\n");
    arguments.insert(arguments.begin(), MAKEVERN3D_EXE);
    arguments.push_back(nullptr);
    const pid_t child = ::forkpty(terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        if (::chdir(directory.Path().c_str()) != 0)
            ::_exit(127);
        ::execv(MAKEVERN3D_EXE, const_cast<char* const*>(arguments.data()));
        ::_exit(127);
    }
    return child;
}

// On a terminal a failed file holds the run until a key is pressed, and that one key ends every
// later wait; under -batch nothing waits and the exit code tells of the failure.
TEST(KeyWait, HoldsOnATerminalUntilOneKeyIsPendingExceptUnderBatch)
{
    const struct { std::vector<const char*> arguments; bool held; int exitCode; } cases[] = {
        {{"first.ase", "second.ase", "good.ase"}, true, 0}, {{"-batch", "first.ase", "good.ase"}, false, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments[0]);
        testfiles::ScratchDirectory directory;
        int terminal = -1;
        const pid_t child = StartOnTerminal(directory, c.arguments, &terminal);
        if (child < 0)
            GTEST_SKIP() << "no pseudo-terminal available here";
        std::string seen;
        ASSERT_TRUE(ReadUntil(terminal, seen, "Could not open file 'first.ase'", 10000)) << seen;
        if (c.held) {
            // Held: the second file is not started while no key is pending.
            EXPECT_FALSE(ReadUntil(terminal, seen, "second.ase:", 700)) << seen;
            ASSERT_EQ(::write(terminal, "x", 1), 1);
        }
        // One key ends this wait and the next one; the good file is converted after them.
        EXPECT_TRUE(ReadUntil(terminal, seen, "File successful compiled.", 10000)) << seen;
        EXPECT_EQ(seen.find("Could not open file 'second.ase'") != std::string::npos, c.held) << seen;
        int status = 0;
        ::waitpid(child, &status, 0);
        ::close(terminal);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == c.exitCode) << status;
    }
}

}  // namespace
