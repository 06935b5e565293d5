#pragma once

#include "Endpoint/ClientSession.h"
#include "Endpoint/SubscriptionProgress.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

namespace Host {

/// A session that hears an event, and on how many monitored items.
struct EventHearer
{
    const ClientSession* session = nullptr;
    std::size_t items = 0;
    std::uint64_t bytes = 0; ///< that it got, once the event was raised
};

/// Keeps the events that the library queues for a session within one message that its client takes.
///
/// The library puts all events that wait into one answer, whatever its size. So an event that would
/// make it too large is raised later, when the earlier ones were sent. If it cannot wait, if the
/// event alone is too large, or if so many items hear it that the copies of its fields are, the
/// fields for which there is no room are empty. Small events are only counted. Loop thread.
class EventPacing
{
public:
    /// `limit`: bytes of events that may wait for one session.
    EventPacing(UA_Server& server, EventLoop& loop, std::size_t limit) noexcept;

    /// Returns how many bytes of events may wait to be raised for a session. Any thread.
    [[nodiscard]] std::size_t GetWaitingLimit() const noexcept { return limit / 2; }

    /// Returns false if the event has to wait. It waits for hearers that caused it (`isPrivate`) as
    /// long as they take, for others only while they keep up.
    [[nodiscard]] bool MayRaise(const std::vector<EventHearer>& hearers, bool isPrivate,
                                std::size_t bytes);

    /// Begins to raise an event.
    void Begin(const std::vector<EventHearer>& hearers, std::size_t bytes);

    /// True if the fields of the event being raised are counted one by one.
    [[nodiscard]] bool IsBounded() const noexcept { return isBounded; }

    /// True if a hearer gets a field of the event being raised.
    [[nodiscard]] bool MayRead(const ClientSession& session, std::size_t bytes);

    /// Ends the raising of an event. Enters the bytes that its hearers got.
    void End(std::vector<EventHearer>& hearers);

    /// Forgets the counted events of sessions that keep up and yet are sent nothing: they have
    /// disabled the item, or only sample. Call it now and then while events wait to be raised, at
    /// least `lookInterval` apart.
    void WriteOffStuck();
    static constexpr std::chrono::milliseconds lookInterval{10};

    void Forget(const ClientSession& session) { paces.erase(&session); }

private:
    /// A session's events in the library's queues, as far as known.
    struct Pace
    {
        ConnectionId connection = 0;
        EventLoop::Output output; ///< of that connection, when last looked at
        std::uint64_t events = 0;
        std::uint64_t bytes = 0;
        std::uint64_t largest = 0;       ///< of these
        std::uint64_t settledEvents = 0; ///< when last looked at
        bool isLate = false;             ///< likewise
        std::size_t vainLooks = 0;       ///< since it last kept up and something was settled

        // Of the event being raised.
        std::size_t items = 0;
        std::size_t room = 0;
        std::size_t used = 0;
        bool isEmptied = false;
    };

    Pace& GetPace(const ClientSession& session);
    [[nodiscard]] static std::uint64_t GetCost(std::size_t items, std::size_t bytes) noexcept;
    [[nodiscard]] static std::uint64_t GetBound(const Pace& pace) noexcept;
    [[nodiscard]] std::uint64_t GetRoom(const Pace& pace) const;
    [[nodiscard]] bool IsSmall(const Pace& pace, std::uint64_t cost) const noexcept;
    [[nodiscard]] bool FitsUnseen(const EventHearer& hearer, std::size_t bytes);
    [[nodiscard]] bool Fits(const EventHearer& hearer, bool isPrivate, std::size_t bytes);
    void Look(const std::vector<EventHearer>& hearers);
    static void Settle(Pace& pace, const SessionProgress& progress);
    void Warn(const ClientSession& session, const Pace& pace) const;

    UA_Server& server;
    EventLoop& loop;
    const std::uint64_t limit;
    std::unordered_map<const ClientSession*, Pace> paces;

    // The event being raised.
    std::size_t raisedBytes = 0;
    bool isBounded = false; ///< its fields are counted one by one
};

} // namespace Host
