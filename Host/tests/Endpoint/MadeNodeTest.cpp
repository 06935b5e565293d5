#include "Endpoint/MadeNode.h"

#include "Endpoint/Interposition.h"
#include "Endpoint/Ua.h"

#include <gtest/gtest.h>

#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Host {
namespace {

/// A node with three entries, made each time that the library asks for it.
class AMadeNode : public testing::Test
{
protected:
    AMadeNode()
    {
        self = this;
        UA_ServerConfig configuration{};
        EXPECT_EQ(UA_ServerConfig_setBasics_withPort(&configuration, 0), UA_STATUSCODE_GOOD);
        inner = configuration.nodestore;
        configuration.nodestore.getNode = Get;
        configuration.nodestore.getNodeFromPtr = GetFromPointer;
        configuration.nodestore.releaseNode = Release;
        server.reset(UA_Server_newWithConfig(&configuration));
    }

    struct Page
    {
        UA_StatusCode status = UA_STATUSCODE_GOOD;
        std::size_t count = 0;
        std::string next; ///< the continuation point
    };

    Page Browse(UA_UInt32 maximum)
    {
        UA_BrowseDescription below;
        UA_BrowseDescription_init(&below);
        below.nodeId = id;
        below.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES);
        return Take(UA_Server_browse(server.get(), maximum, &below));
    }

    Page GoOn(const Page& page)
    {
        const UA_ByteString next = ViewOf(page.next);
        return Take(UA_Server_browseNext(server.get(), false, &next));
    }

    UA_StatusCode failure = UA_STATUSCODE_GOOD;
    const UA_NodeId id = UA_NODEID_NUMERIC(1, 77);

private:
    static Page Take(UA_BrowseResult result)
    {
        Page page{result.statusCode, result.referencesSize,
                  std::string(OpcUa::BytesOf(result.continuationPoint))};
        UA_BrowseResult_clear(&result);
        return page;
    }

    static const UA_Node* Get(void* context, const UA_NodeId* sought, UA_UInt32 attributes,
                              UA_ReferenceTypeSet references, UA_BrowseDirection directions)
    {
        if (!UA_NodeId_equal(sought, &self->id))
            return self->inner.getNode(context, sought, attributes, references, directions);
        self->node.Begin(UA_NODECLASS_OBJECT, self->id, 1, "node", nullptr);
        for (const auto& entry : self->entries)
            self->node.AddReference(UA_REFERENCETYPEINDEX_ORGANIZES, false, entry);
        if (self->failure != UA_STATUSCODE_GOOD)
            self->node.Fail(1, self->failure);
        self->node.Finish();
        return &self->node.Get();
    }

    static const UA_Node* GetFromPointer(void* context, UA_NodePointer pointer,
                                         UA_UInt32 attributes, UA_ReferenceTypeSet references,
                                         UA_BrowseDirection directions)
    {
        const UA_NodeId sought = UA_NodePointer_toNodeId(pointer);
        if (!IsUncopyable(sought))
            return self->inner.getNodeFromPtr(context, pointer, attributes, references, directions);
        self->target.Begin(UA_NODECLASS_OBJECT, sought, 0, {}, nullptr);
        return &self->target.Get();
    }

    static void Release(void* context, const UA_Node* released)
    {
        if (released != &self->node.Get() && released != &self->target.Get())
            self->inner.releaseNode(context, released);
    }

    static inline AMadeNode* self = nullptr;

    const std::vector<UA_NodeId> entries{UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER),
                                         UA_NODEID_NUMERIC(0, UA_NS0ID_TYPESFOLDER),
                                         UA_NODEID_NUMERIC(0, UA_NS0ID_VIEWSFOLDER)};
    UA_Nodestore inner{};
    MadeNode node;
    MadeNode target;
    std::unique_ptr<UA_Server, decltype(&UA_Server_delete)> server{nullptr, &UA_Server_delete};
};

TEST_F(AMadeNode, IsBrowsedPageByPage)
{
    const auto first = Browse(1);
    EXPECT_EQ(first.count, 1U);
    const auto second = GoOn(first);
    EXPECT_EQ(second.status, UA_STATUSCODE_GOOD);
    EXPECT_EQ(second.count, 1U);
}

TEST_F(AMadeNode, LetsABrowseFailWithAStatus)
{
    failure = UA_STATUSCODE_BADRESOURCEUNAVAILABLE;
    const auto page = Browse(0);
    EXPECT_EQ(page.status, UA_STATUSCODE_BADRESOURCEUNAVAILABLE);
    EXPECT_EQ(page.count, 0U);
}

TEST_F(AMadeNode, LetsAFurtherPageFailWhoseEntriesAreNotKnownAnyMore)
{
    const auto page = Browse(1);
    failure = UA_STATUSCODE_BADDEVICEFAILURE;
    EXPECT_EQ(GoOn(page).status, UA_STATUSCODE_BADDEVICEFAILURE);
}

} // namespace
} // namespace Host
