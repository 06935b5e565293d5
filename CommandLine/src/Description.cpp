#include "CommandLine/Description.h"

#include "TextFormat.h"

namespace CommandLine {

namespace {

constexpr std::size_t optionColumn = 27;
constexpr std::size_t commandColumn = 12;

std::string FormatUsage(const std::string& usage)
{
    constexpr const char* first = "Usage: ";
    constexpr const char* further = "       ";
    std::string formatted = first;
    for (const char character : usage) {
        formatted += character;
        if (character == '\n')
            formatted += further;
    }
    return formatted + '\n';
}

} // namespace

std::string FormatNames(const Option& option)
{
    std::string names;
    for (const auto& name : option.names)
        names += (names.empty() ? "" : ", ") + name;
    return option.placeholder.empty() ? names : names + ' ' + option.placeholder;
}

std::string FormatHelp(const Command& command)
{
    std::string help = FormatUsage(command.usage);
    if (!command.summary.empty())
        help += '\n' + FormatText(command.summary);
    for (const auto& group : command.groups) {
        help += '\n' + group.title + ":\n";
        for (const auto& option : group.options)
            help += FormatEntry(FormatNames(option), option.text, optionColumn);
    }
    if (!command.commands.empty())
        help += "\nCommands:\n";
    for (const auto& each : command.commands)
        help += FormatEntry(each.name, each.summary, commandColumn);
    if (!command.text.empty())
        help += '\n' + FormatText(command.text);
    return help;
}

} // namespace CommandLine
