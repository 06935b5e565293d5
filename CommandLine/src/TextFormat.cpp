#include "TextFormat.h"

#include "CommandLine/Paragraphs.h"
#include "Support/Wrap.h"

namespace CommandLine {

namespace {

/// Returns the lines of a text, each but the first behind blanks.
std::string Indent(const std::string& text, std::size_t indent)
{
    std::string indented;
    for (const char character : text) {
        indented += character;
        if (character == '\n')
            indented.append(indent, ' ');
    }
    return indented;
}

} // namespace

std::string FormatText(const Text& text, std::size_t indent)
{
    std::string formatted;
    for (const auto& paragraph : SplitParagraphs(text)) {
        if (!formatted.empty())
            formatted += '\n';
        const auto lines = paragraph.isLiteral ? paragraph.text
                                               : Support::Wrap(paragraph.text, pageWidth - indent);
        formatted += std::string(indent, ' ') + Indent(lines, indent) + '\n';
    }
    return formatted;
}

std::string FormatEntry(const std::string& name, const Text& text, std::size_t column)
{
    const std::string margin(column, ' ');
    auto entry = "  " + name;
    if (entry.size() + 2 > column)
        entry += '\n' + margin;
    else
        entry.resize(column, ' ');
    return entry + Indent(Support::Wrap(text, pageWidth - column), column) + '\n';
}

} // namespace CommandLine
