#pragma once

#include <string>
#include <vector>

namespace CommandLine {

/// Texts are paragraphs with empty lines between them. Lines that begin with four blanks are shown
/// as they are, all others are wrapped.
using Text = std::string;

struct Option
{
    std::vector<std::string> names; ///< with their dashes
    std::string placeholder;        ///< for its value; empty: it takes none
    Text text;
};

struct OptionGroup
{
    std::string title;
    std::vector<Option> options;
};

/// A program or one of its commands.
struct Command
{
    std::string name;
    std::string usage;
    Text summary;
    Text text; ///< follows the options
    std::vector<OptionGroup> groups;
    std::vector<Command> commands;
};

/// Returns "-f, --file FILE".
[[nodiscard]] std::string FormatNames(const Option& option);

/// Returns a program's or command's help, for a terminal of 80 columns.
[[nodiscard]] std::string FormatHelp(const Command& command);

} // namespace CommandLine
