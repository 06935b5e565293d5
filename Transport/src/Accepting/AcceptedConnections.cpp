#include "Transport/Accepting/AcceptedConnections.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <string_view>
#include <utility>

#include <malloc.h>
#include <netinet/tcp.h>
#include <poll.h>

namespace Transport {

namespace asio = boost::asio;

namespace {

using Tcp = asio::ip::tcp;
using ErrorCode = boost::system::error_code;

constexpr std::size_t inputSize = std::size_t{256} << 10U;
/// Read at a time from a connection that never had a session: each of a stranger's messages can
/// cost milliseconds, since it is signed or encrypted, and between two reads all others get their
/// turn.
constexpr std::size_t strangerInputSize = std::size_t{2} << 10U;
/// While a message is being handled its answers gather up to this, to be sent in one go.
constexpr std::size_t gatherSize = std::size_t{64} << 10U;
/// As many buffers as are handed to the system at once.
constexpr std::size_t gatherCount = 64;
constexpr std::chrono::milliseconds brakeCheck{50};

/// Answers leave at once, and a peer that vanished without a word is noticed within a minute.
void Configure(Tcp::socket& socket)
{
    using Idle = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_KEEPIDLE>;
    using Interval = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_KEEPINTVL>;
    using Probes = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_KEEPCNT>;
    socket.non_blocking(true);
    socket.set_option(Tcp::no_delay(true));
    socket.set_option(asio::socket_base::keep_alive(true));
    socket.set_option(Idle(30));
    socket.set_option(Interval(10));
    socket.set_option(Probes(3));
}

/// True if the peer has closed its side, also while what it sent before has not been read.
bool IsAbandoned(Tcp::socket& socket)
{
    pollfd query{socket.native_handle(), POLLRDHUP, 0};
    return ::poll(&query, 1, 0) > 0;
}

/// Returns the message with which a server ends a connection; out of memory, an empty one.
OutputBuffer MakeErrorMessage(UA_StatusCode status, std::string_view reason)
{
    const auto append = [](std::string& text, std::size_t number) {
        for (auto shift = 0U; shift < 32; shift += 8)
            text += static_cast<char>(number >> shift & 0xffU);
    };
    std::string text = "ERRF";
    append(text, text.size() + 12 + reason.size());
    append(text, status);
    append(text, reason.size());
    text += reason;
    UA_ByteString bytes;
    UA_ByteString_init(&bytes);
    if (UA_ByteString_allocBuffer(&bytes, text.size()) == UA_STATUSCODE_GOOD)
        std::copy(text.begin(), text.end(), bytes.data);
    return OutputBuffer(bytes);
}

} // namespace

AcceptedConnections::Connection::Connection(const Channel& channel, Tcp::socket accepted,
                                            const ConnectionLimits& limits)
    : Channel(channel)
    , socket(std::move(accepted))
    , incoming(limits.incoming)
    , outgoing(limits.outgoing, limits.incoming)
{
    const auto remote = socket.remote_endpoint();
    info = {id, remote.address().to_string(), remote.port(), 0, 0};
}

AcceptedConnections::AcceptedConnections(asio::io_context& context, Mutex& mutex,
                                         const UA_Logger& logger, const ConnectionLimits& limits,
                                         LendDescriptors lend)
    : logger(logger)
    , limits(limits)
    , context(context)
    , mutex(mutex)
    , input(inputSize)
    , listeners(context, mutex, logger, MakeListenersOwner(std::move(lend)))
    , strangers(limits.strangers)
    , brake(limits.brakeAllowance, limits.brakeRefill)
    , brakeTimer(context)
{
    FillOperations();
}

Listeners::Owner AcceptedConnections::MakeListenersOwner(LendDescriptors lend)
{
    return {
        [this] { return ++lastId; },
        [this](Channel& channel, UA_ConnectionState state, const UA_KeyValueMap& parameters) {
            Notify(channel, state, parameters, {});
        },
        [this](const Channel& listener, Tcp::socket socket) {
            AddConnection(listener, std::move(socket));
        },
        [this] {
            if (const auto oldest = strangers.FindOldest())
                GiveWay(*oldest);
        },
        [this] { CheckStopped(); },
        std::move(lend),
    };
}

AcceptedConnections& AcceptedConnections::GetOwner(UA_ConnectionManager* manager)
{
    // The library's type is not polymorphic, and every manager made here is of this class.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast)
    return *static_cast<Manager*>(manager)->owner;
}

AcceptedConnections& AcceptedConnections::GetOwner(UA_EventSource* source)
{
    return GetOwner(reinterpret_cast<UA_ConnectionManager*>(source)); // its first member
}

/// Calls what may run out of memory for the library, which knows no exceptions.
template <typename Function>
static UA_StatusCode Answer(const UA_Logger& logger, Function function)
{
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "TCP: %s", failure.what());
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

void AcceptedConnections::FillOperations()
{
    manager.owner = this;
    manager.protocol = Borrow("tcp");
    auto& source = manager.eventSource;
    source.eventSourceType = UA_EVENTSOURCETYPE_CONNECTIONMANAGER;
    source.name = Borrow("tcp");
    source.state = UA_EVENTSOURCESTATE_FRESH;
    source.start = [](UA_EventSource* self) {
        return GetOwner(self).Start();
    };
    source.stop = [](UA_EventSource* self) {
        GetOwner(self).Stop();
    };
    source.free = [](UA_EventSource*) -> UA_StatusCode {
        return UA_STATUSCODE_GOOD;
    };
    manager.openConnection = [](UA_ConnectionManager* self, const UA_KeyValueMap* parameters,
                                void* application, void* data,
                                UA_ConnectionManager_connectionCallback callback) {
        auto& owner = GetOwner(self);
        return Answer(owner.logger, [&] {
            return owner.Open(*parameters, {0, callback, application, data});
        });
    };
    manager.sendWithConnection = [](UA_ConnectionManager* self, uintptr_t id, const UA_KeyValueMap*,
                                    UA_ByteString* bytes) {
        auto& owner = GetOwner(self);
        OutputBuffer buffer(*bytes);
        return Answer(owner.logger, [&] { return owner.Send(id, std::move(buffer)); });
    };
    manager.closeConnection = [](UA_ConnectionManager* self, uintptr_t id) {
        auto& owner = GetOwner(self);
        return Answer(owner.logger, [&]() -> UA_StatusCode {
            return owner.Close(id) ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADNOTFOUND;
        });
    };
    manager.allocNetworkBuffer = [](UA_ConnectionManager* self, uintptr_t id, UA_ByteString* bytes,
                                    size_t size) {
        return GetOwner(self).Allocate(id, *bytes, size);
    };
    manager.freeNetworkBuffer = [](UA_ConnectionManager*, uintptr_t, UA_ByteString* bytes) {
        UA_ByteString_clear(bytes);
    };
}

std::optional<ConnectionInfo> AcceptedConnections::Get(ConnectionId id) const
{
    const Lock lock(mutex);
    const auto found = connections.find(id);
    return found == connections.end() ? std::nullopt : std::optional(found->second->info);
}

ConnectionOutput AcceptedConnections::GetOutput(ConnectionId id) const
{
    const Lock lock(mutex);
    const auto found = connections.find(id);
    if (found == connections.end())
        return {};
    const Connection& connection = *found->second;
    return {connection.outgoing.GetLargest(), connection.queued, limits.outputLimit,
            connection.queued > limits.outputPause};
}

std::size_t AcceptedConnections::Count() const
{
    const Lock lock(mutex);
    return connections.size();
}

std::uint64_t AcceptedConnections::CountBytes() const
{
    const Lock lock(mutex);
    return bytes;
}

std::vector<ListeningSocket> AcceptedConnections::GetListenAddresses() const
{
    const Lock lock(mutex);
    return listeners.GetAddresses();
}

void AcceptedConnections::SetClosedObserver(std::function<void(ConnectionId)> observer)
{
    closedObserver = std::move(observer);
}

/// Tells the server what happens to a connection, which is the current one meanwhile.
void AcceptedConnections::Notify(Connection& connection, UA_ConnectionState state,
                                 const UA_KeyValueMap& parameters, UA_ByteString message)
{
    current = connection.id;
    Notify(static_cast<Channel&>(connection), state, parameters, message);
    current = 0;
}

/// The lock is held when called, and not while the server is told.
void AcceptedConnections::Notify(Channel& channel, UA_ConnectionState state,
                                 const UA_KeyValueMap& parameters, UA_ByteString message)
{
    mutex.unlock();
    channel.callback(&manager, channel.id, channel.application, &channel.context, state,
                     &parameters, message);
    mutex.lock();
}

/// What fails for one connection ends that one alone.
template <typename Function>
void AcceptedConnections::Guard(const SharedConnection& connection, Function function)
{
    const Lock lock(mutex);
    if (connection->closing)
        return;
    try {
        function();
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "TCP %zu: closed: %s", connection->id,
                     failure.what());
        BeginClose(connection);
    }
}

// Lifecycle

UA_StatusCode AcceptedConnections::Start()
{
    const Lock lock(mutex);
    if (manager.eventSource.state != UA_EVENTSOURCESTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    manager.eventSource.state = UA_EVENTSOURCESTATE_STARTED;
    return UA_STATUSCODE_GOOD;
}

void AcceptedConnections::Stop()
{
    const Lock lock(mutex);
    if (manager.eventSource.state != UA_EVENTSOURCESTATE_STARTED)
        return;
    manager.eventSource.state = UA_EVENTSOURCESTATE_STOPPING;
    listeners.CloseAll();
    for (const auto& [id, connection] : connections)
        BeginClose(connection);
    brakeTimer.cancel();
    CheckStopped();
}

void AcceptedConnections::CheckStopped()
{
    if (manager.eventSource.state == UA_EVENTSOURCESTATE_STOPPING && listeners.IsEmpty() &&
        connections.empty())
        manager.eventSource.state = UA_EVENTSOURCESTATE_STOPPED;
}

// Accepting

UA_StatusCode AcceptedConnections::Open(const UA_KeyValueMap& parameters, const Channel& channel)
{
    const Lock lock(mutex);
    if (manager.eventSource.state != UA_EVENTSOURCESTATE_STARTED)
        return UA_STATUSCODE_BADINTERNALERROR;
    return listeners.Open(parameters, channel);
}

/// Returns false if there is no room for a further connection. Those without a session keep nobody
/// out: the oldest of them goes.
bool AcceptedConnections::MakeRoom(const std::string& address)
{
    const auto isFull = connections.size() >= limits.connections;
    auto leaving = strangers.FindSurplus(address);
    if (!leaving && isFull)
        leaving = strangers.FindOldest();
    ReportRoom(isFull, leaving.has_value());
    if (leaving)
        GiveWay(*leaving);
    return leaving || !isFull;
}

void AcceptedConnections::GiveWay(ConnectionId id)
{
    Refuse(id, {UA_STATUSCODE_BADTCPSERVERTOOBUSY, "gives way to a newer connection"});
}

/// Not again for each one that comes and goes at the limit.
void AcceptedConnections::ReportRoom(bool isFull, bool hasStrangers)
{
    if (isFull && !full) {
        UA_LOG_WARNING(
            &logger, UA_LOGCATEGORY_NETWORK,
            "TCP: %zu connections are open, as many as are allowed: %s", connections.size(),
            hasStrangers ? "those without a session give way to new ones" : "refuses connections");
    }
    const auto mostForAllClear = limits.connections - limits.connections / 10;
    if (full && !isFull && connections.size() < mostForAllClear) {
        UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK, "TCP: there is room for connections again");
        full = false;
    }
    full = full || isFull;
}

void AcceptedConnections::AddConnection(const Channel& listener, Tcp::socket socket)
{
    if (!MakeRoom(socket.remote_endpoint().address().to_string()))
        return;
    Configure(socket);
    auto channel = listener;
    channel.id = ++lastId;
    const auto connection = std::make_shared<Connection>(channel, std::move(socket), limits);
    connections.emplace(connection->id, connection);
    strangers.Add(connection->id, connection->info.remoteAddress, Strangers::Clock::now());
    brake.Add(connection->id);

    auto address = Borrow(connection->info.remoteAddress);
    UA_KeyValuePair pair{};
    pair.key = {0, Borrow("remote-address")};
    UA_Variant_setScalar(&pair.value, &address, &UA_TYPES[UA_TYPES_STRING]);
    Notify(*connection, UA_CONNECTIONSTATE_ESTABLISHED, {1, &pair}, {});
    Guard(connection, [&] {
        Flush(connection);
        Read(connection);
    });
}

// Strangers

void AcceptedConnections::MarkAdmitted(ConnectionId id, bool isAdmitted)
{
    const Lock lock(mutex);
    strangers.SetAdmitted(id, isAdmitted, Strangers::Clock::now());
}

void AcceptedConnections::CloseOverdue()
{
    const Lock lock(mutex);
    const auto now = Strangers::Clock::now();
    for (const auto& [id, connection] : connections) {
        if (!connection->reading)
            strangers.ExcuseWaiting(id, now);
    }
    for (const auto& [id, refusal] : strangers.TakeOverdue(now))
        Refuse(id, refusal);
}

// Reading

void AcceptedConnections::Hold(ConnectionId id, bool isHeld)
{
    const Lock lock(mutex);
    const auto found = connections.find(id);
    if (found == connections.end() || found->second->held == isHeld)
        return;
    const SharedConnection connection = found->second;
    connection->held = isHeld;
    if (!isHeld)
        Guard(connection, [&] { Read(connection); });
}

void AcceptedConnections::Read(const SharedConnection& connection)
{
    if (connection->closing || connection->reading || !MayRead(*connection))
        return;
    connection->reading = true;
    connection->socket.async_wait(Tcp::socket::wait_read,
                                  [this, connection](const ErrorCode&) { OnReadable(connection); });
}

bool AcceptedConnections::MayRead(const Connection& connection)
{
    if (connection.held || connection.queued > limits.outputPause)
        return false;
    UpdateBrake();
    return brake.MayRead(connection.id);
}

void AcceptedConnections::OnReadable(const SharedConnection& connection)
{
    Guard(connection, [&] {
        connection->reading = false;
        if (!MayRead(*connection))
            return;
        ErrorCode error;
        const auto most = strangers.WasAdmitted(connection->id) ? inputSize : strangerInputSize;
        const auto size = connection->socket.read_some(asio::buffer(input, most), error);
        if (error && error != asio::error::would_block)
            return BeginClose(connection);
        if (!error)
            Receive(*connection, size);
        if (connection->closing)
            return;
        Flush(connection);
        Read(connection);
    });
}

void AcceptedConnections::Receive(Connection& connection, std::size_t size)
{
    bytes += size;
    connection.info.bytesIn += size;
    brake.CountReceived(connection.id, size);
    if (const auto refusal =
            strangers.Receive(connection.id, {input.data(), size}, Strangers::Clock::now()))
        return Refuse(connection.id, *refusal);
    const bool knewClient = connection.incoming.GetHello().has_value();
    if (!connection.incoming.Count(input.data(), size))
        return Refuse(connection.id, {UA_STATUSCODE_BADTCPMESSAGETOOLARGE,
                                      "sends a larger message than is allowed, or mixes two"});
    if (!knewClient && connection.incoming.GetHello())
        connection.outgoing.SetHello(*connection.incoming.GetHello());
    Notify(connection, UA_CONNECTIONSTATE_ESTABLISHED, {0, nullptr}, {size, input.data()});
}

// Sending

UA_StatusCode AcceptedConnections::Allocate(ConnectionId id, UA_ByteString& bytes, std::size_t size)
{
    const auto status = UA_ByteString_allocBuffer(&bytes, size);
    const Lock lock(mutex);
    filling = id;
    if (const auto found = connections.find(id); found != connections.end())
        found->second->filling = bytes.data;
    return status;
}

/// Other things than messages are signed too: what is in no connection's buffer is left alone.
void AcceptedConnections::OnSigning(unsigned char* data, std::size_t size,
                                    OpcUa::Seal& seal) noexcept
{
    const Lock lock(mutex);
    const auto found = connections.find(filling);
    if (found != connections.end() && found->second->filling == data)
        found->second->outgoing.Prepare(data, size, seal);
}

bool AcceptedConnections::OnVerified(const unsigned char* data, std::size_t size) noexcept
{
    const Lock lock(mutex);
    const auto found = connections.find(current);
    return found == connections.end() || found->second->incoming.CountSecured(data, size);
}

UA_StatusCode AcceptedConnections::Send(ConnectionId id, OutputBuffer buffer)
{
    const Lock lock(mutex);
    const auto found = connections.find(id);
    if (found == connections.end() || found->second->closing)
        return UA_STATUSCODE_BADCONNECTIONCLOSED;
    const auto connection = found->second;
    ++messages;
    auto& output = connection->output;
    const auto before = output.size();
    connection->outgoing.Pass(std::move(buffer), output);
    for (auto added = before; added < output.size(); ++added) {
        bytes += output[added].GetSize();
        connection->info.bytesOut += output[added].GetSize();
        connection->queued += output[added].GetSize();
        if (connection->writing)
            output[added].Shrink();
    }
    if (connection->outgoing.TakeRefusal())
        UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                       "TCP %zu: an answer is larger than the %zu bytes that %s takes: "
                       "BadResponseTooLarge instead",
                       connection->id, connection->outgoing.GetLargest(),
                       connection->info.remoteAddress.c_str());
    if (id != current || connection->queued > gatherSize)
        Flush(connection);
    return connection->closing ? UA_STATUSCODE_BADCONNECTIONCLOSED : UA_STATUSCODE_GOOD;
}

void AcceptedConnections::Flush(const SharedConnection& connection)
{
    if (connection->closing || connection->writing)
        return CheckOutput(connection);
    ErrorCode error;
    FlushWhatFits(*connection, error);
    if (error)
        return BeginClose(connection);
    if (connection->output.empty())
        return;
    FlushLater(connection);
    CheckOutput(connection);
}

void AcceptedConnections::FlushLater(const SharedConnection& connection)
{
    auto& output = connection->output;
    for (auto buffer = output.rbegin(); buffer != output.rend() && !buffer->IsShrunk(); ++buffer)
        buffer->Shrink();
    connection->writing = true;
    connection->socket.async_wait(Tcp::socket::wait_write,
                                  [this, connection](const ErrorCode&) { OnWritable(connection); });
}

void AcceptedConnections::FlushWhatFits(Connection& connection, ErrorCode& error)
{
    auto& output = connection.output;
    while (!output.empty()) {
        gathered.clear();
        for (auto buffer = output.begin(); buffer != output.end() && gathered.size() < gatherCount;
             ++buffer)
            gathered.emplace_back(buffer->GetData(), buffer->GetSize());
        auto sent = connection.socket.write_some(gathered, error);
        if (error == asio::error::would_block)
            return error.clear();
        if (error)
            return;
        connection.queued -= sent;
        while (!output.empty() && sent >= output.front().GetSize()) {
            sent -= output.front().GetSize();
            output.pop_front();
        }
        if (sent > 0)
            output.front().CountSent(sent);
    }
}

void AcceptedConnections::OnWritable(const SharedConnection& connection)
{
    Guard(connection, [&] {
        connection->writing = false;
        Flush(connection);
        Read(connection);
    });
}

void AcceptedConnections::CheckOutput(const SharedConnection& connection)
{
    const auto limit =
        strangers.WasAdmitted(connection->id) ? limits.outputLimit : limits.strangers.output;
    if (connection->closing || connection->queued <= limit)
        return;
    UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                   "TCP %zu: closed: %s does not take what it asked for, %zu bytes wait to be sent",
                   connection->id, connection->info.remoteAddress.c_str(), connection->queued);
    BeginClose(connection);
}

// Closing

bool AcceptedConnections::Close(ConnectionId id)
{
    const Lock lock(mutex);
    if (const auto found = connections.find(id); found != connections.end()) {
        const auto first = !found->second->closing;
        BeginClose(found->second);
        return first;
    }
    return listeners.Close(id).value_or(false);
}

/// Says why, as far as the client still takes it.
void AcceptedConnections::Refuse(ConnectionId id, const Strangers::Refusal& refusal)
{
    const auto found = connections.find(id);
    if (found == connections.end() || found->second->closing)
        return;
    const auto connection = found->second;
    UA_LOG_INFO(&logger, UA_LOGCATEGORY_NETWORK, "TCP %zu: closed: %s: %s", id,
                connection->info.remoteAddress.c_str(), refusal.reason);
    connection->output.emplace_back(MakeErrorMessage(refusal.status, refusal.reason));
    connection->queued += connection->output.back().GetSize();
    BeginClose(connection);
}

void AcceptedConnections::BeginClose(const SharedConnection& connection)
{
    if (std::exchange(connection->closing, true))
        return;
    asio::post(context, [this, connection] { FinishClose(connection); });
    strangers.Remove(connection->id);
    ErrorCode ignored; // the connection ends in any case
    if (!connection->writing)
        FlushWhatFits(*connection, ignored); // often says why it is closed
    connection->output.clear();
    connection->queued = 0;
    connection->socket.shutdown(Tcp::socket::shutdown_both, ignored);
}

void AcceptedConnections::FinishClose(const SharedConnection& connection)
{
    const Lock lock(mutex);
    Notify(*connection, UA_CONNECTIONSTATE_CLOSING, {0, nullptr}, {});
    if (closedObserver) {
        mutex.unlock();
        try {
            closedObserver(connection->id);
        } catch (const std::exception& failure) {
            UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "TCP %zu: its observer failed: %s",
                         connection->id, failure.what());
        }
        mutex.lock();
    }
    ErrorCode ignored; // the descriptor is gone in any case
    connection->socket.close(ignored);
    connections.erase(connection->id);
    brake.Remove(connection->id);
    CheckStopped();
}

// The memory brake

void AcceptedConnections::SetBrake(std::function<bool()> shortage)
{
    const Lock lock(mutex);
    isMemoryShort = std::move(shortage);
}

bool AcceptedConnections::AskBrake() const
{
    try {
        return isMemoryShort && isMemoryShort();
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "TCP: the memory cannot be measured: %s",
                     failure.what());
        return false;
    }
}

/// Notices that memory became short; that it is no longer is noticed by the timer.
void AcceptedConnections::UpdateBrake()
{
    if (brake.IsOn() || !AskBrake())
        return;
    brake.Engage();
    UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                   "TCP: memory is short: connections that send most are not read for now");
    CheckBrakeLater();
}

void AcceptedConnections::CheckBrakeLater()
{
    brakeTimer.expires_after(brakeCheck);
    brakeTimer.async_wait([this](const ErrorCode& error) {
        const Lock lock(mutex);
        if (error) // the manager stops
            brake.Release();
        else
            CheckBrake();
    });
}

/// What was freed between blocks still in use stays with the process, and would keep the brake on
/// for good, unless it is given back.
void AcceptedConnections::CheckBrake()
{
    malloc_trim(0);
    if (AskBrake()) {
        CloseAbandoned();
        brake.Refill();
        CheckBrakeLater();
    } else {
        brake.Release();
        // A warning too: those who saw that it is short are to see this.
        UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK, "TCP: memory is no longer short");
    }
    ReadAll();
}

void AcceptedConnections::ReadAll()
{
    for (const auto& [id, connection] : connections)
        Guard(connection, [this, &connection = connection] { Read(connection); });
}

/// A connection that is not read would not notice that its client has left, nor free what is held
/// for it.
void AcceptedConnections::CloseAbandoned()
{
    const Lock lock(mutex);
    for (const auto& [id, connection] : connections) {
        if (!connection->reading && !connection->closing && IsAbandoned(connection->socket))
            BeginClose(connection);
    }
}

} // namespace Transport
