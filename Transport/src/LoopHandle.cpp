#include "Transport/Loop.h"

#include <chrono>
#include <optional>

// The operations of the loop that the library calls.

namespace Transport {

Loop& Loop::GetOwner(UA_EventLoop* loop)
{
    // The library's type is not polymorphic, and every loop given to it here is of this class.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast)
    return *static_cast<Handle*>(loop)->owner;
}

void Loop::FillLifecycle()
{
    handle.start = [](UA_EventLoop* self) {
        return GetOwner(self).Start();
    };
    handle.stop = [](UA_EventLoop* self) {
        auto& owner = GetOwner(self);
        owner.Guard("Stopping the loop", [&]() -> UA_StatusCode {
            owner.Stop();
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.run = [](UA_EventLoop* self, UA_UInt32 timeout) {
        return GetOwner(self).Run(std::chrono::milliseconds{timeout});
    };
    handle.free = [](UA_EventLoop* self) {
        return GetOwner(self).Free();
    };
}

/// One of the two callbacks locks, the other unlocks, so clang finds both unbalanced.
void Loop::FillLock()
{
    handle.lock = [](UA_EventLoop* self) NO_THREAD_SAFETY_ANALYSIS {
        GetOwner(self).mutex.lock();
    };
    handle.unlock = [](UA_EventLoop* self) NO_THREAD_SAFETY_ANALYSIS {
        GetOwner(self).mutex.unlock();
    };
}

void Loop::FillClock()
{
    handle.dateTime_now = [](UA_EventLoop*) {
        return UA_DateTime_now();
    };
    handle.dateTime_nowMonotonic = [](UA_EventLoop*) {
        return UA_DateTime_nowMonotonic();
    };
    handle.dateTime_localTimeUtcOffset = [](UA_EventLoop*) {
        return UA_DateTime_localTimeUtcOffset();
    };
}

namespace {

std::optional<LoopTimers::Schedule> ToSchedule(UA_Double milliseconds, const UA_DateTime* base,
                                               UA_TimerPolicy policy)
{
    const auto interval = LoopTimers::ToInterval(milliseconds);
    if (!interval)
        return std::nullopt;
    return LoopTimers::Schedule{*interval, base == nullptr ? std::nullopt : std::optional(*base),
                                policy};
}

void SetIfWanted(UA_UInt64* target, UA_UInt64 value)
{
    if (target != nullptr)
        *target = value;
}

} // namespace

void Loop::FillTimers()
{
    handle.nextCyclicTime = [](UA_EventLoop* self) {
        auto& owner = GetOwner(self);
        const LoopLock lock(owner.mutex);
        return owner.timers.GetNext();
    };
    handle.addTimedCallback = [](UA_EventLoop* self, UA_Callback function, void* application,
                                 void* data, UA_DateTime date, UA_UInt64* id) {
        auto& owner = GetOwner(self);
        return owner.Guard("Adding a timed callback", [&]() -> UA_StatusCode {
            if (function == nullptr)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            SetIfWanted(id, owner.AddOnce({function, application, data}, date));
            return UA_STATUSCODE_GOOD;
        });
    };
}

void Loop::FillCyclic()
{
    handle.addCyclicCallback = [](UA_EventLoop* self, UA_Callback function, void* application,
                                  void* data, UA_Double interval, UA_DateTime* base,
                                  UA_TimerPolicy policy, UA_UInt64* id) {
        auto& owner = GetOwner(self);
        return owner.Guard("Adding a cyclic callback", [&]() -> UA_StatusCode {
            const auto schedule = ToSchedule(interval, base, policy);
            if (!schedule || function == nullptr)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            SetIfWanted(id, owner.AddCyclic({function, application, data}, *schedule));
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.modifyCyclicCallback = [](UA_EventLoop* self, UA_UInt64 id, UA_Double interval,
                                     UA_DateTime* base, UA_TimerPolicy policy) {
        auto& owner = GetOwner(self);
        return owner.Guard("Changing a cyclic callback", [&]() -> UA_StatusCode {
            const auto schedule = ToSchedule(interval, base, policy);
            if (!schedule)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            return owner.Modify(id, *schedule) ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADNOTFOUND;
        });
    };
    handle.removeCyclicCallback = [](UA_EventLoop* self, UA_UInt64 id) {
        GetOwner(self).Remove(id);
    };
}

void Loop::FillDelayed()
{
    handle.addDelayedCallback = [](UA_EventLoop* self, UA_DelayedCallback* callback) {
        GetOwner(self).AddDelayed(*callback);
    };
    handle.removeDelayedCallback = [](UA_EventLoop* self, UA_DelayedCallback* callback) {
        GetOwner(self).RemoveDelayed(*callback);
    };
}

void Loop::FillSources()
{
    handle.registerEventSource = [](UA_EventLoop* self, UA_EventSource* source) {
        return GetOwner(self).Register(*source);
    };
    handle.deregisterEventSource = [](UA_EventLoop* self, UA_EventSource* source) {
        return GetOwner(self).Deregister(*source);
    };
}

} // namespace Transport
