#pragma once

#include "Identity.h"
#include "OpcUa/Ua.h"
#include "OpcUa/UaException.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/plugin/pki_default.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

// A connection with the OPC UA library's own client, which shares no code with the project's
// client: for tests and measurements of the host.

namespace OpcUa {

struct ClientDeleter
{
    void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
};

using PlainClient = std::unique_ptr<UA_Client, ClientDeleter>;

enum class Encryption
{
    None,
    Basic256Sha256, ///< signed and encrypted; accepts any certificate of the server
};

/// Returns a configuration that logs fatal errors only. Throws UaException.
inline UA_ClientConfig MakeClientConfiguration(Encryption encryption)
{
    UA_ClientConfig configuration{};
    configuration.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    if (encryption == Encryption::None) {
        RequireGood(UA_ClientConfig_setDefault(&configuration), "configuring a client");
        configuration.securityMode = UA_MESSAGESECURITYMODE_NONE;
        return configuration;
    }
    const Identity& identity = GetIdentity();
    RequireGood(UA_ClientConfig_setDefaultEncryption(&configuration, identity.certificate,
                                                     identity.key, nullptr, 0, nullptr, 0),
                "configuring an encrypted client");
    configuration.securityMode = UA_MESSAGESECURITYMODE_SIGNANDENCRYPT;
    configuration.securityPolicyUri =
        UA_STRING_ALLOC("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");
    UA_String_clear(&configuration.clientDescription.applicationUri);
    configuration.clientDescription.applicationUri =
        UA_STRING_ALLOC(identity.applicationUri.c_str());
    configuration.certificateVerification.clear(&configuration.certificateVerification);
    UA_CertificateVerification_AcceptAll(&configuration.certificateVerification);
    return configuration;
}

/// Connects a client, which takes over the configuration. Throws UaException.
inline PlainClient Connect(UA_ClientConfig& configuration, const std::string& url)
{
    PlainClient client(UA_Client_newWithConfig(&configuration));
    if (!client)
        throw std::bad_alloc();
    RequireGood(UA_Client_connect(client.get(), url.c_str()), "connecting to " + url);
    return client;
}

/// Asks the server for the index of a namespace. Throws UaException if it has none.
inline std::uint16_t FindNamespace(UA_Client& client, const std::string& uri)
{
    UA_String name = ViewOf(uri);
    UA_UInt16 index = 0;
    RequireGood(UA_Client_NamespaceGetIndex(&client, &name, &index),
                "finding the namespace " + uri);
    return index;
}

/// Returns a view of a value of the library; valid as long as the value.
inline UA_Variant ViewAsVariant(const void* value, std::size_t type) noexcept
{
    UA_Variant variant;
    UA_Variant_init(&variant);
    variant.type = &UA_TYPES[type];
    variant.storageType = UA_VARIANT_DATA_NODELETE;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
    variant.data = const_cast<void*>(value);
    return variant;
}

} // namespace OpcUa
