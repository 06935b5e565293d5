#pragma once

#include "Endpoint/Ua.h"

#include <open62541/plugin/nodestore.h>
#include <open62541/server.h>

#include <utility>
#include <vector>

namespace Host {

/// Hides, while it lives, the event subscriptions on everything above an object and on the Server
/// object, so that an event triggered meanwhile reaches the object's own subscribers alone.
///
/// The library sends an event up to every node above its source, and to the Server object, and lets
/// nobody decide who hears it. The subscriptions of a node hang on the node itself (see
/// `RequireItemsOnNodes`), so they are taken off and put back. Loop thread; the call that triggers
/// is the only one of the library while it lives.
class HiddenSubscribers
{
public:
    HiddenSubscribers(UA_Server& server, const UA_NodeId& object);
    HiddenSubscribers(const HiddenSubscribers&) = delete;
    HiddenSubscribers& operator=(const HiddenSubscribers&) = delete;
    ~HiddenSubscribers();

private:
    void HideAbove(const UA_NodeId& node);
    void Hide(const UA_NodeId& node);

    UA_Server& server;
    UA_Nodestore& store;
    std::vector<std::pair<UA_Node*, UA_MonitoredItem*>> hidden; // nodes are held in the store
};

} // namespace Host
