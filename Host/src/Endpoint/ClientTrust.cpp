#include "Endpoint/ClientTrust.h"

#include "Endpoint/Ua.h"
#include "Log/Log.h"
#include "OpcUa/Certificates.h"

#include <open62541/plugin/pki_default.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <iterator>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Host {

namespace {

std::vector<UA_ByteString> ViewsOf(const std::vector<Bytes>& files)
{
    std::vector<UA_ByteString> views;
    std::transform(files.begin(), files.end(), std::back_inserter(views), [](const Bytes& file) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
        return UA_ByteString{file.size(), const_cast<UA_Byte*>(file.data())};
    });
    return views;
}

using Verify = decltype(UA_CertificateVerification::verifyCertificate);

/// The library's own check: the same function for every list of trusted certificates, which any
/// thread may make.
std::atomic<Verify> listCheck = nullptr;

/// Logs a refused certificate so that an operator can compare and trust it, behind the line in
/// which the library tells the reason. Anybody can send one: its subject proves nothing, and the
/// log limits the lines.
void LogRefused(std::span<const unsigned char> certificate)
{
    constexpr std::size_t longestSubject = 256;
    const auto subject = OpcUa::DescribeSubject(certificate).substr(0, longestSubject);
    Log(Core::LogLevel::Warning, "Host.Login",
        fmt::format("Certificate of a client refused: fingerprint {}, subject '{}'",
                    OpcUa::MakeFingerprint(certificate), subject));
}

UA_StatusCode CheckAndLog(const UA_CertificateVerification* verification,
                          const UA_ByteString* certificate) noexcept
{
    const UA_StatusCode status = listCheck.load()(verification, certificate);
    if (status == UA_STATUSCODE_GOOD)
        return status;
    try {
        LogRefused({certificate->data, certificate->length});
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): the line is lost
    }
    return status;
}

void Clear(UA_CertificateVerification& verification) noexcept
{
    if (verification.clear != nullptr)
        verification.clear(&verification);
}

} // namespace

ClientTrust::ClientTrust()
{
    UA_CertificateVerification_AcceptAll(&verification);
}

ClientTrust::ClientTrust(const Trust& trust)
{
    auto trusted = ViewsOf(trust.trusted);
    auto issuers = ViewsOf(trust.issuers);
    auto revoked = ViewsOf(trust.revoked);
    try {
        RequireGood(UA_CertificateVerification_Trustlist(
                        &verification, trusted.data(), trusted.size(), issuers.data(),
                        issuers.size(), revoked.data(), revoked.size()),
                    "reading the trusted certificates");
        listCheck = verification.verifyCertificate;
        verification.verifyCertificate = CheckAndLog;
    } catch (...) {
        Clear(verification);
        throw;
    }
}

ClientTrust::~ClientTrust()
{
    Clear(verification);
}

void ClientTrust::Swap(UA_CertificateVerification& other) noexcept
{
    std::swap(verification, other);
    std::swap(verification.logging, other.logging); // of the configuration
}

bool Accepts(UA_CertificateVerification& check, const UA_ByteString& certificate)
{
    return certificate.length == 0 ||
           check.verifyCertificate(&check, &certificate) == UA_STATUSCODE_GOOD;
}

} // namespace Host
