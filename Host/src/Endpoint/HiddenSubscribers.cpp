#include "Endpoint/HiddenSubscribers.h"

#include <algorithm>

namespace Host {

HiddenSubscribers::HiddenSubscribers(UA_Server& server, const UA_NodeId& object)
    : server(server)
    , store(UA_Server_getConfig(&server)->nodestore)
{
    HideAbove(object);
    Hide(UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER));
}

HiddenSubscribers::~HiddenSubscribers()
{
    for (const auto& [node, subscriptions] : hidden) {
        node->head.monitoredItems = subscriptions;
        store.releaseNode(store.context, node);
    }
}

/// Follows the hierarchy upwards. A node that is met twice is hidden once.
void HiddenSubscribers::HideAbove(const UA_NodeId& node)
{
    UA_BrowseDescription upwards;
    UA_BrowseDescription_init(&upwards);
    upwards.nodeId = node;
    upwards.browseDirection = UA_BROWSEDIRECTION_INVERSE;
    upwards.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    upwards.includeSubtypes = true;
    UA_BrowseResult parents = UA_Server_browse(&server, 0, &upwards);
    for (std::size_t i = 0; i < parents.referencesSize; ++i) {
        Hide(parents.references[i].nodeId.nodeId);
        HideAbove(parents.references[i].nodeId.nodeId);
    }
    UA_BrowseResult_clear(&parents);
}

void HiddenSubscribers::Hide(const UA_NodeId& id)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the node is ours to change, see above
    auto* node = const_cast<UA_Node*>(
        store.getNode(store.context, &id, 0, UA_REFERENCETYPESET_NONE, UA_BROWSEDIRECTION_INVALID));
    if (node == nullptr)
        return;
    const auto isSame = [node](const auto& each) {
        return each.first == node;
    };
    if (std::any_of(hidden.begin(), hidden.end(), isSame)) {
        store.releaseNode(store.context, node);
        return;
    }
    hidden.emplace_back(node, std::exchange(node->head.monitoredItems, nullptr));
}

} // namespace Host
