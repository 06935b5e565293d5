#include "OpcUa/SymmetricCiphers.h"

#include "Identity.h"
#include "OpcUa/UaException.h"

#include <open62541/plugin/log_stdout.h>
#include <open62541/plugin/securitypolicy_default.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace OpcUa {
namespace {

using testing::Values;
using Bytes = std::vector<unsigned char>;

enum class Ciphers
{
    Library,
    OpenSsl
};

struct Kind
{
    const char* name;
    decltype(&UA_SecurityPolicy_Basic256Sha256) initialise;
    std::size_t encryptingKeyLength;
};

void PrintTo(const Kind& kind, std::ostream* stream)
{
    *stream << kind.name;
}

constexpr Kind basic256Sha256{"Basic256Sha256", &UA_SecurityPolicy_Basic256Sha256, 32};
constexpr Kind aes128{"Aes128_Sha256_RsaOaep", &UA_SecurityPolicy_Aes128Sha256RsaOaep, 16};
constexpr Kind aes256{"Aes256_Sha256_RsaPss", &UA_SecurityPolicy_Aes256Sha256RsaPss, 32};

Bytes FromHex(std::string_view text)
{
    Bytes bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        std::from_chars(text.data() + 2 * i, text.data() + 2 * i + 2, bytes[i], 16);
    return bytes;
}

Bytes FromText(std::string_view text)
{
    return {text.begin(), text.end()};
}

Bytes MakeBytes(std::size_t size, unsigned int seed)
{
    std::mt19937 random(seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
    Bytes bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

UA_ByteString ViewOf(const Bytes& bytes)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): written to where the caller's own may
    // be
    return {bytes.size(), const_cast<UA_Byte*>(bytes.data())};
}

Bytes ToBytes(const UA_ByteString& string)
{
    return {string.data, string.data + string.length};
}

/// Logs nothing, since some tests are about refusals.
const UA_Logger quiet = UA_Log_Stdout_withLevel(UA_LOGLEVEL_FATAL);

/// Owns a policy and clears it at the end.
struct PolicyUnderTest : UA_SecurityPolicy
{
    PolicyUnderTest(const Kind& kind, Ciphers ciphers, const Identity& identity = GetIdentity())
        : UA_SecurityPolicy{}
    {
        RequireGood(kind.initialise(this, identity.certificate, identity.key, &quiet), kind.name);
        if (ciphers == Ciphers::OpenSsl)
            UseOpenSsl(*this);
    }
    PolicyUnderTest(const PolicyUnderTest&) = delete;
    PolicyUnderTest& operator=(const PolicyUnderTest&) = delete;
    ~PolicyUnderTest() { clear(this); }
};

struct Keys
{
    Bytes signing;
    Bytes encrypting;
    Bytes vector;
};

Keys MakeKeys(const Kind& kind, unsigned int seed)
{
    return {MakeBytes(32, seed), MakeBytes(kind.encryptingKeyLength, seed + 1),
            MakeBytes(16, seed + 2)};
}

/// One end of a connection.
class End
{
public:
    explicit End(const PolicyUnderTest& policy, const Identity& peer = GetIdentity())
        : policy(policy)
    {
        RequireGood(policy.channelModule.newContext(&policy, &peer.certificate, &context),
                    "making a channel");
    }
    End(const End&) = delete;
    End& operator=(const End&) = delete;
    ~End() { policy.channelModule.deleteContext(context); }

    void SetLocal(const Keys& keys)
    {
        Set(policy.channelModule.setLocalSymSigningKey, keys.signing);
        Set(policy.channelModule.setLocalSymEncryptingKey, keys.encrypting);
        Set(policy.channelModule.setLocalSymIv, keys.vector);
    }

    void SetRemote(const Keys& keys)
    {
        Set(policy.channelModule.setRemoteSymSigningKey, keys.signing);
        Set(policy.channelModule.setRemoteSymEncryptingKey, keys.encrypting);
        Set(policy.channelModule.setRemoteSymIv, keys.vector);
    }

    Bytes Sign(const Bytes& message)
    {
        Bytes signature(32);
        const auto view = ViewOf(message);
        auto output = ViewOf(signature);
        RequireGood(Signature().sign(context, &view, &output), "signing");
        return signature;
    }

    UA_StatusCode Verify(const Bytes& message, const Bytes& signature)
    {
        const auto view = ViewOf(message);
        const auto signatureView = ViewOf(signature);
        return Signature().verify(context, &view, &signatureView);
    }

    Bytes Encrypt(Bytes message)
    {
        auto view = ViewOf(message);
        RequireGood(Encryption().encrypt(context, &view), "encrypting");
        return message;
    }

    Bytes Decrypt(Bytes message)
    {
        auto view = ViewOf(message);
        RequireGood(Encryption().decrypt(context, &view), "decrypting");
        return message;
    }

    void Set(UA_StatusCode (*set)(void*, const UA_ByteString*), const Bytes& value)
    {
        const auto view = ViewOf(value);
        RequireGood(set(context, &view), "setting a key");
    }

    const PolicyUnderTest& policy;
    void* context = nullptr;

private:
    const UA_SecurityPolicySignatureAlgorithm& Signature() const
    {
        return policy.symmetricModule.cryptoModule.signatureAlgorithm;
    }
    const UA_SecurityPolicyEncryptionAlgorithm& Encryption() const
    {
        return policy.symmetricModule.cryptoModule.encryptionAlgorithm;
    }
};

struct SignatureVector
{
    Bytes key;
    Bytes message;
    const char* code;
};

/// RFC 4231, test cases 1 to 4, 6 and 7 (5 is truncated).
std::vector<SignatureVector> GetSignatureVectors()
{
    return {
        {Bytes(20, 0x0b), FromText("Hi There"),
         "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {FromText("Jefe"), FromText("what do ya want for nothing?"),
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {Bytes(20, 0xaa), Bytes(50, 0xdd),
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {FromHex("0102030405060708090a0b0c0d0e0f10111213141516171819"), Bytes(50, 0xcd),
         "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
        {Bytes(131, 0xaa), FromText("Test Using Larger Than Block-Size Key - Hash Key First"),
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {Bytes(131, 0xaa),
         FromText("This is a test using a larger than block-size key and a larger than block-size "
                  "data. The key needs to be hashed before being used by the HMAC algorithm."),
         "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
    };
}

struct CipherVector
{
    Kind kind;
    const char* key;
    const char* encrypted;
};

constexpr const char* cipherVectorsIv = "000102030405060708090a0b0c0d0e0f";
constexpr const char* cipherVectorsMessage =
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";

/// NIST SP 800-38A, F.2.1 to F.2.6.
constexpr CipherVector cipherVectors[] = {
    {aes128, "2b7e151628aed2a6abf7158809cf4f3c",
     "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
    {aes256, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
};

TEST(SymmetricCiphers, SignAsPublished)
{
    const PolicyUnderTest policy(basic256Sha256, Ciphers::OpenSsl);
    End end(policy);
    for (const auto& vector : GetSignatureVectors()) {
        end.Set(policy.channelModule.setLocalSymSigningKey, vector.key);
        end.Set(policy.channelModule.setRemoteSymSigningKey, vector.key);
        for (int repetition = 0; repetition < 3; ++repetition) {
            EXPECT_EQ(end.Sign(vector.message), FromHex(vector.code));
            EXPECT_EQ(end.Verify(vector.message, FromHex(vector.code)), UA_STATUSCODE_GOOD);
        }
    }
}

TEST(SymmetricCiphers, EncryptAsPublished)
{
    for (const auto& vector : cipherVectors) {
        const PolicyUnderTest policy(vector.kind, Ciphers::OpenSsl);
        End end(policy);
        const Keys keys{Bytes(32, 1), FromHex(vector.key), FromHex(cipherVectorsIv)};
        end.SetLocal(keys);
        end.SetRemote(keys);
        for (int repetition = 0; repetition < 3; ++repetition) {
            EXPECT_EQ(end.Encrypt(FromHex(cipherVectorsMessage)), FromHex(vector.encrypted));
            EXPECT_EQ(end.Decrypt(FromHex(vector.encrypted)), FromHex(cipherVectorsMessage));
        }
    }
}

TEST(SymmetricCiphers, LeaveOtherPoliciesAlone)
{
    UA_SecurityPolicy none{};
    ASSERT_EQ(UA_SecurityPolicy_None(&none, GetIdentity().certificate, &quiet), UA_STATUSCODE_GOOD);
    const auto clear = none.clear;
    const auto newContext = none.channelModule.newContext;
    UseOpenSsl(none);
    EXPECT_EQ(none.clear, clear);
    EXPECT_EQ(none.channelModule.newContext, newContext);
    none.clear(&none);
}

class APolicyWithOpenSsl : public testing::TestWithParam<Kind>
{
protected:
    const PolicyUnderTest library{GetParam(), Ciphers::Library};
    PolicyUnderTest openSsl{GetParam(), Ciphers::OpenSsl};
    const Keys keys = MakeKeys(GetParam(), 1);
};

INSTANTIATE_TEST_SUITE_P(Each, APolicyWithOpenSsl, Values(basic256Sha256, aes128, aes256),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(APolicyWithOpenSsl, UnderstandsTheLibraryInBothDirections)
{
    End ours(openSsl);
    End theirs(library);
    // New keys, as when a channel is renewed.
    for (unsigned int generation = 0; generation < 3; ++generation) {
        const Keys up = MakeKeys(GetParam(), 10 * generation);
        const Keys down = MakeKeys(GetParam(), 10 * generation + 5);
        ours.SetLocal(up);
        theirs.SetRemote(up);
        theirs.SetLocal(down);
        ours.SetRemote(down);
        for (const std::size_t size : {0U, 16U, 32U, 48U, 1024U, 65536U, 1048576U}) {
            const Bytes message = MakeBytes(size, generation);
            EXPECT_EQ(theirs.Verify(message, ours.Sign(message)), UA_STATUSCODE_GOOD) << size;
            EXPECT_EQ(ours.Verify(message, theirs.Sign(message)), UA_STATUSCODE_GOOD) << size;
            EXPECT_EQ(theirs.Decrypt(ours.Encrypt(message)), message) << size;
            EXPECT_EQ(ours.Decrypt(theirs.Encrypt(message)), message) << size;
            EXPECT_TRUE(size == 0 || ours.Encrypt(message) != message) << size;
        }
        EXPECT_EQ(ours.Sign(MakeBytes(17, 1)), ours.Sign(MakeBytes(17, 1)));
    }
}

TEST_P(APolicyWithOpenSsl, RefusesWhatWasTamperedWith)
{
    End end(openSsl);
    end.SetLocal(keys);
    end.SetRemote(keys);
    const Bytes message = MakeBytes(200, 1);
    const Bytes signature = end.Sign(message);
    for (std::size_t i = 0; i < message.size(); ++i) {
        Bytes changed = message;
        changed[i] ^= 1U;
        EXPECT_EQ(end.Verify(changed, signature), UA_STATUSCODE_BADSECURITYCHECKSFAILED) << i;
    }
    for (std::size_t i = 0; i < signature.size(); ++i) {
        Bytes changed = signature;
        changed[i] ^= 0x80U;
        EXPECT_EQ(end.Verify(message, changed), UA_STATUSCODE_BADSECURITYCHECKSFAILED) << i;
    }
    EXPECT_EQ(end.Verify(message, Bytes(signature.begin(), signature.end() - 1)),
              UA_STATUSCODE_BADSECURITYCHECKSFAILED);
    EXPECT_EQ(end.Verify(message, {}), UA_STATUSCODE_BADSECURITYCHECKSFAILED);
    EXPECT_EQ(end.Verify({}, signature), UA_STATUSCODE_BADSECURITYCHECKSFAILED);
    EXPECT_EQ(end.Verify(message, signature), UA_STATUSCODE_GOOD);
}

TEST_P(APolicyWithOpenSsl, KeepsChannelsAndDirectionsApart)
{
    End first(openSsl);
    End second(openSsl);
    const Keys others = MakeKeys(GetParam(), 50);
    first.SetLocal(keys);
    first.SetRemote(others);
    second.SetLocal(others);
    second.SetRemote(keys);
    const Bytes message = MakeBytes(64, 3);
    EXPECT_EQ(second.Verify(message, first.Sign(message)), UA_STATUSCODE_GOOD);
    EXPECT_EQ(second.Decrypt(first.Encrypt(message)), message);
    EXPECT_EQ(first.Verify(message, first.Sign(message)), UA_STATUSCODE_BADSECURITYCHECKSFAILED);
    EXPECT_NE(first.Decrypt(first.Encrypt(message)), message);
}

TEST_P(APolicyWithOpenSsl, RefusesToWorkWithoutKeys)
{
    End end(openSsl);
    const Bytes message = MakeBytes(32, 1);
    EXPECT_THROW(end.Sign(message), UaException);
    EXPECT_NE(end.Verify(message, Bytes(32)), UA_STATUSCODE_GOOD);
    EXPECT_THROW(end.Encrypt(message), UaException);
    EXPECT_THROW(end.Decrypt(message), UaException);
    end.Set(openSsl.channelModule.setLocalSymEncryptingKey, keys.encrypting);
    EXPECT_THROW(end.Encrypt(message), UaException) << "there is no initialization vector";
}

TEST_P(APolicyWithOpenSsl, RefusesKeysAndMessagesOfAWrongLength)
{
    End end(openSsl);
    end.SetLocal(keys);
    end.SetRemote(keys);
    EXPECT_THROW(end.Encrypt(MakeBytes(31, 1)), UaException);
    EXPECT_THROW(end.Decrypt(MakeBytes(33, 1)), UaException);
    const auto& channels = openSsl.channelModule;
    EXPECT_THROW(end.Set(channels.setLocalSymSigningKey, {}), UaException);
    EXPECT_THROW(end.Set(channels.setLocalSymEncryptingKey, Bytes(24)), UaException);
    EXPECT_THROW(end.Set(channels.setRemoteSymIv, Bytes(15)), UaException);
    // The previous key is not used instead.
    EXPECT_THROW(end.Sign(MakeBytes(32, 1)), UaException);
    EXPECT_THROW(end.Encrypt(MakeBytes(32, 1)), UaException);
    EXPECT_THROW(end.Decrypt(MakeBytes(32, 1)), UaException);
}

TEST_P(APolicyWithOpenSsl, DerivesTheSameKeysAndMakesNonces)
{
    const Bytes secret = MakeBytes(32, 1);
    const Bytes seed = MakeBytes(32, 2);
    const auto derive = [&](const PolicyUnderTest& policy) {
        Bytes key(80);
        const auto secretView = ViewOf(secret);
        const auto seedView = ViewOf(seed);
        auto view = ViewOf(key);
        RequireGood(
            policy.symmetricModule.generateKey(policy.policyContext, &secretView, &seedView, &view),
            "deriving a key");
        return key;
    };
    EXPECT_EQ(derive(openSsl), derive(library));

    std::array<Bytes, 2> nonces{Bytes(32), Bytes(32)};
    for (auto& nonce : nonces) {
        auto view = ViewOf(nonce);
        RequireGood(openSsl.symmetricModule.generateNonce(openSsl.policyContext, &view), "a nonce");
    }
    EXPECT_NE(nonces[0], nonces[1]);
}

TEST_P(APolicyWithOpenSsl, HasTheLengthsAndUrisItHad)
{
    End ours(openSsl);
    End theirs(library);
    EXPECT_EQ(BytesOf(openSsl.policyUri), BytesOf(library.policyUri));
    EXPECT_EQ(openSsl.symmetricModule.secureChannelNonceLength,
              library.symmetricModule.secureChannelNonceLength);
    const auto expectSame = [&](const UA_SecurityPolicyCryptoModule& our,
                                const UA_SecurityPolicyCryptoModule& their) {
        const auto& signature = our.signatureAlgorithm;
        const auto& encryption = our.encryptionAlgorithm;
        EXPECT_EQ(BytesOf(signature.uri), BytesOf(their.signatureAlgorithm.uri));
        EXPECT_EQ(BytesOf(encryption.uri), BytesOf(their.encryptionAlgorithm.uri));
        EXPECT_EQ(signature.getLocalSignatureSize(ours.context),
                  their.signatureAlgorithm.getLocalSignatureSize(theirs.context));
        EXPECT_EQ(signature.getRemoteSignatureSize(ours.context),
                  their.signatureAlgorithm.getRemoteSignatureSize(theirs.context));
        EXPECT_EQ(encryption.getLocalKeyLength(ours.context),
                  their.encryptionAlgorithm.getLocalKeyLength(theirs.context));
        EXPECT_EQ(encryption.getRemoteKeyLength(ours.context),
                  their.encryptionAlgorithm.getRemoteKeyLength(theirs.context));
        EXPECT_EQ(encryption.getRemoteBlockSize(ours.context),
                  their.encryptionAlgorithm.getRemoteBlockSize(theirs.context));
        EXPECT_EQ(encryption.getRemotePlainTextBlockSize(ours.context),
                  their.encryptionAlgorithm.getRemotePlainTextBlockSize(theirs.context));
    };
    expectSame(openSsl.symmetricModule.cryptoModule, library.symmetricModule.cryptoModule);
    expectSame(openSsl.asymmetricModule.cryptoModule, library.asymmetricModule.cryptoModule);
}

/// Both ends have the same certificate, so that each is its own peer.
TEST_P(APolicyWithOpenSsl, LeavesTheHandshakeToTheLibrary)
{
    End ours(openSsl);
    End theirs(library);
    const auto expectVerified = [](const UA_SecurityPolicySignatureAlgorithm& signer, End& signs,
                                   const UA_SecurityPolicySignatureAlgorithm& verifier,
                                   End& verifies) {
        const Bytes message = MakeBytes(100, 1);
        Bytes signature(signer.getLocalSignatureSize(signs.context));
        const auto view = ViewOf(message);
        auto signatureView = ViewOf(signature);
        EXPECT_EQ(signer.sign(signs.context, &view, &signatureView), UA_STATUSCODE_GOOD);
        EXPECT_EQ(verifier.verify(verifies.context, &view, &signatureView), UA_STATUSCODE_GOOD);
        signature[7] ^= 1U;
        EXPECT_NE(verifier.verify(verifies.context, &view, &signatureView), UA_STATUSCODE_GOOD);
    };
    const auto& ourModule = openSsl.asymmetricModule.cryptoModule;
    const auto& theirModule = library.asymmetricModule.cryptoModule;
    expectVerified(ourModule.signatureAlgorithm, ours, theirModule.signatureAlgorithm, theirs);
    expectVerified(theirModule.signatureAlgorithm, theirs, ourModule.signatureAlgorithm, ours);
    expectVerified(openSsl.certificateSigningAlgorithm, ours, library.certificateSigningAlgorithm,
                   theirs);

    const auto& encryption = ourModule.encryptionAlgorithm;
    const Bytes message = MakeBytes(encryption.getRemotePlainTextBlockSize(ours.context), 1);
    Bytes encrypted = message;
    encrypted.resize(encryption.getRemoteBlockSize(ours.context));
    UA_ByteString view{message.size(), encrypted.data()};
    ASSERT_EQ(encryption.encrypt(ours.context, &view), UA_STATUSCODE_GOOD);
    view.length = encrypted.size();
    ASSERT_EQ(encryption.decrypt(ours.context, &view), UA_STATUSCODE_GOOD);
    EXPECT_EQ(ToBytes(view), message);
}

TEST_P(APolicyWithOpenSsl, KnowsCertificates)
{
    End end(openSsl);
    const Identity stranger;
    const auto& channels = openSsl.channelModule;
    EXPECT_EQ(channels.compareCertificate(end.context, &GetIdentity().certificate),
              UA_STATUSCODE_GOOD);
    EXPECT_NE(channels.compareCertificate(end.context, &stranger.certificate), UA_STATUSCODE_GOOD);

    const auto& module = openSsl.asymmetricModule;
    Bytes thumbprint(20);
    auto view = ViewOf(thumbprint);
    ASSERT_EQ(module.makeCertificateThumbprint(&openSsl, &GetIdentity().certificate, &view),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(module.compareCertificateThumbprint(&openSsl, &view), UA_STATUSCODE_GOOD);
    ASSERT_EQ(module.makeCertificateThumbprint(&openSsl, &stranger.certificate, &view),
              UA_STATUSCODE_GOOD);
    EXPECT_NE(module.compareCertificateThumbprint(&openSsl, &view), UA_STATUSCODE_GOOD);
}

TEST_P(APolicyWithOpenSsl, RefusesAChannelToABrokenCertificate)
{
    const Bytes broken = MakeBytes(500, 1);
    const auto view = ViewOf(broken);
    void* context = nullptr;
    EXPECT_NE(openSsl.channelModule.newContext(&openSsl, &view, &context), UA_STATUSCODE_GOOD);
    EXPECT_EQ(context, nullptr);
}

TEST_P(APolicyWithOpenSsl, TakesANewCertificate)
{
    const Identity renewed;
    ASSERT_EQ(openSsl.updateCertificateAndPrivateKey(&openSsl, renewed.certificate, renewed.key),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(ToBytes(openSsl.localCertificate), ToBytes(renewed.certificate));

    End ours(openSsl);
    End theirs(library, renewed);
    const auto& signer = openSsl.asymmetricModule.cryptoModule.signatureAlgorithm;
    Bytes signature(signer.getLocalSignatureSize(ours.context));
    const Bytes message = MakeBytes(100, 1);
    const auto view = ViewOf(message);
    auto signatureView = ViewOf(signature);
    ASSERT_EQ(signer.sign(ours.context, &view, &signatureView), UA_STATUSCODE_GOOD);
    EXPECT_EQ(library.asymmetricModule.cryptoModule.signatureAlgorithm.verify(theirs.context, &view,
                                                                              &signatureView),
              UA_STATUSCODE_GOOD);
}

TEST_P(APolicyWithOpenSsl, WorksWithoutTheLibrary)
{
    const auto& ours = openSsl.symmetricModule.cryptoModule;
    const auto& theirs = library.symmetricModule.cryptoModule;
    EXPECT_NE(ours.signatureAlgorithm.sign, theirs.signatureAlgorithm.sign);
    EXPECT_NE(ours.signatureAlgorithm.verify, theirs.signatureAlgorithm.verify);
    EXPECT_NE(ours.encryptionAlgorithm.encrypt, theirs.encryptionAlgorithm.encrypt);
    EXPECT_NE(ours.encryptionAlgorithm.decrypt, theirs.encryptionAlgorithm.decrypt);
}

TEST_P(APolicyWithOpenSsl, IsToldOnlyOnce)
{
    void* const context = openSsl.policyContext;
    UseOpenSsl(openSsl);
    EXPECT_EQ(openSsl.policyContext, context);
}

TEST_P(APolicyWithOpenSsl, CanBeMovedAndClearedTwice)
{
    auto first = std::make_unique<UA_SecurityPolicy>();
    RequireGood(
        GetParam().initialise(first.get(), GetIdentity().certificate, GetIdentity().key, &quiet),
        GetParam().name);
    UseOpenSsl(*first);
    UA_SecurityPolicy moved = *first;
    first.reset();
    void* context = nullptr;
    ASSERT_EQ(moved.channelModule.newContext(&moved, &moved.localCertificate, &context),
              UA_STATUSCODE_GOOD);
    moved.channelModule.deleteContext(context);
    moved.clear(&moved);
    EXPECT_EQ(moved.policyContext, nullptr);
    EXPECT_EQ(moved.localCertificate.data, nullptr);
    moved.clear(&moved);
}

} // namespace
} // namespace OpcUa
