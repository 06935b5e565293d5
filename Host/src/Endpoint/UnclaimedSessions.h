#pragma once

#include "Network/EventLoop.h"

#include <open62541/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace Host {

/// The sessions that clients have created and not activated yet. They cost a place and some memory,
/// and their creators need not have logged in. So a connection has one at a time, and there is a
/// bound for all together; a new one is always let in, and an older one makes room. Loop thread.
class UnclaimedSessions
{
public:
    using Clock = std::chrono::steady_clock;

    struct Session
    {
        UA_Guid id;
        ConnectionId connection = 0; ///< the only one on which it can be activated
        std::string address;         ///< the client's
        Clock::time_point since;
        Clock::time_point lastFailure{}; ///< to be activated
    };

    /// REQUIRES: most > 0.
    explicit UnclaimedSessions(std::size_t most);

    /// Adds a session. Returns those to close for it: the one that the connection had before, or
    /// the oldest of the address that has most.
    [[nodiscard]] std::vector<UA_Guid> Add(Session session);

    /// Forgets a session that was activated or has closed. Unknown ones are ignored.
    void Remove(const UA_Guid& id);

    /// Returns the sessions of a connection, and forgets them.
    [[nodiscard]] std::vector<UA_Guid> TakeOf(ConnectionId connection);

    /// Returns the sessions that are older, and forgets them.
    [[nodiscard]] std::vector<UA_Guid> TakeOlderThan(Clock::time_point limit);

    /// Notes that the session of a connection could not be activated: it comes last from now on.
    void NoteFailure(ConnectionId connection, Clock::time_point now);

    /// Returns the connections that have such sessions, in the order to read them.
    [[nodiscard]] std::vector<ConnectionId> GetConnections() const;

    [[nodiscard]] std::size_t Count() const noexcept { return sessions.size(); }

private:
    template <typename Condition>
    std::vector<UA_Guid> Take(Condition condition);
    UA_Guid TakeOldestOfFullestAddress();

    const std::size_t most;
    std::vector<Session> sessions; // the oldest first
};

} // namespace Host
