#pragma once

#include <open62541/plugin/securitypolicy.h>

#include <stdexcept>
#include <string>

namespace OpcUa {

/// OpenSSL refuses an algorithm. The text names the algorithm, the use and OpenSSL's reason.
class CipherException : public std::runtime_error
{
public:
    explicit CipherException(const std::string& what)
        : std::runtime_error(what)
    {}
};

/// Has OpenSSL sign, verify, encrypt and decrypt the messages of a policy, several times faster
/// than the library does. The wire does not change: the other end may work with or without.
///
/// What a connection starts with (certificates, asymmetric operations, nonces, key derivation)
/// stays the library's. So do the policies other than Basic256Sha256, Aes128_Sha256_RsaOaep and
/// Aes256_Sha256_RsaPss: nothing happens to them, nor to a policy that uses OpenSSL already.
/// Lengths and URIs of the policy stay as they are.
///
/// The policy must be initialised and must not have channels yet. Whoever owns it clears it as
/// before, with its `clear`, after its last channel; it may be moved in memory until its first
/// channel, as the library does when it adds a policy to a configuration. Call it on a server's or
/// a client's configuration when all policies have been added and before making the server or
/// connecting:
///
///     for (std::size_t i = 0; i < configuration.securityPoliciesSize; ++i)
///         OpcUa::UseOpenSsl(configuration.securityPolicies[i]);
///
/// A client's authSecurityPolicies carry no messages: leave them. The policy's functions may be
/// called from the threads that the library's own may be called from.
///
/// Throws CipherException or std::bad_alloc, and leaves the policy as it was.
void UseOpenSsl(UA_SecurityPolicy& policy);

} // namespace OpcUa
