#pragma once

#include "Transport/Accepting/Limits.h"
#include "Transport/Accepting/MessageStream.h"
#include "Transport/Channel.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Transport {

/// Keeps strangers, the connections on which no session is active, within `StrangerLimits`, and
/// finds unfinished messages that make no progress on any connection. Decides only: closing is up
/// to the caller. Not synchronised: the loop's lock guards it.
class Strangers
{
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    /// Says why a connection is to be closed.
    struct Refusal
    {
        UA_StatusCode status{};
        const char* reason{}; ///< a literal
    };

    explicit Strangers(const StrangerLimits& limits);

    /// A new connection is a stranger's.
    void Add(ConnectionId connection, const std::string& address, Time now);
    void Remove(ConnectionId connection);

    /// Says that a session is active on the connection, or that none is any more. One that is not
    /// known is ignored.
    void SetAdmitted(ConnectionId connection, bool isAdmitted, Time now);

    /// Looks at what a connection has received, before the server does.
    [[nodiscard]] std::optional<Refusal> Receive(ConnectionId connection,
                                                 std::span<const unsigned char> bytes, Time now);

    /// Keeps a message that the host does not read for now from being overdue.
    void ExcuseWaiting(ConnectionId connection, Time now);

    /// True if a session is or was active on the connection: its answers may still be on their way.
    [[nodiscard]] bool WasAdmitted(ConnectionId connection) const;

    /// Returns the connections that were overdue the last time already, and still are. To be called
    /// now and then.
    [[nodiscard]] std::vector<std::pair<ConnectionId, Refusal>> TakeOverdue(Time now);

    /// Returns the stranger that has to go for a further one from an address; nothing while there
    /// may be more from there.
    [[nodiscard]] std::optional<ConnectionId> FindSurplus(const std::string& address) const;
    /// Returns the stranger that has to go first, from wherever it comes.
    [[nodiscard]] std::optional<ConnectionId> FindOldest() const;

private:
    struct Connection
    {
        std::string address;
        MessageStream stream;
        Time since;    // when it became a stranger
        Time progress; // when it last received something
        bool isAdmitted = false;
        bool wasAdmitted = false;
        bool wasOverdue = false; // when last looked at
    };
    using Connections = std::unordered_map<ConnectionId, Connection>;

    [[nodiscard]] std::optional<Refusal> Judge(const Connection& connection, Time now) const;
    [[nodiscard]] static bool GoesBefore(const Connections::value_type& one,
                                         const Connections::value_type& other);

    const StrangerLimits limits;
    Connections connections;
};

} // namespace Transport
