#pragma once

#include "OpcUa/Certificates.h"

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// A certificate of a client that was refused.
struct RejectedCertificate
{
    std::filesystem::path file;
    std::string fingerprint; ///< as the file's name has it: hexadecimal digits
    std::string address;     ///< from where it came first; empty: not known
    std::filesystem::file_time_type lastSeen;

    /// Returns the certificate in DER form. Throws std::system_error if the file cannot be read,
    /// and Core::InvalidStateException if it does not hold what its name says.
    [[nodiscard]] OpcUa::Bytes Read() const;
};

/// The certificates of clients that were refused, in a folder of their own, for the operator to
/// look at and to trust. Clients decide how many come: the folder keeps a bounded number, of each
/// origin (see GetOrigin) and in all, and drops those that were not seen for longest.
///
/// A file is named FINGERPRINT@ADDRESS.der, without the address if it is not known. Its time is
/// when the certificate was last seen. Other files in the folder are left alone.
class RejectedCertificates
{
public:
    static constexpr std::size_t most = 100;
    static constexpr std::size_t mostOfOrigin = 10;
    static constexpr std::size_t largest = 10'000; ///< bytes of a certificate

    explicit RejectedCertificates(std::filesystem::path folder);

    /// Keeps a certificate, and makes the folder if it does not exist. An address that is not
    /// numeric counts as unknown. Throws Core::InvalidArgumentException if the certificate is too
    /// large, std::system_error, and Support::UnsafeFileException if others may change the folder.
    void Add(std::span<const unsigned char> certificate, const std::string& address) const;

    /// Returns those that are kept, the latest first.
    [[nodiscard]] std::vector<RejectedCertificate> List() const;

    /// Returns the one whose fingerprint begins with these hexadecimal digits, with or without
    /// colons. Throws Core::InvalidArgumentException if they are fewer than eight or none, and
    /// Core::NotFoundException if there is none or more than one.
    [[nodiscard]] RejectedCertificate Find(std::string_view fingerprint) const;

private:
    void DropOldest() const;

    std::filesystem::path folder;
};

} // namespace Host
