#pragma once

#include <open62541/client.h>

#include <filesystem>
#include <vector>

namespace Client {

/// Gives the client the policies that encrypt, with the key and the certificate of the state
/// folder. Throws ClientException.
void SetEncryption(UA_ClientConfig& configuration, const std::filesystem::path& stateFolder);

/// Accepts this certificate (DER) of a server and no other. Both must outlive the client.
void Pin(UA_CertificateVerification& verification, std::vector<unsigned char>& certificate,
         const UA_Logger* logger);

} // namespace Client
