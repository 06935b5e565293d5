#include "Output/Output.h"

#include "Commands/CommandRunner.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <system_error>

namespace Cli {

namespace {

constexpr std::size_t gatheredAtMost = 65'536;
constexpr std::size_t keptAtMost = std::size_t{64} << 20U;

std::atomic<bool> isInsideLine{false};

bool IsRegularFile(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

/// Waits until one of the events comes. Throws CancelledException.
void WaitFor(int descriptor, short events, const Client::Cancellation& cancellation)
{
    std::array<pollfd, 2> waiting = {
        pollfd{.fd = descriptor, .events = events, .revents = 0},
        pollfd{.fd = cancellation.GetDescriptor(), .events = POLLIN, .revents = 0}};
    do {
        if (cancellation.IsCancelled())
            throw Client::CancelledException();
        poll(waiting.data(), waiting.size(), -1);
    } while (waiting.front().revents == 0);
}

[[noreturn]] void Fail(const std::string& what)
{
    throw Client::ClientException(what + ": " + std::generic_category().message(errno));
}

} // namespace

Output::Output(const Workplace& workplace)
    : Output(workplace.cancellation, workplace.kept)
{}

Output::Output(const Client::Cancellation& cancellation, KeptOutput* kept)
    : cancellation(cancellation)
    , kept(kept)
    , isTerminal(isatty(STDOUT_FILENO) == 1)
    , isFile(IsRegularFile(STDOUT_FILENO))
{}

bool Output::IsInsideLine() noexcept
{
    return isInsideLine;
}

void Output::Write(std::string_view text)
{
    gathered += text;
    if (gathered.size() >= gatheredAtMost)
        Flush();
}

void Output::Write(std::span<const unsigned char> bytes)
{
    Write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void Output::Flush()
{
    WriteNow(gathered);
    gathered.clear();
}

void Output::WriteNow(std::string_view text) const
{
    if (kept != nullptr) {
        Keep(text);
        return;
    }
    if (!text.empty())
        isInsideLine = !text.ends_with('\n');
    while (!text.empty()) {
        WaitUntilWritable();
        // So much a pipe takes at once when it takes anything: a reader that stops does not hold
        // up an interruption.
        const auto size = isFile ? text.size() : std::min<std::size_t>(text.size(), PIPE_BUF);
        const auto count = write(STDOUT_FILENO, text.data(), size);
        if (count < 0 && errno == EPIPE)
            throw BrokenPipeException();
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            Fail("standard output");
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

void Output::Keep(std::string_view text) const
{
    if (text.size() > keptAtMost - kept->text.size())
        throw Client::ClientException("its output is larger than 64 MiB");
    kept->text += text;
}

void Output::WaitUntilWritable() const
{
    if (!isFile)
        WaitFor(STDOUT_FILENO, POLLOUT, cancellation);
}

std::size_t ReadInput(std::span<unsigned char> buffer, const Client::Cancellation& cancellation)
{
    for (;;) {
        WaitFor(STDIN_FILENO, POLLIN, cancellation);
        const auto count = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR && errno != EAGAIN)
            Fail("standard input");
    }
}

} // namespace Cli
