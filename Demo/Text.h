#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Demo {

/// Returns the text with everything that could break or forge a line of output (control characters,
/// marks of writing direction, quotation marks, backslashes, bytes that are not valid UTF-8) as
/// \xnn.
[[nodiscard]] std::string Escape(std::string_view raw);

/// Returns an escaped path in quotation marks.
[[nodiscard]] std::string Quote(const std::filesystem::path& path);

/// Writes a whole line to standard output: lines of several threads do not mix.
void PrintLine(const std::string& line);

} // namespace Demo
