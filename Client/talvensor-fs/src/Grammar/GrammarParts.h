#pragma once

#include "Commands/Commands.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Cli {

/// Returns arguments, which have the marks of what was quoted, as the parser takes them for what
/// they are: it would take "[a,b]" for a list, and does not heed "--" behind paths.
[[nodiscard]] std::vector<std::string> Mask(const std::vector<std::string>& arguments);

/// Returns a masked argument as it was given.
[[nodiscard]] std::string Unmask(const std::string& argument);

/// Returns a masked argument as a pattern, see Patterns.h.
[[nodiscard]] std::string UnmaskPattern(const std::string& argument);

/// Returns the values of an option as they were given.
[[nodiscard]] std::vector<std::string> GetTexts(const CLI::Option* option);

/// Returns paths that may be patterns, see Patterns.h. Throws InvalidArgumentException when there
/// are none.
[[nodiscard]] std::vector<std::string> GetPatterns(const CLI::App* command,
                                                   const CLI::Option* option);

/// Throws InvalidArgumentException when there are none.
[[nodiscard]] std::vector<std::string> GetPaths(const CLI::App* command, const CLI::Option* option);

/// Returns paths that may be patterns; one path when none is given.
[[nodiscard]] std::vector<std::string> GetPatternsOr(const CLI::Option* option,
                                                     const std::string& path);

/// Returns the last value of an option.
[[nodiscard]] std::optional<std::string> GetText(const CLI::Option* option);

CLI::Option* AddFlag(CLI::App& app, const std::string& flag, const std::string& text);

[[nodiscard]] bool IsSet(const CLI::Option* option);

/// Adds -h to a command, whose help is --help alone then.
CLI::Option* AddHumanReadable(CLI::App& command);

/// Adds the arguments behind a command that have no name; the usage line shows them.
CLI::Option* AddPaths(CLI::App* command);

/// Adds the option that limits the bytes a second; ParseRate reads its value.
CLI::Option* AddRate(CLI::App& command);

/// Adds one such argument, which may be missing.
CLI::Option* AddPositional(CLI::App* command);

} // namespace Cli
