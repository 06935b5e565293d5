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
    return std::any_of(waiters.begin(), waiters.end(), [&](const Waiter* waiter) {
        return waiter->thread == waiting &&
               std::any_of(waiter->activities.begin(), waiter->activities.end(),
                           [&](const Activity* activity) {
                               return activity->thread == other ||
                                      IsWaitingFor(activity->thread, other);
                           });
    });
}

void WaitGraph::Wait(Lock& lock, std::vector<const Activity*> activities)
{
    if (activities.empty())
        return;
    Waiter waiter;
    waiter.activities = std::move(activities);
    Enter(waiter);
    waiter.ended.wait(lock, [&waiter] { return waiter.activities.empty(); });
    Leave(waiter);
}

void WaitGraph::End(const Activity& activity) noexcept
{
    for (auto* waiter : waiters) {
        if (std::erase(waiter->activities, &activity) > 0 && waiter->activities.empty())
            waiter->ended.notify_one();
    }
}

Turn::Turn(WaitGraph& graph, Turnstile& turnstile, const std::string& purpose)
    : graph(graph)
    , turnstile(turnstile)
{
    auto lock = graph.Acquire();
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
    const auto lock = graph.Acquire();
    turnstile.holder = nullptr;
    graph.End(activity);
}

} // namespace Core
