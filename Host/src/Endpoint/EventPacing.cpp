#include "Endpoint/EventPacing.h"

#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <numeric>

namespace Host {
namespace {

/// Smaller events are not looked at one by one.
constexpr std::uint64_t smallEvent = 65'536;
/// Fields up to this are always there; they and the headers of a notification are in its overhead.
constexpr std::size_t smallField = 64;
constexpr std::uint64_t notificationOverhead = 512;
constexpr std::uint64_t answerOverhead = 1'024;
/// The number of sessions that may be as far behind as one of them may.
constexpr std::uint64_t sessionsBehind = 4;
constexpr std::size_t mostVainLooks = 5;

} // namespace

EventPacing::EventPacing(UA_Server& server, EventLoop& loop, std::size_t limit) noexcept
    : server(server)
    , loop(loop)
    , limit(limit)
{}

bool EventPacing::MayRaise(const std::vector<EventHearer>& hearers, bool isPrivate,
                           std::size_t bytes)
{
    if (std::all_of(hearers.begin(), hearers.end(),
                    [&](const EventHearer& hearer) { return FitsUnseen(hearer, bytes); }))
        return true;
    Look(hearers);
    return std::all_of(hearers.begin(), hearers.end(),
                       [&](const EventHearer& hearer) { return Fits(hearer, isPrivate, bytes); });
}

EventPacing::Pace& EventPacing::GetPace(const ClientSession& session)
{
    Pace& pace = paces[&session];
    if (session.connection != 0 && pace.connection != session.connection) {
        pace.connection = session.connection;
        pace.output = loop.GetOutput(pace.connection);
    }
    return pace;
}

std::uint64_t EventPacing::GetCost(std::size_t items, std::size_t bytes) noexcept
{
    return items * (std::uint64_t{bytes} + notificationOverhead);
}

std::uint64_t EventPacing::GetBound(const Pace& pace) noexcept
{
    const std::uint64_t largest = pace.output.largestMessage;
    return largest - std::min(largest, answerOverhead);
}

/// Returns the least room: in the message that the client takes, in the output on its way to it,
/// and in the events that may wait for all sessions.
std::uint64_t EventPacing::GetRoom(const Pace& pace) const
{
    const std::uint64_t all = std::accumulate(
        paces.begin(), paces.end(), std::uint64_t{0},
        [](std::uint64_t sum, const auto& each) { return sum + each.second.bytes; });
    const auto left = [](std::uint64_t bound, std::uint64_t taken) {
        return bound - std::min(bound, taken);
    };
    return std::min({left(GetBound(pace), pace.bytes),
                     left(pace.output.limit, pace.output.queued + pace.bytes),
                     left(sessionsBehind * limit, all)});
}

bool EventPacing::IsSmall(const Pace& pace, std::uint64_t cost) const noexcept
{
    return cost < smallEvent && pace.bytes + cost <= std::min(GetBound(pace), limit / 2);
}

bool EventPacing::FitsUnseen(const EventHearer& hearer, std::size_t bytes)
{
    return IsSmall(GetPace(*hearer.session), GetCost(hearer.items, bytes));
}

bool EventPacing::Fits(const EventHearer& hearer, bool isPrivate, std::size_t bytes)
{
    const Pace& pace = paces[hearer.session];
    const std::uint64_t cost = GetCost(hearer.items, bytes);
    const bool isPaused = isPrivate && cost >= smallEvent && pace.output.isPaused;
    // The other half is for events that wait to be raised.
    const std::uint64_t own = isPrivate ? limit / 2 : limit;
    if (!isPaused && cost <= GetRoom(pace) && pace.bytes + cost <= own)
        return true;
    // If nothing waits before it, there will not be more room; and a session that does not take its
    // events holds up nobody else.
    const bool isBehind = pace.events > 0 || isPaused;
    return !isBehind || (!isPrivate && pace.isLate);
}

void EventPacing::Look(const std::vector<EventHearer>& hearers)
{
    const SubscriptionProgress progress(server);
    for (const EventHearer& hearer : hearers) {
        Pace& pace = GetPace(*hearer.session);
        if (const auto output = loop.GetOutput(pace.connection); output.largestMessage != 0)
            pace.output = output; // stays known after the client has gone
        Settle(pace, progress.Of(*hearer.session));
    }
}

void EventPacing::Settle(Pace& pace, const SessionProgress& progress)
{
    const std::uint64_t settled =
        progress.settledEvents - std::min(progress.settledEvents, pace.settledEvents);
    pace.settledEvents = progress.settledEvents;
    pace.isLate = progress.isLate;
    pace.events -= std::min(pace.events, settled);
    // The ones that are left may be the largest.
    pace.bytes = std::min(pace.bytes, pace.events * pace.largest);
    if (pace.events == 0)
        pace.largest = 0;
    if (settled > 0 || pace.isLate || pace.events == 0)
        pace.vainLooks = 0;
}

void EventPacing::WriteOffStuck()
{
    for (auto& [session, pace] : paces) {
        if (pace.events == 0 || pace.isLate || ++pace.vainLooks < mostVainLooks)
            continue;
        pace.events = 0;
        pace.bytes = 0;
        pace.largest = 0;
    }
}

void EventPacing::Begin(const std::vector<EventHearer>& hearers, std::size_t bytes)
{
    raisedBytes = bytes;
    isBounded = false;
    for (const EventHearer& hearer : hearers) {
        Pace& pace = GetPace(*hearer.session);
        pace.items = hearer.items;
        pace.room = std::numeric_limits<std::size_t>::max();
        pace.used = 0;
        pace.isEmptied = false;
        if (IsSmall(pace, GetCost(hearer.items, bytes)))
            continue;
        const std::uint64_t room = GetRoom(pace);
        pace.room = room - std::min(room, hearer.items * notificationOverhead);
        isBounded = true;
    }
}

bool EventPacing::MayRead(const ClientSession& session, std::size_t bytes)
{
    if (!isBounded || bytes <= smallField)
        return true;
    const auto found = paces.find(&session);
    if (found == paces.end())
        return false;
    Pace& pace = found->second;
    if (pace.room - pace.used < bytes) {
        pace.isEmptied = true;
        return false;
    }
    pace.used += bytes;
    return true;
}

void EventPacing::End(std::vector<EventHearer>& hearers)
{
    for (EventHearer& hearer : hearers) {
        Pace& pace = paces[hearer.session];
        hearer.bytes = isBounded ? pace.items * notificationOverhead + pace.used
                                 : GetCost(pace.items, raisedBytes);
        pace.events += pace.items;
        pace.bytes += hearer.bytes;
        pace.largest = std::max(pace.largest, isBounded ? hearer.bytes : GetCost(1, raisedBytes));
        if (pace.isEmptied)
            Warn(*hearer.session, pace);
    }
    isBounded = false;
}

void EventPacing::Warn(const ClientSession& session, const Pace& pace) const
{
    Log(Core::LogLevel::Warning, "Session",
        fmt::format("Session of {} from {} gets an event of {} bytes with empty fields: {} items "
                    "hear it, {} bytes wait, and its client takes {} bytes in a message",
                    session.user.empty() ? "anonymous" : "'" + session.user + "'", session.address,
                    raisedBytes, pace.items, pace.bytes, pace.output.largestMessage));
}

} // namespace Host
