#pragma once

#include "CommandLine/Description.h"
#include "Configuration/Configuration.h"

#include <filesystem>
#include <string>
#include <variant>

namespace Host {

struct ServeCommand
{
    Configuration configuration;
};

/// Check the configuration and exit.
struct CheckCommand
{
    Configuration configuration;
};

struct PasswordCommand
{
    std::filesystem::path usersFile;
    std::string user;
};

/// List the certificates of refused clients.
struct RejectedCommand
{
    std::filesystem::path pkiFolder;
};

/// Trust the certificate of a refused client.
struct TrustCommand
{
    std::filesystem::path pkiFolder;
    std::string fingerprint;
};

/// Describe the host's own certificate.
struct FingerprintCommand
{
    std::filesystem::path pkiFolder;
};

/// Print a text, the help or the version, and exit.
struct ShowCommand
{
    std::string text;
};

using Command = std::variant<ServeCommand, CheckCommand, PasswordCommand, RejectedCommand,
                             TrustCommand, FingerprintCommand, ShowCommand>;

/// Parses the command line and reads the configuration file that it names. Flags take precedence
/// over the file; relative paths of flags start at the working directory. Throws
/// ConfigurationException with all problems of the command line and of the file, and to serve or
/// check with those that `FindProblems` finds.
[[nodiscard]] Command ParseCommandLine(int argumentCount, const char* const* arguments);

/// Describes all flags and commands.
[[nodiscard]] CommandLine::Command DescribeCommandLine();

} // namespace Host
