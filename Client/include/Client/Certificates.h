#pragma once

#include "Client/Exceptions.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Client {

// The certificates in a state folder, see ConnectionOptions. Fingerprints are those of
// ServerCertificate. All throw ClientException when the folder cannot be used.

/// The certificate that a client shows to servers.
struct OwnCertificate
{
    std::filesystem::path file; ///< in DER form
    std::string fingerprint;
    std::string subject;  ///< raw, in UTF-8
    std::string validity; ///< two times and "until" between them
};

/// Returns the client's own certificate, which is made where there is none.
[[nodiscard]] OwnCertificate GetOwnCertificate(const std::filesystem::path& stateFolder);

/// A server whose certificate is trusted.
struct KnownServer
{
    std::string server; ///< host name and port
    std::string fingerprint;
};

/// Returns the servers in the order in which they were trusted.
[[nodiscard]] std::vector<KnownServer> GetKnownServers(const std::filesystem::path& stateFolder);

/// Takes the trust in servers away: in one at a host name and port, or in all at a host name.
/// Returns how many there were.
std::size_t ForgetServers(const std::filesystem::path& stateFolder, const std::string& server);

} // namespace Client
