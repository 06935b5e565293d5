#pragma once

#include "OpcUa/Ua.h"
#include "OpcUa/UaException.h"

#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/util.h>

#include <string>

namespace OpcUa {

constexpr const char* applicationUri = "urn:talvensor:tests";

/// A key and a certificate of its own, both DER.
struct Identity
{
    Identity()
    {
        const UA_String subjects[] = {ViewOf("CN=talvensor tests")};
        const std::string uri = std::string("URI:") + applicationUri;
        const UA_String names[] = {ViewOf("DNS:localhost"), ViewOf(uri)};
        UA_KeyValueMap* parameters = UA_KeyValueMap_new();
        UA_UInt16 bits = 2048;
        UA_KeyValueMap_setScalar(parameters, {0, ViewOf("key-size-bits")}, &bits,
                                 &UA_TYPES[UA_TYPES_UINT16]);
        const auto status =
            UA_CreateCertificate(UA_Log_Stdout, subjects, 1, names, 2, UA_CERTIFICATEFORMAT_DER,
                                 parameters, &key, &certificate);
        UA_KeyValueMap_delete(parameters);
        RequireGood(status, "making a certificate");
    }
    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;
    ~Identity()
    {
        UA_ByteString_clear(&key);
        UA_ByteString_clear(&certificate);
    }

    UA_ByteString key = UA_BYTESTRING_NULL;
    UA_ByteString certificate = UA_BYTESTRING_NULL;
};

/// The same in every test: making a key takes long.
inline const Identity& GetIdentity()
{
    static const Identity identity;
    return identity;
}

} // namespace OpcUa
