#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Support {

/// Breaks a text into lines of at most `width` bytes, at blanks. A word that is longer gets a line
/// of its own. Blanks and line breaks of the text itself each count as one blank.
[[nodiscard]] std::string Wrap(std::string_view text, std::size_t width);

} // namespace Support
