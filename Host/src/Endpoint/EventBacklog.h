#pragma once

#include "Endpoint/ClientSession.h"
#include "Endpoint/EventPacing.h"
#include "Endpoint/Objects.h"
#include "Endpoint/SubscriptionProgress.h"
#include "Endpoint/Ua.h"

#include <open62541/server.h>

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace Host {

/// Bounds the bytes of the events that wait for a session; the library bounds their number alone,
/// and one listing can have 6 MB.
///
/// The library does not tell which events wait. So this counts the events that were raised for each
/// session and subtracts those that were sent or dropped by the diagnostics of its subscriptions.
/// An event that a client's filter has kept from it looks as if it waited. Therefore the count of a
/// session starts anew whenever all of its subscriptions have requests to publish. A session above
/// the bound is closed, which its client sees. Loop thread.
class EventBacklog
{
public:
    /// `limit`: bytes, as encoded.
    EventBacklog(const Namespaces& namespaces, std::size_t limit) noexcept;

    /// Notes that the session has made or removed a subscription to the events of a node.
    void OnMonitoredItem(const ClientSession& session, const UA_NodeId& node, bool removed);
    void Forget(const ClientSession& session);

    /// Returns the sessions that hear the events of an object.
    [[nodiscard]] std::vector<EventHearer> FindHearers(const ProjectedObject& source) const;

    /// Counts an event that was raised, and closes the sessions for which too much waits.
    void Add(UA_Server& server, const std::vector<EventHearer>& hearers);

private:
    struct Backlog
    {
        std::unordered_map<Core::NodeId, std::size_t, Core::HashNodeId> items; ///< by node
        std::uint64_t events = 0; ///< raised for the session since it last kept up
        std::uint64_t bytes = 0;
        std::uint64_t settledEvents = 0; ///< sent or dropped when it last kept up
        std::uint64_t unseenBytes = 0;   ///< raised since it was last looked at
    };

    [[nodiscard]] static std::size_t CountItems(const Backlog& backlog,
                                                const ProjectedObject& source);
    [[nodiscard]] bool IsTooMuch(Backlog& backlog, const SessionProgress& progress) const;

    const Namespaces& namespaces;
    const std::size_t limit;
    std::unordered_map<const ClientSession*, Backlog> backlogs;
};

} // namespace Host
