#pragma once

#include "Application.h"
#include "Endpoint/Endpoint.h"
#include "Users/RefusedClients.h"
#include "Users/Users.h"

#include <functional>
#include <string>

namespace Host {

/// The files that a host reads, writes or opens outside of its sandbox, and the process that does
/// so.
/// REQUIRES: the calling process has one thread. Throws std::system_error.
[[nodiscard]] std::unique_ptr<OuterProcess> StartOuterProcess(const Configuration& configuration,
                                                              const std::vector<Root>& roots);

/// Has the outer process keep the certificate of a refused client in the PKI folder. Logs a
/// failure. Returns early if `interruption` becomes readable. One thread at a time, the one that
/// reloads.
void KeepCertificate(PreparedHost& host, const RefusedClient& client, int interruption);

/// Reads users and trusted certificates again, and opens log files again. If one of them fails,
/// what it would replace stays in force, and the others are still done; the log says both.
class Reload
{
public:
    /// Replaces the users that may log in. Called on the thread that serves.
    using ReplaceUsers = std::function<void(Users)>;

    /// All must outlive it.
    Reload(PreparedHost& host, Endpoint& endpoint, ReplaceUsers replaceUsers);

    /// Returns when everything has been read; it takes effect soon after that. Returns early if
    /// `interruption` becomes readable. One thread at a time.
    void Run(int interruption);

private:
    void ReadUsers(int interruption);
    void ReadTrust(int interruption);
    void OpenLog(int interruption);
    void OpenAudit(int interruption);

    PreparedHost& host;
    Endpoint& endpoint;
    ReplaceUsers replaceUsers;
};

} // namespace Host
