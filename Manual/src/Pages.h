#pragma once

#include "CommandLine/Manual.h"

#include <map>
#include <string>
#include <vector>

namespace Manual {

/// A program with everything that its pages say.
struct Program
{
    CommandLine::Manual manual;
    CommandLine::Command grammar;
};

/// Generated files by their paths in the folder `generated`.
using Files = std::map<std::string, std::string>;

/// Describes both programs.
[[nodiscard]] std::vector<Program> GetPrograms();

/// Makes the manual pages, and the completions of all programs for bash, zsh and fish.
[[nodiscard]] Files MakeFiles();

[[nodiscard]] std::string MakeProgramPage(const Program& program);
/// Makes host.toml(5) from the settings of the host.
[[nodiscard]] std::string MakeConfigurationPage();

[[nodiscard]] std::string MakeBashCompletion(const CommandLine::Command& program);
[[nodiscard]] std::string MakeZshCompletion(const CommandLine::Command& program);
[[nodiscard]] std::string MakeFishCompletion(const CommandLine::Command& program);

} // namespace Manual
