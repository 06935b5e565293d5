#include "Endpoint/ClientTrust.h"

#include "Endpoint/Ua.h"
#include "Log/Log.h"
#include "OpcUa/Certificates.h"

#include <open62541/plugin/pki_default.h>

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Host {

namespace {

using Files = std::vector<TrustFile>;

std::vector<UA_ByteString> ViewsOf(const Files& files)
{
    std::vector<UA_ByteString> views;
    std::transform(
        files.begin(), files.end(), std::back_inserter(views), [](const TrustFile& file) {
            // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
            return UA_ByteString{file.content.size(), const_cast<UA_Byte*>(file.content.data())};
        });
    return views;
}

void Clear(UA_CertificateVerification& verification) noexcept
{
    if (verification.clear != nullptr)
        verification.clear(&verification);
}

/// The library's own check.
class ListCheck
{
public:
    explicit ListCheck(const Trust& trust)
    {
        auto trusted = ViewsOf(trust.trusted);
        auto issuers = ViewsOf(trust.issuers);
        auto revoked = ViewsOf(trust.revoked);
        status = UA_CertificateVerification_Trustlist(&verification, trusted.data(), trusted.size(),
                                                      issuers.data(), issuers.size(),
                                                      revoked.data(), revoked.size());
    }
    ListCheck(const ListCheck&) = delete;
    ListCheck& operator=(const ListCheck&) = delete;
    ~ListCheck() { Clear(verification); }

    /// The status of reading the files.
    [[nodiscard]] UA_StatusCode GetStatus() const noexcept { return status; }

    UA_CertificateVerification* Get() noexcept { return &verification; }

private:
    UA_CertificateVerification verification{};
    UA_StatusCode status = UA_STATUSCODE_BADINTERNALERROR;
};

/// Names the files that the library does not read. It does not tell them by itself.
std::string FindFaults(const Trust& trust)
{
    std::string faults;
    const auto examine = [&faults](const Files& files, Files Trust::*kind, const char* expected) {
        for (const auto& file : files) {
            Trust alone;
            alone.*kind = {file};
            if (ListCheck(alone).GetStatus() != UA_STATUSCODE_GOOD)
                faults += fmt::format("{}'{}' is not {} in DER or PEM form",
                                      faults.empty() ? "" : "; ", file.path.string(), expected);
        }
    };
    examine(trust.trusted, &Trust::trusted, "a certificate");
    examine(trust.issuers, &Trust::issuers, "a certificate");
    examine(trust.revoked, &Trust::revoked, "a revocation list");
    return faults;
}

/// The context of a check that reports whom it refuses.
struct ReportingCheck
{
    ListCheck list;
    bool trustsNobody;
    ClientTrust::OnRefused onRefused;
};

ReportingCheck& ContextOf(const UA_CertificateVerification& verification)
{
    auto& context = *static_cast<ReportingCheck*>(verification.context);
    context.list.Get()->logging = verification.logging;
    return context;
}

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

UA_StatusCode CheckAndReport(const UA_CertificateVerification* verification,
                             const UA_ByteString* certificate) noexcept
{
    auto& context = ContextOf(*verification);
    auto& list = *context.list.Get();
    // Empty lists mean nobody: whatever they mean to the library, it is not asked.
    const UA_StatusCode status = context.trustsNobody ? UA_STATUSCODE_BADCERTIFICATEUNTRUSTED
                                                      : list.verifyCertificate(&list, certificate);
    if (status == UA_STATUSCODE_GOOD)
        return status;
    try {
        const std::span<const unsigned char> sent(certificate->data, certificate->length);
        const auto first = OpcUa::GetFirstCertificate(sent);
        LogRefused(first.empty() ? sent : first);
        if (!first.empty())
            context.onRefused(first);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): line and certificate are lost
    }
    return status;
}

UA_StatusCode CheckApplicationUri(const UA_CertificateVerification* verification,
                                  const UA_ByteString* certificate, const UA_String* uri) noexcept
{
    auto& list = *ContextOf(*verification).list.Get();
    return list.verifyApplicationURI(&list, certificate, uri);
}

void ClearReportingCheck(UA_CertificateVerification* verification) noexcept
{
    const std::unique_ptr<ReportingCheck> context(
        static_cast<ReportingCheck*>(std::exchange(verification->context, nullptr)));
    *verification = {};
}

} // namespace

ClientTrust::ClientTrust()
{
    UA_CertificateVerification_AcceptAll(&verification);
}

ClientTrust::ClientTrust(const Trust& trust, OnRefused onRefused)
{
    std::unique_ptr<ReportingCheck> context(
        new ReportingCheck{.list = ListCheck(trust),
                           .trustsNobody = trust.trusted.empty(),
                           .onRefused = std::move(onRefused)});
    if (context->list.GetStatus() != UA_STATUSCODE_GOOD) {
        if (const auto faults = FindFaults(trust); !faults.empty())
            throw OpcUa::CertificateException(faults);
        throw UaException("reading the trusted certificates", context->list.GetStatus());
    }
    const auto& list = *context->list.Get();
    verification.verifyCertificate = CheckAndReport;
    verification.verifyApplicationURI = CheckApplicationUri;
    verification.getExpirationDate = list.getExpirationDate; // without a context
    verification.getSubjectName = list.getSubjectName;
    verification.clear = ClearReportingCheck;
    verification.context = context.release();
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
