#pragma once

#include <Support/Mutex.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Cli {

/// Standard error: messages, and below them, on a terminal, a few lines that are drawn over again.
/// Threads: every operation may be called from any thread.
class Console
{
public:
    Console();

    /// Gives each line to `take` instead: without an end, and without this program's name. Called
    /// on the thread that reports, never two at once.
    explicit Console(std::function<void(const std::string& line)> take);

    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    /// Returns true on a terminal that can draw over its lines.
    [[nodiscard]] bool CanDraw() const noexcept { return canDraw; }

    /// Returns the columns of the terminal.
    [[nodiscard]] static std::size_t GetColumns() noexcept;

    /// Prints one line, with this program's name before it; nothing in it can act on a terminal.
    void Report(const std::string& text);

    /// Prints one line without the name, escaped likewise.
    void Say(const std::string& text);

    /// Shows these lines in place of the ones before. They must fit the terminal's width.
    /// REQUIRES: CanDraw.
    void Draw(std::vector<std::string> lines) EXCLUDES(mutex);

private:
    void PrintLine(const std::string& line) EXCLUDES(mutex);
    [[nodiscard]] bool TakeLine(const std::string& line) EXCLUDES(mutex);
    [[nodiscard]] std::string Erase() const REQUIRES(mutex);
    [[nodiscard]] std::string Show() const REQUIRES(mutex);

    const std::function<void(const std::string&)> take; ///< empty: standard error
    const bool canDraw;
    Support::Mutex mutex;
    std::vector<std::string> drawn GUARDED_BY(mutex); ///< the cursor is behind the last one
};

} // namespace Cli
