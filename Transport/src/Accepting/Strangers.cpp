#include "Transport/Accepting/Strangers.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Transport {

Strangers::Strangers(const StrangerLimits& limits)
    : limits(limits)
{}

void Strangers::Add(ConnectionId connection, const std::string& address, Time now)
{
    connections.emplace(connection, Connection{address, {}, now, now});
}

void Strangers::Remove(ConnectionId connection)
{
    connections.erase(connection);
}

void Strangers::SetAdmitted(ConnectionId connection, bool isAdmitted, Time now)
{
    const auto found = connections.find(connection);
    if (found == connections.end() || found->second.isAdmitted == isAdmitted)
        return;
    found->second.isAdmitted = isAdmitted;
    found->second.wasAdmitted = true; // now or before
    found->second.since = now;
}

std::optional<Strangers::Refusal> Strangers::Receive(ConnectionId connection,
                                                     std::span<const unsigned char> bytes, Time now)
{
    const auto found = connections.find(connection);
    if (found == connections.end())
        return std::nullopt;
    found->second.progress = now;
    const auto sizes = found->second.stream.Take(bytes);
    if (found->second.isAdmitted)
        return std::nullopt;
    if (found->second.stream.IsLost())
        return Refusal{UA_STATUSCODE_BADTCPMESSAGETYPEINVALID, "not a message of OPC UA"};
    if (sizes.bytes > limits.messageSize || sizes.chunks > limits.messageChunks)
        return Refusal{UA_STATUSCODE_BADTCPMESSAGETOOLARGE, "too large before a session is active"};
    return std::nullopt;
}

void Strangers::ExcuseWaiting(ConnectionId connection, Time now)
{
    if (const auto found = connections.find(connection); found != connections.end())
        found->second.progress = now;
}

bool Strangers::WasAdmitted(ConnectionId connection) const
{
    const auto found = connections.find(connection);
    return found != connections.end() && found->second.wasAdmitted;
}

/// When the host itself was late, what came in time is waiting to be read: nobody is refused at
/// the first look.
std::vector<std::pair<ConnectionId, Strangers::Refusal>> Strangers::TakeOverdue(Time now)
{
    std::vector<std::pair<ConnectionId, Refusal>> overdue;
    for (auto& [id, connection] : connections) {
        const auto refusal = Judge(connection, now);
        if (std::exchange(connection.wasOverdue, refusal.has_value()) && refusal)
            overdue.emplace_back(id, *refusal);
    }
    return overdue;
}

std::optional<Strangers::Refusal> Strangers::Judge(const Connection& connection, Time now) const
{
    const auto& stream = connection.stream;
    if (stream.IsInMessage() && now - connection.progress >= limits.progress)
        return Refusal{UA_STATUSCODE_BADTIMEOUT, "a message is not carried on"};
    if (connection.isAdmitted)
        return std::nullopt;
    if (stream.CountMessages() == 0 && now - connection.since >= limits.hello)
        return Refusal{UA_STATUSCODE_BADTIMEOUT, "has not said Hello in time"};
    if (now - connection.since >= limits.session)
        return Refusal{UA_STATUSCODE_BADTIMEOUT, "no session is active"};
    return std::nullopt;
}

std::optional<ConnectionId> Strangers::FindSurplus(const std::string& address) const
{
    std::size_t count = 0;
    const Connections::value_type* first = nullptr;
    for (const auto& each : connections) {
        if (each.second.isAdmitted || each.second.address != address)
            continue;
        ++count;
        if (first == nullptr || GoesBefore(each, *first))
            first = &each;
    }
    return first == nullptr || count < limits.perAddress ? std::nullopt
                                                         : std::optional(first->first);
}

std::optional<ConnectionId> Strangers::FindOldest() const
{
    const Connections::value_type* first = nullptr;
    for (const auto& each : connections) {
        if (!each.second.isAdmitted && (first == nullptr || GoesBefore(each, *first)))
            first = &each;
    }
    return first == nullptr ? std::nullopt : std::optional(first->first);
}

/// Those that have said nothing go first, so that who only connects does not push out who logs in.
bool Strangers::GoesBefore(const Connections::value_type& one, const Connections::value_type& other)
{
    const auto rank = [](const Connections::value_type& each) {
        const auto& [id, connection] = each;
        return std::tuple(connection.stream.CountMessages() > 0, connection.since, id);
    };
    return rank(one) < rank(other);
}

} // namespace Transport
