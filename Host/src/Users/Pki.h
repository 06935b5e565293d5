#pragma once

#include "OpcUa/Certificates.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Host {

using OpcUa::Bytes;

struct TrustFile
{
    std::filesystem::path path;
    Bytes content; ///< in DER or PEM form, or neither: nobody has looked at it yet
};

/// The certificates of clients that the host trusts.
struct Trust
{
    std::vector<TrustFile> trusted; ///< of clients, or of their issuers
    std::vector<TrustFile> issuers; ///< intermediate certificates
    std::vector<TrustFile> revoked; ///< revocation lists
};

/// The host's key and certificate, and the certificates that it trusts. Reads them into memory when
/// it is constructed. Its folder, which others than its owner must not change, has these files:
///
///     own/key.der, own/certificate.der   made if there is no folder "own"; the operator may
///                                        replace them
///     trusted/                           certificates of clients, or of their issuers
///     issuers/                           intermediate certificates
///     revoked/                           revocation lists
///     rejected/                          certificates of refused clients, see
///                                        RejectedCertificates; not read here
///
/// `trusted`, `issuers` and `revoked` hold files in DER or PEM form.
class Pki
{
public:
    enum class WhenMissing
    {
        Make,
        Leave, ///< makes key and certificate in memory, and writes no files
    };

    /// `listenHost` is a name of this host beside the machine's name; a new certificate contains
    /// it. Throws std::system_error if a file cannot be read or written,
    /// Support::UnsafeFileException if others may read the key or change a folder,
    /// Core::InvalidArgumentException for a certificate without a URI, and
    /// OpcUa::CertificateException if no certificate can be made.
    Pki(const std::filesystem::path& folder, const std::string& listenHost,
        WhenMissing whenMissing = WhenMissing::Make);

    [[nodiscard]] const Bytes& GetKey() const noexcept { return key; }
    [[nodiscard]] const Bytes& GetCertificate() const noexcept { return certificate; }
    /// Returns the URI in the certificate. The host must use the same one.
    [[nodiscard]] const std::string& GetApplicationUri() const noexcept { return applicationUri; }

    [[nodiscard]] const Trust& GetTrust() const noexcept { return trust; }

    /// Reads the trusted certificates of such a folder, whose folders are made if they do not
    /// exist. Throws as the constructor.
    [[nodiscard]] static Trust ReadTrust(const std::filesystem::path& folder,
                                         WhenMissing whenMissing = WhenMissing::Make);

    /// Returns the folder for the certificates of clients.
    [[nodiscard]] const std::filesystem::path& GetTrustedFolder() const noexcept
    {
        return trustedFolder;
    }

private:
    void ReadOwn(const std::filesystem::path& own);
    void MakeInMemory(const std::filesystem::path& own, const std::string& listenHost);

    std::filesystem::path trustedFolder;
    Bytes key;
    Bytes certificate;
    std::string applicationUri;
    Trust trust;
};

/// Returns the folders of a PKI folder for certificates of clients that are trusted, and of those
/// that were refused.
[[nodiscard]] std::filesystem::path GetTrustedFolder(const std::filesystem::path& folder);
[[nodiscard]] std::filesystem::path GetRejectedFolder(const std::filesystem::path& folder);

/// Returns the file of a PKI folder with the host's own certificate.
[[nodiscard]] std::filesystem::path GetOwnCertificateFile(const std::filesystem::path& folder);

/// Returns the folder and all files and folders in it that `Pki` reads, as far as they exist.
[[nodiscard]] std::vector<std::filesystem::path> FindPkiFiles(const std::filesystem::path& folder);

} // namespace Host
