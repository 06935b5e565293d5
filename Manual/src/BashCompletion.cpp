#include "Completion.h"
#include "Pages.h"

#include <algorithm>
#include <sstream>

namespace Manual {

namespace {

using CommandLine::Command;
using CommandLine::Option;

std::string MakeFunctionName(std::string program)
{
    std::replace(program.begin(), program.end(), '-', '_');
    return '_' + program;
}

std::string JoinNames(const std::vector<Option>& options)
{
    std::vector<std::string> names;
    for (const auto& option : options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return Join(names, " ");
}

std::vector<std::string> GetNames(const std::vector<Command>& commands)
{
    std::vector<std::string> names;
    std::transform(commands.begin(), commands.end(), std::back_inserter(names),
                   [](const Command& command) { return command.name; });
    return names;
}

/// Returns the pattern of an option behind a command, or anywhere if the command is empty.
std::string MakePattern(const std::string& command, const Option& option)
{
    std::vector<std::string> patterns;
    for (const auto& name : option.names)
        patterns.push_back((command.empty() ? "*' " : '\'' + command + ' ') + name + '\'');
    return Join(patterns, " | ");
}

std::string MakeAction(const Values& values)
{
    switch (values.kind) {
    case ValueKind::File:
        return "_talvensor_files -f \"$current\"";
    case ValueKind::Folder:
        return "_talvensor_files -d \"$current\"";
    case ValueKind::Choice:
        return "_talvensor_words " + Quote(Join(values.choices, " ")) + " \"$current\"";
    case ValueKind::Unknown:
        break;
    }
    return ":";
}

constexpr const char* begin =
    R"(# shellcheck shell=bash
# Completion of bash, generated from the grammar of the program, see Manual/.

_talvensor_words()
{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_talvensor_files()
{
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

FUNCTION()
{
    local words=() current command='' option='' own='' joins='' word
    COMPREPLY=()
    # bash splits words at colons and equals signs.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        if [[ ${#words[@]} -gt 0 && (-n $joins || $word == [:=]*) ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
        joins=
        [[ $word != *[:=] ]] || joins=yes
    done
    current=${words[-1]}
    unset 'words[-1]'
    # Find the command, and the option whose value is typed.
    for word in "${words[@]}"; do
        if [[ -n $option ]]; then
            option=
            continue
        fi
        case "$command $word" in
)";

void AddOptionsWithValues(std::ostream& script, const std::string& command,
                          const std::vector<Option>& options)
{
    for (const auto& option : options) {
        if (!option.placeholder.empty())
            script << "        " << MakePattern(command, option) << ") option=$word ;;\n";
    }
}

void AddActions(std::ostream& script, const std::string& command,
                const std::vector<Option>& options)
{
    for (const auto& option : options) {
        const auto values = GetValues(option);
        if (values.kind != ValueKind::Unknown)
            script << "    " << MakePattern(command, option) << ")\n        " << MakeAction(values)
                   << "\n        return\n        ;;\n";
    }
}

void AddWords(std::ostream& script, const Command& program)
{
    script << "    if [[ $current == -* ]]; then\n"
           << "        case $command in\n";
    for (const auto& command : program.commands)
        script << "        " << command.name << ") own=" << Quote(JoinNames(GetOwnOptions(command)))
               << " ;;\n";
    script << "        esac\n"
           << "        _talvensor_words "
           << Quote(JoinNames(GetOptions(program))) + "\" $own\" \"$current\"\n"
           << "        return\n"
           << "    fi\n"
           << "    case $command in\n"
           << "    '') _talvensor_words " << Quote(Join(GetNames(program.commands), " "))
           << " \"$current\" ;;\n";
    for (const auto& command : program.commands) {
        const auto arguments = GetArguments(command);
        if (arguments.kind != ValueKind::Unknown)
            script << "    " << command.name << ") " << MakeAction(arguments) << " ;;\n";
    }
    script << "    esac\n";
}

} // namespace

std::string MakeBashCompletion(const Command& program)
{
    const auto function = MakeFunctionName(program.name);
    std::ostringstream script;
    std::string head = begin;
    head.replace(head.find("FUNCTION"), 8, function);
    script << head;
    AddOptionsWithValues(script, "", GetOptions(program));
    for (const auto& command : program.commands)
        AddOptionsWithValues(script, command.name, GetOwnOptions(command));
    script << "        *' '-*) ;;\n"
           << "        ' '"
           << "*) command=$word ;;\n"
           << "        esac\n"
           << "    done\n"
           << "    if [[ $current == --*=* ]]; then\n"
           << "        option=${current%%=*}\n"
           << "        current=${current#*=}\n"
           << "    fi\n"
           << "    case \"$command $option\" in\n"
           << "    *' ') ;;\n";
    AddActions(script, "", GetOptions(program));
    for (const auto& command : program.commands)
        AddActions(script, command.name, GetOwnOptions(command));
    script << "    *) return ;;\n"
           << "    esac\n";
    AddWords(script, program);
    script << "}\n\ncomplete -F " << function << ' ' << program.name << '\n';
    return script.str();
}

} // namespace Manual
