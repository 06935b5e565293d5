#include "Completion.h"
#include "Pages.h"

#include <sstream>

namespace Manual {

namespace {

using CommandLine::Command;
using CommandLine::Option;

/// Returns a text in single quotes, as fish takes it.
std::string QuoteForFish(const std::string& text)
{
    std::string quoted = "'";
    for (const char character : text) {
        if (character == '\'' || character == '\\')
            quoted += '\\';
        quoted += character;
    }
    return quoted + '\'';
}

std::string MakeAction(const Values& values)
{
    switch (values.kind) {
    case ValueKind::File:
        return " -r -F";
    case ValueKind::Folder:
        return " -x -a '(__fish_complete_directories)'";
    case ValueKind::Choice:
        return " -x -a " + QuoteForFish(Join(values.choices, " "));
    case ValueKind::Unknown:
        break;
    }
    return " -x";
}

/// Adds the options of the program, or of the command to which the condition restricts them.
void AddOptions(std::ostream& script, const std::string& program,
                const std::vector<Option>& options, const std::string& condition)
{
    for (const auto& option : options) {
        script << "complete -c " << program << condition;
        for (const auto& name : option.names)
            script << (name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1));
        if (!option.placeholder.empty())
            script << MakeAction(GetValues(option));
        script << " -d " << QuoteForFish(option.text) << '\n';
    }
}

} // namespace

std::string MakeFishCompletion(const Command& program)
{
    std::ostringstream script;
    script << "# Completion of fish, generated from the grammar of the program, see Manual/.\n"
           << "complete -c " << program.name << " -f\n";
    AddOptions(script, program.name, GetOptions(program), "");
    for (const auto& command : program.commands) {
        script << "complete -c " << program.name << " -n __fish_use_subcommand -a " << command.name
               << " -d " << QuoteForFish(command.summary) << '\n';
        const auto condition = " -n '__fish_seen_subcommand_from " + command.name + '\'';
        AddOptions(script, program.name, GetOwnOptions(command), condition);
        if (GetArguments(command).kind == ValueKind::File)
            script << "complete -c " << program.name << condition << " -F\n";
    }
    return script.str();
}

} // namespace Manual
