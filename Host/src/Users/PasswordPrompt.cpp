#include "Users/PasswordPrompt.h"

#include "Core/Exception.h"
#include "Process/SystemError.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace Host {

namespace {

volatile std::sig_atomic_t caughtSignal = 0;

/// Keeps the signals that end or stop a program waiting until the terminal is in order. They are
/// caught only where `GetWaitingMask` lets them in: one that came just before a wait would not end
/// it.
class SignalDelay
{
public:
    SignalDelay()
    {
        caughtSignal = 0;
        struct sigaction action = {};
        action.sa_handler = [](int number) {
            caughtSignal = number;
        };
        sigset_t delayed;
        sigemptyset(&delayed);
        for (const int number : signals)
            sigaddset(&delayed, number);
        pthread_sigmask(SIG_BLOCK, &delayed, &mask);
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
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    }

    [[nodiscard]] const sigset_t& GetWaitingMask() const noexcept { return mask; }

private:
    static constexpr std::array signals = {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGTSTP};
    sigset_t mask{};
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

sigset_t GetSignalMask()
{
    sigset_t mask{};
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return mask;
}

/// False when a signal came.
bool WaitForInput(const sigset_t& mask)
{
    pollfd query{STDIN_FILENO, POLLIN, 0};
    while (caughtSignal == 0 && ppoll(&query, 1, nullptr, &mask) < 0) {
        if (errno != EINTR)
            ThrowSystemError("the password cannot be read");
    }
    return caughtSignal == 0;
}

/// Nothing at the end of the input, or when a signal came.
std::optional<std::string> ReadLine(const sigset_t& mask)
{
    std::string line;
    for (;;) {
        if (!WaitForInput(mask))
            return std::nullopt;
        char character = 0;
        const auto count = read(STDIN_FILENO, &character, 1);
        if (count < 0)
            ThrowSystemError("the password cannot be read");
        if (count == 0 && line.empty())
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
        answer = ReadLine(delay.GetWaitingMask());
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
        if (auto line = ReadLine(GetSignalMask()))
            return *line;
        throw Core::InvalidArgumentException("standard input holds no password");
    }
    auto password = AskWithoutEcho("New password of " + user + ": ");
    if (AskWithoutEcho("The same again: ") != password)
        throw Core::InvalidArgumentException("the two passwords differ; nothing was changed");
    return password;
}

} // namespace Host
