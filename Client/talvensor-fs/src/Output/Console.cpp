#include "Output/Console.h"

#include "Output/Text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <utility>

namespace Cli {

namespace {

constexpr const char* eraseLine = "\r\x1b[K";
constexpr const char* lineUp = "\x1b[A";

bool CanDrawOnStandardError()
{
    const char* const terminal = std::getenv("TERM"); // NOLINT(concurrency-mt-unsafe)
    return isatty(STDERR_FILENO) == 1 && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

/// Writes all at once, so that no half of a frame is seen. Text that cannot be written is lost:
/// there is no better place to say so.
void WriteAll(std::string_view text)
{
    while (!text.empty()) {
        const auto count = write(STDERR_FILENO, text.data(), text.size());
        if (count <= 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

} // namespace

Console::Console()
    : canDraw(CanDrawOnStandardError())
{}

Console::Console(std::function<void(const std::string&)> take)
    : take(std::move(take))
    , canDraw(false)
{}

Console::~Console()
{
    const Support::Lock lock(mutex);
    if (!drawn.empty())
        WriteAll(Erase());
}

std::size_t Console::GetColumns() noexcept
{
    constexpr std::size_t usual = 80;
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return usual;
    return size.ws_col;
}

void Console::Report(const std::string& text)
{
    if (!TakeLine(EscapeText(text)))
        PrintLine("talvensor-fs: " + EscapeText(text));
}

void Console::Say(const std::string& text)
{
    if (!TakeLine(EscapeText(text)))
        PrintLine(EscapeText(text));
}

bool Console::TakeLine(const std::string& line)
{
    if (!take)
        return false;
    const Support::Lock lock(mutex);
    take(line);
    return true;
}

void Console::PrintLine(const std::string& line)
{
    const Support::Lock lock(mutex);
    WriteAll(Erase() + line + "\n" + Show());
}

void Console::Draw(std::vector<std::string> lines)
{
    const Support::Lock lock(mutex);
    const auto erased = lines.size() < drawn.size() ? Erase() : "";
    const auto up = erased.empty() && !drawn.empty() ? drawn.size() - 1 : 0;
    drawn = std::move(lines);
    std::string frame = erased;
    for (std::size_t line = 0; line < up; ++line)
        frame += lineUp;
    WriteAll(frame + Show());
}

std::string Console::Erase() const
{
    std::string text;
    for (std::size_t line = 0; line < drawn.size(); ++line)
        text += line == 0 ? eraseLine : std::string(lineUp) + eraseLine;
    return text;
}

/// Writes over what is there and erases the rest of each line: nothing is blank in between.
std::string Console::Show() const
{
    std::string text;
    for (std::size_t line = 0; line < drawn.size(); ++line)
        text += (line == 0 ? "\r" : "\n\r") + drawn[line] + "\x1b[K";
    return text;
}

} // namespace Cli
