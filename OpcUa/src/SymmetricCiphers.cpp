#include "OpcUa/SymmetricCiphers.h"

#include "OpcUa/Ua.h"

#include <open62541/plugin/log.h>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace OpcUa {
namespace {

constexpr std::size_t blockLength = 16;     // AES
constexpr std::size_t signatureLength = 32; // SHA-256

struct Kind
{
    std::string_view uri;
    const char* cipher;
};

constexpr Kind kinds[] = {
    {"http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256", "AES-256-CBC"},
    {"http://opcfoundation.org/UA/SecurityPolicy#Aes128_Sha256_RsaOaep", "AES-128-CBC"},
    {"http://opcfoundation.org/UA/SecurityPolicy#Aes256_Sha256_RsaPss", "AES-256-CBC"},
};

template <auto free>
struct Deleter
{
    template <typename Object>
    void operator()(Object* object) const noexcept
    {
        free(object);
    }
};

using CipherAlgorithm = std::unique_ptr<EVP_CIPHER, Deleter<&EVP_CIPHER_free>>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Deleter<&EVP_CIPHER_CTX_free>>;
using MacAlgorithm = std::unique_ptr<EVP_MAC, Deleter<&EVP_MAC_free>>;
using MacContext = std::unique_ptr<EVP_MAC_CTX, Deleter<&EVP_MAC_CTX_free>>;

/// Returns the reason why OpenSSL's last call on this thread failed, and clears the thread's
/// errors, so that others do not take them for theirs.
std::array<char, 256> TakeReason() noexcept
{
    std::array<char, 256> text{"its length is wrong, or there is no key"};
    if (const auto code = ERR_peek_last_error(); code != 0)
        ERR_error_string_n(code, text.data(), text.size());
    ERR_clear_error();
    return text;
}

[[noreturn]] void ThrowReason(const std::string& what)
{
    throw CipherException(what + ": " + TakeReason().data());
}

template <typename Pointer>
Pointer Require(Pointer pointer, const char* algorithm, std::string_view use)
{
    if (!pointer)
        ThrowReason("OpenSSL has no " + std::string(algorithm) + " for " + std::string(use));
    return pointer;
}

/// The context of a policy: its previous functions, and OpenSSL's algorithms for its channels.
/// Lives on the heap from UseOpenSsl to `clear`, since the library moves policies in memory.
struct Policy
{
    Policy(const UA_SecurityPolicy& policy, const Kind& kind, MessageObserver* observer)
        : library(policy)
        , observer(observer)
        , cipher(Require(CipherAlgorithm(EVP_CIPHER_fetch(nullptr, kind.cipher, nullptr)),
                         kind.cipher, kind.uri))
        , mac(Require(MacAlgorithm(EVP_MAC_fetch(nullptr, OSSL_MAC_NAME_HMAC, nullptr)),
                      OSSL_MAC_NAME_HMAC, kind.uri))
    {}

    UA_SecurityPolicy library;
    MessageObserver* const observer; ///< may be null
    CipherAlgorithm cipher;
    MacAlgorithm mac;
};

/// AES in CBC mode with one key, in one direction. Each message starts again with the
/// initialization vector. OpenSSL has the only copy of the key, and cleanses it.
class Cipher
{
public:
    Cipher(const EVP_CIPHER& algorithm, bool encrypts)
        : context(EVP_CIPHER_CTX_new())
    {
        // The library pads messages itself.
        if (!context ||
            EVP_CipherInit_ex2(context.get(), &algorithm, nullptr, nullptr, encrypts, nullptr) !=
                1 ||
            EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1)
            ThrowReason("OpenSSL cannot prepare a cipher");
    }
    Cipher(const Cipher&) = delete;
    Cipher& operator=(const Cipher&) = delete;
    ~Cipher() { OPENSSL_cleanse(vector.data(), vector.size()); }

    [[nodiscard]] bool SetKey(const UA_ByteString& key) noexcept
    {
        hasKey =
            key.length == static_cast<std::size_t>(EVP_CIPHER_CTX_get_key_length(context.get())) &&
            EVP_CipherInit_ex2(context.get(), nullptr, key.data, nullptr, -1, nullptr) == 1;
        return hasKey;
    }

    [[nodiscard]] bool SetVector(const UA_ByteString& given) noexcept
    {
        hasVector = given.length == vector.size();
        if (hasVector)
            std::copy_n(given.data, vector.size(), vector.begin());
        return hasVector;
    }

    /// Encrypts or decrypts in place.
    [[nodiscard]] bool Run(UA_ByteString& data) noexcept
    {
        int done = 0;
        return hasKey && hasVector && data.length % blockLength == 0 && data.length <= INT_MAX &&
               EVP_CipherInit_ex2(context.get(), nullptr, nullptr, vector.data(), -1, nullptr) ==
                   1 &&
               EVP_CipherUpdate(context.get(), data.data, &done, data.data,
                                static_cast<int>(data.length)) == 1 &&
               static_cast<std::size_t>(done) == data.length;
    }

private:
    CipherContext context;
    std::array<unsigned char, blockLength> vector{};
    bool hasKey = false;
    bool hasVector = false;
};

/// HMAC-SHA256 with one key. OpenSSL has the only copy of the key, and cleanses it.
class Mac
{
public:
    using Code = std::array<unsigned char, signatureLength>;

    explicit Mac(EVP_MAC& algorithm)
        : context(EVP_MAC_CTX_new(&algorithm))
    {
        char digest[] = "SHA256";
        const OSSL_PARAM parameters[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
            OSSL_PARAM_construct_end()};
        if (!context || EVP_MAC_CTX_set_params(context.get(), parameters) != 1)
            ThrowReason("OpenSSL cannot prepare HMAC-SHA256");
    }

    [[nodiscard]] bool SetKey(const UA_ByteString& key) noexcept
    {
        hasKey = key.length > 0 && EVP_MAC_init(context.get(), key.data, key.length, nullptr) == 1;
        return hasKey;
    }

    [[nodiscard]] bool Compute(const UA_ByteString& message, unsigned char* code) noexcept
    {
        std::size_t length = 0;
        // Without a key, this restores the state after the last key.
        return hasKey && EVP_MAC_init(context.get(), nullptr, 0, nullptr) == 1 &&
               EVP_MAC_update(context.get(), message.data, message.length) == 1 &&
               EVP_MAC_final(context.get(), code, &length, signatureLength) == 1 &&
               length == signatureLength;
    }

private:
    MacContext context;
    bool hasKey = false;
};

/// The context of a channel: the library's context, and the keys of both directions. One thread at
/// a time, as with the library's own.
struct Channel final : Seal
{
    explicit Channel(const Policy& policy)
        : policy(policy)
        , signing(*policy.mac)
        , verifying(*policy.mac)
        , encrypting(*policy.cipher, true)
        , decrypting(*policy.cipher, false)
    {}
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    ~Channel() override
    {
        if (library != nullptr)
            policy.library.channelModule.deleteContext(library);
    }

    [[nodiscard]] bool Apply(std::vector<unsigned char>& message) override;

    /// Called before signing. `data` is in a buffer of the caller.
    void TellObserver(const UA_ByteString& data) noexcept
    {
        if (policy.observer != nullptr)
            policy.observer->OnSigning(data.data, data.length, *this);
    }

    const Policy& policy;
    void* library = nullptr;
    Mac signing;
    Mac verifying;
    Cipher encrypting;
    Cipher decrypting;
    bool encrypts = false; ///< the last message was encrypted, not only signed
};

bool Channel::Apply(std::vector<unsigned char>& message)
{
    constexpr std::size_t plainHeader = 16; // is signed, and not encrypted
    if (encrypts) {
        const std::size_t length = message.size() - plainHeader + signatureLength + 1;
        const auto padding = (blockLength - length % blockLength) % blockLength;
        message.insert(message.end(), padding + 1, static_cast<unsigned char>(padding));
    }
    const std::size_t signedLength = message.size();
    message.resize(signedLength + signatureLength);
    for (std::size_t i = 0; i < 4; ++i)
        message[4 + i] = static_cast<unsigned char>(message.size() >> (8 * i));
    if (!signing.Compute({signedLength, message.data()}, message.data() + signedLength))
        return false;
    UA_ByteString secret{message.size() - plainHeader, message.data() + plainHeader};
    return !encrypts || encrypting.Run(secret);
}

Channel& ChannelOf(void* context) noexcept
{
    return *static_cast<Channel*>(context);
}

/// Returns the library's policy behind one of ours, with later changes of ours by others.
UA_SecurityPolicy& LibraryOf(const UA_SecurityPolicy& policy) noexcept
{
    UA_SecurityPolicy& library = static_cast<Policy*>(policy.policyContext)->library;
    library.localCertificate = policy.localCertificate;
    library.logger = policy.logger;
    return library;
}

UA_StatusCode Report(bool succeeded, const Channel& channel, const char* what) noexcept
{
    if (succeeded)
        return UA_STATUSCODE_GOOD;
    UA_LOG_WARNING(channel.policy.library.logger, UA_LOGCATEGORY_SECURITYPOLICY, "Cannot %s: %s",
                   what, TakeReason().data());
    return UA_STATUSCODE_BADINTERNALERROR;
}

// The symmetric operations.

UA_StatusCode Sign(void* context, const UA_ByteString* message, UA_ByteString* signature) noexcept
{
    Channel& channel = ChannelOf(context);
    channel.TellObserver(*message);
    channel.encrypts = false;
    return Report(signature->length == signatureLength &&
                      channel.signing.Compute(*message, signature->data),
                  channel, "sign a message");
}

UA_StatusCode SignAsymmetrically(void* context, const UA_ByteString* message,
                                 UA_ByteString* signature) noexcept
{
    Channel& channel = ChannelOf(context);
    channel.TellObserver(*message);
    const auto& module = channel.policy.library.asymmetricModule.cryptoModule;
    return module.signatureAlgorithm.sign(channel.library, message, signature);
}

UA_StatusCode Verify(void* context, const UA_ByteString* message,
                     const UA_ByteString* signature) noexcept
{
    Channel& channel = ChannelOf(context);
    Mac::Code expected{};
    if (const auto status = Report(channel.verifying.Compute(*message, expected.data()), channel,
                                   "compute the signature of a message");
        status != UA_STATUSCODE_GOOD)
        return status;
    // Takes the same time independent of where they differ.
    const bool isSame = signature->length == signatureLength &&
                        CRYPTO_memcmp(signature->data, expected.data(), signatureLength) == 0;
    const bool isTaken =
        isSame && (channel.policy.observer == nullptr ||
                   channel.policy.observer->OnVerified(message->data, message->length));
    return isTaken ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADSECURITYCHECKSFAILED;
}

UA_StatusCode Encrypt(void* context, UA_ByteString* data) noexcept
{
    Channel& channel = ChannelOf(context);
    channel.encrypts = true;
    return Report(channel.encrypting.Run(*data), channel, "encrypt a message");
}

UA_StatusCode Decrypt(void* context, UA_ByteString* data) noexcept
{
    Channel& channel = ChannelOf(context);
    return Report(channel.decrypting.Run(*data), channel, "decrypt a message");
}

/// Gives the keys to OpenSSL and not to the library, which does not need them.
template <auto algorithm>
UA_StatusCode SetKey(void* context, const UA_ByteString* key) noexcept
{
    Channel& channel = ChannelOf(context);
    return Report((channel.*algorithm).SetKey(*key), channel, "take a key");
}

template <auto cipher>
UA_StatusCode SetVector(void* context, const UA_ByteString* vector) noexcept
{
    Channel& channel = ChannelOf(context);
    return Report((channel.*cipher).SetVector(*vector), channel, "take an initialization vector");
}

// The channels.

UA_StatusCode NewContext(const UA_SecurityPolicy* policy, const UA_ByteString* remoteCertificate,
                         void** context) noexcept
{
    const UA_SecurityPolicy& library = LibraryOf(*policy);
    try {
        auto channel =
            std::make_unique<Channel>(*static_cast<const Policy*>(policy->policyContext));
        const auto status =
            library.channelModule.newContext(&library, remoteCertificate, &channel->library);
        if (status != UA_STATUSCODE_GOOD)
            channel->library = nullptr;
        else
            *context = channel.release();
        return status;
    } catch (const std::bad_alloc&) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    } catch (const CipherException& exception) {
        UA_LOG_ERROR(library.logger, UA_LOGCATEGORY_SECURITYPOLICY, "%s", exception.what());
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

void DeleteContext(void* context) noexcept
{
    const std::unique_ptr<Channel> deleted(static_cast<Channel*>(context));
}

UA_StatusCode CompareCertificate(const void* context, const UA_ByteString* certificate) noexcept
{
    const Channel& channel = *static_cast<const Channel*>(context);
    return channel.policy.library.channelModule.compareCertificate(channel.library, certificate);
}

// The library still does the rest, with its own contexts.

const auto& AsymmetricSignature(const UA_SecurityPolicy& policy) noexcept
{
    return policy.asymmetricModule.cryptoModule.signatureAlgorithm;
}

const auto& AsymmetricEncryption(const UA_SecurityPolicy& policy) noexcept
{
    return policy.asymmetricModule.cryptoModule.encryptionAlgorithm;
}

const auto& SymmetricSignature(const UA_SecurityPolicy& policy) noexcept
{
    return policy.symmetricModule.cryptoModule.signatureAlgorithm;
}

const auto& SymmetricEncryption(const UA_SecurityPolicy& policy) noexcept
{
    return policy.symmetricModule.cryptoModule.encryptionAlgorithm;
}

const auto& CertificateSignature(const UA_SecurityPolicy& policy) noexcept
{
    return policy.certificateSigningAlgorithm;
}

template <auto algorithm, auto function, typename Algorithm, typename Result, typename Context,
          typename... Arguments>
void HandOn(Algorithm& to, Result (*Algorithm::*)(Context*, Arguments...))
{
    // The library leaves functions null that it does not need.
    if (to.*function != nullptr)
        to.*function = [](Context* context, Arguments... arguments) noexcept -> Result {
            const Channel& channel = *static_cast<const Channel*>(context);
            return (algorithm(channel.policy.library).*function)(channel.library, arguments...);
        };
}

template <auto algorithm>
void HandOnSignature(UA_SecurityPolicySignatureAlgorithm& to)
{
    using Functions = UA_SecurityPolicySignatureAlgorithm;
    HandOn<algorithm, &Functions::verify>(to, &Functions::verify);
    HandOn<algorithm, &Functions::sign>(to, &Functions::sign);
    HandOn<algorithm, &Functions::getLocalSignatureSize>(to, &Functions::getLocalSignatureSize);
    HandOn<algorithm, &Functions::getRemoteSignatureSize>(to, &Functions::getRemoteSignatureSize);
    HandOn<algorithm, &Functions::getLocalKeyLength>(to, &Functions::getLocalKeyLength);
    HandOn<algorithm, &Functions::getRemoteKeyLength>(to, &Functions::getRemoteKeyLength);
}

template <auto algorithm>
void HandOnEncryption(UA_SecurityPolicyEncryptionAlgorithm& to)
{
    using Functions = UA_SecurityPolicyEncryptionAlgorithm;
    HandOn<algorithm, &Functions::encrypt>(to, &Functions::encrypt);
    HandOn<algorithm, &Functions::decrypt>(to, &Functions::decrypt);
    HandOn<algorithm, &Functions::getLocalKeyLength>(to, &Functions::getLocalKeyLength);
    HandOn<algorithm, &Functions::getRemoteKeyLength>(to, &Functions::getRemoteKeyLength);
    HandOn<algorithm, &Functions::getRemoteBlockSize>(to, &Functions::getRemoteBlockSize);
    HandOn<algorithm, &Functions::getRemotePlainTextBlockSize>(
        to, &Functions::getRemotePlainTextBlockSize);
}

UA_StatusCode MakeThumbprint(const UA_SecurityPolicy* policy, const UA_ByteString* certificate,
                             UA_ByteString* thumbprint) noexcept
{
    const UA_SecurityPolicy& library = LibraryOf(*policy);
    return library.asymmetricModule.makeCertificateThumbprint(&library, certificate, thumbprint);
}

UA_StatusCode CompareThumbprint(const UA_SecurityPolicy* policy,
                                const UA_ByteString* thumbprint) noexcept
{
    const UA_SecurityPolicy& library = LibraryOf(*policy);
    return library.asymmetricModule.compareCertificateThumbprint(&library, thumbprint);
}

UA_StatusCode GenerateKey(void* context, const UA_ByteString* secret, const UA_ByteString* seed,
                          UA_ByteString* key) noexcept
{
    const UA_SecurityPolicy& library = static_cast<const Policy*>(context)->library;
    return library.symmetricModule.generateKey(library.policyContext, secret, seed, key);
}

UA_StatusCode GenerateNonce(void* context, UA_ByteString* nonce) noexcept
{
    const UA_SecurityPolicy& library = static_cast<const Policy*>(context)->library;
    return library.symmetricModule.generateNonce(library.policyContext, nonce);
}

UA_StatusCode UpdateCertificate(UA_SecurityPolicy* policy, const UA_ByteString certificate,
                                const UA_ByteString key) noexcept
{
    UA_SecurityPolicy& library = LibraryOf(*policy);
    const auto status = library.updateCertificateAndPrivateKey(&library, certificate, key);
    policy->localCertificate = library.localCertificate;
    return status;
}

void Clear(UA_SecurityPolicy* policy) noexcept
{
    if (policy->policyContext == nullptr)
        return;
    UA_SecurityPolicy& library = LibraryOf(*policy);
    library.clear(&library);
    policy->localCertificate = library.localCertificate;
    const std::unique_ptr<Policy> deleted(static_cast<Policy*>(policy->policyContext));
    policy->policyContext = nullptr;
}

void SetSymmetricOperations(UA_SecurityPolicy& policy)
{
    auto& signature = policy.symmetricModule.cryptoModule.signatureAlgorithm;
    HandOnSignature<&SymmetricSignature>(signature);
    signature.sign = &Sign;
    signature.verify = &Verify;
    auto& encryption = policy.symmetricModule.cryptoModule.encryptionAlgorithm;
    HandOnEncryption<&SymmetricEncryption>(encryption);
    encryption.encrypt = &Encrypt;
    encryption.decrypt = &Decrypt;
    policy.symmetricModule.generateKey = &GenerateKey;
    policy.symmetricModule.generateNonce = &GenerateNonce;
}

void SetAsymmetricOperations(UA_SecurityPolicy& policy)
{
    auto& module = policy.asymmetricModule;
    HandOnSignature<&AsymmetricSignature>(module.cryptoModule.signatureAlgorithm);
    module.cryptoModule.signatureAlgorithm.sign = &SignAsymmetrically;
    HandOnEncryption<&AsymmetricEncryption>(module.cryptoModule.encryptionAlgorithm);
    HandOnSignature<&CertificateSignature>(policy.certificateSigningAlgorithm);
    module.makeCertificateThumbprint = &MakeThumbprint;
    module.compareCertificateThumbprint = &CompareThumbprint;
}

void SetChannelOperations(UA_SecurityPolicy& policy)
{
    auto& module = policy.channelModule;
    module.newContext = &NewContext;
    module.deleteContext = &DeleteContext;
    module.setLocalSymEncryptingKey = &SetKey<&Channel::encrypting>;
    module.setLocalSymSigningKey = &SetKey<&Channel::signing>;
    module.setLocalSymIv = &SetVector<&Channel::encrypting>;
    module.setRemoteSymEncryptingKey = &SetKey<&Channel::decrypting>;
    module.setRemoteSymSigningKey = &SetKey<&Channel::verifying>;
    module.setRemoteSymIv = &SetVector<&Channel::decrypting>;
    module.compareCertificate = &CompareCertificate;
}

} // namespace

void UseOpenSsl(UA_SecurityPolicy& policy, MessageObserver* observer)
{
    const auto* const kind =
        std::find_if(std::begin(kinds), std::end(kinds),
                     [&](const Kind& each) { return each.uri == BytesOf(policy.policyUri); });
    if (kind == std::end(kinds) || policy.clear == &Clear)
        return;
    policy.policyContext = std::make_unique<Policy>(policy, *kind, observer).release();
    SetSymmetricOperations(policy);
    SetAsymmetricOperations(policy);
    SetChannelOperations(policy);
    policy.updateCertificateAndPrivateKey = &UpdateCertificate;
    policy.clear = &Clear;
}

} // namespace OpcUa
