#pragma once

#include "CommandLine/Description.h"

#include <string>
#include <vector>

namespace Manual {

enum class ValueKind
{
    Unknown,
    File,
    Folder,
    Choice,
};

/// The values of an option, or the arguments of a command.
struct Values
{
    ValueKind kind = ValueKind::Unknown;
    std::vector<std::string> choices;
};

/// Tells the values of an option from its placeholder.
[[nodiscard]] Values GetValues(const CommandLine::Option& option);

/// Tells the arguments of a command from its usage: files of this machine, or unknown ones.
[[nodiscard]] Values GetArguments(const CommandLine::Command& command);

/// Returns the options of a program; its commands take them, too.
[[nodiscard]] std::vector<CommandLine::Option> GetOptions(const CommandLine::Command& program);

/// Returns the options that a command adds to those of the program.
[[nodiscard]] std::vector<CommandLine::Option> GetOwnOptions(const CommandLine::Command& command);

/// Returns a text in one line and single quotes, as shells take it.
[[nodiscard]] std::string Quote(const std::string& text);

[[nodiscard]] std::string Join(const std::vector<std::string>& words, const std::string& between);

} // namespace Manual
