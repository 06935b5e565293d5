#include "CommandLine/Paragraphs.h"

#include <sstream>

namespace CommandLine {

std::vector<Paragraph> SplitParagraphs(const Text& text)
{
    std::vector<Paragraph> paragraphs;
    bool isOpen = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) {
            isOpen = false;
        } else if (isOpen) {
            paragraphs.back().text += '\n' + line;
        } else {
            paragraphs.push_back({.text = line, .isLiteral = line.starts_with("    ")});
            isOpen = true;
        }
    }
    return paragraphs;
}

} // namespace CommandLine
