#include "Transport/LoopTimers.h"

#include <limits>

namespace Transport {

namespace {

/// The first multiple of the interval, counted from `base`, that lies after `now`.
UA_DateTime AlignAfter(UA_DateTime base, UA_DateTime interval, UA_DateTime now)
{
    if (base > now)
        return base - (base - now - 1) / interval * interval;
    return base + ((now - base) / interval + 1) * interval;
}

UA_DateTime GetFirst(const LoopTimers::Schedule& schedule, UA_DateTime now)
{
    return schedule.base ? AlignAfter(*schedule.base, schedule.interval, now)
                         : now + schedule.interval;
}

UA_DateTime GetFollowing(const LoopTimers::Schedule& schedule, UA_DateTime last, UA_DateTime now)
{
    const auto regular = last + schedule.interval;
    if (regular > now)
        return regular;
    return schedule.policy == UA_TIMER_HANDLE_CYCLEMISS_WITH_BASETIME
               ? AlignAfter(last, schedule.interval, now)
               : now + schedule.interval;
}

} // namespace

std::optional<UA_DateTime> LoopTimers::ToInterval(UA_Double milliseconds)
{
    constexpr UA_Double longest = 1e12; // thirty years: sums with the present cannot overflow
    const auto ticks = milliseconds * static_cast<UA_Double>(UA_DATETIME_MSEC);
    if (!(ticks >= 1.0) || milliseconds > longest)
        return std::nullopt;
    return static_cast<UA_DateTime>(ticks);
}

LoopTimers::Id LoopTimers::AddCyclic(const Callback& callback, const Schedule& schedule,
                                     UA_DateTime now)
{
    return Add({callback, schedule, GetFirst(schedule, now)});
}

LoopTimers::Id LoopTimers::AddOnce(const Callback& callback, UA_DateTime date)
{
    return Add({callback, std::nullopt, date});
}

LoopTimers::Id LoopTimers::Add(Timer timer)
{
    const auto id = lastId + 1;
    queue.emplace(timer.next, id);
    timers.emplace(id, timer);
    return lastId = id;
}

bool LoopTimers::Modify(Id id, const Schedule& schedule, UA_DateTime now)
{
    const auto found = timers.find(id);
    if (found == timers.end() || !found->second.cycle)
        return false;
    auto& timer = found->second;
    const auto next = GetFirst(schedule, now);
    queue.emplace(next, id);
    if (next != timer.next)
        queue.erase({timer.next, id});
    timer.next = next;
    timer.cycle = schedule;
    return true;
}

void LoopTimers::Remove(Id id)
{
    const auto found = timers.find(id);
    if (found == timers.end())
        return;
    queue.erase({found->second.next, id});
    timers.erase(found);
}

std::optional<LoopTimers::Callback> LoopTimers::Find(Id id) const
{
    const auto found = timers.find(id);
    return found == timers.end() ? std::nullopt : std::optional(found->second.callback);
}

UA_DateTime LoopTimers::GetNext() const
{
    return queue.empty() ? std::numeric_limits<UA_DateTime>::max() : queue.begin()->first;
}

std::optional<LoopTimers::Callback> LoopTimers::TakeDue(UA_DateTime now)
{
    if (GetNext() > now)
        return std::nullopt;
    auto entry = queue.extract(queue.begin());
    const auto id = entry.value().second;
    auto& timer = timers.at(id);
    const auto callback = timer.callback;
    if (timer.cycle) {
        timer.next = GetFollowing(*timer.cycle, timer.next, now);
        entry.value().first = timer.next;
        queue.insert(std::move(entry));
    } else {
        timers.erase(id);
    }
    return callback;
}

} // namespace Transport
