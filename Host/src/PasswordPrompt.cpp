#include "PasswordPrompt.h"

#include "Core/Exception.h"
#include "SystemError.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace Host {

namespace {

volatile std::sig_atomic_t caughtSignal = 0;

/// Keeps the signals that end or stop a program waiting until the terminal is in order.
class SignalDelay
{
public:
    SignalDelay()
    {
        caughtSignal = 0;
        struct sigaction action = {}; // without SA_RESTART: a read that waits ends
        action.sa_handler = [](int number) {
            caughtSignal = number;
        };
        for (std::size_t index = 0; index < signals.size(); ++index)
            sigaction(signals.at(index), &action, &previous.at(index));
    }
    SignalDelay(const SignalDelay&) = delete;
    SignalDelay& operator=(const SignalDelay&) = delete;
    ~SignalDelay()
    {
        for (std::size_t index = 0; index < signals.size(); ++index)
            sigaction(signals.at(index), &previous.at(index), nullptr);
        if (caughtSignal != 0)
            raise(caughtSignal);
    }

private:
    static constexpr std::array signals = {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGTSTP};
    std::array<struct sigaction, signals.size()> previous{};
};

class EchoOff
{
public:
    EchoOff()
    {
        if (tcgetattr(STDIN_FILENO, &previous) != 0)
            ThrowSystemError("the terminal cannot be told not to show the password");
        auto silent = previous;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0)
            ThrowSystemError("the terminal cannot be told not to show the password");
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    ~EchoOff() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &previous); }

private:
    termios previous{};
};

void Show(std::string_view text)
{
    // The prompt is a courtesy: where it cannot be written the password can still be read.
    if (write(STDERR_FILENO, text.data(), text.size()) < 0)
        return;
}

/// Nothing at the end of the input, or when a signal came.
std::optional<std::string> ReadLine()
{
    std::string line;
    for (;;) {
        char character = 0;
        const auto count = read(STDIN_FILENO, &character, 1);
        if (count < 0 && errno != EINTR)
            ThrowSystemError("the password cannot be read");
        if (count < 0 && caughtSignal == 0)
            continue;
        if (count <= 0 && (line.empty() || count < 0))
            return std::nullopt;
        if (count == 0 || character == '\n')
            return line;
        line += character;
    }
}

std::string AskWithoutEcho(const std::string& prompt)
{
    std::optional<std::string> answer;
    {
        const SignalDelay delay;
        const EchoOff silence;
        Show(prompt);
        answer = ReadLine();
        Show("\n");
    }
    if (!answer)
        throw Core::InvalidArgumentException("no password was given");
    return *answer;
}

} // namespace

std::string AskForNewPassword(const std::string& user)
{
    if (isatty(STDIN_FILENO) == 0) {
        if (auto line = ReadLine())
            return *line;
        throw Core::InvalidArgumentException("standard input holds no password");
    }
    auto password = AskWithoutEcho("New password of " + user + ": ");
    if (AskWithoutEcho("The same again: ") != password)
        throw Core::InvalidArgumentException("the two passwords differ; nothing was changed");
    return password;
}

} // namespace Host
