#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace OpcUa {

using Bytes = std::vector<unsigned char>;

/// A certificate or a key cannot be made or used. The text names what failed and why.
class CertificateException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A private key and the certificate with its public key, both in DER form.
struct KeyAndCertificate
{
    Bytes key;
    Bytes certificate;
};

/// Makes a key and a self-signed certificate for an application, valid for ten years. `role` is
/// "host" or "client": the certificate names "Talvensor ROLE on MACHINE" and a URI of its own,
/// "urn:MACHINE:talvensor-ROLE:RANDOM". `hostNames` are DNS names beside that of the machine.
/// Takes up to a few seconds. Throws CertificateException, and std::system_error if the machine's
/// name cannot be read.
[[nodiscard]] KeyAndCertificate
MakeKeyAndCertificate(const std::string& role, const std::vector<std::string>& hostNames = {});

/// Returns the first URI among the alternative names of a certificate in DER form; an empty text if
/// there is none or if it is no certificate.
[[nodiscard]] std::string FindApplicationUri(std::span<const unsigned char> certificate);

/// Returns the first certificate of a chain in DER form, empty if the chain does not begin with
/// one.
[[nodiscard]] std::span<const unsigned char>
GetFirstCertificate(std::span<const unsigned char> chain);

/// Returns the SHA-256 hash of a certificate as upper-case hexadecimal digits with colons.
[[nodiscard]] std::string MakeFingerprint(std::span<const unsigned char> certificate);

/// Returns the subject of a certificate in DER form as RFC 2253 writes it, in UTF-8, raw; an empty
/// text if it is no certificate.
[[nodiscard]] std::string DescribeSubject(std::span<const unsigned char> certificate);

/// Returns the time in which a certificate in DER form is valid as "2026-01-01T00:00:00Z until
/// 2036-01-01T00:00:00Z"; an empty text if it is no certificate.
[[nodiscard]] std::string DescribeValidity(std::span<const unsigned char> certificate);

} // namespace OpcUa
