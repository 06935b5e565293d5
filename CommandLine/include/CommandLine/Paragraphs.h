#pragma once

#include "CommandLine/Description.h"

#include <string>
#include <vector>

namespace CommandLine {

struct Paragraph
{
    std::string text;       ///< without a line break at its end
    bool isLiteral = false; ///< shown line by line, with its blanks
};

[[nodiscard]] std::vector<Paragraph> SplitParagraphs(const Text& text);

} // namespace CommandLine
