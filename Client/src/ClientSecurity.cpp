#include "ClientSecurity.h"

#include "Client/Exceptions.h"
#include "Status.h"
#include "TrustStore.h"

#include <OpcUa/SymmetricCiphers.h>
#include <OpcUa/Ua.h>

#include <open62541/client_config_default.h>

#include <algorithm>
#include <cstring>

namespace Client {

namespace {

UA_StatusCode VerifyPinned(const UA_CertificateVerification* verification,
                           const UA_ByteString* certificate)
{
    const auto& pinned = *static_cast<const std::vector<unsigned char>*>(verification->context);
    const auto shown = OpcUa::BytesOf(*certificate);
    return std::equal(shown.begin(), shown.end(), pinned.begin(), pinned.end(),
                      [](char left, unsigned char right) {
                          return static_cast<unsigned char>(left) == right;
                      })
               ? UA_STATUSCODE_GOOD
               : UA_STATUSCODE_BADCERTIFICATEUNTRUSTED;
}

/// Has the messages of encrypted connections done several times faster.
void UseOpenSsl(UA_ClientConfig& configuration)
{
    try {
        for (std::size_t i = 0; i < configuration.securityPoliciesSize; ++i)
            OpcUa::UseOpenSsl(configuration.securityPolicies[i]);
    } catch (const OpcUa::CipherException& exception) {
        throw ClientException(exception.what());
    }
}

} // namespace

void Pin(UA_CertificateVerification& verification, std::vector<unsigned char>& certificate,
         const UA_Logger* logger)
{
    if (verification.clear != nullptr)
        verification.clear(&verification);
    verification = {};
    verification.context = &certificate;
    verification.logging = logger;
    verification.verifyCertificate = &VerifyPinned;
    verification.verifyApplicationURI = [](const UA_CertificateVerification*, const UA_ByteString*,
                                           const UA_String*) -> UA_StatusCode {
        return UA_STATUSCODE_GOOD;
    };
}

void SetEncryption(UA_ClientConfig& configuration, const std::filesystem::path& stateFolder)
{
    Identity identity = LoadIdentity(stateFolder);
    const UA_ByteString certificate{identity.certificate.size(), identity.certificate.data()};
    const UA_ByteString key{identity.key.size(), identity.key.data()};
    RequireGood(UA_ClientConfig_setDefaultEncryption(&configuration, certificate, key, nullptr, 0,
                                                     nullptr, 0),
                "configuring the client's encryption");
    UseOpenSsl(configuration);
    UA_String_clear(&configuration.clientDescription.applicationUri);
    configuration.clientDescription.applicationUri =
        UA_STRING_ALLOC(identity.applicationUri.c_str());
    explicit_bzero(identity.key.data(), identity.key.size());
}

} // namespace Client
