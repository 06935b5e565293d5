#include "Endpoint/EventBacklog.h"

#include "Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace Host {

EventBacklog::EventBacklog(const Namespaces& namespaces, std::size_t limit) noexcept
    : namespaces(namespaces)
    , limit(limit)
{}

void EventBacklog::OnMonitoredItem(const ClientSession& session, const UA_NodeId& node,
                                   bool removed)
{
    if (session.ended)
        return; // its items go after it was forgotten
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

void EventBacklog::VisitHearers(const ProjectedObject& source,
                                const std::function<void(const ClientSession&)>& visit) const
{
    for (const auto& [session, backlog] : backlogs)
        if (CountItems(backlog, source) > 0)
            visit(*session);
}

void EventBacklog::Add(UA_Server& server, const ProjectedObject& source, std::size_t bytes)
{
    constexpr std::size_t looks = 8; // before a bound's worth of events has been raised
    std::vector<const ClientSession*> tooSlow;
    for (auto& [session, backlog] : backlogs) {
        const std::size_t items = CountItems(backlog, source);
        backlog.events += items;
        backlog.bytes += items * bytes;
        backlog.unseenBytes += items * bytes;
        if (backlog.unseenBytes <= limit / looks)
            continue;
        backlog.unseenBytes = 0;
        if (IsTooMuch(backlog, ReadProgress(server, *session)))
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

/// A private object is heard on its own node alone, a shared one on those above it as well.
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

EventBacklog::Progress EventBacklog::ReadProgress(UA_Server& server, const ClientSession& session)
{
    Progress progress;
    Ua<UA_Variant> all;
    const UA_NodeId array =
        UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SUBSCRIPTIONDIAGNOSTICSARRAY);
    RequireGood(UA_Server_readValue(&server, array, &*all), "reading the state of subscriptions");
    if (!UA_Variant_hasArrayType(&*all, &UA_TYPES[UA_TYPES_SUBSCRIPTIONDIAGNOSTICSDATATYPE]))
        return progress;
    const auto* entries = static_cast<const UA_SubscriptionDiagnosticsDataType*>(all->data);
    for (std::size_t i = 0; i < all->arrayLength; ++i) {
        const UA_SubscriptionDiagnosticsDataType& entry = entries[i];
        if (!UA_NodeId_equal(&entry.sessionId, &*session.id))
            continue;
        progress.settledEvents += entry.eventNotificationsCount;
        progress.settledEvents += entry.monitoringQueueOverflowCount;
        progress.isLate = progress.isLate || entry.currentLifetimeCount > 0;
    }
    return progress;
}

bool EventBacklog::IsTooMuch(Backlog& backlog, const Progress& progress) const
{
    const std::uint64_t settled =
        progress.settledEvents - std::min(progress.settledEvents, backlog.settledEvents);
    if (!progress.isLate || settled >= backlog.events) {
        backlog.events = 0;
        backlog.bytes = 0;
        backlog.settledEvents = progress.settledEvents;
        return false;
    }
    const std::uint64_t waiting = backlog.events - settled;
    return backlog.bytes / backlog.events * waiting > limit;
}

} // namespace Host
