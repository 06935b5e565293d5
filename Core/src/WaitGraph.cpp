#include "WaitGraph.h"

#include "Core/Exception.h"

#include <algorithm>
#include <utility>

namespace Core {

bool WaitGraph::IsHeldUpByThisThread(const Activity& activity) const
{
    const auto self = std::this_thread::get_id();
    return activity.thread == self || IsWaitingFor(activity.thread, self);
}

bool WaitGraph::IsWaitingFor(std::thread::id waiting, std::thread::id other) const
{
    for (const auto* waiter : waiters) {
        if (waiter->thread != waiting)
            continue;
        for (const auto* activity : waiter->activities) {
            if (activity->thread == other || IsWaitingFor(activity->thread, other))
                return true;
        }
    }
    return false;
}

void WaitGraph::Wait(Support::Lock<Support::Mutex>& lock, std::vector<const Activity*> activities)
{
    if (activities.empty())
        return;
    Waiter waiter;
    waiter.activities = std::move(activities);
    Enter(waiter);
    while (!waiter.activities.empty())
        waiter.ended.Wait(lock);
    Leave(waiter);
}

void WaitGraph::End(const Activity& activity) noexcept
{
    for (auto* waiter : waiters) {
        if (std::erase(waiter->activities, &activity) > 0 && waiter->activities.empty())
            waiter->ended.NotifyOne();
    }
}

Turn::Turn(WaitGraph& graph, Turnstile& turnstile, const std::string& purpose)
    : graph(graph)
    , turnstile(turnstile)
{
    Support::Lock lock(graph.mutex);
    while (turnstile.holder != nullptr) {
        if (graph.IsHeldUpByThisThread(*turnstile.holder))
            throw InvalidStateException(purpose + " is not possible from inside the creation, "
                                                  "removal, start or stop of the same object, or "
                                                  "while that waits for the calling thread");
        graph.Wait(lock, {turnstile.holder});
    }
    turnstile.holder = &activity;
}

Turn::~Turn()
{
    const Support::Lock lock(graph.mutex);
    turnstile.holder = nullptr;
    graph.End(activity);
}

} // namespace Core
