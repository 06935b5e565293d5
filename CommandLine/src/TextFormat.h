#pragma once

#include "CommandLine/Description.h"

#include <cstddef>
#include <string>

namespace CommandLine {

constexpr std::size_t pageWidth = 80;

/// Returns a text with its paragraphs wrapped, each behind `indent` blanks; ends with a line break
/// unless it is empty.
[[nodiscard]] std::string FormatText(const Text& text, std::size_t indent = 0);

/// Returns a name, and beside it, from `column` on, its text. A name that is too long has the line
/// to itself.
[[nodiscard]] std::string FormatEntry(const std::string& name, const Text& text,
                                      std::size_t column);

} // namespace CommandLine
