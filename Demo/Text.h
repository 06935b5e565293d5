#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Demo {

/// The text with everything that could break or forge a line of output (control characters, marks
/// of writing direction, quotation marks, backslashes, what is not valid UTF-8) as \xNN.
[[nodiscard]] std::string Escape(std::string_view raw);

/// An escaped path in quotation marks.
[[nodiscard]] std::string Quote(const std::filesystem::path& path);

/// Writes a line to standard output, whole: lines of several threads do not mix.
void PrintLine(const std::string& line);

} // namespace Demo
