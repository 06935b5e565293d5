#include "Endpoint/LibraryAssumptions.h"

#include "Endpoint/Ua.h"
#include "Log/UaLogger.h"
#include "Network/EventLoop.h"
#include "Users/RandomNumbers.h"

#include <gtest/gtest.h>

#include <open62541/server_config_default.h>

#include <memory>
#include <string>

namespace Host {
namespace {

using OpcUa::LibraryException;

struct ServerDeleter
{
    void operator()(UA_Server* server) const noexcept { UA_Server_delete(server); }
};
using ServerPointer = std::unique_ptr<UA_Server, ServerDeleter>;

/// Each test breaks one assumption of a server that otherwise fits.
class TheAssumptionsOfAServer : public testing::Test
{
protected:
    ServerPointer MakeServer(bool isWithStore)
    {
        UA_ServerConfig configuration{};
        configuration.logging = &logger.Get();
        configuration.eventLoop = loop.GetHandle();
        EXPECT_EQ(UA_ServerConfig_setBasics_withPort(&configuration, 0), UA_STATUSCODE_GOOD);
        if (isWithStore)
            nodeStore.Install(configuration);
        const CyclicCallbackCount count(*loop.GetHandle());
        ServerPointer made(UA_Server_newWithConfig(&configuration));
        cyclicCallbacks = count.Get();
        return made;
    }

    UaLogger logger{UaLogger::Source::Transport};
    EventLoop loop{logger.Get(), {}};
    NodeStore nodeStore;
    std::size_t cyclicCallbacks = 0;
    ServerPointer server = MakeServer(true);
};

std::size_t CountNodes(UA_Server& server)
{
    std::size_t count = 0;
    const UA_Nodestore& store = UA_Server_getConfig(&server)->nodestore;
    store.iterate(
        store.context, [](void* counted, const UA_Node*) { ++*static_cast<std::size_t*>(counted); },
        &count);
    return count;
}

TEST_F(TheAssumptionsOfAServer, HoldAndLeaveNothingBehind)
{
    const std::size_t nodes = CountNodes(*server);
    EXPECT_NO_THROW(RequireServerAssumptions(*server, nodeStore));
    EXPECT_EQ(CountNodes(*server), nodes);
    EXPECT_NO_THROW(RequireAnsweringCallback(cyclicCallbacks));
}

TEST_F(TheAssumptionsOfAServer, FailIfItemsAreNotFoundOnTheirNode)
{
    static UA_Nodestore behind;
    UA_Nodestore& store = UA_Server_getConfig(server.get())->nodestore;
    behind = store;
    store.getNode = [](void* context, const UA_NodeId* id, UA_UInt32 attributes,
                       UA_ReferenceTypeSet references, UA_BrowseDirection directions) {
        const UA_Node* node = behind.getNode(context, id, attributes, references, directions);
        if (node != nullptr)
            const_cast<UA_Node*>(node)->head.monitoredItems = nullptr;
        return node;
    };
    EXPECT_THROW(RequireItemsOnNodes(*server), LibraryException);
    store = behind;
    EXPECT_NO_THROW(RequireItemsOnNodes(*server));
}

TEST_F(TheAssumptionsOfAServer, FailIfParametersAreCopiedUnseen)
{
    const auto countNothing = []() noexcept -> std::uint64_t {
        return 0;
    };
    EXPECT_THROW(RequireParameterCopies(*server, countNothing), LibraryException);
    EXPECT_NO_THROW(RequireParameterCopies(*server));
}

TEST_F(TheAssumptionsOfAServer, FailIfNodesAreNotTakenFromTheStore)
{
    NodeStore other;
    const ServerPointer without = MakeServer(false);
    EXPECT_THROW(RequireNodesFromStore(*without, other), LibraryException);
    EXPECT_NO_THROW(RequireNodesFromStore(*server, nodeStore));
}

TEST_F(TheAssumptionsOfAServer, FailIfAnotherStoreNumbersNewNodes)
{
    const ServerPointer without = MakeServer(false);
    EXPECT_THROW(RequireNumbersFromStore(*without), LibraryException);
    EXPECT_NO_THROW(RequireNumbersFromStore(*server));
}

TEST_F(TheAssumptionsOfAServer, FailIfAFieldOfAnEventStaysEmpty)
{
    EXPECT_NO_THROW(RequireFilledFields(*server));
    const UA_NodeId receiveTime = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE_RECEIVETIME);
    ASSERT_EQ(UA_Server_deleteNode(server.get(), receiveTime, true), UA_STATUSCODE_GOOD);
    EXPECT_THROW(RequireFilledFields(*server), LibraryException);
}

TEST_F(TheAssumptionsOfAServer, FailIfItRegistersNoCyclicCallbackOrTwo)
{
    EXPECT_EQ(cyclicCallbacks, 1U);
    EXPECT_THROW(RequireAnsweringCallback(0), LibraryException);
    EXPECT_THROW(RequireAnsweringCallback(2), LibraryException);
}

TEST_F(TheAssumptionsOfAServer, FailIfDefinitionsAreNotServed)
{
    EXPECT_THROW(RequireServedDefinitions(false), LibraryException);
    EXPECT_NO_THROW(RequireServedDefinitions(true));
}

TEST(TheRandomNumbersOfTheLibrary, AreRefusedIfTheyAreDrawnElsewhere)
{
    EXPECT_THROW(RequireDrawnHere([] { return true; }), LibraryException);
    EXPECT_THROW(RequireDrawnHere([] {
                     UA_UInt32_random();
                     return false;
                 }),
                 LibraryException);
    EXPECT_NO_THROW(RequireDrawnHere([] {
        UA_UInt32_random();
        return true;
    }));
}

TEST(TheIdentifierOfASession, IsAGuidOfTheServersOwn)
{
    EXPECT_TRUE(IsSessionId(UA_NODEID_GUID(1, UA_Guid{1, 2, 3, {4}})));
    EXPECT_FALSE(IsSessionId(UA_NODEID_GUID(2, UA_Guid{1, 2, 3, {4}})));
    EXPECT_FALSE(IsSessionId(UA_NODEID_NUMERIC(1, 7)));
}

/// A configuration with the library's defaults.
class AConfiguration : public testing::Test
{
protected:
    AConfiguration()
    {
        configuration.logging = &logger.Get();
        configuration.eventLoop = loop.GetHandle();
        EXPECT_EQ(UA_ServerConfig_setBasics_withPort(&configuration, 0), UA_STATUSCODE_GOOD);
    }
    ~AConfiguration() override
    {
        ServerPointer owner(UA_Server_newWithConfig(&configuration)); // frees it, and the loop
    }

    void Require() { RequireConfiguration(filled, loop.GetHandle()); }

    void ExpectRefused()
    {
        try {
            Require();
            ADD_FAILURE() << "it is taken";
        } catch (const LibraryException& exception) {
            EXPECT_EQ(exception.GetAssumption(), "its configuration");
        }
    }

    UaLogger logger{UaLogger::Source::Transport};
    EventLoop loop{logger.Get(), {}};
    RoomyConfiguration filled;
    UA_ServerConfig& configuration = filled.configuration;
};

TEST_F(AConfiguration, FitsAndTellsTheVersion)
{
    EXPECT_NO_THROW(Require());
    EXPECT_TRUE(OpcUa::GetLibraryVersion().starts_with("1.4."));
}

TEST_F(AConfiguration, IsRefusedIfTheLibraryWroteBehindIt)
{
    filled.room.front() = std::byte{1};
    ExpectRefused();
}

TEST_F(AConfiguration, IsRefusedIfTheLoopIsElsewhere)
{
    const EventLoop other(logger.Get(), {});
    EXPECT_THROW(RequireConfiguration(filled, nullptr), LibraryException);
}

TEST_F(AConfiguration, IsRefusedIfADefaultIsElsewhere)
{
    ++configuration.maxPublishReqPerSession;
    ExpectRefused();
    --configuration.maxPublishReqPerSession;
    configuration.pubSubConfig.enableInformationModelMethods = false;
    ExpectRefused();
}

TEST_F(AConfiguration, IsRefusedWithTheVersionOfAnOlderLibrary)
{
    UA_String& version = configuration.buildInfo.softwareVersion;
    UA_String_clear(&version);
    version = UA_STRING_ALLOC("1.4.17-undefined");
    try {
        Require();
        FAIL() << "it is taken";
    } catch (const LibraryException& exception) {
        EXPECT_EQ(exception.GetAssumption(), "its version");
        EXPECT_NE(std::string(exception.what()).find("1.4.17-undefined"), std::string::npos);
    }
}

} // namespace
} // namespace Host
