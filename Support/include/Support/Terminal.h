#pragma once

#include <functional>
#include <optional>
#include <string>
#include <termios.h>

namespace Support {

/// The keys that stop (^Z) or quit (^\) a program.
enum class StopKeys
{
    Kept,
    Off, ///< they do nothing while the echo is off: they would leave the terminal without echo
};

/// Keeps a terminal from showing what is typed, and restores its settings at the end. Input that
/// was typed before is dropped.
class EchoOff
{
public:
    /// Throws std::system_error if the descriptor is no terminal or its settings cannot be changed.
    EchoOff(int terminal, StopKeys stopKeys);
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    ~EchoOff();

private:
    int terminal;
    termios previous{};
};

/// Reads a line, byte by byte, and returns it without its end. Calls `waitForInput` before each
/// byte; it returns false to give up. Returns nothing at the end of the input or if
/// `waitForInput` gave up. Throws std::system_error if the descriptor cannot be read, and what
/// `waitForInput` throws.
[[nodiscard]] std::optional<std::string> ReadLine(int descriptor,
                                                  const std::function<bool()>& waitForInput);

/// Writes a text to a terminal. Failures are ignored: a question that cannot be shown can still be
/// answered.
void Show(int terminal, const std::string& text) noexcept;

} // namespace Support
