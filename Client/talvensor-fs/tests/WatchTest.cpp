// Somebody else asks a shared node, and who watches hears of it.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace CliTest {
namespace {

using testing::HasSubstr;

/// Calls methods of the shared node.
class Neighbour
{
public:
    explicit Neighbour(const std::string& url)
        : client(UA_Client_new(), UA_Client_delete)
    {
        UA_ClientConfig_setDefault(UA_Client_getConfig(client.get()));
        Require(UA_Client_connect(client.get(), url.c_str()));
    }

    void AskWhetherExists(std::string path)
    {
        std::string name = "FileSystem";
        const auto node = UA_NODEID_STRING(GetNamespace("urn:Talvensor:Host"), name.data());
        constexpr UA_UInt32 exists = 1100;
        const auto method = UA_NODEID_NUMERIC(GetNamespace("urn:Talvensor:FileSystem"), exists);
        UA_String text = UA_STRING(path.data());
        UA_Variant input;
        UA_Variant_setScalar(&input, &text, &UA_TYPES[UA_TYPES_STRING]);
        Require(UA_Client_call(client.get(), node, method, 1, &input, nullptr, nullptr));
    }

private:
    static void Require(UA_StatusCode status)
    {
        if (status != UA_STATUSCODE_GOOD)
            throw std::runtime_error(UA_StatusCode_name(status));
    }

    UA_UInt16 GetNamespace(std::string uri)
    {
        UA_String text = UA_STRING(uri.data());
        UA_UInt16 index = 0;
        Require(UA_Client_NamespaceGetIndex(client.get(), &text, &index));
        return index;
    }

    const std::unique_ptr<UA_Client, decltype(&UA_Client_delete)> client;
};

class WhoWatches : public testing::Test
{
protected:
    Desk desk;
};

TEST_F(WhoWatches, ReadsTheEventsAsTheyCome)
{
    Terminal terminal(desk, {"--security", "plain", "watch"});
    ASSERT_TRUE(terminal.WaitFor("watching FileSystem")) << terminal.GetSeen();
    Neighbour neighbour(desk.host.GetUrl());
    neighbour.AskWhetherExists("nothing");
    ASSERT_TRUE(terminal.WaitFor("ExistsResultEvent  it does not exist")) << terminal.GetSeen();
    neighbour.AskWhetherExists(".");
    ASSERT_TRUE(terminal.WaitFor("ExistsResultEvent  it exists")) << terminal.GetSeen();
    terminal.Type("\x03");
    EXPECT_EQ(terminal.WaitForEnd(), 130);
}

TEST_F(WhoWatches, ReadsJsonAndEndsAfterAsManyAsWanted)
{
    Terminal terminal(desk, {"--security", "plain", "watch", "--json", "-n", "1", "FileSystem"});
    ASSERT_TRUE(terminal.WaitFor("shown\r\n")) << terminal.GetSeen();
    Neighbour(desk.host.GetUrl()).AskWhetherExists(".");
    EXPECT_EQ(terminal.WaitForEnd(), 0);
    const auto& seen = terminal.GetSeen();
    const auto event = nlohmann::json::parse(seen.substr(seen.find('{')));
    EXPECT_EQ(event["event"], "ExistsResultEvent");
    EXPECT_EQ(event["exists"], true);
    EXPECT_THAT(event["time"].get<std::string>(), HasSubstr("T"));
}

} // namespace
} // namespace CliTest
