#pragma once

#include "Connector.h"
#include "EventListener.h"

#include <open62541/types.h>

#include <cstddef>
#include <map>
#include <vector>

namespace Client {

/// The subscriptions of one client to the events of nodes. Of the engine's thread.
class Subscriptions
{
public:
    /// Must outlive the connector's client, which calls it.
    explicit Subscriptions(Connector& connector) noexcept
        : connector(connector)
    {}
    Subscriptions(const Subscriptions&) = delete;
    Subscriptions& operator=(const Subscriptions&) = delete;
    ~Subscriptions() = default;

    /// Subscribes to the events of a node, in place of the listener's earlier subscription. Throws
    /// CallRefusedException, ConnectionLostException.
    void Subscribe(const UA_NodeId& node, EventListener& listener);
    /// The listener hears nothing from now on.
    void Unsubscribe(const EventListener& listener) noexcept;
    /// Deletes at the server the subscriptions that were left. Those that cannot be deleted now
    /// stay for the next connection.
    void DeleteLeft() noexcept;
    /// Forgets all: they ended with their session.
    void Forget() noexcept;

private:
    [[nodiscard]] UA_UInt32 Make();
    [[nodiscard]] UA_StatusCode Listen(UA_UInt32 subscription, const UA_NodeId& node);
    static void OnEvent(UA_Client* client, UA_UInt32 subscription, void* subscriptionContext,
                        UA_UInt32 item, void* self, std::size_t count, UA_Variant* fields) noexcept;

    Connector& connector;
    // The OPC UA library knows their numbers only, so that an event for a listener that has left
    // finds nobody.
    std::map<UA_UInt32, EventListener*> listeners;
    std::vector<UA_UInt32> left; // to be deleted when there is a connection
};

} // namespace Client
