#pragma once

#include "Connection/ConnectionSettings.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Cli {

/// One of the hosts that a command runs on.
struct NamedHost
{
    std::string name; ///< of its profile, or its endpoint without opc.tcp://
    ConnectionSettings settings;
};

/// Returns the hosts of a list of names with commas between: profiles, groups of them (@GROUP),
/// endpoints, and - for all that `readInput` returns, names or endpoints one per line. One that
/// comes twice, or that is the same server with the same user, is one. Throws
/// InvalidArgumentException for what names nothing, and for a list without hosts.
[[nodiscard]] std::vector<NamedHost> FindHosts(const std::string& list,
                                               const std::filesystem::path& profileFile,
                                               const std::function<std::string()>& readInput);

} // namespace Cli
