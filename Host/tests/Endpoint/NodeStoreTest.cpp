#include "Endpoint/NodeStore.h"

#include "Endpoint/Ua.h"

#include <gtest/gtest.h>

#include <open62541/server_config_default.h>

#include <memory>

namespace Host {
namespace {

struct ServerDeleter
{
    void operator()(UA_Server* server) const noexcept { UA_Server_delete(server); }
};

/// A server with a node below the Objects folder that can be hidden.
class ANodeStore : public testing::Test
{
protected:
    ANodeStore()
    {
        store.SetRule([this](const UA_NodeId&) { return isHidden; });
        UA_ObjectAttributes attributes = UA_ObjectAttributes_default;
        EXPECT_EQ(UA_Server_addObjectNode(server.get(), id, folder, organizes, {1, ViewOf("node")},
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), attributes,
                                          nullptr, nullptr),
                  UA_STATUSCODE_GOOD);
    }

    std::unique_ptr<UA_Server, ServerDeleter> MakeServer()
    {
        UA_ServerConfig configuration{};
        EXPECT_EQ(UA_ServerConfig_setBasics_withPort(&configuration, 0), UA_STATUSCODE_GOOD);
        store.Install(configuration);
        return std::unique_ptr<UA_Server, ServerDeleter>(UA_Server_newWithConfig(&configuration));
    }

    UA_StatusCode Read()
    {
        UA_NodeClass nodeClass{};
        return UA_Server_readNodeClass(server.get(), id, &nodeClass);
    }

    std::size_t CountInFolder()
    {
        UA_BrowseDescription below;
        UA_BrowseDescription_init(&below);
        below.nodeId = folder;
        below.referenceTypeId = organizes;
        UA_BrowseResult result = UA_Server_browse(server.get(), 0, &below);
        const std::size_t count = result.referencesSize;
        UA_BrowseResult_clear(&result);
        return count;
    }

    const UA_NodeId id = UA_NODEID_GUID(1, UA_Guid{1, 2, 3, {4}});
    const UA_NodeId folder = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
    const UA_NodeId organizes = UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES);
    bool isHidden = false;
    NodeStore store;
    std::unique_ptr<UA_Server, ServerDeleter> server = MakeServer();
};

TEST_F(ANodeStore, AnswersAsIfAHiddenNodeWereNotThere)
{
    const std::size_t all = CountInFolder();
    EXPECT_EQ(Read(), UA_STATUSCODE_GOOD);
    isHidden = true;
    EXPECT_EQ(Read(), UA_STATUSCODE_BADNODEIDUNKNOWN);
    EXPECT_EQ(CountInFolder(), all - 1);
    isHidden = false;
    EXPECT_EQ(Read(), UA_STATUSCODE_GOOD);
    EXPECT_EQ(CountInFolder(), all);
}

TEST_F(ANodeStore, HidesNothingWhileItIsOpen)
{
    isHidden = true;
    {
        const NodeStore::Opening outer(store);
        {
            const NodeStore::Opening inner(store);
        }
        EXPECT_EQ(Read(), UA_STATUSCODE_GOOD);
    }
    EXPECT_EQ(Read(), UA_STATUSCODE_BADNODEIDUNKNOWN);
}

TEST_F(ANodeStore, LetsAHiddenNodeBeRemovedWhileItIsOpen)
{
    const std::size_t all = CountInFolder();
    isHidden = true;
    EXPECT_EQ(UA_Server_deleteNode(server.get(), id, true), UA_STATUSCODE_BADNODEIDUNKNOWN);
    {
        const NodeStore::Opening everything(store);
        EXPECT_EQ(UA_Server_deleteNode(server.get(), id, true), UA_STATUSCODE_GOOD);
    }
    isHidden = false;
    EXPECT_EQ(Read(), UA_STATUSCODE_BADNODEIDUNKNOWN);
    EXPECT_EQ(CountInFolder(), all - 1);
}

TEST_F(ANodeStore, NeverAsksForNodesWithNumbers)
{
    bool wasAsked = false;
    store.SetRule([&wasAsked](const UA_NodeId&) { return wasAsked = true; });
    UA_NodeClass nodeClass{};
    EXPECT_EQ(UA_Server_readNodeClass(server.get(), folder, &nodeClass), UA_STATUSCODE_GOOD);
    EXPECT_FALSE(wasAsked);
}

TEST_F(ANodeStore, NumbersNewNodesApartFromThoseOfTheModelsWhateverElseComesAndGoes)
{
    const auto add = [this](const UA_NodeId& wanted) {
        Ua<UA_NodeId> added;
        EXPECT_EQ(UA_Server_addObjectNode(server.get(), wanted, folder, organizes,
                                          {1, ViewOf("new")},
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE),
                                          UA_ObjectAttributes_default, nullptr, &*added),
                  UA_STATUSCODE_GOOD);
        return *added;
    };
    constexpr UA_UInt32 firstGuest = 1'000;
    constexpr UA_UInt32 guests = 10;
    for (UA_UInt32 i = 0; i < guests; ++i)
        add(UA_NODEID_NUMERIC(1, firstGuest + i));
    for (UA_UInt32 i = 0; i < guests; ++i) {
        const UA_NodeId added = add(UA_NODEID_NULL);
        EXPECT_TRUE(NodeStore::IsNumberedHere(added)) << added.identifier.numeric;
        // With as many nodes as before, the library's own store tries the same numbers again.
        EXPECT_EQ(UA_Server_deleteNode(server.get(), UA_NODEID_NUMERIC(1, firstGuest + i), true),
                  UA_STATUSCODE_GOOD);
    }
}

} // namespace
} // namespace Host
