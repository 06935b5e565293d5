#include "Endpoint/ClientTrust.h"

#include "Endpoint/Ua.h"

#include <open62541/plugin/pki_default.h>

#include <algorithm>
#include <iterator>
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
