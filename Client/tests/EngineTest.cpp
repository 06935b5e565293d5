#include "Fixture.h"
#include "Relay.h"

#include "Client/FileSystem.h"
#include "Client/Watch.h"

#include <gtest/gtest.h>
#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

using namespace Client;
using namespace ClientTest;

namespace {

/// How a request to call a method begins, after what leads every message.
const std::string callRequest("\x01\x00\xC8\x02", 4);

/// A client that shares nothing with the library that is tested.
class OtherClient
{
public:
    explicit OtherClient(const std::string& url)
    {
        UA_ClientConfig_setDefault(UA_Client_getConfig(client.get()));
        Require(UA_Client_connect(client.get(), url.c_str()));
    }

    /// Has the shared node raise the event that answers.
    void AskWhetherExists(const std::string& path)
    {
        UA_UInt16 host = GetNamespace("urn:Talvensor:Host");
        UA_UInt16 files = GetNamespace("urn:Talvensor:FileSystem");
        std::string node = "FileSystem";
        UA_String text = UA_STRING(const_cast<char*>(path.c_str()));
        UA_Variant input{};
        UA_Variant_setScalar(&input, &text, &UA_TYPES[UA_TYPES_STRING]);
        std::size_t count = 0;
        UA_Variant* outputs = nullptr;
        const auto status =
            UA_Client_call(client.get(), UA_NODEID_STRING(host, node.data()),
                           UA_NODEID_NUMERIC(files, 1100), 1, &input, &count, &outputs);
        UA_Array_delete(outputs, count, &UA_TYPES[UA_TYPES_VARIANT]);
        Require(status);
    }

private:
    static void Require(UA_StatusCode status)
    {
        if (status != UA_STATUSCODE_GOOD)
            throw std::runtime_error(UA_StatusCode_name(status));
    }
    UA_UInt16 GetNamespace(const char* uri)
    {
        UA_UInt16 index = 0;
        UA_String text = UA_STRING(const_cast<char*>(uri));
        Require(UA_Client_NamespaceGetIndex(client.get(), &text, &index));
        return index;
    }

    std::unique_ptr<UA_Client, decltype(&UA_Client_delete)> client{UA_Client_new(),
                                                                   &UA_Client_delete};
};

class ARelayedConnection : public WithHost
{
protected:
    ConnectionOptions MakeRelayed(Security security = Security::Plain)
    {
        auto options = MakeOptions(host, security);
        options.url = relay.GetUrl();
        options.reconnectTime = std::chrono::seconds(15);
        return options;
    }

    std::string Path(const std::string& name) { return (root.GetPath() / name).string(); }

    Relay relay{host.GetPort()};
};

TEST_F(ARelayedConnection, SurvivesASecondLossWhileItEntersANewSession)
{
    MakeFile(Path("there"), 1);
    Connection connection(MakeRelayed());
    FileSystem first(connection);
    FileSystem second(connection);
    // The first has its node of the new session then, the second has not.
    relay.CutBefore(callRequest, 2);
    host.Restart();
    for (auto* const fileSystem : {&first, &second}) {
        EXPECT_TRUE(fileSystem->Exists(Path("there")));
        EXPECT_FALSE(fileSystem->Exists(Path("missing")));
    }
    EXPECT_TRUE(relay.HasCut());
}

TEST_F(ARelayedConnection, TellsNothingToThoseWhoLeftWhileItWasLost)
{
    Connection connection(MakeRelayed());
    FileSystem fileSystem(connection);
    auto gone = std::make_unique<Watch>(connection, "FileSystem");
    relay.Refuse(true);
    relay.Cut();
    EXPECT_THROW((void)gone->Next(), ConnectionLostException);
    gone.reset();
    OtherClient other(host.GetUrl());
    other.AskWhetherExists(Path("queued"));
    relay.Refuse(false);
    for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(fileSystem.Exists(Path("missing")));
        other.AskWhetherExists(Path("raised"));
    }
    EXPECT_TRUE(fileSystem.Exists(root.GetPath().string()));
}

TEST_F(ARelayedConnection, LetsAWatchOfAnOlderSessionGoWithoutHarmToOthers)
{
    Connection connection(MakeRelayed());
    auto gone = std::make_unique<Watch>(connection, "FileSystem");
    FileSystem fileSystem(connection);
    host.Restart();
    EXPECT_FALSE(fileSystem.Exists(Path("missing")));
    gone.reset(); // its subscription had the number that another one has now
    EXPECT_FALSE(fileSystem.Exists(Path("missing")));
}

TEST_F(ARelayedConnection, IsNotPlainWithAServerThatEncryptedBefore)
{
    auto options = MakeRelayed(Security::Automatic);
    options.trustServer = [](const ServerCertificate&) {
        return true;
    };
    const auto getMode = [](const ConnectionOptions& wanted) {
        return Connection(wanted).GetInfo().securityMode;
    };
    EXPECT_EQ(getMode(options), "SignAndEncrypt");
    // Somebody on the way hides what the server offers.
    relay.Rewrite("SecurityPolicy#Aes", "SecurityPolicy#Xes");
    relay.Rewrite("SecurityPolicy#Basic", "SecurityPolicy#Xasic");
    try {
        (void)getMode(options);
        ADD_FAILURE() << "connected";
    } catch (const RefusedException& refused) {
        EXPECT_EQ(refused.GetRefusal(), Refusal::Security) << refused.what();
    }
    auto asked = options;
    asked.security = Security::Plain;
    EXPECT_EQ(getMode(asked), "None");
    auto unknown = options;
    unknown.stateFolder = state.GetPath() / "another";
    EXPECT_EQ(getMode(unknown), "None");
}

} // namespace
