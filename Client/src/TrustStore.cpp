#include "TrustStore.h"

#include "Client/Exceptions.h"
#include "PrivateFiles.h"
#include "Support/Descriptor.h"

#include <open62541/plugin/create_certificate.h>
#include <open62541/types.h>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Client {

namespace {

using Path = std::filesystem::path;
using Bytes = std::vector<unsigned char>;

constexpr UA_UInt16 keyBits = 2048; // the most that every security policy takes
constexpr UA_UInt16 validDays = 10 * 365;

/// Lets one process at a time make or change what is in the folder.
class FolderLock
{
public:
    explicit FolderLock(const Path& folder)
        : descriptor(
              open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR))
    {
        if (!descriptor.IsOpen())
            FailWithSystemError("'" + (folder / "lock").string() + "' cannot be made");
        while (flock(descriptor.Get(), LOCK_EX) != 0)
            if (errno != EINTR)
                FailWithSystemError("'" + (folder / "lock").string() + "' cannot be locked");
    }

private:
    Support::Descriptor descriptor;
};

std::string RandomDigits()
{
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw ClientException("there are no random numbers for a name");
    std::string digits;
    for (const unsigned char byte : bytes) {
        std::array<char, 3> text{};
        std::snprintf(text.data(), text.size(), "%02x", unsigned{byte});
        digits += text.data();
    }
    return digits;
}

std::string GetMachineName()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0)
        FailWithSystemError("the machine's name cannot be read");
    return name.data();
}

UA_String Borrow(std::string& text)
{
    return {text.size(), reinterpret_cast<UA_Byte*>(text.data())};
}

void SetParameter(UA_KeyValueMap& map, std::string name, UA_UInt16 value)
{
    UA_KeyValueMap_setScalar(&map, {0, Borrow(name)}, &value, &UA_TYPES[UA_TYPES_UINT16]);
}

std::string TakeText(UA_ByteString& bytes)
{
    std::string text(reinterpret_cast<const char*>(bytes.data), bytes.length);
    if (bytes.data != nullptr)
        explicit_bzero(bytes.data, bytes.length);
    UA_ByteString_clear(&bytes);
    return text;
}

void MakeIdentity(const Path& folder)
{
    const std::string machine = GetMachineName();
    std::string organisation = "O=Talvensor";
    std::string subject = "CN=Talvensor client on " + machine;
    std::string uri = "URI:urn:" + machine + ":talvensor-client:" + RandomDigits();
    std::string dns = "DNS:" + machine;
    std::array subjects{Borrow(organisation), Borrow(subject)};
    std::array names{Borrow(uri), Borrow(dns)};
    UA_KeyValueMap parameters = UA_KEYVALUEMAP_NULL;
    SetParameter(parameters, "key-size-bits", keyBits);
    SetParameter(parameters, "expires-in-days", validDays);
    UA_ByteString key = UA_BYTESTRING_NULL;
    UA_ByteString certificate = UA_BYTESTRING_NULL;
    const UA_Logger silent{[](void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}, nullptr,
                           nullptr};
    const UA_StatusCode status =
        UA_CreateCertificate(&silent, subjects.data(), subjects.size(), names.data(), names.size(),
                             UA_CERTIFICATEFORMAT_DER, &parameters, &key, &certificate);
    UA_KeyValueMap_clear(&parameters);
    const std::string keyText = TakeText(key);
    const std::string certificateText = TakeText(certificate);
    if (status != UA_STATUSCODE_GOOD)
        throw ClientException("a key and a certificate cannot be made: " +
                              std::string(UA_StatusCode_name(status)));
    ReplaceFile(folder / "key.der", keyText);
    ReplaceFile(folder / "certificate.der", certificateText);
}

Bytes ToBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

std::string FindUri(const Bytes& certificate)
{
    struct Deleter
    {
        void operator()(X509* each) const noexcept { X509_free(each); }
        void operator()(GENERAL_NAMES* each) const noexcept { GENERAL_NAMES_free(each); }
    };
    const unsigned char* position = certificate.data();
    const std::unique_ptr<X509, Deleter> parsed(
        d2i_X509(nullptr, &position, static_cast<long>(certificate.size())));
    if (!parsed)
        return {};
    const std::unique_ptr<GENERAL_NAMES, Deleter> names(static_cast<GENERAL_NAMES*>(
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

} // namespace

Identity LoadIdentity(const Path& stateFolder)
{
    MakePrivateFolder(stateFolder);
    const Path folder = stateFolder / "own";
    MakePrivateFolder(folder);
    {
        const FolderLock lock(stateFolder);
        if (!std::filesystem::exists(folder / "certificate.der"))
            MakeIdentity(folder);
    }
    struct stat status = {};
    if (stat((folder / "key.der").c_str(), &status) == 0 &&
        (status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw ClientException("'" + (folder / "key.der").string() +
                              "' is a secret, but others than its owner may read or change it: "
                              "chmod 600 it");
    Identity identity{
        ToBytes(ReadWhole(folder / "key.der")), ToBytes(ReadWhole(folder / "certificate.der")), {}};
    identity.applicationUri = FindUri(identity.certificate);
    if (identity.applicationUri.empty())
        throw ClientException("'" + (folder / "certificate.der").string() +
                              "' is no certificate that names a URI of the application");
    return identity;
}

std::string MakeFingerprint(std::span<const unsigned char> certificate)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(certificate.data(), certificate.size(), digest.data(), &length, EVP_sha256(),
                   nullptr) != 1)
        throw ClientException("the fingerprint of a certificate cannot be computed");
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), i == 0 ? "%02X" : ":%02X",
                      unsigned{digest.at(i)});
        text += digits.data();
    }
    return text;
}

KnownServers::KnownServers(const Path& stateFolder)
    : folder(stateFolder)
    , file(stateFolder / "known-servers")
{}

std::string KnownServers::Find(const std::string& server) const
{
    if (!std::filesystem::exists(file))
        return {};
    std::istringstream lines(ReadWhole(file));
    std::string name;
    std::string fingerprint;
    while (lines >> name >> fingerprint)
        if (name == server)
            return fingerprint;
    return {};
}

void KnownServers::Remember(const std::string& server, const std::string& fingerprint) const
{
    MakePrivateFolder(folder);
    const FolderLock lock(folder);
    std::string content;
    if (std::filesystem::exists(file)) {
        std::istringstream lines(ReadWhole(file));
        for (std::string line; std::getline(lines, line);)
            if (line.substr(0, line.find(' ')) != server)
                content += line + '\n';
    }
    ReplaceFile(file, content + server + ' ' + fingerprint + '\n');
}

} // namespace Client
