#include "TrustStore.h"

#include "Client/Exceptions.h"
#include "OpcUa/Certificates.h"
#include "Support/Descriptor.h"
#include "Support/PrivateFiles.h"
#include "Support/SystemError.h"

#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>

namespace Client {

namespace {

using Path = std::filesystem::path;
using Bytes = std::vector<unsigned char>;

/// Locks a folder: one process at a time creates or changes the files in it.
class FolderLock
{
public:
    explicit FolderLock(const Path& folder)
        : descriptor(
              open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR))
    {
        if (!descriptor.IsOpen())
            Support::ThrowSystemError("cannot create '" + (folder / "lock").string() + "'");
        while (flock(descriptor.Get(), LOCK_EX) != 0)
            if (errno != EINTR)
                Support::ThrowSystemError("cannot lock '" + (folder / "lock").string() + "'");
    }

private:
    Support::Descriptor descriptor;
};

Bytes ToBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

std::string_view TextOf(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Creates the folder for keys and known servers, with mode 0700.
void MakeStateFolder(const Path& folder)
{
    if (folder.empty())
        throw InvalidArgumentException("no folder for keys and known servers was given");
    Support::MakePrivateFolder(folder);
}

Identity ReadOrMakeIdentity(const Path& stateFolder)
{
    using namespace Support;
    MakeStateFolder(stateFolder);
    const Path folder = stateFolder / "own";
    MakePrivateFolder(folder);
    const Path keyFile = folder / "key.der";
    const Path certificateFile = GetCertificateFile(stateFolder);
    {
        const FolderLock lock(stateFolder);
        if (!std::filesystem::exists(certificateFile)) {
            const auto made = OpcUa::MakeKeyAndCertificate("client");
            WritePrivateFile(keyFile, TextOf(made.key));
            WritePrivateFile(certificateFile, TextOf(made.certificate));
        }
    }
    Identity identity{ToBytes(ReadPrivateFile(keyFile, GroupMayRead::No)),
                      ToBytes(ReadFile(certificateFile)),
                      {}};
    identity.applicationUri = OpcUa::FindApplicationUri(identity.certificate);
    if (identity.applicationUri.empty())
        throw ClientException("'" + certificateFile.string() +
                              "' is not a certificate with the URI of an application");
    return identity;
}

/// Returns the result of an operation; turns what it throws into ClientException.
template <typename Operation>
auto TranslateExceptions(const Operation& operation) -> decltype(operation())
{
    try {
        return operation();
    } catch (const ClientException&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw ClientException(error.what());
    }
}

} // namespace

Path GetCertificateFile(const Path& stateFolder)
{
    return stateFolder / "own" / "certificate.der";
}

OwnCertificate GetOwnCertificate(const Path& stateFolder)
{
    const auto identity = LoadIdentity(stateFolder);
    return {.file = GetCertificateFile(stateFolder),
            .fingerprint = MakeFingerprint(identity.certificate),
            .subject = OpcUa::DescribeSubject(identity.certificate),
            .validity = OpcUa::DescribeValidity(identity.certificate)};
}

std::vector<KnownServer> GetKnownServers(const Path& stateFolder)
{
    return KnownServers(stateFolder).GetAll();
}

std::size_t ForgetServers(const Path& stateFolder, const std::string& server)
{
    return KnownServers(stateFolder).Forget(server);
}

Identity LoadIdentity(const Path& stateFolder)
{
    return TranslateExceptions([&] { return ReadOrMakeIdentity(stateFolder); });
}

std::string MakeFingerprint(std::span<const unsigned char> certificate)
{
    return TranslateExceptions([&] { return OpcUa::MakeFingerprint(certificate); });
}

KnownServers::KnownServers(const Path& stateFolder)
    : folder(stateFolder)
    , file(stateFolder / "known-servers")
{}

std::vector<KnownServer> KnownServers::GetAll() const
{
    return TranslateExceptions([this] { return Read(); });
}

std::string KnownServers::Find(const std::string& server) const
{
    for (const auto& known : GetAll())
        if (known.server == server)
            return known.fingerprint;
    return {};
}

std::size_t KnownServers::Forget(const std::string& server) const
{
    return TranslateExceptions([&] { return Remove(server); });
}

void KnownServers::Remember(const std::string& server, const std::string& fingerprint) const
{
    TranslateExceptions([&] { Add(server, fingerprint); });
}

std::vector<KnownServer> KnownServers::Read() const
{
    std::vector<KnownServer> all;
    if (!std::filesystem::exists(file))
        return all;
    std::istringstream lines(Support::ReadFile(file));
    for (KnownServer known; lines >> known.server >> known.fingerprint;)
        all.push_back(known);
    return all;
}

std::size_t KnownServers::Remove(const std::string& server) const
{
    MakeStateFolder(folder);
    const FolderLock lock(folder);
    std::size_t removed = 0;
    std::string content;
    for (const auto& known : Read()) {
        const auto host = known.server.substr(0, known.server.rfind(':'));
        if (known.server == server || host == server)
            ++removed;
        else
            content += known.server + ' ' + known.fingerprint + '\n';
    }
    if (removed > 0)
        Support::WritePrivateFile(file, content);
    return removed;
}

void KnownServers::Add(const std::string& server, const std::string& fingerprint) const
{
    MakeStateFolder(folder);
    const FolderLock lock(folder);
    std::string content;
    if (std::filesystem::exists(file)) {
        std::istringstream lines(Support::ReadFile(file));
        for (std::string line; std::getline(lines, line);)
            if (line.substr(0, line.find(' ')) != server)
                content += line + '\n';
    }
    Support::WritePrivateFile(file, content + server + ' ' + fingerprint + '\n');
}

} // namespace Client
