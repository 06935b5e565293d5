#include "TcpConnections.h"

#include "Process.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <string_view>
#include <utility>

#include <malloc.h>
#include <netinet/tcp.h>
#include <poll.h>

namespace Host {

namespace asio = boost::asio;

namespace {

using Tcp = asio::ip::tcp;
using ErrorCode = boost::system::error_code;

constexpr std::size_t inputSize = std::size_t{256} << 10U;
/// While a message is being handled its answers gather up to this, to be sent in one go.
constexpr std::size_t gatherSize = std::size_t{64} << 10U;
/// As many buffers as are handed to the system at once.
constexpr std::size_t gatherCount = 64;
constexpr std::chrono::milliseconds acceptRetry{100};
constexpr std::chrono::milliseconds brakeCheck{50};

/// A text as the library takes it, without copying it.
UA_String Borrow(std::string_view text)
{
    // The library's type has no const form; nothing that is given this writes to it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

std::string ToText(const UA_String& text)
{
    return {reinterpret_cast<const char*>(text.data), text.length};
}

template <typename Value>
Value GetScalar(const UA_KeyValueMap& parameters, std::string_view key, const UA_DataType& type,
                Value otherwise)
{
    const auto* value = UA_KeyValueMap_getScalar(&parameters, {0, Borrow(key)}, &type);
    return value == nullptr ? otherwise : *static_cast<const Value*>(value);
}

/// The addresses of a request; an empty one means all of the machine and is left out.
std::vector<std::string> GetAddresses(const UA_KeyValueMap& parameters)
{
    std::vector<std::string> addresses;
    const auto* value = UA_KeyValueMap_get(&parameters, {0, Borrow("address")});
    if (value == nullptr || value->type != &UA_TYPES[UA_TYPES_STRING])
        return addresses;
    const auto* texts = static_cast<const UA_String*>(value->data);
    const auto count = UA_Variant_isScalar(value) ? 1 : value->arrayLength;
    for (std::size_t i = 0; i < count; ++i) {
        if (texts[i].length > 0)
            addresses.push_back(ToText(texts[i]));
    }
    return addresses;
}

std::string ToListenAddress(const Tcp::endpoint& endpoint)
{
    // The address is published to clients, to whom "any" would mean their own machine.
    return endpoint.address().is_unspecified() ? asio::ip::host_name()
                                               : endpoint.address().to_string();
}

bool IsOutOfResources(const ErrorCode& error)
{
    return error == asio::error::no_descriptors || error == asio::error::no_memory ||
           error == asio::error::no_buffer_space ||
           error == boost::system::errc::too_many_files_open_in_system;
}

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

} // namespace

OutputBuffer::OutputBuffer(UA_ByteString& bytes)
    : data(bytes.data)
    , size(bytes.length)
{
    UA_ByteString_init(&bytes);
}

void OutputBuffer::Release::operator()(UA_Byte* memory) const
{
    UA_free(memory);
}

void OutputBuffer::Shrink() noexcept
{
    shrunk = true;
    if (size == 0)
        return;
    if (auto* smaller = static_cast<UA_Byte*>(UA_realloc(data.get(), size))) {
        // The old memory is gone, or is the new one: not to be freed.
        static_cast<void>(data.release());
        data.reset(smaller);
    }
}

TcpConnections::Listener::Listener(const Channel& channel, Tcp::acceptor opened)
    : Channel(channel)
    , acceptor(std::move(opened))
    , retry(acceptor.get_executor())
{
    const auto endpoint = acceptor.local_endpoint();
    address = {ToListenAddress(endpoint), endpoint.port()};
}

TcpConnections::Connection::Connection(const Channel& channel, Tcp::socket accepted)
    : Channel(channel)
    , socket(std::move(accepted))
{
    const auto remote = socket.remote_endpoint();
    info = {id, remote.address().to_string(), remote.port(), 0, 0};
}

TcpConnections::TcpConnections(asio::io_context& context, Mutex& mutex, const UA_Logger& logger,
                               const ConnectionLimits& limits)
    : logger(logger)
    , limits(limits)
    , context(context)
    , mutex(mutex)
    , input(inputSize)
    , brake(limits.brakeAllowance, limits.brakeRefill)
    , brakeTimer(context)
{
    FillOperations();
}

TcpConnections& TcpConnections::GetOwner(UA_ConnectionManager* manager)
{
    // The library's type is not polymorphic, and every manager made here is of this class.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast)
    return *static_cast<Manager*>(manager)->owner;
}

TcpConnections& TcpConnections::GetOwner(UA_EventSource* source)
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

void TcpConnections::FillOperations()
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
    manager.allocNetworkBuffer = [](UA_ConnectionManager*, uintptr_t, UA_ByteString* bytes,
                                    size_t size) {
        return UA_ByteString_allocBuffer(bytes, size);
    };
    manager.freeNetworkBuffer = [](UA_ConnectionManager*, uintptr_t, UA_ByteString* bytes) {
        UA_ByteString_clear(bytes);
    };
}

std::optional<ConnectionInfo> TcpConnections::Get(ConnectionId id) const
{
    const Lock lock(mutex);
    const auto found = connections.find(id);
    return found == connections.end() ? std::nullopt : std::optional(found->second->info);
}

std::size_t TcpConnections::Count() const
{
    const Lock lock(mutex);
    return connections.size();
}

std::vector<ListeningSocket> TcpConnections::GetListenAddresses() const
{
    const Lock lock(mutex);
    std::vector<ListeningSocket> addresses;
    for (const auto& [id, listener] : listeners)
        addresses.push_back(listener->address);
    return addresses;
}

void TcpConnections::SetClosedObserver(std::function<void(ConnectionId)> observer)
{
    closedObserver = std::move(observer);
}

/// Tells the server what happens to a connection, which is the current one meanwhile.
void TcpConnections::Notify(Connection& connection, UA_ConnectionState state,
                            const UA_KeyValueMap& parameters, UA_ByteString message)
{
    current = connection.id;
    Notify(static_cast<Channel&>(connection), state, parameters, message);
    current = 0;
}

/// The lock is held when called, and not while the server is told.
void TcpConnections::Notify(Channel& channel, UA_ConnectionState state,
                            const UA_KeyValueMap& parameters, UA_ByteString message)
{
    mutex.unlock();
    channel.callback(&manager, channel.id, channel.application, &channel.context, state,
                     &parameters, message);
    mutex.lock();
}

/// What fails for one connection ends that one alone.
template <typename Function>
void TcpConnections::Guard(const SharedConnection& connection, Function function)
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

UA_StatusCode TcpConnections::Start()
{
    const Lock lock(mutex);
    if (manager.eventSource.state != UA_EVENTSOURCESTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    manager.eventSource.state = UA_EVENTSOURCESTATE_STARTED;
    return UA_STATUSCODE_GOOD;
}

void TcpConnections::Stop()
{
    const Lock lock(mutex);
    if (manager.eventSource.state != UA_EVENTSOURCESTATE_STARTED)
        return;
    manager.eventSource.state = UA_EVENTSOURCESTATE_STOPPING;
    for (const auto& [id, listener] : listeners)
        BeginClose(listener);
    for (const auto& [id, connection] : connections)
        BeginClose(connection);
    brakeTimer.cancel();
    CheckStopped();
}

void TcpConnections::CheckStopped()
{
    if (manager.eventSource.state == UA_EVENTSOURCESTATE_STOPPING && listeners.empty() &&
        connections.empty())
        manager.eventSource.state = UA_EVENTSOURCESTATE_STOPPED;
}

// Listening

UA_StatusCode TcpConnections::Open(const UA_KeyValueMap& parameters, const Channel& channel)
{
    const auto& boolean = UA_TYPES[UA_TYPES_BOOLEAN];
    const auto* port =
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("port")}, &UA_TYPES[UA_TYPES_UINT16]);
    if (port == nullptr || channel.callback == nullptr)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    if (!GetScalar(parameters, "listen", boolean, false))
        return UA_STATUSCODE_BADNOTSUPPORTED;
    return Listen({GetAddresses(parameters), *static_cast<const std::uint16_t*>(port),
                   GetScalar(parameters, "validate", boolean, false), channel});
}

UA_StatusCode TcpConnections::Listen(OpenRequest request)
{
    const Lock lock(mutex);
    if (manager.eventSource.state != UA_EVENTSOURCESTATE_STARTED)
        return UA_STATUSCODE_BADINTERNALERROR;
    UA_StatusCode status = UA_STATUSCODE_BADCOMMUNICATIONERROR;
    for (auto endpoint : Resolve(request)) {
        if (endpoint.port() == 0) // all addresses share what the system chooses for the first
            endpoint.port(request.port);
        auto acceptor = OpenAcceptor(endpoint);
        if (!acceptor)
            continue;
        status = UA_STATUSCODE_GOOD;
        request.port = acceptor->local_endpoint().port();
        if (!request.onlyCheck)
            AddListener(request.channel, std::move(*acceptor));
    }
    return status;
}

std::vector<TcpConnections::Tcp::endpoint> TcpConnections::Resolve(const OpenRequest& request) const
{
    if (request.addresses.empty())
        return {{Tcp::v4(), request.port}, {Tcp::v6(), request.port}};
    std::vector<Tcp::endpoint> endpoints;
    Tcp::resolver resolver(context);
    for (const auto& address : request.addresses) {
        ErrorCode error;
        const auto found =
            resolver.resolve(address, std::to_string(request.port), Tcp::resolver::passive, error);
        if (error) {
            UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "TCP: cannot find the address %s: %s",
                         address.c_str(), error.message().c_str());
        }
        for (const auto& entry : found) {
            if (std::find(endpoints.begin(), endpoints.end(), entry.endpoint()) == endpoints.end())
                endpoints.push_back(entry.endpoint());
        }
    }
    return endpoints;
}

std::optional<TcpConnections::Tcp::acceptor>
TcpConnections::OpenAcceptor(const Tcp::endpoint& endpoint)
{
    try {
        Tcp::acceptor acceptor(context);
        acceptor.open(endpoint.protocol());
        acceptor.set_option(Tcp::acceptor::reuse_address(true));
        if (endpoint.protocol() == Tcp::v6())
            acceptor.set_option(asio::ip::v6_only(true)); // the other family has its own socket
        acceptor.bind(endpoint);
        acceptor.listen();
        acceptor.non_blocking(true);
        return acceptor;
    } catch (const boost::system::system_error& failure) {
        UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK, "TCP: cannot listen on %s, port %u: %s",
                       endpoint.address().to_string().c_str(), unsigned{endpoint.port()},
                       failure.code().message().c_str());
        return std::nullopt;
    }
}

void TcpConnections::AddListener(const Channel& channel, Tcp::acceptor acceptor)
{
    const auto listener = std::make_shared<Listener>(channel, std::move(acceptor));
    listener->id = ++lastId;
    listeners.emplace(listener->id, listener);
    UA_LOG_INFO(&logger, UA_LOGCATEGORY_NETWORK, "TCP %zu: listens on %s, port %u", listener->id,
                listener->address.address.c_str(), unsigned{listener->address.port});

    auto address = Borrow(listener->address.address);
    std::array<UA_KeyValuePair, 2> pairs{};
    pairs[0].key = {0, Borrow("listen-address")};
    UA_Variant_setScalar(&pairs[0].value, &address, &UA_TYPES[UA_TYPES_STRING]);
    pairs[1].key = {0, Borrow("listen-port")};
    UA_Variant_setScalar(&pairs[1].value, &listener->address.port, &UA_TYPES[UA_TYPES_UINT16]);
    Notify(*listener, UA_CONNECTIONSTATE_ESTABLISHED, {pairs.size(), pairs.data()}, {});
    Accept(listener);
}

/// Waits until there is somebody to accept: without a descriptor left the system refuses to accept
/// also when there is nobody, so that just trying would go round and round.
void TcpConnections::Accept(const SharedListener& listener)
{
    if (listener->closing)
        return;
    listener->acceptor.async_wait(Tcp::acceptor::wait_read,
                                  [this, listener](const ErrorCode& error) {
                                      const Lock lock(mutex);
                                      if (!listener->closing)
                                          OnAcceptable(listener, error);
                                  });
}

void TcpConnections::OnAcceptable(const SharedListener& listener, const ErrorCode& error)
{
    ErrorCode failure = error;
    Tcp::socket socket(context);
    if (!failure)
        socket = listener->acceptor.accept(failure);
    if (failure == asio::error::no_descriptors)
        socket = AcceptWithKeptDescriptor(*listener, failure);
    if (failure == asio::error::would_block) // has gone already
        return Accept(listener);
    if (failure) {
        OnAcceptFailed(*listener, failure);
        if (IsOutOfResources(failure))
            return RetryAccept(listener);
    } else {
        listener->failing = false;
        try {
            if (HasRoom(*listener))
                AddConnection(*listener, std::move(socket));
        } catch (const std::exception& gone) { // it may have gone already
            UA_LOG_INFO(&logger, UA_LOGCATEGORY_NETWORK, "TCP %zu: a connection was not taken: %s",
                        listener->id, gone.what());
        }
    }
    Accept(listener);
}

TcpConnections::Tcp::socket TcpConnections::AcceptWithKeptDescriptor(Listener& listener,
                                                                     ErrorCode& error)
{
    const KeptDescriptors kept;
    return listener.acceptor.accept(error); // does not wait: the acceptor is non-blocking
}

void TcpConnections::OnAcceptFailed(Listener& listener, const ErrorCode& error)
{
    if (!std::exchange(listener.failing, true)) {
        UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                       "TCP %zu: cannot accept connections for now: %s", listener.id,
                       error.message().c_str());
    }
}

/// Without a descriptor or memory for it the connection waits in the system's queue.
void TcpConnections::RetryAccept(const SharedListener& listener)
{
    listener->retry.expires_after(acceptRetry);
    listener->retry.async_wait([this, listener](const ErrorCode&) {
        const Lock lock(mutex);
        Accept(listener);
    });
}

bool TcpConnections::HasRoom(Listener& listener)
{
    const auto full = connections.size() >= limits.connections;
    if (full && !listener.full) {
        UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                       "TCP %zu: refuses connections: %zu are open, as many as are allowed",
                       listener.id, connections.size());
    }
    listener.full = full;
    return !full;
}

void TcpConnections::AddConnection(const Listener& listener, Tcp::socket socket)
{
    Configure(socket);
    auto channel = static_cast<const Channel&>(listener);
    channel.id = ++lastId;
    const auto connection = std::make_shared<Connection>(channel, std::move(socket));
    connections.emplace(connection->id, connection);
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

// Reading

void TcpConnections::Hold(ConnectionId id, bool isHeld)
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

void TcpConnections::Read(const SharedConnection& connection)
{
    if (connection->closing || connection->reading || !MayRead(*connection))
        return;
    connection->reading = true;
    connection->socket.async_wait(Tcp::socket::wait_read,
                                  [this, connection](const ErrorCode&) { OnReadable(connection); });
}

bool TcpConnections::MayRead(const Connection& connection)
{
    if (connection.held || connection.queued > limits.outputPause)
        return false;
    UpdateBrake();
    return brake.MayRead(connection.id);
}

void TcpConnections::OnReadable(const SharedConnection& connection)
{
    Guard(connection, [&] {
        connection->reading = false;
        if (!MayRead(*connection))
            return;
        ErrorCode error;
        const auto size = connection->socket.read_some(asio::buffer(input), error);
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

void TcpConnections::Receive(Connection& connection, std::size_t size)
{
    connection.info.bytesIn += size;
    brake.CountReceived(connection.id, size);
    Notify(connection, UA_CONNECTIONSTATE_ESTABLISHED, {0, nullptr}, {size, input.data()});
}

// Sending

UA_StatusCode TcpConnections::Send(ConnectionId id, OutputBuffer buffer)
{
    const Lock lock(mutex);
    const auto found = connections.find(id);
    if (found == connections.end() || found->second->closing)
        return UA_STATUSCODE_BADCONNECTIONCLOSED;
    const auto connection = found->second;
    ++messages;
    connection->info.bytesOut += buffer.GetSize();
    connection->queued += buffer.GetSize();
    if (connection->writing)
        buffer.Shrink();
    connection->output.push_back(std::move(buffer));
    if (id != current || connection->queued > gatherSize)
        Flush(connection);
    return connection->closing ? UA_STATUSCODE_BADCONNECTIONCLOSED : UA_STATUSCODE_GOOD;
}

void TcpConnections::Flush(const SharedConnection& connection)
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

void TcpConnections::FlushLater(const SharedConnection& connection)
{
    auto& output = connection->output;
    for (auto buffer = output.rbegin(); buffer != output.rend() && !buffer->IsShrunk(); ++buffer)
        buffer->Shrink();
    connection->writing = true;
    connection->socket.async_wait(Tcp::socket::wait_write,
                                  [this, connection](const ErrorCode&) { OnWritable(connection); });
}

void TcpConnections::FlushWhatFits(Connection& connection, ErrorCode& error)
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

void TcpConnections::OnWritable(const SharedConnection& connection)
{
    Guard(connection, [&] {
        connection->writing = false;
        Flush(connection);
        Read(connection);
    });
}

void TcpConnections::CheckOutput(const SharedConnection& connection)
{
    if (connection->closing || connection->queued <= limits.outputLimit)
        return;
    UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                   "TCP %zu: closed: %s does not take what it asked for, %zu bytes wait to be sent",
                   connection->id, connection->info.remoteAddress.c_str(), connection->queued);
    BeginClose(connection);
}

// Closing

bool TcpConnections::Close(ConnectionId id)
{
    const Lock lock(mutex);
    if (const auto found = connections.find(id); found != connections.end()) {
        const auto first = !found->second->closing;
        BeginClose(found->second);
        return first;
    }
    if (const auto found = listeners.find(id); found != listeners.end()) {
        const auto first = !found->second->closing;
        BeginClose(found->second);
        return first;
    }
    return false;
}

void TcpConnections::BeginClose(const SharedConnection& connection)
{
    if (std::exchange(connection->closing, true))
        return;
    asio::post(context, [this, connection] { FinishClose(connection); });
    ErrorCode ignored; // the connection ends in any case
    if (!connection->writing)
        FlushWhatFits(*connection, ignored); // often says why it is closed
    connection->output.clear();
    connection->queued = 0;
    connection->socket.shutdown(Tcp::socket::shutdown_both, ignored);
}

void TcpConnections::BeginClose(const SharedListener& listener)
{
    if (std::exchange(listener->closing, true))
        return;
    asio::post(context, [this, listener] { FinishClose(listener); });
    ErrorCode ignored; // nothing could be done about it
    listener->acceptor.close(ignored);
    listener->retry.cancel();
}

void TcpConnections::FinishClose(const SharedConnection& connection)
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

void TcpConnections::FinishClose(const SharedListener& listener)
{
    const Lock lock(mutex);
    Notify(*listener, UA_CONNECTIONSTATE_CLOSING, {0, nullptr}, {});
    listeners.erase(listener->id);
    CheckStopped();
}

// The memory brake

void TcpConnections::SetBrake(std::function<bool()> shortage)
{
    const Lock lock(mutex);
    isMemoryShort = std::move(shortage);
}

bool TcpConnections::AskBrake() const
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
void TcpConnections::UpdateBrake()
{
    if (brake.IsOn() || !AskBrake())
        return;
    brake.Engage();
    UA_LOG_WARNING(&logger, UA_LOGCATEGORY_NETWORK,
                   "TCP: memory is short: connections that send most are not read for now");
    CheckBrakeLater();
}

void TcpConnections::CheckBrakeLater()
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
void TcpConnections::CheckBrake()
{
    malloc_trim(0);
    if (AskBrake()) {
        CloseAbandoned();
        brake.Refill();
        CheckBrakeLater();
    } else {
        brake.Release();
        UA_LOG_INFO(&logger, UA_LOGCATEGORY_NETWORK, "TCP: memory is no longer short");
    }
    ReadAll();
}

void TcpConnections::ReadAll()
{
    for (const auto& [id, connection] : connections)
        Guard(connection, [this, &connection = connection] { Read(connection); });
}

/// A connection that is not read would not notice that its client has left, nor free what is held
/// for it.
void TcpConnections::CloseAbandoned()
{
    const Lock lock(mutex);
    for (const auto& [id, connection] : connections) {
        if (!connection->reading && !connection->closing && IsAbandoned(connection->socket))
            BeginClose(connection);
    }
}

} // namespace Host
