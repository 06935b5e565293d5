#include "Users/Pki.h"

#include "Core/Exception.h"
#include "OpcUa/Certificates.h"
#include "Support/PrivateFiles.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

using Path = std::filesystem::path;

constexpr const char* ownName = "own";
constexpr const char* trustedName = "trusted";
constexpr const char* issuersName = "issuers";
constexpr const char* revokedName = "revoked";
constexpr const char* rejectedName = "rejected";
constexpr const char* keyName = "key.der";
constexpr const char* certificateName = "certificate.der";

Bytes ToBytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

bool IsAddress(const std::string& host)
{
    std::array<unsigned char, sizeof(in6_addr)> parsed{};
    return inet_pton(AF_INET, host.c_str(), parsed.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), parsed.data()) == 1;
}

std::string_view TextOf(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Makes a key and a certificate. The library writes host names into it, but no addresses.
OpcUa::KeyAndCertificate Make(const std::string& listenHost)
{
    if (IsAddress(listenHost))
        return OpcUa::MakeKeyAndCertificate("host");
    return OpcUa::MakeKeyAndCertificate("host", {listenHost});
}

/// Creates a folder under another name until it is complete: other hosts see all of its files or
/// none.
class UnfinishedFolder
{
public:
    explicit UnfinishedFolder(const Path& target)
        : path(target.string() + ".XXXXXX")
    {
        if (mkdtemp(path.data()) == nullptr) // mode 0700
            Support::ThrowSystemError("cannot create '" + target.string() + "'");
    }
    UnfinishedFolder(const UnfinishedFolder&) = delete;
    UnfinishedFolder& operator=(const UnfinishedFolder&) = delete;
    ~UnfinishedFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }

    [[nodiscard]] const std::string& GetPath() const noexcept { return path; }

    /// Renames it to the target. Keeps the target if another host has created it meanwhile.
    void Become(const Path& target)
    {
        const bool isDone = std::rename(path.c_str(), target.c_str()) == 0;
        if (!isDone && errno != ENOTEMPTY && errno != EEXIST)
            Support::ThrowSystemError("cannot create '" + target.string() + "'");
    }

private:
    std::string path;
};

void MakeOwnFolder(const Path& folder, const std::string& listenHost)
{
    UnfinishedFolder unfinished(folder);
    const auto made = Make(listenHost);
    Support::WritePrivateFile(Path(unfinished.GetPath()) / keyName, TextOf(made.key));
    Support::WritePrivateFile(Path(unfinished.GetPath()) / certificateName,
                              TextOf(made.certificate));
    unfinished.Become(folder);
}

/// Throws std::system_error if the folder could not be created.
void RequireCreatable(const Path& folder)
{
    auto above = folder;
    while (above.has_relative_path() && !std::filesystem::exists(above))
        above = above.parent_path();
    if (faccessat(AT_FDCWD, above.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        Support::ThrowSystemError("cannot create '" + folder.string() + "' in '" + above.string() +
                                  "'");
}

void MakeOwnersFolder(const Path& folder)
{
    Support::MakePrivateFolder(folder);
    Support::RequirePrivateFolder(folder);
}

std::vector<TrustFile> ReadFolder(const Path& folder, Pki::WhenMissing whenMissing)
{
    if (whenMissing == Pki::WhenMissing::Leave && !std::filesystem::exists(folder))
        return {};
    MakeOwnersFolder(folder);
    std::vector<Path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<TrustFile> contents;
    std::transform(files.begin(), files.end(), std::back_inserter(contents), [](const Path& file) {
        return TrustFile{.path = file, .content = ToBytes(Support::ReadFile(file))};
    });
    return contents;
}

} // namespace

Pki::Pki(const std::filesystem::path& folder, const std::string& listenHost,
         WhenMissing whenMissing)
    : trustedFolder(Host::GetTrustedFolder(folder))
{
    const auto own = folder / ownName;
    if (whenMissing == WhenMissing::Make) {
        MakeOwnersFolder(folder);
        if (!std::filesystem::exists(own))
            MakeOwnFolder(own, listenHost);
    }
    if (std::filesystem::exists(own))
        ReadOwn(own);
    else
        MakeInMemory(own, listenHost);
    trust = ReadTrust(folder, whenMissing);
}

Trust Pki::ReadTrust(const std::filesystem::path& folder, WhenMissing whenMissing)
{
    return {.trusted = ReadFolder(folder / trustedName, whenMissing),
            .issuers = ReadFolder(folder / issuersName, whenMissing),
            .revoked = ReadFolder(folder / revokedName, whenMissing)};
}

void Pki::ReadOwn(const std::filesystem::path& own)
{
    key = ToBytes(Support::ReadPrivateFile(own / keyName, Support::GroupMayRead::No));
    certificate = ToBytes(Support::ReadFile(own / certificateName));
    applicationUri = OpcUa::FindApplicationUri(certificate);
    if (applicationUri.empty())
        throw Core::InvalidArgumentException(
            "'" + (own / certificateName).string() +
            "' is not a certificate in DER form with the URI of an application");
}

void Pki::MakeInMemory(const std::filesystem::path& own, const std::string& listenHost)
{
    RequireCreatable(own);
    auto made = Make(listenHost);
    key = std::move(made.key);
    certificate = std::move(made.certificate);
    applicationUri = OpcUa::FindApplicationUri(certificate);
}

std::filesystem::path GetTrustedFolder(const std::filesystem::path& folder)
{
    return folder / trustedName;
}

std::filesystem::path GetRejectedFolder(const std::filesystem::path& folder)
{
    return folder / rejectedName;
}

std::filesystem::path GetOwnCertificateFile(const std::filesystem::path& folder)
{
    return folder / ownName / certificateName;
}

std::vector<std::filesystem::path> FindPkiFiles(const std::filesystem::path& folder)
{
    std::vector<Path> files = {folder};
    for (const auto* const name : {ownName, trustedName, issuersName, revokedName}) {
        files.push_back(folder / name);
        std::error_code error; // a missing folder holds nothing
        for (const auto& entry : std::filesystem::directory_iterator(folder / name, error))
            files.push_back(entry.path());
    }
    return files;
}

} // namespace Host
