#include "Transport/Accepting/InputTurns.h"

#include <algorithm>

namespace Transport {

void InputTurns::Enter(ConnectionId connection, bool isStranger)
{
    auto& group = isStranger ? strangers : sessions;
    if (group.connections.IsEmpty())
        group.time = std::max(group.time, latest);
    group.connections.Enter(connection);
}

void InputTurns::Remove(ConnectionId connection)
{
    sessions.connections.Remove(connection);
    strangers.connections.Remove(connection);
}

bool InputTurns::IsEmpty() const noexcept
{
    return sessions.connections.IsEmpty() && strangers.connections.IsEmpty();
}

ConnectionId InputTurns::TakeFirst()
{
    const bool isSession = strangers.connections.IsEmpty() ||
                           (!sessions.connections.IsEmpty() && sessions.time <= strangers.time);
    current = isSession ? &sessions : &strangers;
    latest = current->time;
    return current->connections.TakeFirst();
}

void InputTurns::Count(ConnectionId connection, Time had)
{
    current->time += had;
    current->connections.Count(connection, had);
}

} // namespace Transport
