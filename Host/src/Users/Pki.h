#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Host {

using Bytes = std::vector<unsigned char>;

/// The host's key and certificate, and the certificates that it trusts, read into memory once. In
/// its folder, which is for its owner alone:
///
///     own/key.der, own/certificate.der   made when there is no folder "own"; can be replaced by
///                                        the operator's own ones
///     trusted/                           certificates of clients, or of who issues them
///     issuers/                           certificates between those and the clients'
///     revoked/                           revocation lists
///
/// The last three hold files in DER or PEM form.
class Pki
{
public:
    enum class WhenMissing
    {
        Make,
        Leave, ///< a key and a certificate are made in memory alone
    };

    /// `listenHost` is what clients may know this host as, beside the machine's name; it is written
    /// into a certificate that is made. Throws SystemException, and InvalidArgumentException for
    /// what cannot be used: a key that others may read, a certificate without a URI, one half of
    /// the pair.
    Pki(const std::filesystem::path& folder, const std::string& listenHost,
        WhenMissing whenMissing = WhenMissing::Make);

    [[nodiscard]] const Bytes& GetKey() const noexcept { return key; }
    [[nodiscard]] const Bytes& GetCertificate() const noexcept { return certificate; }
    /// The one that the certificate names: the host has to call itself the same.
    [[nodiscard]] const std::string& GetApplicationUri() const noexcept { return applicationUri; }

    [[nodiscard]] const std::vector<Bytes>& GetTrusted() const noexcept { return trusted; }
    [[nodiscard]] const std::vector<Bytes>& GetIssuers() const noexcept { return issuers; }
    [[nodiscard]] const std::vector<Bytes>& GetRevocationLists() const noexcept { return revoked; }

    /// Where the operator puts the certificates of clients.
    [[nodiscard]] const std::filesystem::path& GetTrustedFolder() const noexcept
    {
        return trustedFolder;
    }

private:
    void ReadOwn(const std::filesystem::path& own);
    void Borrow(const std::filesystem::path& own, const std::string& listenHost);

    std::filesystem::path trustedFolder;
    Bytes key;
    Bytes certificate;
    std::string applicationUri;
    std::vector<Bytes> trusted;
    std::vector<Bytes> issuers;
    std::vector<Bytes> revoked;
};

/// The folder and everything in it that is read from it, as far as it is there.
[[nodiscard]] std::vector<std::filesystem::path> FindPkiFiles(const std::filesystem::path& folder);

/// The first URI among the alternative names of a certificate in DER form; empty without one, or
/// when it is no certificate.
[[nodiscard]] std::string FindApplicationUri(const Bytes& certificate);

} // namespace Host
