#include "Endpoint/EventBacklog.h"

#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>

namespace Host {

EventBacklog::EventBacklog(const Namespaces& namespaces, std::size_t limit) noexcept
    : namespaces(namespaces)
    , limit(limit)
{}

void EventBacklog::OnMonitoredItem(const ClientSession& session, const UA_NodeId& node,
                                   bool removed)
{
    if (session.ended)
        return; // the session was forgotten before its items were removed
    std::size_t& items = backlogs[&session].items[namespaces.ToCore(node)];
    if (!removed)
        ++items;
    else if (items > 0)
        --items;
}

void EventBacklog::Forget(const ClientSession& session)
{
    backlogs.erase(&session);
}

std::vector<EventHearer> EventBacklog::FindHearers(const ProjectedObject& source) const
{
    std::vector<EventHearer> hearers;
    for (const auto& [session, backlog] : backlogs)
        if (const std::size_t items = CountItems(backlog, source); items > 0)
            hearers.push_back({session, items});
    return hearers;
}

void EventBacklog::Add(UA_Server& server, const std::vector<EventHearer>& hearers)
{
    constexpr std::size_t looks = 8; // for as many events as the bound allows
    std::vector<const ClientSession*> tooSlow;
    for (const auto& [session, items, bytes] : hearers) {
        Backlog& backlog = backlogs[session];
        backlog.events += items;
        backlog.bytes += bytes;
        backlog.unseenBytes += bytes;
        if (backlog.unseenBytes <= limit / looks)
            continue;
        backlog.unseenBytes = 0;
        if (IsTooMuch(backlog, SubscriptionProgress(server).Of(*session)))
            tooSlow.push_back(session);
    }
    for (const ClientSession* session : tooSlow) {
        Log(Core::LogLevel::Warning, "Session",
            fmt::format("Session of {} from {} is closed: more than {} bytes of events wait for it",
                        session->user.empty() ? "anonymous" : "'" + session->user + "'",
                        session->address, limit));
        static_cast<void>(UA_Server_closeSession(&server, &*session->id));
    }
}

/// Counts the items on a private object's own node alone, and for a shared one also those above.
std::size_t EventBacklog::CountItems(const Backlog& backlog, const ProjectedObject& source)
{
    std::size_t count = 0;
    for (const auto& [node, items] : backlog.items) {
        const bool isAbove = source.owner == nullptr && node.GetNamespaceIndex() == 0;
        if (node == source.id || node == source.parent || isAbove)
            count += items;
    }
    return count;
}

bool EventBacklog::IsTooMuch(Backlog& backlog, const SessionProgress& progress) const
{
    const std::uint64_t settled =
        progress.settledEvents - std::min(progress.settledEvents, backlog.settledEvents);
    // Nothing waits for a session that keeps up. One that only samples is sent nothing at all.
    const bool keepsUp = !progress.isLate && (settled > 0 || progress.hasDisabledItems);
    if (keepsUp || settled >= backlog.events) {
        backlog.events = 0;
        backlog.bytes = 0;
        backlog.settledEvents = progress.settledEvents;
        return false;
    }
    const std::uint64_t waiting = backlog.events - settled;
    return backlog.bytes / backlog.events * waiting > limit;
}

} // namespace Host
