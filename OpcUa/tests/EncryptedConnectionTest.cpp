#include "OpcUa/SymmetricCiphers.h"

#include "Identity.h"
#include "OpcUa/UaException.h"

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/plugin/pki_default.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

namespace OpcUa {
namespace {

using testing::Combine;
using testing::Values;

enum class Ciphers
{
    Library,
    OpenSsl
};

constexpr std::size_t valueSize = 61440;
constexpr std::size_t largeSize = 1'000'000; // several chunks

struct ServerDeleter
{
    void operator()(UA_Server* server) const noexcept { UA_Server_delete(server); }
};
struct ClientDeleter
{
    void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
};
using ClientPointer = std::unique_ptr<UA_Client, ClientDeleter>;

void AcceptAll(UA_CertificateVerification& verification)
{
    if (verification.clear != nullptr)
        verification.clear(&verification);
    UA_CertificateVerification_AcceptAll(&verification);
}

void UseOpenSsl(UA_SecurityPolicy* policies, std::size_t count, Ciphers ciphers)
{
    if (ciphers == Ciphers::OpenSsl)
        for (std::size_t i = 0; i < count; ++i)
            OpcUa::UseOpenSsl(policies[i]);
}

std::string MakeText(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>(i * 31 + i / 251);
    return text;
}

/// A server of the library on loopback, on a port of the system's choice, with one variable.
class RunningServer
{
public:
    explicit RunningServer(Ciphers ciphers)
        : server(Make(ciphers))
    {
        AddVariable();
        RequireGood(UA_Server_run_startup(server.get()), "starting the server");
        const auto& description = UA_Server_getConfig(server.get())->applicationDescription;
        url = BytesOf(description.discoveryUrls[0]);
        loop = std::thread([this] {
            while (!stopping)
                UA_Server_run_iterate(server.get(), true);
            UA_Server_run_shutdown(server.get());
        });
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;
    ~RunningServer()
    {
        Stop();
        loop.join();
    }

    /// Stops after the next event: nothing wakes the library's loop from another thread.
    void Stop() noexcept { stopping = true; }

    [[nodiscard]] const std::string& GetUrl() const { return url; }
    static UA_NodeId GetVariable() { return UA_NODEID_NUMERIC(1, 1); }

private:
    static UA_Server* Make(Ciphers ciphers)
    {
        const Identity& identity = GetIdentity();
        UA_ServerConfig configuration{};
        configuration.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
        RequireGood(UA_ServerConfig_setBasics_withPort(&configuration, 0), "basics");
        UA_Array_delete(configuration.serverUrls, configuration.serverUrlsSize,
                        &UA_TYPES[UA_TYPES_STRING]);
        const UA_String urls[] = {ViewOf("opc.tcp://127.0.0.1:0")};
        configuration.serverUrlsSize = 1;
        RequireGood(UA_Array_copy(urls, 1, reinterpret_cast<void**>(&configuration.serverUrls),
                                  &UA_TYPES[UA_TYPES_STRING]),
                    "copying the URL");
        UA_String_clear(&configuration.applicationDescription.applicationUri);
        configuration.applicationDescription.applicationUri =
            UA_STRING_ALLOC(GetIdentity().applicationUri.c_str());
        RequireGood(UA_ServerConfig_addAllSecurityPolicies(&configuration, &identity.certificate,
                                                           &identity.key),
                    "adding policies");
        UseOpenSsl(configuration.securityPolicies, configuration.securityPoliciesSize, ciphers);
        RequireGood(UA_ServerConfig_addAllEndpoints(&configuration), "adding endpoints");
        RequireGood(UA_AccessControl_default(&configuration, true, nullptr, 0, nullptr),
                    "access control");
        AcceptAll(configuration.secureChannelPKI);
        AcceptAll(configuration.sessionPKI);
        return UA_Server_newWithConfig(&configuration);
    }

    void AddVariable()
    {
        const std::string text = MakeText(valueSize);
        UA_ByteString value = ViewOf(text);
        UA_VariableAttributes attributes = UA_VariableAttributes_default;
        attributes.accessLevel = UA_ACCESSLEVELMASK_READ | UA_ACCESSLEVELMASK_WRITE;
        UA_Variant_setScalar(&attributes.value, &value, &UA_TYPES[UA_TYPES_BYTESTRING]);
        RequireGood(UA_Server_addVariableNode(
                        server.get(), GetVariable(), UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
                        UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), {1, ViewOf("Bytes")},
                        UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attributes, nullptr,
                        nullptr),
                    "adding the variable");
    }

    std::unique_ptr<UA_Server, ServerDeleter> server;
    std::string url;
    std::atomic<bool> stopping{false};
    std::thread loop;
};

/// A connected client of the library.
ClientPointer Connect(const std::string& url, const char* policyUri, UA_MessageSecurityMode mode,
                      Ciphers ciphers)
{
    const Identity& identity = GetIdentity();
    UA_ClientConfig configuration{};
    configuration.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    RequireGood(UA_ClientConfig_setDefaultEncryption(&configuration, identity.certificate,
                                                     identity.key, nullptr, 0, nullptr, 0),
                "configuring the client");
    UA_String_clear(&configuration.clientDescription.applicationUri);
    configuration.clientDescription.applicationUri =
        UA_STRING_ALLOC(GetIdentity().applicationUri.c_str());
    configuration.securityMode = mode;
    configuration.securityPolicyUri = UA_STRING_ALLOC(policyUri);
    AcceptAll(configuration.certificateVerification);
    UseOpenSsl(configuration.securityPolicies, configuration.securityPoliciesSize, ciphers);
    ClientPointer client(UA_Client_newWithConfig(&configuration));
    RequireGood(UA_Client_connect(client.get(), url.c_str()), "connecting");
    return client;
}

std::string Read(UA_Client& client)
{
    Ua<UA_Variant> value;
    RequireGood(UA_Client_readValueAttribute(&client, RunningServer::GetVariable(), &*value),
                "reading");
    return std::string(BytesOf(*static_cast<UA_ByteString*>(value->data)));
}

void Write(UA_Client& client, const std::string& text)
{
    UA_ByteString bytes = ViewOf(text);
    UA_Variant value;
    UA_Variant_setScalar(&value, &bytes, &UA_TYPES[UA_TYPES_BYTESTRING]);
    RequireGood(UA_Client_writeValueAttribute(&client, RunningServer::GetVariable(), &value),
                "writing");
}

constexpr const char* basic256Sha256 = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";
constexpr const char* aes128 = "http://opcfoundation.org/UA/SecurityPolicy#Aes128_Sha256_RsaOaep";
constexpr const char* aes256 = "http://opcfoundation.org/UA/SecurityPolicy#Aes256_Sha256_RsaPss";

struct Ends
{
    Ciphers server;
    Ciphers client;
};

using Parameters = std::tuple<const char*, UA_MessageSecurityMode, Ends>;

std::string NameOf(const testing::TestParamInfo<Parameters>& tested)
{
    const auto& [policy, mode, ends] = tested.param;
    std::string name = policy;
    name.erase(0, name.find('#') + 1);
    name += mode == UA_MESSAGESECURITYMODE_SIGN ? "Signed" : "Encrypted";
    name += ends.server == Ciphers::OpenSsl ? "ServerOpenSsl" : "ServerLibrary";
    return name + (ends.client == Ciphers::OpenSsl ? "ClientOpenSsl" : "ClientLibrary");
}

class AnEncryptedConnection : public testing::TestWithParam<Parameters>
{};

INSTANTIATE_TEST_SUITE_P(Each, AnEncryptedConnection,
                         Combine(Values(basic256Sha256, aes128, aes256),
                                 Values(UA_MESSAGESECURITYMODE_SIGN,
                                        UA_MESSAGESECURITYMODE_SIGNANDENCRYPT),
                                 Values(Ends{Ciphers::Library, Ciphers::OpenSsl},
                                        Ends{Ciphers::OpenSsl, Ciphers::Library},
                                        Ends{Ciphers::OpenSsl, Ciphers::OpenSsl})),
                         NameOf);

TEST_P(AnEncryptedConnection, CarriesMessagesBothWaysAndAfterARenewal)
{
    const auto& [policy, mode, ends] = GetParam();
    RunningServer server(ends.server);
    const ClientPointer client = Connect(server.GetUrl(), policy, mode, ends.client);
    EXPECT_EQ(Read(*client), MakeText(valueSize));
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, valueSize, largeSize}) {
        Write(*client, MakeText(size));
        EXPECT_EQ(Read(*client), MakeText(size)) << size;
    }
    for (int renewal = 0; renewal < 3; ++renewal) {
        ASSERT_EQ(UA_Client_renewSecureChannel(client.get()), UA_STATUSCODE_GOODCALLAGAIN);
        EXPECT_EQ(Read(*client), MakeText(largeSize)) << renewal;
    }
    RequireGood(UA_Client_disconnect(client.get()), "disconnecting");
    RequireGood(UA_Client_connect(client.get(), server.GetUrl().c_str()), "connecting again");
    EXPECT_EQ(Read(*client), MakeText(largeSize));
    server.Stop(); // the client leaves before it
}

} // namespace
} // namespace OpcUa
