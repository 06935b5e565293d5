#include "Endpoint/UnclaimedSessions.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace Host {

UnclaimedSessions::UnclaimedSessions(std::size_t most)
    : most(most)
{}

std::vector<UA_Guid> UnclaimedSessions::Add(Session session)
{
    auto leaving = TakeOf(session.connection);
    sessions.push_back(std::move(session));
    while (sessions.size() > most)
        leaving.push_back(TakeOldestOfFullestAddress());
    return leaving;
}

void UnclaimedSessions::Remove(const UA_Guid& id)
{
    std::erase_if(sessions,
                  [&id](const Session& session) { return UA_Guid_equal(&session.id, &id); });
}

std::vector<UA_Guid> UnclaimedSessions::TakeOf(ConnectionId connection)
{
    return Take([connection](const Session& session) { return session.connection == connection; });
}

std::vector<UA_Guid> UnclaimedSessions::TakeOlderThan(Clock::time_point limit)
{
    return Take([limit](const Session& session) { return session.since < limit; });
}

template <typename Condition>
std::vector<UA_Guid> UnclaimedSessions::Take(Condition condition)
{
    std::vector<UA_Guid> taken;
    std::erase_if(sessions, [&](const Session& session) {
        const bool leaves = condition(session);
        if (leaves)
            taken.push_back(session.id);
        return leaves;
    });
    return taken;
}

void UnclaimedSessions::NoteFailure(ConnectionId connection, Clock::time_point now)
{
    for (auto& session : sessions)
        if (session.connection == connection)
            session.lastFailure = now;
}

std::vector<ConnectionId> UnclaimedSessions::GetConnections() const
{
    auto ordered = sessions;
    std::stable_sort(ordered.begin(), ordered.end(), [](const Session& left, const Session& right) {
        return left.lastFailure < right.lastFailure;
    });
    std::vector<ConnectionId> connections;
    for (const auto& session : ordered)
        connections.push_back(session.connection);
    return connections;
}

/// Takes from the address with most sessions, so that one address cannot push out those of others.
UA_Guid UnclaimedSessions::TakeOldestOfFullestAddress()
{
    std::unordered_map<std::string, std::size_t> counts;
    for (const auto& session : sessions)
        ++counts[session.address];
    const auto fullest =
        std::max_element(counts.begin(), counts.end(), [](const auto& left, const auto& right) {
            return left.second < right.second;
        });
    const auto oldest =
        std::find_if(sessions.begin(), sessions.end(), [&fullest](const Session& session) {
            return session.address == fullest->first;
        });
    const UA_Guid id = oldest->id;
    sessions.erase(oldest);
    return id;
}

} // namespace Host
