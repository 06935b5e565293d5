#include "CommandLine/Manual.h"

#include "TextFormat.h"

namespace CommandLine {

namespace {

constexpr std::size_t termColumn = 9;

std::string FormatSection(const Section& section)
{
    auto formatted = section.title + ":\n" + FormatText(section.text, 2);
    for (const auto& term : section.terms)
        formatted += FormatEntry(term.name, term.text, termColumn);
    return formatted;
}

} // namespace

std::string FormatSections(const Manual& manual)
{
    std::string formatted;
    for (const auto& section : manual.sections) {
        if (section.shown == Shown::InHelpAndPage)
            formatted += (formatted.empty() ? "" : "\n") + FormatSection(section);
    }
    return formatted;
}

} // namespace CommandLine
