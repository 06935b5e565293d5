#pragma once

#include "Fleet/HostRun.h"
#include "Interruption.h"
#include "Output/Console.h"

#include <cstddef>
#include <vector>

namespace Cli {

/// Runs a command on all hosts, so many at a time. What it returns is for `exit`: the worst status
/// of all. After an interruption, and when nobody reads standard output any more, those under way
/// end within two seconds, and no other begins. REQUIRES: CheckForManyHosts.
[[nodiscard]] int RunOnManyHosts(const std::vector<NamedHost>& hosts, std::size_t atOnce,
                                 const SharedCommand& shared, Console& console,
                                 const Interruption& interruption);

} // namespace Cli
