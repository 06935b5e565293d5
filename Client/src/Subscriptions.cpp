#include "Subscriptions.h"

#include "EventFields.h"
#include "Status.h"

#include <open62541/client_subscriptions.h>

#include <exception>

namespace Client {

namespace {

constexpr double publishingInterval = 100; // ms; the host delivers ahead of it
constexpr UA_UInt32 lifetimeCount = 1'200;
constexpr UA_UInt32 keepAliveCount = 100;
constexpr UA_UInt32 eventQueue = 200'000;

} // namespace

void Subscriptions::Subscribe(const UA_NodeId& node, EventListener& listener)
{
    Unsubscribe(listener);
    DeleteLeft(); // first: the server allows a number of them
    left.reserve(left.size() + listeners.size() + 1);
    const UA_UInt32 subscription = Make();
    listeners.insert_or_assign(subscription, &listener);
    const UA_StatusCode status = Listen(subscription, node);
    if (status != UA_STATUSCODE_GOOD)
        Unsubscribe(listener); // deleted before the next one is made
    RequireGood(status, "listening to the events of the file system");
}

/// Returns the number of a new subscription.
UA_UInt32 Subscriptions::Make()
{
    UA_CreateSubscriptionRequest wanted = UA_CreateSubscriptionRequest_default();
    wanted.requestedPublishingInterval = publishingInterval;
    wanted.requestedLifetimeCount = lifetimeCount;
    wanted.requestedMaxKeepAliveCount = keepAliveCount;
    UA_CreateSubscriptionResponse made =
        UA_Client_Subscriptions_create(&connector.GetClient(), wanted, nullptr, nullptr, nullptr);
    const UA_StatusCode status = made.responseHeader.serviceResult;
    const UA_UInt32 subscription = made.subscriptionId;
    UA_CreateSubscriptionResponse_clear(&made);
    RequireGood(status, "subscribing");
    return subscription;
}

UA_StatusCode Subscriptions::Listen(UA_UInt32 subscription, const UA_NodeId& node)
{
    EventFilter filter(connector.GetFacts().GetNamespaces().files);
    UA_MonitoredItemCreateRequest item = UA_MonitoredItemCreateRequest_default(node);
    item.itemToMonitor.attributeId = UA_ATTRIBUTEID_EVENTNOTIFIER;
    item.requestedParameters.queueSize = eventQueue;
    item.requestedParameters.samplingInterval = 0;
    UA_ExtensionObject_setValueNoDelete(&item.requestedParameters.filter, &filter.Get(),
                                        &UA_TYPES[UA_TYPES_EVENTFILTER]);
    UA_MonitoredItemCreateResult result = UA_Client_MonitoredItems_createEvent(
        &connector.GetClient(), subscription, UA_TIMESTAMPSTORETURN_NEITHER, item, this,
        &Subscriptions::OnEvent, nullptr);
    const UA_StatusCode status = result.statusCode;
    UA_MonitoredItemCreateResult_clear(&result);
    return status;
}

/// The room in `left` was made by `Subscribe`.
void Subscriptions::Unsubscribe(const EventListener& listener) noexcept
{
    for (auto entry = listeners.begin(); entry != listeners.end();) {
        if (entry->second != &listener) {
            ++entry;
            continue;
        }
        left.push_back(entry->first);
        entry = listeners.erase(entry);
    }
}

void Subscriptions::DeleteLeft() noexcept
{
    std::erase_if(left, [this](UA_UInt32 subscription) {
        return !IsLoss(UA_Client_Subscriptions_deleteSingle(&connector.GetClient(), subscription));
    });
}

void Subscriptions::Forget() noexcept
{
    listeners.clear();
    left.clear();
}

void Subscriptions::OnEvent(UA_Client* /*client*/, UA_UInt32 subscription,
                            void* /*subscriptionContext*/, UA_UInt32 /*item*/, void* context,
                            std::size_t count, UA_Variant* fields) noexcept
{
    auto& self = *static_cast<Subscriptions*>(context);
    const auto found = self.listeners.find(subscription);
    if (found == self.listeners.end())
        return;
    try {
        found->second->OnEvent(count, fields);
    } catch (const std::exception& failure) {
        // Its content is not known; so nothing that waits may go on as if it had come.
        self.connector.Break(failure.what());
    }
}

} // namespace Client
