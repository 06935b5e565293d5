#include "Transport/Accepting/AcceptedConnections.h"

#include "Transport/KeepAlive.h"

#include <open62541/plugin/log.h>

#include <chrono>
#include <utility>

#include <ctime>

namespace Transport {

namespace {

/// A client that vanished without a word is noticed within a minute.
constexpr KeepAlive serverKeepAlive{std::chrono::seconds{30}, std::chrono::seconds{10}, 3, {}};

/// Returns the time that the calling thread has worked: a connection is not to blame for what else
/// the system runs during its turn.
std::chrono::nanoseconds GetThreadTime()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time); // cannot fail
    return std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec};
}

} // namespace

AcceptedConnections::AcceptedConnections(Loop& loop, const ConnectionLimits& limits,
                                         LendDescriptors lend)
    : ConnectionManager(loop)
    , shares(loop, limits, MakeBrakeOwner())
    , listeners(loop, *this, std::move(lend))
{
    loop.AddWork(*this);
}

/// The watch calls these with the lock held, which clang does not see through the functions.
BrakeWatch::Owner AcceptedConnections::MakeBrakeOwner()
{
    return {[this]() NO_THREAD_SAFETY_ANALYSIS { CloseAllAbandoned(); },
            [this]() NO_THREAD_SAFETY_ANALYSIS {
                ReadAll();
            }};
}

AcceptedConnections::SharedConnection AcceptedConnections::Find(ConnectionId id) const
{
    const auto found = connections.find(id);
    return found == connections.end() ? nullptr : found->second;
}

// Questions

std::optional<ConnectionInfo> AcceptedConnections::Get(ConnectionId id) const
{
    const LoopLock lock(GetMutex());
    const auto connection = Find(id);
    return connection ? std::optional(connection->GetInfo()) : std::nullopt;
}

ConnectionOutput AcceptedConnections::GetOutput(ConnectionId id) const
{
    const LoopLock lock(GetMutex());
    const auto connection = Find(id);
    return connection ? connection->DescribeOutput() : ConnectionOutput{};
}

std::size_t AcceptedConnections::Count() const
{
    const LoopLock lock(GetMutex());
    return connections.size();
}

std::uint64_t AcceptedConnections::CountMessages() const
{
    const LoopLock lock(GetMutex());
    return shares.messages;
}

std::uint64_t AcceptedConnections::CountBytes() const
{
    const LoopLock lock(GetMutex());
    return shares.traffic.received + shares.traffic.sent;
}

Traffic AcceptedConnections::GetTraffic() const
{
    const LoopLock lock(GetMutex());
    return shares.traffic;
}

bool AcceptedConnections::IsMemoryBrakeOn() const
{
    const LoopLock lock(GetMutex());
    return shares.brake.IsOn();
}

std::vector<ListeningSocket> AcceptedConnections::GetListenAddresses() const
{
    const LoopLock lock(GetMutex());
    return listeners.GetAddresses();
}

void AcceptedConnections::SetClosedObserver(std::function<void(ConnectionId)> observer)
{
    shares.closedObserver = std::move(observer);
}

// Accepting

UA_StatusCode AcceptedConnections::Open(const UA_KeyValueMap& parameters, const Channel& channel)
{
    return listeners.Open(parameters, channel);
}

ConnectionId AcceptedConnections::MakeListenerId()
{
    return MakeId();
}

void AcceptedConnections::OnListenerChanged(Channel& listener, UA_ConnectionState state,
                                            const UA_KeyValueMap& parameters)
{
    Notify(listener, state, parameters, {});
}

void AcceptedConnections::OnAccepted(const Channel& listener, Connection::Tcp::socket socket)
{
    if (!MakeRoom(socket.remote_endpoint().address().to_string()))
        return;
    Configure(socket, serverKeepAlive);
    auto channel = listener;
    channel.id = MakeId();
    const auto connection =
        std::make_shared<AcceptedConnection>(channel, std::move(socket), *this, shares);
    connections.emplace(connection->id, connection);
    ++shares.traffic.connections;
    shares.strangers.Add(connection->id, connection->GetInfo().remoteAddress,
                         Strangers::Clock::now());
    shares.brake.GetBrake().Add(connection->id);
    connection->Begin();
}

/// Returns false if there is no room for a further connection. Those without a session keep nobody
/// out: the oldest of them goes.
bool AcceptedConnections::MakeRoom(const std::string& address)
{
    const auto isFull = connections.size() >= shares.limits.connections;
    auto leaving = shares.strangers.FindSurplus(address);
    if (!leaving && isFull)
        leaving = shares.strangers.FindOldest();
    ReportRoom(isFull, leaving.has_value());
    if (leaving)
        GiveWay(*leaving);
    return leaving || !isFull;
}

void AcceptedConnections::GiveWay(ConnectionId id)
{
    if (const auto connection = Find(id))
        connection->Refuse({UA_STATUSCODE_BADTCPSERVERTOOBUSY, "gives way to a newer connection"});
}

/// Not again for each one that comes and goes at the limit.
void AcceptedConnections::ReportRoom(bool isFull, bool hasStrangers)
{
    if (isFull && !full) {
        UA_LOG_WARNING(
            &GetLogger(), UA_LOGCATEGORY_NETWORK,
            "TCP: %zu connections are open, as many as are allowed: %s", connections.size(),
            hasStrangers ? "those without a session give way to new ones" : "refuses connections");
    }
    const auto most = shares.limits.connections;
    const auto mostForAllClear = most - most / 10;
    if (full && !isFull && connections.size() < mostForAllClear) {
        UA_LOG_WARNING(&GetLogger(), UA_LOGCATEGORY_NETWORK,
                       "TCP: there is room for connections again");
        full = false;
    }
    full = full || isFull;
}

void AcceptedConnections::OnOutOfResources()
{
    if (const auto oldest = shares.strangers.FindOldest())
        GiveWay(*oldest);
}

// Reading

bool AcceptedConnections::IsWaiting() const
{
    return !shares.turns.IsEmpty();
}

/// Reads from the connection whose turn it is.
void AcceptedConnections::DoPiece()
{
    const LoopLock lock(GetMutex());
    const auto id = shares.turns.TakeFirst();
    const auto begin = GetThreadTime();
    if (const auto connection = Find(id))
        connection->TakeTurn();
    shares.turns.Count(id, GetThreadTime() - begin);
}

void AcceptedConnections::Hold(ConnectionId id, bool isHeld)
{
    const LoopLock lock(GetMutex());
    if (const auto connection = Find(id))
        connection->Hold(isHeld);
}

void AcceptedConnections::ReadAll()
{
    for (const auto& [id, connection] : connections)
        connection->ReadOrClose();
}

void AcceptedConnections::SetMemoryBrake(std::function<bool()> isMemoryShort)
{
    const LoopLock lock(GetMutex());
    shares.brake.SetShortage(std::move(isMemoryShort));
}

bool AcceptedConnections::OnVerified(unsigned char* data, std::size_t size) noexcept
{
    const LoopLock lock(GetMutex());
    const auto connection = Find(GetCurrent());
    return !connection || connection->OnVerified(data, size);
}

// Sending

UA_StatusCode AcceptedConnections::Allocate(ConnectionId id, UA_ByteString& bytes, std::size_t size)
{
    const auto status = UA_ByteString_allocBuffer(&bytes, size);
    const LoopLock lock(GetMutex());
    filling = id;
    if (const auto connection = Find(id))
        connection->SetFilling(bytes.data);
    return status;
}

void AcceptedConnections::Free(UA_ByteString& bytes)
{
    UA_ByteString_clear(&bytes);
}

void AcceptedConnections::OnSigning(unsigned char* data, std::size_t size,
                                    OpcUa::Seal& seal) noexcept
{
    const LoopLock lock(GetMutex());
    if (const auto connection = Find(filling))
        connection->OnSigning(data, size, seal);
}

UA_StatusCode AcceptedConnections::Send(ConnectionId id, UA_ByteString& bytes)
{
    OutputBuffer buffer(bytes);
    const auto connection = Find(id);
    return connection ? connection->Send(std::move(buffer), IsCurrent(id))
                      : UA_STATUSCODE_BADCONNECTIONCLOSED;
}

// Strangers

void AcceptedConnections::MarkAdmitted(ConnectionId id, bool isAdmitted)
{
    const LoopLock lock(GetMutex());
    shares.strangers.SetAdmitted(id, isAdmitted, Strangers::Clock::now());
}

void AcceptedConnections::CloseOverdue()
{
    const LoopLock lock(GetMutex());
    const auto now = Strangers::Clock::now();
    for (const auto& [id, connection] : connections) {
        if (!connection->IsReading())
            shares.strangers.ExcuseWaiting(id, now);
    }
    for (const auto& [id, refusal] : shares.strangers.TakeOverdue(now)) {
        if (const auto connection = Find(id))
            connection->Refuse(refusal);
    }
}

// Closing

bool AcceptedConnections::CloseConnection(ConnectionId id)
{
    const LoopLock lock(GetMutex());
    return Close(id);
}

bool AcceptedConnections::Close(ConnectionId id)
{
    if (const auto connection = Find(id))
        return connection->Close();
    return listeners.Close(id).value_or(false);
}

void AcceptedConnections::CloseAbandoned()
{
    const LoopLock lock(GetMutex());
    CloseAllAbandoned();
}

void AcceptedConnections::CloseAllAbandoned()
{
    for (const auto& [id, connection] : connections)
        connection->CloseIfAbandoned();
}

void AcceptedConnections::CloseAll()
{
    listeners.CloseAll();
    for (const auto& [id, connection] : connections)
        connection->Close();
    shares.brake.Stop();
}

bool AcceptedConnections::IsEmpty() const
{
    return listeners.IsEmpty() && connections.empty();
}

void AcceptedConnections::Forget(ConnectionId id)
{
    connections.erase(id);
    shares.turns.Remove(id);
    shares.brake.GetBrake().Remove(id);
    CheckStopped();
}

void AcceptedConnections::OnListenerClosed()
{
    CheckStopped();
}

} // namespace Transport
