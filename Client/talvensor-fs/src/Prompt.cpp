#include "Prompt.h"

#include "Client/Exceptions.h"
#include "Text.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace Cli {

namespace {

/// Keeps a terminal from showing what is typed. Keys that stop or quit the program do nothing
/// meanwhile: they would leave the terminal without echo.
class EchoOff
{
public:
    explicit EchoOff(int descriptor)
        : descriptor(descriptor)
    {
        if (tcgetattr(descriptor, &previous) != 0)
            Fail();
        auto silent = previous;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_cc[VSUSP] = _POSIX_VDISABLE;
        silent.c_cc[VQUIT] = _POSIX_VDISABLE;
        if (tcsetattr(descriptor, TCSAFLUSH, &silent) != 0)
            Fail();
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    ~EchoOff() { tcsetattr(descriptor, TCSAFLUSH, &previous); }

private:
    [[noreturn]] static void Fail()
    {
        throw Client::ClientException("the terminal cannot be told not to show the password: " +
                                      std::generic_category().message(errno));
    }

    const int descriptor;
    termios previous{};
};

/// Shows the end of the line that was not echoed, also when there is none.
class LineEnd
{
public:
    explicit LineEnd(int descriptor)
        : descriptor(descriptor)
    {}
    LineEnd(const LineEnd&) = delete;
    LineEnd& operator=(const LineEnd&) = delete;
    ~LineEnd()
    {
        if (write(descriptor, "\n", 1) < 0)
            return; // a courtesy
    }

private:
    const int descriptor;
};

std::string EscapeLines(std::string_view text)
{
    std::string escaped;
    for (auto end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        escaped += EscapeText(text.substr(0, end)) + "\n";
        text.remove_prefix(end + 1);
    }
    return escaped + EscapeText(text);
}

} // namespace

std::optional<Prompt> Prompt::Open()
{
    const int descriptor = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0)
        return std::nullopt;
    return Prompt(descriptor);
}

Prompt::Prompt(Prompt&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1))
{}

Prompt::~Prompt()
{
    if (descriptor >= 0)
        close(descriptor);
}

std::optional<std::string> Prompt::Ask(const std::string& text,
                                       const Client::Cancellation& cancellation) const
{
    Show(text);
    return ReadLine(cancellation);
}

std::optional<std::string> Prompt::AskWithoutEcho(const std::string& text,
                                                  const Client::Cancellation& cancellation) const
{
    const EchoOff silence(descriptor);
    Show(text);
    const LineEnd end(descriptor);
    return ReadLine(cancellation);
}

void Prompt::Show(const std::string& text) const
{
    const auto escaped = EscapeLines(text);
    // Where the question cannot be written it can still be answered.
    if (write(descriptor, escaped.data(), escaped.size()) < 0)
        return;
}

std::optional<std::string> Prompt::ReadLine(const Client::Cancellation& cancellation) const
{
    std::array<pollfd, 2> waiting = {
        pollfd{.fd = descriptor, .events = POLLIN, .revents = 0},
        pollfd{.fd = cancellation.GetDescriptor(), .events = POLLIN, .revents = 0}};
    std::string line;
    for (;;) {
        poll(waiting.data(), waiting.size(), -1);
        if (cancellation.IsCancelled())
            throw Client::CancelledException();
        if (waiting.front().revents == 0)
            continue;
        char character = 0;
        const auto count = read(descriptor, &character, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return std::nullopt;
        if (character == '\n')
            return line;
        line += character;
    }
}

} // namespace Cli
