#include "Network/EventDelivery.h"

#include <algorithm>

namespace Host {

void EventDelivery::NoteCyclicCallback(LoopTimers::Id id, UA_Callback function,
                                       ConnectionId connection)
{
    if (publish == nullptr)
        publish = function;
    if (function != publish)
        return;
    const void* owner = findOwner ? findOwner(connection) : nullptr;
    subscriptions.emplace(id, Subscription{owner, 0});
}

void EventDelivery::Forget(LoopTimers::Id id)
{
    requested.erase(id);
    ending.erase(id);
    subscriptions.erase(id);
}

void EventDelivery::RequestAll()
{
    for (const auto& [id, subscription] : subscriptions)
        requested.insert(id);
}

void EventDelivery::Request(const void* owner)
{
    for (const auto& [id, subscription] : subscriptions) {
        if (subscription.owner == owner)
            requested.insert(id);
    }
}

std::optional<UA_DateTime> EventDelivery::GetNext(UA_DateTime now) const
{
    std::optional<UA_DateTime> next;
    if (!ending.empty())
        next = std::max(now, nextEnding);
    for (const auto id : requested) {
        const auto allowed = std::max(now, GetAllowed(subscriptions.at(id)));
        next = std::min(next.value_or(allowed), allowed);
    }
    return next;
}

std::vector<LoopTimers::Id> EventDelivery::TakeReady(UA_DateTime now)
{
    std::vector<LoopTimers::Id> ready;
    for (const auto id : requested) {
        if (GetAllowed(subscriptions.at(id)) <= now)
            ready.push_back(id);
    }
    for (const auto id : ready)
        requested.erase(id);
    return ready;
}

void EventDelivery::CountVainCall(LoopTimers::Id id, UA_DateTime now)
{
    const auto found = subscriptions.find(id);
    if (found != subscriptions.end())
        found->second.rationedUntil = std::max(found->second.rationedUntil, now) + ration;
}

void EventDelivery::End(const void* owner)
{
    for (const auto& [id, subscription] : subscriptions) {
        if (subscription.owner == owner)
            ending.insert(id);
    }
}

bool EventDelivery::MayCallEnding(UA_DateTime now)
{
    if (ending.empty() || now < nextEnding)
        return false;
    nextEnding = now + ration;
    return true;
}

std::optional<LoopTimers::Id> EventDelivery::FindEnding() const
{
    return ending.empty() ? std::nullopt : std::optional(*ending.begin());
}

} // namespace Host
