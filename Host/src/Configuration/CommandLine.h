#pragma once

#include "Configuration/Configuration.h"

#include <filesystem>
#include <string>
#include <variant>

namespace Host {

struct ServeCommand
{
    Configuration configuration;
};

/// Only say whether the configuration can be used.
struct CheckCommand
{
    Configuration configuration;
};

struct PasswordCommand
{
    std::filesystem::path usersFile;
    std::string user;
};

/// Only print a text: the help or the version.
struct ShowCommand
{
    std::string text;
};

using Command = std::variant<ServeCommand, CheckCommand, PasswordCommand, ShowCommand>;

/// What the command line asks for; the configuration file that it names is read, and its own flags
/// win. Relative paths are seen from the working directory. Throws ConfigurationException with
/// everything that is wrong with the command line, the file, and, as far as `FindProblems` sees it,
/// with what they name.
[[nodiscard]] Command ParseCommandLine(int argumentCount, const char* const* arguments);

} // namespace Host
