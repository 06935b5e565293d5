#pragma once

#include <open62541/plugin/eventloop.h>

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace Transport {

/// Callbacks with their times, in the time domain of the loop's monotonic clock.
/// Not synchronised: the loop's lock guards it.
class LoopTimers
{
public:
    using Id = UA_UInt64; ///< never used again; 0 names none

    struct Callback
    {
        UA_Callback function{};
        void* application{};
        void* data{};

        void operator()() const { function(application, data); }
    };

    /// When a cyclic callback is due: at first an interval after `now`, or at the next multiple of
    /// the interval from `base` on.
    struct Schedule
    {
        UA_DateTime interval{}; ///< above 0
        std::optional<UA_DateTime> base;
        UA_TimerPolicy policy{};
    };

    /// The interval in the clock's unit; nothing if it is not a time that can be waited for.
    [[nodiscard]] static std::optional<UA_DateTime> ToInterval(UA_Double milliseconds);

    Id AddCyclic(const Callback& callback, const Schedule& schedule, UA_DateTime now);
    Id AddOnce(const Callback& callback, UA_DateTime date);

    /// False if there is no such cyclic callback.
    bool Modify(Id id, const Schedule& schedule, UA_DateTime now);
    void Remove(Id id);

    [[nodiscard]] std::optional<Callback> Find(Id id) const;
    [[nodiscard]] std::size_t Count() const noexcept { return timers.size(); }

    /// When the next one is due; the highest date if there is none.
    [[nodiscard]] UA_DateTime GetNext() const;

    /// The callback that has been due longest, already scheduled anew: calling it may remove it.
    std::optional<Callback> TakeDue(UA_DateTime now);

private:
    struct Timer
    {
        Callback callback;
        std::optional<Schedule> cycle; // none: called once
        UA_DateTime next{};
    };

    Id Add(Timer timer);

    Id lastId{};
    std::map<Id, Timer> timers;
    std::set<std::pair<UA_DateTime, Id>> queue;
};

} // namespace Transport
