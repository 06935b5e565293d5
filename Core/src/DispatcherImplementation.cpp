#include "DispatcherImplementation.h"

#include "Core/Exception.h"

namespace Core {

DispatchGuard DispatcherImplementation::TerminateDispatchOnStop(unsigned int affinityId)
{
    if (affinityId == 0)
        return {};
    std::function<void()> leave = [self = shared_from_this(), affinityId] {
        self->Unsilence(affinityId);
    };
    Silence(affinityId);
    DispatchGuard guard(std::move(leave));
    AwaitRunning([affinityId](const RecipientBase& recipient) {
        return recipient.affinityId == affinityId;
    });
    return guard;
}

void DispatcherImplementation::AwaitNotifications(const RecipientBase& recipient)
{
    AwaitRunning([&recipient](const RecipientBase& notified) { return &notified == &recipient; });
}

template <typename Predicate>
void DispatcherImplementation::AwaitRunning(const Predicate& predicate)
{
    Support::Lock lock(waits.mutex);
    std::vector<const Activity*> awaited;
    for (const auto* notification : running) {
        if (predicate(*notification->recipient) && !waits.IsHeldUpByThisThread(*notification))
            awaited.push_back(notification);
    }
    waits.Wait(lock, std::move(awaited));
}

/// Makes room first, so that it enters the notification everywhere or nowhere.
void DispatcherImplementation::Enter(const Running& started)
{
    running.reserve(running.size() + 1);
    std::vector<BehaviourStop*> concerned;
    for (auto* stop : stops) {
        if (started.source != stop->object)
            continue;
        stop->waiter.activities.reserve(stop->waiter.activities.size() + 1);
        concerned.push_back(stop);
    }
    for (auto* stop : concerned)
        stop->waiter.activities.push_back(&started);
    running.push_back(&started);
}

void DispatcherImplementation::End(const Running& ended) noexcept
{
    const Support::Lock lock(waits.mutex);
    std::erase(running, &ended);
    waits.End(ended);
}

bool DispatcherImplementation::IsSilenced(unsigned int affinityId) const
{
    return !silenced.empty() && silenced.contains(affinityId);
}

void DispatcherImplementation::Silence(unsigned int affinityId)
{
    const Support::Lock lock(waits.mutex);
    ++silenced[affinityId];
}

void DispatcherImplementation::Unsilence(unsigned int affinityId) noexcept
{
    const Support::Lock lock(waits.mutex);
    const auto found = silenced.find(affinityId);
    if (found != silenced.end() && --found->second == 0)
        silenced.erase(found);
}

BehaviourStop::BehaviourStop(DispatcherImplementation& dispatcher, const ObjectNode* object,
                             const std::string& purpose)
    : dispatcher(dispatcher)
    , object(object)
{
    if (object == nullptr)
        return;
    const Support::Lock lock(dispatcher.waits.mutex);
    for (const auto* notification : dispatcher.running) {
        if (notification->source != object)
            continue;
        if (dispatcher.waits.IsHeldUpByThisThread(*notification))
            throw InvalidStateException(purpose + " is not possible from inside an event of the "
                                                  "same object, or while the delivery of one waits "
                                                  "for the calling thread");
        waiter.activities.push_back(notification);
    }
    dispatcher.stops.reserve(dispatcher.stops.size() + 1);
    dispatcher.waits.Enter(waiter);
    dispatcher.stops.push_back(this);
}

BehaviourStop::~BehaviourStop()
{
    if (object == nullptr)
        return;
    const Support::Lock lock(dispatcher.waits.mutex);
    std::erase(dispatcher.stops, this);
    dispatcher.waits.Leave(waiter);
}

} // namespace Core
