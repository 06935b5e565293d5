#include "Completion.h"
#include "Pages.h"

#include <sstream>

namespace Manual {

namespace {

using CommandLine::Command;
using CommandLine::Option;

/// Escapes the characters that have a meaning in a specification of _arguments.
std::string EscapeSpecification(const std::string& text)
{
    std::string escaped;
    for (const char character : text) {
        if (character == '[' || character == ']' || character == ':' || character == '\\')
            escaped += '\\';
        escaped += character;
    }
    return escaped;
}

std::string MakeAction(const Values& values)
{
    switch (values.kind) {
    case ValueKind::File:
        return "_files";
    case ValueKind::Folder:
        return "_files -/";
    case ValueKind::Choice:
        return '(' + Join(values.choices, " ") + ')';
    case ValueKind::Unknown:
        break;
    }
    return " ";
}

void AddOption(std::ostream& script, const Option& option)
{
    for (const auto& name : option.names) {
        auto specification = "*" + name + '[' + EscapeSpecification(option.text) + ']';
        if (!option.placeholder.empty())
            specification +=
                ':' + EscapeSpecification(option.placeholder) + ':' + MakeAction(GetValues(option));
        script << "        " << Quote(specification) << '\n';
    }
}

void AddOptions(std::ostream& script, const std::vector<Option>& options)
{
    for (const auto& option : options)
        AddOption(script, option);
}

void AddCommand(std::ostream& script, const Command& command)
{
    script << "    " << command.name << ")\n        own=(\n";
    AddOptions(script, GetOwnOptions(command));
    script << "        " << Quote("*:argument:" + MakeAction(GetArguments(command))) << "\n"
           << "        )\n        ;;\n";
}

} // namespace

std::string MakeZshCompletion(const Command& program)
{
    std::ostringstream script;
    script << "#compdef " << program.name << "\n"
           << "# Completion of zsh, generated from the grammar of the program, see Manual/.\n"
           << "\n"
           << "local context state state_descr line\n"
           << "typeset -A opt_args\n"
           << "local -a common own commands\n"
           << "\n"
           << "common=(\n";
    AddOptions(script, GetOptions(program));
    script << ")\n"
           << "commands=(\n";
    for (const auto& command : program.commands)
        script << "        " << Quote(command.name + ':' + EscapeSpecification(command.summary))
               << '\n';
    script << ")\n"
           << "\n"
           << "_arguments -C $common '1:command:->command' '*::argument:->argument' && return 0\n"
           << "\n"
           << "case $state in\n"
           << "command)\n"
           << "    _describe command commands\n"
           << "    ;;\n"
           << "argument)\n"
           << "    case $words[1] in\n";
    for (const auto& command : program.commands)
        AddCommand(script, command);
    script << "    esac\n"
           << "    _arguments $common $own\n"
           << "    ;;\n"
           << "esac\n";
    return script.str();
}

} // namespace Manual
