#include "Users/PasswordPrompt.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A user at a terminal who is asked for a password. What they see is collected.
class AUserAtATerminal : public testing::Test
{
protected:
    AUserAtATerminal()
    {
        child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0)
            Ask();
    }
    ~AUserAtATerminal() override
    {
        close(terminal);
        if (child > 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }

    /// In the child: 0 when the password is the expected one.
    [[noreturn]] static void Ask()
    {
        try {
            std::_Exit(AskForNewPassword("ann") == "one two" ? 0 : 1);
        } catch (const std::exception& error) {
            std::cerr << error.what() << std::flush;
            std::_Exit(2);
        }
    }

    void Type(const std::string& text) const
    {
        ASSERT_EQ(write(terminal, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    /// Collects until the text has been seen, or nothing more comes.
    void WaitFor(const std::string& text)
    {
        pollfd waiting = {.fd = terminal, .events = POLLIN, .revents = 0};
        while (seen.find(text) == std::string::npos && poll(&waiting, 1, 60'000) == 1) {
            std::array<char, 256> block{};
            const auto count = read(terminal, block.data(), block.size());
            if (count <= 0)
                break;
            seen.append(block.data(), static_cast<std::size_t>(count));
        }
        ASSERT_THAT(seen, HasSubstr(text));
    }

    [[nodiscard]] bool IsEchoing() const
    {
        termios settings = {};
        EXPECT_EQ(tcgetattr(terminal, &settings), 0);
        return (settings.c_lflag & static_cast<tcflag_t>(ECHO)) != 0;
    }

    int WaitForTheEnd()
    {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        child = -1;
        return status;
    }

    int terminal = -1;
    pid_t child = -1;
    std::string seen;
};

TEST_F(AUserAtATerminal, TypesThePasswordTwiceAndDoesNotSeeIt)
{
    WaitFor("New password of ann: ");
    EXPECT_FALSE(IsEchoing());
    Type("one two\n");
    WaitFor("Repeat the password: ");
    Type("one two\n");
    EXPECT_EQ(WaitForTheEnd(), 0);
    EXPECT_TRUE(IsEchoing());
    EXPECT_THAT(seen, Not(HasSubstr("one")));
}

TEST_F(AUserAtATerminal, IsToldThatThePasswordsDiffer)
{
    WaitFor("New password of ann: ");
    Type("one two\n");
    WaitFor("Repeat the password: ");
    Type("three\n");
    WaitFor("the passwords differ");
    EXPECT_EQ(WEXITSTATUS(WaitForTheEnd()), 2);
    EXPECT_TRUE(IsEchoing());
}

TEST_F(AUserAtATerminal, GetsTheTerminalBackAfterAnInterruption)
{
    WaitFor("New password of ann: ");
    EXPECT_FALSE(IsEchoing());
    Type("on\x03");
    const int status = WaitForTheEnd();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    EXPECT_TRUE(IsEchoing());
}

TEST_F(AUserAtATerminal, CanGiveNoPassword)
{
    WaitFor("New password of ann: ");
    Type("\x04");
    WaitFor("no password was given");
    EXPECT_EQ(WEXITSTATUS(WaitForTheEnd()), 2);
    EXPECT_TRUE(IsEchoing());
}

} // namespace
} // namespace Host
