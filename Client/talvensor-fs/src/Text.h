#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Cli {

/// Length in bytes of the UTF-8 character that the text starts with; 0 when it is none.
[[nodiscard]] std::size_t GetCharacterLength(std::string_view text) noexcept;

[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;

/// With everything that a terminal could act on as \n, \t or \xNN: control characters, those that
/// turn the direction of writing, and bytes that are no UTF-8. A backslash is doubled, so that
/// every name has a form of its own.
[[nodiscard]] std::string EscapeName(std::string_view name);

/// As above, with backslashes as they are: for texts that contain names.
[[nodiscard]] std::string EscapeText(std::string_view text);

/// Columns of a terminal that a text takes that has no control characters.
[[nodiscard]] std::size_t CountColumns(std::string_view text);

/// The text, or so much of its beginning that it fits, with "..." behind it.
[[nodiscard]] std::string FitColumns(std::string_view text, std::size_t columns);

/// The text, or so much of its end that it fits, with "..." before it: of a path, the name.
[[nodiscard]] std::string FitColumnsFromEnd(std::string_view text, std::size_t columns);

/// "17 B", "1.2 GB": units are powers of 1000.
[[nodiscard]] std::string FormatBytes(std::uint64_t bytes);

/// "0:05", "1:02:03".
[[nodiscard]] std::string FormatClock(std::chrono::seconds duration);

/// "1 file", "2 files".
[[nodiscard]] std::string Count(std::uint64_t number, std::string_view one, std::string_view many);

} // namespace Cli
