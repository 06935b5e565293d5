#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Cli {

/// Returns a name with everything that a terminal could act on as \n, \t or \xNN: control
/// characters, marks of writing direction, and bytes that are not valid UTF-8. Backslashes are
/// doubled, so that no two names look alike.
[[nodiscard]] std::string EscapeName(std::string_view name);

/// As above, but keeps backslashes: for texts that contain names.
[[nodiscard]] std::string EscapeText(std::string_view text);

/// Returns the columns of a terminal that a text without control characters takes.
[[nodiscard]] std::size_t CountColumns(std::string_view text);

/// Returns the text, or as much of its beginning as fits, followed by "...".
[[nodiscard]] std::string FitColumns(std::string_view text, std::size_t columns);

/// Returns the text, or "..." and as much of its end as fits: of a path, this keeps the name.
[[nodiscard]] std::string FitColumnsFromEnd(std::string_view text, std::size_t columns);

/// "17 B", "1.2 GB": units are powers of 1000.
[[nodiscard]] std::string FormatBytes(std::uint64_t bytes);

/// Reads a rate as --bwlimit takes it: KiB a second, or with K, M or G behind the number KiB, MiB
/// or GiB. Returns bytes. Throws InvalidArgumentException.
[[nodiscard]] std::uint64_t ParseRate(const std::string& text);

/// "0:05", "1:02:03".
[[nodiscard]] std::string FormatClock(std::chrono::seconds duration);

/// "1 file", "2 files".
[[nodiscard]] std::string Count(std::uint64_t number, std::string_view one, std::string_view many);

} // namespace Cli
