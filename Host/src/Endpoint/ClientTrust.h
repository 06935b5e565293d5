#pragma once

#include "Users/Pki.h"

#include <open62541/plugin/pki.h>

#include <functional>
#include <span>

namespace Host {

/// The check of clients' certificates, as the library knows it.
class ClientTrust
{
public:
    /// Takes the certificate of a refused client, in DER form; called in the check. Not called with
    /// what is no certificate.
    using OnRefused = std::function<void(std::span<const unsigned char> certificate)>;

    /// Accepts any certificate.
    ClientTrust();

    /// Accepts trusted certificates and those of trusted issuers, unless they are revoked. Throws
    /// OpcUa::CertificateException, with its name, if a file of `trust` is not a certificate or a
    /// revocation list, and UaException.
    ClientTrust(const Trust& trust, OnRefused onRefused);

    ClientTrust(const ClientTrust&) = delete;
    ClientTrust& operator=(const ClientTrust&) = delete;
    ~ClientTrust();

    /// Exchanges it for the check of a server's configuration. Loop thread, if the server runs.
    void Swap(UA_CertificateVerification& other) noexcept;

private:
    UA_CertificateVerification verification{};
};

/// Returns true if a check accepts a certificate, or if there is none.
[[nodiscard]] bool Accepts(UA_CertificateVerification& check, const UA_ByteString& certificate);

} // namespace Host
