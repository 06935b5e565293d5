#include "Users/PasswordPrompt.h"

#include "Core/Exception.h"
#include "Support/SystemError.h"
#include "Support/Terminal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <poll.h>
#include <unistd.h>

namespace Host {

namespace {

volatile std::sig_atomic_t caughtSignal = 0;

/// Delays the signals that end or stop the program until the terminal is restored. They are caught
/// only during a wait with the mask of `GetWaitingMask`; a signal caught just before a wait would
/// not end it.
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

sigset_t GetSignalMask()
{
    sigset_t mask{};
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return mask;
}

/// Returns false if a signal came.
bool WaitForInput(const sigset_t& mask)
{
    pollfd query{STDIN_FILENO, POLLIN, 0};
    while (caughtSignal == 0 && ppoll(&query, 1, nullptr, &mask) < 0) {
        if (errno != EINTR)
            Support::ThrowSystemError("cannot read the password");
    }
    return caughtSignal == 0;
}

/// Returns nothing at the end of the input, or if a signal came.
std::optional<std::string> ReadLine(const sigset_t& mask)
{
    return Support::ReadLine(STDIN_FILENO, [&mask] { return WaitForInput(mask); });
}

std::string AskWithoutEcho(const std::string& prompt)
{
    std::optional<std::string> answer;
    {
        const SignalDelay delay;
        const Support::EchoOff silence(STDIN_FILENO, Support::StopKeys::Kept);
        Support::Show(STDERR_FILENO, prompt);
        answer = ReadLine(delay.GetWaitingMask());
        Support::Show(STDERR_FILENO, "\n");
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
        throw Core::InvalidArgumentException("standard input has no password");
    }
    auto password = AskWithoutEcho("New password of " + user + ": ");
    if (AskWithoutEcho("Repeat the password: ") != password)
        throw Core::InvalidArgumentException("the passwords differ; nothing was changed");
    return password;
}

} // namespace Host
