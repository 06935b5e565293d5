#pragma once

#include "Core/Exception.h"
#include "Core/LogEntry.h"

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

/// Where clients find the host.
struct ListenUrl
{
    std::string host = "localhost"; ///< a name or an address; IPv6 without its brackets
    std::uint16_t port = 4840;      ///< 0: the system chooses

    /// "opc.tcp://HOST:PORT", with brackets around an IPv6 address.
    [[nodiscard]] std::string ToString() const;
};

/// What one client, or all of them, may use.
struct Limits
{
    std::uint64_t messageSize = 20'000'000;
    std::uint64_t messageChunks = 400;
    std::uint64_t sessions = 100;
    std::uint64_t subscriptionsPerSession = 20;
    /// Private file systems of one session; one that is still draining counts.
    std::uint64_t fileSystemsPerSession = 4;
    /// Output queued to one connection, after which it is closed, and from which on nothing more is
    /// read from it.
    std::uint64_t queuedOutput = 64'000'000;
    std::uint64_t queuedOutputPause = 4'000'000;
    std::uint64_t queuedEventsPerSession = 64'000'000;
    /// The process's own memory above which the connections that sent most are not read. Empty:
    /// half of what the machine has.
    std::optional<std::uint64_t> memory;
    /// Descriptors kept for accepting connections.
    std::uint64_t reservedDescriptors = 64;
};

/// Where a setting was made.
struct SettingPlace
{
    std::string file;  ///< empty: on the command line, or nowhere
    unsigned line = 0; ///< in the file
    std::string key;   ///< of the file, or the flag

    /// "FILE:LINE: KEY", or the flag.
    [[nodiscard]] std::string ToString() const;
};

/// Everything that can be set, with its defaults. Paths are absolute.
struct Configuration
{
    ListenUrl listen;
    std::vector<std::filesystem::path> roots;
    std::vector<std::filesystem::path> readOnlyRoots;
    std::vector<std::filesystem::path> modules;
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
    /// Serves views of the kernel's, such as /proc, where they are or lie in a root.
    bool allowKernelFiles = false;
    /// The user who may own what the host reads, beside root and the host's user.
    std::optional<uid_t> trustedOwner;

    Core::LogLevel logLevel = Core::LogLevel::Information;
    /// Empty: standard error.
    std::optional<std::filesystem::path> logFile;

    /// How long a session outlives its connection.
    std::chrono::milliseconds grace{5'000};
    /// How long a node may take to finish what is queued when it goes.
    std::chrono::milliseconds drain{10'000};

    Limits limits;

    /// The configuration file that was read.
    std::optional<std::filesystem::path> file;
    /// Where each setting that was made was made, by its name; one place per value.
    std::map<std::string, std::vector<SettingPlace>> places;

    /// The place of a setting's value; the flag itself when it was not made.
    [[nodiscard]] SettingPlace GetPlace(const std::string& setting, std::size_t value = 0) const;
};

struct ConfigurationProblem
{
    SettingPlace place; ///< an empty key: the command line as a whole
    std::string text;

    [[nodiscard]] std::string ToString() const;
};

/// The settings cannot be used; carries everything that is wrong with them.
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

/// What can be said about settings only by looking at the machine: roots, modules, models and files
/// that are not there, or that others could replace, secrets inside a root, and settings that
/// contradict each other. Nothing is changed. Empty: all is well.
[[nodiscard]] std::vector<ConfigurationProblem> FindProblems(const Configuration& configuration);

/// The models to load: those that are set, or `NAME.NodeSet2.xml` for each module `libNAME.so`,
/// beside the module or in ../share/talvensor/ as seen from this program. Throws NotFoundException
/// naming where it looked.
[[nodiscard]] std::vector<std::filesystem::path> FindModels(const Configuration& configuration);

/// The folder that is set, or talvensor/pki in $XDG_STATE_HOME, which is ~/.local/state by default.
/// Throws NotFoundException when none of these is known.
[[nodiscard]] std::filesystem::path GetPkiFolder(const Configuration& configuration);

} // namespace Host
