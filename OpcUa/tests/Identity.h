#pragma once

#include "OpcUa/Certificates.h"
#include "OpcUa/Ua.h"

#include <string>

namespace OpcUa {

/// Owns a new key and certificate, as the library's calls take them. They copy them.
struct Identity
{
    KeyAndCertificate made = MakeKeyAndCertificate("tester");
    UA_ByteString key{made.key.size(), made.key.data()};
    UA_ByteString certificate{made.certificate.size(), made.certificate.data()};
    std::string applicationUri = FindApplicationUri(made.certificate);

    Identity() = default;
    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;
};

/// Returns the same in every test: making a key takes long.
inline const Identity& GetIdentity()
{
    static const Identity identity;
    return identity;
}

} // namespace OpcUa
