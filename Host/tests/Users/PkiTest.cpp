#include "Users/Pki.h"

#include "TemporaryFolder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <open62541/plugin/pki_default.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Host {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* listenHost = "files.example.org";

UA_ByteString Borrow(const Bytes& bytes)
{
    UA_ByteString result;
    result.length = bytes.size();
    result.data = const_cast<UA_Byte*>(bytes.data());
    return result;
}

Bytes ToBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

Bytes ReadBytes(const std::filesystem::path& file)
{
    return ToBytes(ReadWhole(file));
}

mode_t GetMode(const std::filesystem::path& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

class APkiFolder : public testing::Test
{
protected:
    std::string GetComplaint() const
    {
        try {
            const Pki pki(folder, listenHost);
            return {};
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    TemporaryFolder parent;
    std::filesystem::path folder = parent.GetPath() / "state" / "pki";
};

TEST_F(APkiFolder, IsMadeForItsOwnerAlone)
{
    const Pki pki(folder, listenHost);
    EXPECT_EQ(GetMode(folder), 0700U);
    EXPECT_EQ(GetMode(folder / "own"), 0700U);
    EXPECT_EQ(GetMode(folder / "own" / "key.der"), 0600U);
    EXPECT_EQ(GetMode(folder / "own" / "certificate.der"), 0600U);
    EXPECT_EQ(GetMode(folder / "trusted"), 0700U);
    EXPECT_EQ(pki.GetTrustedFolder(), folder / "trusted");
}

TEST_F(APkiFolder, KeepsKeyAndCertificateFromStartToStart)
{
    const Pki first(folder, listenHost);
    const Pki second(folder, "other.example.org");
    EXPECT_EQ(first.GetKey(), second.GetKey());
    EXPECT_EQ(first.GetCertificate(), second.GetCertificate());
    EXPECT_EQ(first.GetApplicationUri(), second.GetApplicationUri());
    EXPECT_EQ(first.GetKey(), ReadBytes(folder / "own" / "key.der"));
}

TEST_F(APkiFolder, IsCompleteWhenSeveralHostsStartAtOnce)
{
    std::vector<pid_t> hosts(3);
    for (auto& host : hosts) {
        host = fork();
        if (host == 0)
            std::_Exit(GetComplaint().empty() ? 0 : 1);
    }
    for (const auto host : hosts) {
        int status = -1;
        EXPECT_EQ(waitpid(host, &status, 0), host);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 4);
}

TEST_F(APkiFolder, HoldsACertificateThatNamesTheApplicationsUri)
{
    const Pki pki(folder, listenHost);
    EXPECT_THAT(pki.GetApplicationUri(), StartsWith("urn:"));
    auto certificate = Borrow(pki.GetCertificate());
    UA_CertificateVerification verification = {};
    ASSERT_EQ(UA_CertificateVerification_Trustlist(&verification, &certificate, 1, nullptr, 0,
                                                   nullptr, 0),
              UA_STATUSCODE_GOOD);
    const auto uri = UA_String_fromChars(pki.GetApplicationUri().c_str());
    EXPECT_EQ(verification.verifyCertificate(&verification, &certificate), UA_STATUSCODE_GOOD);
    EXPECT_EQ(verification.verifyApplicationURI(&verification, &certificate, &uri),
              UA_STATUSCODE_GOOD);
    UA_ByteString owned = uri;
    UA_ByteString_clear(&owned);
    verification.clear(&verification);
}

TEST_F(APkiFolder, HoldsACertificateThatNamesTheHost)
{
    const Pki pki(folder, listenHost);
    const std::string text(pki.GetCertificate().begin(), pki.GetCertificate().end());
    EXPECT_THAT(text, HasSubstr(listenHost));
}

TEST_F(APkiFolder, HoldsAPairThatEverySecurityPolicyTakes)
{
    const Pki pki(folder, listenHost);
    auto* const server = UA_Server_new();
    auto* const config = UA_Server_getConfig(server);
    const auto certificate = Borrow(pki.GetCertificate());
    const auto key = Borrow(pki.GetKey());
    EXPECT_EQ(UA_ServerConfig_addSecurityPolicyBasic256Sha256(config, &certificate, &key),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(UA_ServerConfig_addSecurityPolicyAes128Sha256RsaOaep(config, &certificate, &key),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(UA_ServerConfig_addSecurityPolicyAes256Sha256RsaPss(config, &certificate, &key),
              UA_STATUSCODE_GOOD);
    UA_Server_delete(server);
}

TEST_F(APkiFolder, HasACertificateOfItsOwn)
{
    const Pki one(folder, listenHost);
    const Pki other(parent.GetPath() / "other", listenHost);
    EXPECT_NE(one.GetApplicationUri(), other.GetApplicationUri());
    EXPECT_NE(one.GetKey(), other.GetKey());
}

TEST_F(APkiFolder, TakesAnAddressToListenOn)
{
    const Pki pki(folder, "127.0.0.1");
    EXPECT_THAT(pki.GetApplicationUri(), StartsWith("urn:"));
}

TEST_F(APkiFolder, ReadsTheCertificatesThatAreTrusted)
{
    const Pki other(parent.GetPath() / "other", listenHost);
    {
        const Pki empty(folder, listenHost);
        EXPECT_THAT(empty.GetTrust().trusted, IsEmpty());
    }
    const std::string text(other.GetCertificate().begin(), other.GetCertificate().end());
    std::ofstream(folder / "trusted" / "client.der", std::ios::binary) << text;
    std::ofstream(folder / "issuers" / "issuer.der", std::ios::binary) << "issuer";
    std::ofstream(folder / "revoked" / "list.crl", std::ios::binary) << "list";
    std::filesystem::create_directory(folder / "trusted" / "folder");
    const Pki pki(folder, listenHost);
    const auto holds = [](const std::filesystem::path& path, const Bytes& content) {
        return AllOf(Field(&TrustFile::path, path), Field(&TrustFile::content, content));
    };
    EXPECT_THAT(pki.GetTrust().trusted,
                ElementsAre(holds(folder / "trusted" / "client.der", other.GetCertificate())));
    EXPECT_THAT(pki.GetTrust().issuers,
                ElementsAre(holds(folder / "issuers" / "issuer.der", ToBytes("issuer"))));
    EXPECT_THAT(pki.GetTrust().revoked,
                ElementsAre(holds(folder / "revoked" / "list.crl", ToBytes("list"))));
}

TEST_F(APkiFolder, CannotBeUsedWhenOthersCanReadTheKey)
{
    ASSERT_EQ(GetComplaint(), "");
    chmod((folder / "own" / "key.der").c_str(), 0640);
    EXPECT_THAT(GetComplaint(), HasSubstr("key.der' holds secrets"));
}

TEST_F(APkiFolder, CannotBeUsedWhenOthersCanAddTrustedCertificates)
{
    ASSERT_EQ(GetComplaint(), "");
    chmod((folder / "trusted").c_str(), 0770);
    EXPECT_THAT(GetComplaint(), HasSubstr("trusted': chmod 700 it"));
}

TEST_F(APkiFolder, CannotBeUsedWithHalfAPair)
{
    ASSERT_EQ(GetComplaint(), "");
    std::filesystem::remove(folder / "own" / "certificate.der");
    EXPECT_THAT(GetComplaint(), HasSubstr("certificate.der': No such file"));
}

TEST_F(APkiFolder, CannotBeUsedWithACertificateThatNamesNoUri)
{
    ASSERT_EQ(GetComplaint(), "");
    std::ofstream(folder / "own" / "certificate.der") << "-----BEGIN CERTIFICATE-----";
    EXPECT_THAT(GetComplaint(), HasSubstr("certificate.der' is not a certificate in DER form"));
}

TEST_F(APkiFolder, CannotBeMadeWhereNothingCanBeMade)
{
    parent.MakeFile("state");
    EXPECT_THAT(GetComplaint(), HasSubstr("pki': Not a directory"));
}

} // namespace
} // namespace Host
