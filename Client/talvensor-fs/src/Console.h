#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace Cli {

/// Standard error: messages, and below them, on a terminal, a few lines that are drawn over again.
/// Threads: every operation may be called from any thread.
class Console
{
public:
    Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    /// A terminal that can draw over what it shows.
    [[nodiscard]] bool CanDraw() const noexcept { return canDraw; }

    /// Columns of the terminal.
    [[nodiscard]] static std::size_t GetColumns() noexcept;

    /// One line, with this program's name before it; nothing in it can act on a terminal.
    void Report(const std::string& text);

    /// One line as it is, escaped likewise.
    void Say(const std::string& text);

    /// Shows these lines in place of the ones before. They must fit the terminal's width.
    /// REQUIRES: CanDraw.
    void Draw(std::vector<std::string> lines);

private:
    void PrintLine(const std::string& line);
    [[nodiscard]] std::string Erase() const;
    [[nodiscard]] std::string Show() const;

    const bool canDraw;
    std::mutex mutex;
    std::vector<std::string> drawn; ///< the cursor is behind the last one
};

} // namespace Cli
