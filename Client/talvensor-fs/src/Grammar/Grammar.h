#pragma once

#include "CommandLine/Description.h"
#include "Commands/CommandRunner.h"
#include "Commands/Commands.h"
#include "Connection/ConnectionSettings.h"
#include "Connection/Trust.h"

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Cli {

/// Only print a text: the help or the version.
struct ShowText
{
    std::string text;
};

/// The hosts that a command is for, where it is for many.
struct HostChoice
{
    std::string list; ///< as FindHosts takes it
    std::size_t atOnce = 8;
};

/// A command for a server.
struct Invocation
{
    ConnectionSettings connection;
    std::optional<std::string> profile;
    std::optional<HostChoice> hosts; ///< otherwise one
    Trust::Options trust;
    OutputChoice choice;
    Command command;
};

/// Parses the arguments behind the program's name; their bytes are kept as they are. Throws
/// InvalidArgumentException with what is wrong with them.
[[nodiscard]] std::variant<ShowText, Invocation>
ParseArguments(const std::vector<std::string>& arguments);

struct ShellLine
{
    OutputChoice choice;
    Command command;
};

/// The same for the words of a line of the shell, with the marks of what was quoted, see
/// SplitMarkedWords.
[[nodiscard]] ShellLine ParseShellLine(const std::vector<std::string>& words);

/// Describes all options and commands of the command line.
[[nodiscard]] CommandLine::Command DescribeCommandLine();

/// The names of the commands that the shell knows, for completion.
[[nodiscard]] const std::vector<std::string>& GetShellCommands();

} // namespace Cli
