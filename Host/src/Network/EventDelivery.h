#pragma once

#include "Network/EventLoop.h"
#include "Transport/LoopTimers.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace Host {

using Transport::LoopTimers;

/// Decides which subscriptions' publishing callbacks are called ahead of their time, and when; the
/// rule is the one of `EventLoop::DeliverEvents`. Not synchronised: the loop's lock guards it.
class EventDelivery
{
public:
    /// A cyclic callback was registered while a message of the connection was being handled.
    void NoteCyclicCallback(LoopTimers::Id id, UA_Callback function, ConnectionId connection);
    void SetOwners(std::function<const void*(ConnectionId)> find) { findOwner = std::move(find); }
    void Forget(LoopTimers::Id id);

    void RequestAll();
    void Request(const void* owner);

    /// Returns when something that was requested may be called; nothing if nothing was requested.
    [[nodiscard]] std::optional<UA_DateTime> GetNext(UA_DateTime now) const;

    /// Returns the callbacks that may be called now; they are no longer requested then.
    std::vector<LoopTimers::Id> TakeReady(UA_DateTime now);

    /// A call had nothing to send.
    void CountVainCall(LoopTimers::Id id, UA_DateTime now);

    /// From now on the subscriptions of the owner are ending.
    void End(const void* owner);

    /// Returns true when ending subscriptions may be called again; then not again for a ration.
    bool MayCallEnding(UA_DateTime now);

    /// Returns one that is ending, if there are any.
    [[nodiscard]] std::optional<LoopTimers::Id> FindEnding() const;

private:
    static constexpr int mostVainCalls = 20;
    static constexpr UA_DateTime ration = 10 * UA_DATETIME_MSEC;

    struct Subscription
    {
        const void* owner{};
        // Each vain call moves this on by a ration, from the present or from where it is.
        UA_DateTime rationedUntil{};
    };

    /// Returns the time from which a vain call of the subscription is within its rations.
    [[nodiscard]] static UA_DateTime GetAllowed(const Subscription& subscription)
    {
        return subscription.rationedUntil - (mostVainCalls - 1) * ration;
    }

    UA_Callback publish{};
    std::map<LoopTimers::Id, Subscription> subscriptions;
    std::set<LoopTimers::Id> requested; // of these
    std::set<LoopTimers::Id> ending;    // of these
    UA_DateTime nextEnding{};
    std::function<const void*(ConnectionId)> findOwner;
};

} // namespace Host
