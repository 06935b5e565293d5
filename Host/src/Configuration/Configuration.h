#pragma once

#include "Audit/AuditForm.h"
#include "Core/Exception.h"
#include "Core/LogEntry.h"
#include "Metrics/MetricsAddress.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Host {

/// The address that the host listens on.
struct ListenUrl
{
    std::string host = "localhost"; ///< a name or an address; IPv6 without its brackets
    std::uint16_t port = 4840;      ///< 0: the system chooses

    /// Returns "opc.tcp://HOST:PORT", with brackets around an IPv6 address.
    [[nodiscard]] std::string ToString() const;
};

/// The limits of what one client, or all of them, may use. Sizes are in bytes.
struct Limits
{
    std::uint64_t messageSize = 20'000'000;
    std::uint64_t messageChunks = 400;
    std::uint64_t sessions = 100;
    std::uint64_t subscriptionsPerSession = 20;
    /// File systems of a session's own, those that are still draining included.
    std::uint64_t fileSystemsPerSession = 4;
    /// A connection with more unsent output is closed.
    std::uint64_t queuedOutput = 64'000'000;
    /// Nothing is read from a connection with more unsent output.
    std::uint64_t queuedOutputPause = 4'000'000;
    std::uint64_t queuedEventsPerSession = 64'000'000;
    /// While the process uses more memory, nothing is read from the connections that sent most.
    /// Empty: half of the machine's memory.
    std::optional<std::uint64_t> memory;
    /// Descriptors kept for accepting connections.
    std::uint64_t reservedDescriptors = 64;
};

/// The place where a setting was made.
struct SettingPlace
{
    std::string file;  ///< empty: on the command line, or nowhere
    unsigned line = 0; ///< in the file
    std::string key;   ///< the key in the file, or the flag

    /// Returns "FILE:LINE: KEY", or the flag.
    [[nodiscard]] std::string ToString() const;
};

/// All settings, with their defaults. Paths are absolute.
struct Configuration
{
    ListenUrl listen;
    std::vector<std::filesystem::path> roots;
    std::vector<std::filesystem::path> readOnlyRoots;
    /// Empty: the installed ones, see `FindModules`.
    std::vector<std::filesystem::path> modules;
    bool fileObjects = true; ///< false: without the module that offers them
    /// Empty: one for each module, see `FindModels`.
    std::vector<std::filesystem::path> models;
    /// The shared nodes, unless they are switched off.
    std::vector<std::string> nodes = {"FileSystem"};
    bool sharedNodes = true;

    std::optional<std::filesystem::path> usersFile;
    /// Empty: see `GetPkiFolder`.
    std::optional<std::filesystem::path> pkiFolder;
    bool trustAnyClient = false;
    bool sandbox = true;
    /// Allows roots that are or contain kernel file systems, such as /proc.
    bool allowKernelFiles = false;
    /// A user, beside root and the host's user, who may own the files that the host reads.
    std::optional<uid_t> trustedOwner;

    Core::LogLevel logLevel = Core::LogLevel::Information;
    /// Empty: standard error.
    std::optional<std::filesystem::path> logFile;
    /// The levels of categories that have one of their own.
    std::map<std::string, Core::LogLevel> categoryLevels;
    /// The audit lines, beside those in the log. Empty: no file.
    std::optional<std::filesystem::path> auditFile;
    AuditForm auditForm = AuditForm::Text;
    std::optional<MetricsAddress> metrics; ///< empty: metrics are not served

    /// The time that a session is kept after its connection broke.
    std::chrono::milliseconds grace{5'000};
    /// The time in which a node must finish its queued work when it stops.
    std::chrono::milliseconds drain{10'000};

    Limits limits;

    /// The configuration files that were read.
    std::vector<std::filesystem::path> files;
    /// The places of the settings that were made, by name; one place per value.
    std::map<std::string, std::vector<SettingPlace>> places;

    /// Returns the place of a setting's value; the flag if the setting was not made.
    [[nodiscard]] SettingPlace GetPlace(const std::string& setting, std::size_t value = 0) const;
};

struct ConfigurationProblem
{
    SettingPlace place; ///< an empty key stands for the command line as a whole
    std::string text;

    [[nodiscard]] std::string ToString() const;
};

/// The settings cannot be used. Has all problems.
class ConfigurationException : public Core::InvalidArgumentException
{
public:
    explicit ConfigurationException(std::vector<ConfigurationProblem> problems);
    [[nodiscard]] const std::vector<ConfigurationProblem>& GetProblems() const noexcept
    {
        return problems;
    }

private:
    std::vector<ConfigurationProblem> problems;
};

/// Returns the problems of a configuration on this machine: roots, modules, models and files that
/// do not exist or that others could replace, secrets inside a root, and settings that contradict
/// each other. Changes nothing.
[[nodiscard]] std::vector<ConfigurationProblem> FindProblems(const Configuration& configuration);

/// Returns the modules to load: those that are set, or those of `FindInstalledModules`.
[[nodiscard]] std::vector<std::filesystem::path> FindModules(const Configuration& configuration);

/// Returns the models to load: those that are set, or the one of each module, see `FindModel`.
/// Throws NotFoundException with the paths that it tried.
[[nodiscard]] std::vector<std::filesystem::path> FindModels(const Configuration& configuration);

/// Returns the folder that is set, or talvensor/pki in $XDG_STATE_HOME, or in ~/.local/state.
/// Throws NotFoundException if none of these is known.
[[nodiscard]] std::filesystem::path GetPkiFolder(const Configuration& configuration);

} // namespace Host
