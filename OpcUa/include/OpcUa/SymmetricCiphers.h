#pragma once

#include <open62541/plugin/securitypolicy.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace OpcUa {

/// OpenSSL refuses an algorithm. The text names the algorithm, the use and OpenSSL's reason.
class CipherException : public std::runtime_error
{
public:
    explicit CipherException(const std::string& what)
        : std::runtime_error(what)
    {}
};

/// Secures messages of one channel under its present keys.
class Seal
{
public:
    Seal() = default;
    Seal(const Seal&) = delete;
    Seal& operator=(const Seal&) = delete;
    virtual ~Seal() = default;

    /// Pads, signs and encrypts a message of one chunk as the last message of the channel, and
    /// enters its length. `message` has the headers, with the sequence header, and the body.
    /// Returns false if OpenSSL refuses.
    [[nodiscard]] virtual bool Apply(std::vector<unsigned char>& message) = 0;
};

/// Observes the messages of a policy's channels before they are signed, and after they are
/// verified.
class MessageObserver
{
public:
    MessageObserver() = default;
    MessageObserver(const MessageObserver&) = delete;
    MessageObserver& operator=(const MessageObserver&) = delete;
    virtual ~MessageObserver() = default;

    /// `data` is the whole message in plain text, or the text of any other signature. Its bytes may
    /// be changed. `seal` lives as long as the channel. Called on the thread that sends.
    virtual void OnSigning(unsigned char* data, std::size_t size, Seal& seal) noexcept = 0;

    /// `data` is a whole message in plain text whose symmetric signature is right. Its bytes may be
    /// changed. False refuses it as if the signature were wrong. Called on the thread that
    /// receives.
    [[nodiscard]] virtual bool OnVerified(unsigned char* data, std::size_t size) noexcept = 0;
};

/// Makes OpenSSL sign, verify, encrypt and decrypt the messages of a policy, several times faster
/// than the library does. The messages stay the same: the other end may use OpenSSL or not.
///
/// The library still does the start of a connection (certificates, asymmetric operations, nonces,
/// key derivation), and all policies other than Basic256Sha256, Aes128_Sha256_RsaOaep and
/// Aes256_Sha256_RsaPss. Does nothing for these, nor for a policy that uses OpenSSL already. Keeps
/// the lengths and URIs of the policy.
///
/// The policy must be initialised and must not have channels yet. Its owner clears it as before,
/// with its `clear`, after its last channel. It may be moved in memory until its first channel, as
/// the library does when it adds a policy to a configuration. Call it for a server's or a client's
/// configuration, after adding all policies and before making the server or connecting:
///
///     for (std::size_t i = 0; i < configuration.securityPoliciesSize; ++i)
///         OpcUa::UseOpenSsl(configuration.securityPolicies[i]);
///
/// A client's authSecurityPolicies carry no messages: leave them. The policy's functions may be
/// called from the threads that the library's own may be called from.
///
/// `observer`, if there is one, must outlive the policy.
///
/// Throws CipherException or std::bad_alloc, and leaves the policy as it was.
void UseOpenSsl(UA_SecurityPolicy& policy, MessageObserver* observer = nullptr);

} // namespace OpcUa
