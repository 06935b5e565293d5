#include "DispatcherImplementation.h"

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
    auto lock = waits.Acquire();
    std::vector<const Activity*> awaited;
    for (const auto* notification : running) {
        if (predicate(*notification->recipient) && !waits.IsHeldUpByThisThread(*notification))
            awaited.push_back(notification);
    }
    waits.Wait(lock, std::move(awaited));
}

void DispatcherImplementation::End(const Running& ended) noexcept
{
    const auto lock = waits.Acquire();
    std::erase(running, &ended);
    waits.End(ended);
}

bool DispatcherImplementation::IsSilenced(unsigned int affinityId) const
{
    return !silenced.empty() && silenced.contains(affinityId);
}

void DispatcherImplementation::Silence(unsigned int affinityId)
{
    const auto lock = waits.Acquire();
    ++silenced[affinityId];
}

void DispatcherImplementation::Unsilence(unsigned int affinityId) noexcept
{
    const auto lock = waits.Acquire();
    const auto found = silenced.find(affinityId);
    if (found != silenced.end() && --found->second == 0)
        silenced.erase(found);
}

} // namespace Core
