#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// The words of a line: between blanks, with '...' and "..." around what holds blanks. Outside of
/// '...' a backslash keeps the character behind it as it is; \n, \t and \xNN are that byte, as
/// names are shown. Throws InvalidArgumentException when a quote is not closed.
[[nodiscard]] std::vector<std::string> SplitWords(std::string_view line);

/// A line whose last word is still being typed.
struct PartialLine
{
    std::vector<std::string> words; ///< the whole ones
    std::string last;               ///< what there is of the last one; may be empty
    std::size_t lastBegin = 0;      ///< where it begins in the line, with its quote
};

[[nodiscard]] PartialLine SplitPartialLine(std::string_view line);

/// Written so that SplitWords makes the same word of it.
[[nodiscard]] std::string QuoteWord(std::string_view word);

} // namespace Cli
