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

/// Bounds what events wait for a session in bytes; the library bounds their number alone, and one
/// listing can have 6 MB.
///
/// The library does not tell what waits. So this counts what was raised for each session and takes
/// off what the diagnostics of its subscriptions say was sent or dropped. What a filter of the
/// client's has kept from it looks as if it waited; therefore only a session counts that has left a
/// subscription without requests to publish whenever it was looked at, and it starts anew when it
/// has not. A session above the bound is closed, which its client sees. Loop thread.
class EventBacklog
{
public:
    /// `limit`: bytes, as encoded.
    EventBacklog(const Namespaces& namespaces, std::size_t limit) noexcept;

    /// A subscription of the session to the events of a node was made or removed.
    void OnMonitoredItem(const ClientSession& session, const UA_NodeId& node, bool removed);
    void Forget(const ClientSession& session);

    /// The sessions that hear the events of an object.
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
