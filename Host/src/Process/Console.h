#pragma once

#include "Network/Admission.h"
#include "Process/Roots.h"
#include "Process/Sandbox.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Host {

/// The facts that the host prints when it has started.
struct StartSummary
{
    std::string endpoint; ///< with the real port
    std::vector<Root> roots;
    SandboxReport sandbox;
    Admission admission;
    bool trustsAnyClient = false;
    std::size_t users = 0;
    std::string trustedFolder;
    std::size_t trustedClients = 0; ///< certificates in that folder
    std::string fingerprint;        ///< of this host's certificate
    bool isRoot = false;
};

/// Returns several lines, each with a line end.
[[nodiscard]] std::string Describe(const StartSummary& summary);

} // namespace Host
