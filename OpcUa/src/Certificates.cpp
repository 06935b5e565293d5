#include "OpcUa/Certificates.h"

#include "OpcUa/Ua.h"
#include "Support/SystemError.h"

#include <open62541/plugin/create_certificate.h>
#include <open62541/types.h>
#include <open62541/util.h>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace OpcUa {

namespace {

constexpr UA_UInt16 keyBits = 2048; // the most that every security policy takes
constexpr UA_UInt16 validDays = 10 * 365;

std::string GetMachineName()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0)
        Support::ThrowSystemError("cannot read the machine's name");
    return name.data();
}

std::string MakeRandomDigits()
{
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw CertificateException("cannot make a certificate: OpenSSL has no random numbers");
    std::string digits;
    for (const unsigned char byte : bytes) {
        std::array<char, 3> text{};
        std::snprintf(text.data(), text.size(), "%02x", unsigned{byte});
        digits += text.data();
    }
    return digits;
}

/// Sets the library's parameters for as long as it lives.
class CertificateParameters
{
public:
    CertificateParameters()
    {
        Set("key-size-bits", keyBits);
        Set("expires-in-days", validDays);
    }
    CertificateParameters(const CertificateParameters&) = delete;
    CertificateParameters& operator=(const CertificateParameters&) = delete;
    ~CertificateParameters() { UA_KeyValueMap_clear(&map); }

    UA_KeyValueMap* Get() noexcept { return &map; }

private:
    void Set(std::string_view name, UA_UInt16 value)
    {
        UA_KeyValueMap_setScalar(&map, {0, ViewOf(name)}, &value, &UA_TYPES[UA_TYPES_UINT16]);
    }

    UA_KeyValueMap map = UA_KEYVALUEMAP_NULL;
};

/// Owns bytes of the library, and overwrites them at the end.
class SecretBytes
{
public:
    SecretBytes() = default;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;
    ~SecretBytes()
    {
        if (bytes.data != nullptr)
            explicit_bzero(bytes.data, bytes.length);
        UA_ByteString_clear(&bytes);
    }

    UA_ByteString* Get() noexcept { return &bytes; }
    [[nodiscard]] Bytes Copy() const { return {bytes.data, bytes.data + bytes.length}; }

private:
    UA_ByteString bytes = UA_BYTESTRING_NULL;
};

/// A log function that keeps the last message in its context, a std::string.
[[gnu::format(printf, 4, 0)]] void KeepMessage(void* context, UA_LogLevel /*level*/,
                                               UA_LogCategory /*category*/, const char* message,
                                               va_list arguments) noexcept
{
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), message, arguments);
    try {
        *static_cast<std::string*>(context) = text.data();
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): the status says enough
    }
}

std::vector<UA_String> ViewsOf(const std::vector<std::string>& texts)
{
    std::vector<UA_String> views;
    std::transform(texts.begin(), texts.end(), std::back_inserter(views),
                   [](const std::string& text) { return ViewOf(text); });
    return views;
}

struct CertificateDeleter
{
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
    void operator()(BIO* text) const noexcept { BIO_free(text); }
    void operator()(GENERAL_NAMES* names) const noexcept { GENERAL_NAMES_free(names); }
};

using ParsedCertificate = std::unique_ptr<X509, CertificateDeleter>;

/// Moves `position` behind the certificate that begins there. Returns null if none does.
ParsedCertificate Parse(const unsigned char*& position, std::size_t size)
{
    return ParsedCertificate(d2i_X509(nullptr, &position, static_cast<long>(size)));
}

ParsedCertificate Parse(std::span<const unsigned char> certificate)
{
    const unsigned char* position = certificate.data();
    return Parse(position, certificate.size());
}

/// Returns an empty text for a time that is none.
std::string FormatTime(const ASN1_TIME* time)
{
    std::tm fields = {};
    std::array<char, sizeof("9999-12-31T23:59:59Z")> text{};
    if (ASN1_TIME_to_tm(time, &fields) != 1 ||
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields) == 0)
        return {};
    return text.data();
}

} // namespace

KeyAndCertificate MakeKeyAndCertificate(const std::string& role,
                                        const std::vector<std::string>& hostNames)
{
    const auto machine = GetMachineName();
    const std::vector<std::string> subjects = {"O=Talvensor",
                                               "CN=Talvensor " + role + " on " + machine};
    std::vector<std::string> names = {
        "URI:urn:" + machine + ":talvensor-" + role + ":" + MakeRandomDigits(), "DNS:" + machine};
    for (const auto& name : hostNames)
        names.push_back("DNS:" + name);
    const auto subjectViews = ViewsOf(subjects);
    const auto nameViews = ViewsOf(names);
    CertificateParameters parameters;
    std::string reason;
    const UA_Logger logger = {.log = &KeepMessage, .context = &reason, .clear = nullptr};
    SecretBytes key;
    SecretBytes certificate;
    const auto status = UA_CreateCertificate(
        &logger, subjectViews.data(), subjectViews.size(), nameViews.data(), nameViews.size(),
        UA_CERTIFICATEFORMAT_DER, parameters.Get(), key.Get(), certificate.Get());
    if (status != UA_STATUSCODE_GOOD)
        throw CertificateException("cannot make a key and a certificate: " +
                                   (reason.empty() ? UA_StatusCode_name(status) : reason));
    return {key.Copy(), certificate.Copy()};
}

std::string FindApplicationUri(std::span<const unsigned char> certificate)
{
    const auto parsed = Parse(certificate);
    if (!parsed)
        return {};
    const std::unique_ptr<GENERAL_NAMES, CertificateDeleter> names(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(parsed.get(), NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type != GEN_URI)
            continue;
        const ASN1_IA5STRING* const uri = name->d.uniformResourceIdentifier;
        return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri)),
                static_cast<std::size_t>(ASN1_STRING_length(uri))};
    }
    return {};
}

std::span<const unsigned char> GetFirstCertificate(std::span<const unsigned char> chain)
{
    const unsigned char* end = chain.data();
    if (!Parse(end, chain.size()))
        return {};
    return {chain.data(), end};
}

std::string MakeFingerprint(std::span<const unsigned char> certificate)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(certificate.data(), certificate.size(), digest.data(), &length, EVP_sha256(),
                   nullptr) != 1)
        throw CertificateException("cannot compute the fingerprint of a certificate");
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), i == 0 ? "%02X" : ":%02X",
                      unsigned{digest.at(i)});
        text += digits.data();
    }
    return text;
}

std::string DescribeSubject(std::span<const unsigned char> certificate)
{
    const auto parsed = Parse(certificate);
    const std::unique_ptr<BIO, CertificateDeleter> text(BIO_new(BIO_s_mem()));
    constexpr auto form = XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB;
    if (!parsed || !text ||
        X509_NAME_print_ex(text.get(), X509_get_subject_name(parsed.get()), 0, form) < 0)
        return {};
    char* data = nullptr;
    const auto size = BIO_get_mem_data(text.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

std::string DescribeValidity(std::span<const unsigned char> certificate)
{
    const auto parsed = Parse(certificate);
    if (!parsed)
        return {};
    return FormatTime(X509_get0_notBefore(parsed.get())) + " until " +
           FormatTime(X509_get0_notAfter(parsed.get()));
}

} // namespace OpcUa
