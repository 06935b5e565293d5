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

/// Stands before each character of a word that would mean something in a pattern if it were not
/// quoted, and before each that looks like this one.
constexpr char quoteMark = '\x02';

/// As `SplitWords`, with the marks of what was quoted.
[[nodiscard]] std::vector<std::string> SplitMarkedWords(std::string_view line);

/// Returns a word in which nothing is quoted, as SplitMarkedWords would.
[[nodiscard]] std::string MarkUnquoted(std::string_view word);

/// Returns the word without the marks.
[[nodiscard]] std::string RemoveMarks(std::string_view word);

/// Returns the word as a pattern of fnmatch(3): with backslashes in place of the marks.
[[nodiscard]] std::string ToPattern(std::string_view word);

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
