#include "Users/Pki.h"

#include "Core/Exception.h"
#include "Core/Guid.h"
#include "Process/SystemError.h"
#include "Users/PrivateFile.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/types.h>
#include <span>
#include <string_view>
#include <unistd.h>

namespace Host {

namespace {

using Path = std::filesystem::path;

constexpr const char* ownName = "own";
constexpr const char* trustedName = "trusted";
constexpr const char* issuersName = "issuers";
constexpr const char* revokedName = "revoked";
constexpr const char* keyName = "key.der";
constexpr const char* certificateName = "certificate.der";
constexpr std::uint16_t keyBits = 2048; // the most that every security policy takes
constexpr std::uint16_t validDays = 10 * 365;

Bytes ToBytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// A UA_ByteString that is released.
class OwnedBytes
{
public:
    OwnedBytes() = default;
    OwnedBytes(const OwnedBytes&) = delete;
    OwnedBytes& operator=(const OwnedBytes&) = delete;
    ~OwnedBytes()
    {
        if (bytes.data != nullptr)
            explicit_bzero(bytes.data, bytes.length);
        UA_ByteString_clear(&bytes);
    }

    UA_ByteString* Get() noexcept { return &bytes; }
    [[nodiscard]] std::string GetText() const { return {bytes.data, bytes.data + bytes.length}; }

private:
    UA_ByteString bytes = UA_BYTESTRING_NULL;
};

/// Borrows the text.
UA_String ToUaString(std::string& text)
{
    UA_String result;
    result.length = text.size();
    result.data = reinterpret_cast<UA_Byte*>(text.data());
    return result;
}

std::string GetMachineName()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0)
        ThrowSystemError("the machine's name cannot be read");
    return name.data();
}

bool IsAddress(const std::string& host)
{
    std::array<unsigned char, sizeof(in6_addr)> parsed{};
    return inet_pton(AF_INET, host.c_str(), parsed.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), parsed.data()) == 1;
}

/// The library cannot write addresses into a certificate, only names.
std::vector<std::string> MakeAlternativeNames(const std::string& machine,
                                              const std::string& listenHost)
{
    std::vector<std::string> names = {"URI:urn:" + machine +
                                          ":talvensor-host:" + Core::Guid::Random().ToString(),
                                      "DNS:" + machine};
    if (listenHost != machine && !IsAddress(listenHost))
        names.push_back("DNS:" + listenHost);
    return names;
}

std::vector<UA_String> ToUaStrings(std::vector<std::string>& texts)
{
    std::vector<UA_String> result;
    std::transform(texts.begin(), texts.end(), std::back_inserter(result), ToUaString);
    return result;
}

/// Sets the library's parameters for as long as the scope lives.
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
    ~CertificateParameters() { UA_KeyValueMap_delete(map); }

    UA_KeyValueMap* Get() noexcept { return map; }

private:
    void Set(std::string name, std::uint16_t value)
    {
        const UA_QualifiedName key = {0, ToUaString(name)};
        UA_KeyValueMap_setScalar(map, key, &value, &UA_TYPES[UA_TYPES_UINT16]);
    }

    UA_KeyValueMap* map = UA_KeyValueMap_new();
};

/// A logger that keeps the last message in its context, a text.
[[gnu::format(printf, 4, 0)]] void KeepMessage(void* context, UA_LogLevel /*level*/,
                                               UA_LogCategory /*category*/, const char* message,
                                               va_list arguments)
{
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), message, arguments);
    *static_cast<std::string*>(context) = text.data();
}

struct KeyAndCertificate
{
    OwnedBytes key;
    OwnedBytes certificate;
};

void Make(KeyAndCertificate& made, const std::string& listenHost)
{
    const auto machine = GetMachineName();
    std::vector<std::string> subjects = {"O=Talvensor", "CN=Talvensor host on " + machine};
    auto names = MakeAlternativeNames(machine, listenHost);
    const auto uaSubjects = ToUaStrings(subjects);
    const auto uaNames = ToUaStrings(names);
    CertificateParameters parameters;
    std::string reason;
    const UA_Logger logger = {.log = &KeepMessage, .context = &reason, .clear = nullptr};
    const auto status = UA_CreateCertificate(
        &logger, uaSubjects.data(), uaSubjects.size(), uaNames.data(), uaNames.size(),
        UA_CERTIFICATEFORMAT_DER, parameters.Get(), made.key.Get(), made.certificate.Get());
    if (status != UA_STATUSCODE_GOOD)
        throw Core::SystemException("key and certificate cannot be made: " +
                                    (reason.empty() ? UA_StatusCode_name(status) : reason));
}

/// A folder under another name until it is complete; then both files are there, or none.
class UnfinishedFolder
{
public:
    explicit UnfinishedFolder(const Path& target)
        : path(target.string() + ".XXXXXX")
    {
        if (mkdtemp(path.data()) == nullptr) // mode 0700
            ThrowSystemError("'" + target.string() + "' cannot be made");
    }
    UnfinishedFolder(const UnfinishedFolder&) = delete;
    UnfinishedFolder& operator=(const UnfinishedFolder&) = delete;
    ~UnfinishedFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }

    [[nodiscard]] const std::string& GetPath() const noexcept { return path; }

    /// When another host has made the target meanwhile, that one stays.
    void Become(const Path& target)
    {
        const bool isDone = std::rename(path.c_str(), target.c_str()) == 0;
        if (!isDone && errno != ENOTEMPTY && errno != EEXIST)
            ThrowSystemError("'" + target.string() + "' cannot be made");
    }

private:
    std::string path;
};

void MakeOwnFolder(const Path& folder, const std::string& listenHost)
{
    UnfinishedFolder unfinished(folder);
    KeyAndCertificate made;
    Make(made, listenHost);
    WritePrivateFile(Path(unfinished.GetPath()) / keyName, made.key.GetText());
    WritePrivateFile(Path(unfinished.GetPath()) / certificateName, made.certificate.GetText());
    unfinished.Become(folder);
}

void RequireThatItCanBeMade(const Path& folder)
{
    auto above = folder;
    while (above.has_relative_path() && !std::filesystem::exists(above))
        above = above.parent_path();
    if (faccessat(AT_FDCWD, above.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        ThrowSystemError("the folder '" + folder.string() + "' cannot be made in '" +
                         above.string() + "'");
}

std::vector<Bytes> ReadFolder(const Path& folder, Pki::WhenMissing whenMissing)
{
    if (whenMissing == Pki::WhenMissing::Leave && !std::filesystem::exists(folder))
        return {};
    MakePrivateFolder(folder);
    std::vector<Path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<Bytes> contents;
    std::transform(files.begin(), files.end(), std::back_inserter(contents),
                   [](const Path& file) { return ToBytes(ReadFile(file)); });
    return contents;
}

using View = std::span<const unsigned char>;

/// The parts of a text in DER form, one after the other; the end for what is not well-formed.
class DerReader
{
public:
    explicit DerReader(View rest)
        : rest(rest)
    {}

    /// False at the end.
    bool Next()
    {
        constexpr unsigned int longForm = 0x80;
        if (rest.size() < 2)
            return false;
        tag = rest[0];
        std::size_t length = rest[1];
        std::size_t header = 2;
        if (length >= longForm) {
            const std::size_t bytes = length - longForm;
            if (bytes == 0 || bytes > 4 || rest.size() < header + bytes)
                return false;
            length = 0;
            for (; header < 2 + bytes; ++header)
                length = length * 256 + rest[header];
        }
        if (length > rest.size() - header)
            return false;
        content = rest.subspan(header, length);
        rest = rest.subspan(header + length);
        return true;
    }

    [[nodiscard]] unsigned int GetTag() const noexcept { return tag; }
    [[nodiscard]] View GetContent() const noexcept { return content; }

private:
    View rest;
    unsigned int tag = 0;
    View content;
};

constexpr unsigned int sequenceTag = 0x30;
constexpr unsigned int octetsTag = 0x04;
constexpr unsigned int identifierTag = 0x06;
constexpr unsigned int extensionsTag = 0xA3; // [3] of a certificate (RFC 5280, 4.1)
constexpr unsigned int uriTag = 0x86;        // [6] of a general name (RFC 5280, 4.2.1.6)
constexpr std::array<unsigned char, 3> alternativeNames = {0x55, 0x1D, 0x11}; // 2.5.29.17

/// The content of the first part with that tag; empty without one.
View FindPart(View content, unsigned int tag)
{
    for (DerReader parts(content); parts.Next();) {
        if (parts.GetTag() == tag)
            return parts.GetContent();
    }
    return {};
}

View FindAlternativeNames(View extensions)
{
    for (DerReader each(extensions); each.Next();) {
        const auto identifier = FindPart(each.GetContent(), identifierTag);
        if (std::equal(identifier.begin(), identifier.end(), alternativeNames.begin(),
                       alternativeNames.end()))
            return FindPart(FindPart(each.GetContent(), octetsTag), sequenceTag);
    }
    return {};
}

} // namespace

Pki::Pki(const std::filesystem::path& folder, const std::string& listenHost,
         WhenMissing whenMissing)
    : trustedFolder(folder / trustedName)
{
    const auto own = folder / ownName;
    if (whenMissing == WhenMissing::Make) {
        MakePrivateFolder(folder);
        if (!std::filesystem::exists(own))
            MakeOwnFolder(own, listenHost);
    }
    if (std::filesystem::exists(own))
        ReadOwn(own);
    else
        Borrow(own, listenHost);
    trusted = ReadFolder(trustedFolder, whenMissing);
    issuers = ReadFolder(folder / issuersName, whenMissing);
    revoked = ReadFolder(folder / revokedName, whenMissing);
}

void Pki::ReadOwn(const std::filesystem::path& own)
{
    key = ToBytes(ReadPrivateFile(own / keyName, GroupMayRead::No));
    certificate = ToBytes(ReadFile(own / certificateName));
    applicationUri = FindApplicationUri(certificate);
    if (applicationUri.empty())
        throw Core::InvalidArgumentException(
            "'" + (own / certificateName).string() +
            "' is no certificate in DER form that names a URI of the application");
}

void Pki::Borrow(const std::filesystem::path& own, const std::string& listenHost)
{
    RequireThatItCanBeMade(own);
    KeyAndCertificate made;
    Make(made, listenHost);
    key = ToBytes(made.key.GetText());
    certificate = ToBytes(made.certificate.GetText());
    applicationUri = FindApplicationUri(certificate);
}

std::vector<std::filesystem::path> FindPkiFiles(const std::filesystem::path& folder)
{
    std::vector<Path> files = {folder};
    for (const auto* const name : {ownName, trustedName, issuersName, revokedName}) {
        files.push_back(folder / name);
        std::error_code error; // a folder that is not there holds nothing
        for (const auto& entry : std::filesystem::directory_iterator(folder / name, error))
            files.push_back(entry.path());
    }
    return files;
}

std::string FindApplicationUri(const Bytes& certificate)
{
    const auto body = FindPart(FindPart(certificate, sequenceTag), sequenceTag);
    const auto extensions = FindPart(FindPart(body, extensionsTag), sequenceTag);
    const auto uri = FindPart(FindAlternativeNames(extensions), uriTag);
    return {uri.begin(), uri.end()};
}

} // namespace Host
