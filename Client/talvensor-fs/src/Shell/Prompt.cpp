#include "Shell/Prompt.h"

#include "Client/Exceptions.h"
#include "Output/Text.h"
#include "Support/Terminal.h"

#include <fcntl.h>
#include <poll.h>

#include <array>
#include <string_view>
#include <system_error>
#include <utility>

namespace Cli {

namespace {

/// Ends the line on the terminal when it is destroyed, since what the user typed was not shown.
class LineEnd
{
public:
    explicit LineEnd(int descriptor)
        : descriptor(descriptor)
    {}
    LineEnd(const LineEnd&) = delete;
    LineEnd& operator=(const LineEnd&) = delete;
    ~LineEnd() { Support::Show(descriptor, "\n"); }

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
    Support::Descriptor terminal(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (!terminal.IsOpen())
        return std::nullopt;
    return Prompt(std::move(terminal));
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
    try {
        const Support::EchoOff silence(terminal.Get(), Support::StopKeys::Off);
        Show(text);
        const LineEnd end(terminal.Get());
        return ReadLine(cancellation);
    } catch (const std::system_error& error) {
        throw Client::ClientException(error.what());
    }
}

void Prompt::Show(const std::string& text) const
{
    Support::Show(terminal.Get(), EscapeLines(text));
}

std::optional<std::string> Prompt::ReadLine(const Client::Cancellation& cancellation) const
{
    try {
        return Support::ReadLine(terminal.Get(), [this, &cancellation] {
            WaitForInput(cancellation);
            return true;
        });
    } catch (const std::system_error&) {
        return std::nullopt; // the terminal is gone: its input has ended
    }
}

void Prompt::WaitForInput(const Client::Cancellation& cancellation) const
{
    std::array<pollfd, 2> waiting = {
        pollfd{.fd = terminal.Get(), .events = POLLIN, .revents = 0},
        pollfd{.fd = cancellation.GetDescriptor(), .events = POLLIN, .revents = 0}};
    do {
        poll(waiting.data(), waiting.size(), -1);
        if (cancellation.IsCancelled())
            throw Client::CancelledException();
    } while (waiting.front().revents == 0);
}

} // namespace Cli
