#pragma once

#include "Transport/Accepting/TimeQueue.h"
#include "Transport/Channel.h"

#include <chrono>

namespace Transport {

/// Chooses the connection that is read next among those that have input, by the time of the loop's
/// thread that they took: whoever takes little does not wait for those that take much. Strangers
/// together get as much as all sessions together, so that many of them do not push sessions aside,
/// nor busy sessions those that log in. Not synchronised: the loop's lock guards it.
class InputTurns
{
public:
    using Time = std::chrono::nanoseconds;

    /// Has a connection wait for its turn; one that waits already keeps its place.
    void Enter(ConnectionId connection, bool isStranger);
    void Remove(ConnectionId connection);

    [[nodiscard]] bool IsEmpty() const noexcept;
    /// REQUIRES: it is not empty.
    [[nodiscard]] ConnectionId TakeFirst();
    /// Counts the time that the connection had which was taken last.
    void Count(ConnectionId connection, Time had);

private:
    struct Group
    {
        TimeQueue<ConnectionId> connections;
        Time time{}; // that its connections had; at least what the others had when one entered
    };

    Group sessions;
    Group strangers;
    Group* current = &sessions; // of the connection that was taken last
    Time latest{};              // of that group, before the connection's turn
};

} // namespace Transport
