#pragma once

#include "Client/Certificates.h"
#include "Client/Connection.h"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// The client's own key and certificate. They are files in the folder "own" of the state folder.
struct Identity
{
    std::vector<unsigned char> key;         ///< DER
    std::vector<unsigned char> certificate; ///< DER
    std::string applicationUri;             ///< the one that the certificate names
};

/// Returns the file of the client's own certificate.
[[nodiscard]] std::filesystem::path GetCertificateFile(const std::filesystem::path& stateFolder);

/// Reads key and certificate, and makes them if they do not exist. Throws ClientException, and
/// InvalidArgumentException if the path of the state folder is empty.
[[nodiscard]] Identity LoadIdentity(const std::filesystem::path& stateFolder);

/// Returns the SHA-256 hash as upper-case hexadecimal digits with colons.
[[nodiscard]] std::string MakeFingerprint(std::span<const unsigned char> certificate);

/// The certificates that were accepted. The file "known-servers" of the state folder has a line for
/// each server: host name and port, a blank, the fingerprint.
class KnownServers
{
public:
    explicit KnownServers(const std::filesystem::path& stateFolder);

    /// Returns the fingerprint of a server, empty if none is known. Throws ClientException if the
    /// file cannot be read.
    [[nodiscard]] std::string Find(const std::string& server) const;
    /// Adds or replaces the fingerprint of a server. Throws ClientException if the file cannot be
    /// written, and InvalidArgumentException if the path of the state folder is empty.
    void Remember(const std::string& server, const std::string& fingerprint) const;
    /// Returns all in the order of the file. Throws ClientException if it cannot be read.
    [[nodiscard]] std::vector<KnownServer> GetAll() const;
    /// Removes a server, or all with a host name; returns how many. Throws ClientException.
    [[nodiscard]] std::size_t Forget(const std::string& server) const;
    [[nodiscard]] const std::filesystem::path& GetFile() const noexcept { return file; }

private:
    [[nodiscard]] std::vector<KnownServer> Read() const;
    [[nodiscard]] std::size_t Remove(const std::string& server) const;
    void Add(const std::string& server, const std::string& fingerprint) const;

    std::filesystem::path folder;
    std::filesystem::path file;
};

} // namespace Client
