#pragma once

#include "Client/Connection.h"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// Our own key and certificate. In the folder "own" of the state folder.
struct Identity
{
    std::vector<unsigned char> key;         ///< DER
    std::vector<unsigned char> certificate; ///< DER
    std::string applicationUri;             ///< the one that the certificate names
};

/// Reads them, and makes them when they are not there. Throws ClientException.
[[nodiscard]] Identity LoadIdentity(const std::filesystem::path& stateFolder);

/// SHA-256 as upper-case hexadecimal digits with colons.
[[nodiscard]] std::string MakeFingerprint(std::span<const unsigned char> certificate);

/// The certificates that were accepted, in the file "known-servers" of the state folder: a line
/// for each server, host name and port, a blank, the fingerprint.
class KnownServers
{
public:
    explicit KnownServers(const std::filesystem::path& stateFolder);

    /// Empty when there is none. Throws ClientException when the file cannot be read.
    [[nodiscard]] std::string Find(const std::string& server) const;
    /// Throws ClientException.
    void Remember(const std::string& server, const std::string& fingerprint) const;
    [[nodiscard]] const std::filesystem::path& GetFile() const noexcept { return file; }

private:
    std::filesystem::path folder;
    std::filesystem::path file;
};

} // namespace Client
