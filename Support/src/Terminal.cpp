#include "Support/Terminal.h"

#include "Support/SystemError.h"

#include <cerrno>
#include <unistd.h>

namespace Support {

EchoOff::EchoOff(int terminal, StopKeys stopKeys)
    : terminal(terminal)
{
    constexpr const char* failed = "cannot switch off the echo of the terminal";
    if (tcgetattr(terminal, &previous) != 0)
        ThrowSystemError(failed);
    auto silent = previous;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (stopKeys == StopKeys::Off) {
        silent.c_cc[VSUSP] = _POSIX_VDISABLE;
        silent.c_cc[VQUIT] = _POSIX_VDISABLE;
    }
    if (tcsetattr(terminal, TCSAFLUSH, &silent) != 0)
        ThrowSystemError(failed);
}

EchoOff::~EchoOff()
{
    tcsetattr(terminal, TCSAFLUSH, &previous);
}

std::optional<std::string> ReadLine(int descriptor, const std::function<bool()>& waitForInput)
{
    std::string line;
    for (;;) {
        if (!waitForInput())
            return std::nullopt;
        char character = 0;
        const auto count = read(descriptor, &character, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            ThrowSystemError("cannot read the input");
        if (count == 0 && line.empty())
            return std::nullopt;
        if (count == 0 || character == '\n')
            return line;
        line += character;
    }
}

void Show(int terminal, const std::string& text) noexcept
{
    if (write(terminal, text.data(), text.size()) < 0)
        return;
}

} // namespace Support
