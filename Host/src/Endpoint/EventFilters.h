#pragma once

#include "Endpoint/Sessions.h"
#include "Endpoint/Ua.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

namespace Host {

/// Brings the event filters of clients into a form that the library can work with, whichever
/// service they come by, before the library checks or keeps them.
///
/// Conditions (where clauses): the library evaluates them with variables on its stack that it may
/// never have set, see docs/open62541-event-filters.md. Three kinds of elements are proved to be
/// free of that: OfType with a literal type, and And, Or and Not of the results of other elements.
/// All others are emptied, so that the library's own check refuses the filter and says which
/// element it was.
///
/// Select clauses: the library refuses a monitored item because of one field that it does not find
/// at the clause's type or below it. A field that a type inherits is named with the type that
/// declares it instead. A clause whose field does not exist selects nothing, and a filter without
/// any field that exists is refused.
///
/// The library checks a clause against all subtypes of its type, which takes about 80 µs. So each
/// session has a share of the loop's time for that; filters beyond it are refused.
///
/// The library has no callback for this; the parameters are adapted where it copies them, see
/// Interposition.h and `RequireParameterCopies`.
///
/// One for a process at a time. Made and used on the thread of the server's loop.
class EventFilters
{
public:
    /// All must outlive it.
    EventFilters(UA_Server& server, const EventLoop& loop, const Sessions& sessions);
    EventFilters(const EventFilters&) = delete;
    EventFilters& operator=(const EventFilters&) = delete;
    ~EventFilters();

    /// Called for the parameters of each monitored item that is made or changed, before the
    /// library checks them. Returns a bad status for an item that is refused; so does what it
    /// throws, UaException or std::bad_alloc.
    [[nodiscard]] UA_StatusCode Adapt(UA_MonitoringParameters& parameters);

private:
    static UA_StatusCode AdaptForCurrent(UA_MonitoringParameters& parameters) noexcept;
    void AdaptSelectClauses(UA_EventFilter& filter) const;
    [[nodiscard]] bool SpendTime(const UA_EventFilter& filter) const;

    UA_Server& server;
    const EventLoop& loop;
    const Sessions& sessions;
};

} // namespace Host
