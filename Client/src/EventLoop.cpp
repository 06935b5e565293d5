#include "EventLoop.h"

#include "Client/Exceptions.h"
#include "Support/Descriptor.h"

#include <open62541/plugin/log.h>
#include <open62541/types.h>
#include <open62541/util.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <deque>
#include <exception>
#include <limits>
#include <malloc.h>
#include <map>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <utility>
#include <vector>

namespace Client {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t inputSize = std::size_t{256} << 10U;
/// As many reads in a row as are done before anything else gets its turn.
constexpr int readsPerTurn = 8;
/// Shorter messages are gathered in the room that a buffer before them has.
constexpr std::size_t gatherBelow = std::size_t{16} << 10U;
/// So much is queued before it is sent ahead of the end of the turn.
constexpr std::size_t flushFrom = std::size_t{256} << 10U;
constexpr std::size_t buffersAtOnce = 64;
constexpr std::size_t keptBuffers = 32;
constexpr int idleSeconds = 10;
constexpr int probeSeconds = 5;
constexpr int probes = 4;
constexpr int unacknowledgedMilliseconds = 30'000;

UA_String Borrow(std::string_view text)
{
    // The library's type has no const form; nothing that is given this writes to it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

struct Timer
{
    UA_Callback callback;
    void* application;
    void* data;
    UA_DateTime next;
    UA_DateTime interval; // 0: once
};

struct AddressesDeleter
{
    void operator()(addrinfo* addresses) const noexcept { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, AddressesDeleter>;

/// Memory for messages that knows how much it is: the library says only how much it has filled.
/// From malloc, as what the library frees by itself has to be.
class Buffer
{
public:
    Buffer() noexcept = default;
    /// Takes the memory over.
    explicit Buffer(UA_Byte* bytes) noexcept
        : data(bytes)
    {}
    /// Empty when there is no memory.
    static Buffer Allocate(std::size_t size) noexcept
    {
        return Buffer(static_cast<UA_Byte*>(UA_malloc(size)));
    }
    [[nodiscard]] UA_Byte* Release() noexcept { return data.release(); }

    [[nodiscard]] UA_Byte* GetData() const noexcept { return data.get(); }
    [[nodiscard]] std::size_t GetCapacity() const noexcept
    {
        return malloc_usable_size(data.get());
    }

private:
    struct Deleter
    {
        void operator()(UA_Byte* bytes) const noexcept { UA_free(bytes); }
    };
    std::unique_ptr<UA_Byte, Deleter> data;
};

struct Output
{
    Buffer buffer;
    std::size_t size = 0;
    std::size_t sent = 0;

    [[nodiscard]] std::size_t GetRoom() const noexcept { return buffer.GetCapacity() - size; }
};

/// Finds where messages end in a stream of bytes.
class MessageBounds
{
public:
    /// How many of the bytes belong to the message that they begin with or carry on.
    std::size_t Measure(std::span<const UA_Byte> bytes) noexcept
    {
        std::size_t measured = 0;
        while (known < header.size() && measured < bytes.size()) {
            header[known++] = bytes[measured++];
            if (known == header.size())
                left = ReadBodySize();
        }
        const auto body = std::min(left, bytes.size() - measured);
        left -= body;
        if (known == header.size() && left == 0)
            known = 0;
        return measured + body;
    }

private:
    /// The header's second half is the size of the whole. What is no message the library refuses.
    [[nodiscard]] std::size_t ReadBodySize() const noexcept
    {
        std::size_t size = 0;
        for (std::size_t i = header.size(); i-- > header.size() / 2;)
            size = size << 8U | header[i];
        return size - std::min(size, header.size());
    }

    std::array<UA_Byte, 8> header{};
    std::size_t known = 0; // of the header
    std::size_t left = 0;  // of what is behind it
};

enum class Phase
{
    Connecting,
    Open,
    Closing,
};

struct TcpConnection
{
    uintptr_t id{};
    Support::Descriptor socket;
    Phase phase = Phase::Connecting;
    UA_ConnectionManager_connectionCallback callback{};
    void* application{};
    void* context{};
    Addresses addresses;
    addrinfo* nextAddress{};
    MessageBounds input;
    std::deque<Output> output;
    std::size_t queued = 0;
};

void SetOption(int socket, int level, int name, int value)
{
    // What the system refuses it does without: none of these is needed to work.
    setsockopt(socket, level, name, &value, sizeof value);
}

/// Messages leave at once, and a peer that vanished without a word is noticed.
void Configure(int socket)
{
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, probeSeconds);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, probes);
    SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, unacknowledgedMilliseconds);
}

} // namespace

class EventLoop::Implementation
{
public:
    Implementation(const UA_Logger& logger, const Cancellation* cancellation);

    UA_EventLoop* GetHandle() noexcept { return &handle; }
    void Wake() noexcept;
    [[nodiscard]] std::size_t GetQueuedOutput() const noexcept;
    void Break() noexcept;
    void EndBy(steady_clock::time_point deadline) noexcept;

private:
    struct Handle : UA_EventLoop
    {
        Implementation* owner{};
    };
    struct Manager : UA_ConnectionManager
    {
        Implementation* owner{};
    };

    static Implementation& Owner(UA_EventLoop* loop)
    {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): it is always ours
        return *static_cast<Handle*>(loop)->owner;
    }
    static Implementation& Owner(UA_ConnectionManager* manager)
    {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): it is always ours
        return *static_cast<Manager*>(manager)->owner;
    }
    template <typename Function>
    UA_StatusCode Guard(Function function) noexcept;

    void FillLifecycle();
    void FillTimers();
    void FillManager();
    void SetState(UA_EventLoopState state);

    void Turn(UA_UInt32 timeout);
    bool RunTimers();
    bool RunDelayed();
    [[nodiscard]] steady_clock::time_point GetEnd() const noexcept;
    [[nodiscard]] int GetWait(UA_UInt32 timeout) const;
    void Poll(int wait);

    UA_StatusCode Open(const UA_KeyValueMap& parameters, TcpConnection connection);
    void ConnectNext(TcpConnection& connection);
    void OnConnected(TcpConnection& connection);
    void OnReadable(TcpConnection& connection);
    void TellMessages(TcpConnection& connection, std::span<UA_Byte> bytes);
    UA_StatusCode Send(uintptr_t id, UA_ByteString& bytes);
    void Flush(TcpConnection& connection);
    void Recycle(Buffer buffer);
    Buffer Allocate(std::size_t size);
    bool FinishClosing();
    void Tell(TcpConnection& connection, UA_ConnectionState state, UA_ByteString bytes);

    const UA_Logger& logger;
    const Cancellation* const cancellation;
    std::atomic<steady_clock::rep> end{steady_clock::duration::max().count()};
    Handle handle{};
    UA_KeyValueMap parameters{};
    Manager manager{};
    Support::Descriptor wake;
    std::atomic<bool> isSleeping{false};
    std::atomic<bool> isWoken{false};
    std::map<UA_UInt64, Timer> timers;
    UA_UInt64 lastTimer = 0;
    std::vector<UA_DelayedCallback*> delayed;
    std::map<uintptr_t, TcpConnection> connections;
    uintptr_t lastConnection = 0;
    std::vector<UA_Byte> input;
    std::vector<Buffer> spare; // buffers to be used again
};

EventLoop::Implementation::Implementation(const UA_Logger& logger, const Cancellation* cancellation)
    : logger(logger)
    , cancellation(cancellation)
    , wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
    , input(inputSize)
{
    if (!wake.IsOpen())
        throw ClientException(std::string("an event descriptor cannot be made: ") +
                              std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
    handle.owner = this;
    handle.logger = &logger;
    handle.params = &parameters;
    FillLifecycle();
    FillTimers();
    FillManager();
}

template <typename Function>
UA_StatusCode EventLoop::Implementation::Guard(Function function) noexcept
{
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_EVENTLOOP, "%s", failure.what());
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

void EventLoop::Implementation::SetState(UA_EventLoopState state)
{
    // The member is constant for those who use the loop; the loop itself sets it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    const_cast<volatile UA_EventLoopState&>(handle.state) = state;
}

void EventLoop::Implementation::FillLifecycle()
{
    handle.start = [](UA_EventLoop* self) -> UA_StatusCode {
        Owner(self).SetState(UA_EVENTLOOPSTATE_STARTED);
        Owner(self).manager.eventSource.state = UA_EVENTSOURCESTATE_STARTED;
        return UA_STATUSCODE_GOOD;
    };
    handle.stop = [](UA_EventLoop* self) {
        Owner(self).SetState(UA_EVENTLOOPSTATE_STOPPED);
        Owner(self).manager.eventSource.state = UA_EVENTSOURCESTATE_STOPPED;
    };
    handle.run = [](UA_EventLoop* self, UA_UInt32 timeout) {
        return Owner(self).Guard([&]() -> UA_StatusCode {
            Owner(self).Turn(timeout);
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.free = [](UA_EventLoop*) -> UA_StatusCode {
        return UA_STATUSCODE_GOOD;
    };
    // One thread does it all.
    handle.lock = [](UA_EventLoop*) {
    };
    handle.unlock = [](UA_EventLoop*) {
    };
    handle.dateTime_now = [](UA_EventLoop*) {
        return UA_DateTime_now();
    };
    handle.dateTime_nowMonotonic = [](UA_EventLoop*) {
        return UA_DateTime_nowMonotonic();
    };
    handle.dateTime_localTimeUtcOffset = [](UA_EventLoop*) {
        return UA_DateTime_localTimeUtcOffset();
    };
    handle.registerEventSource = [](UA_EventLoop*, UA_EventSource*) -> UA_StatusCode {
        return UA_STATUSCODE_BADNOTSUPPORTED;
    };
    handle.deregisterEventSource = [](UA_EventLoop*, UA_EventSource*) -> UA_StatusCode {
        return UA_STATUSCODE_BADNOTSUPPORTED;
    };
}

void EventLoop::Implementation::FillTimers()
{
    handle.nextCyclicTime = [](UA_EventLoop* self) {
        auto next = std::numeric_limits<UA_DateTime>::max();
        for (const auto& [id, timer] : Owner(self).timers)
            next = std::min(next, timer.next);
        return next;
    };
    handle.addCyclicCallback = [](UA_EventLoop* self, UA_Callback callback, void* application,
                                  void* data, UA_Double interval, UA_DateTime*, UA_TimerPolicy,
                                  UA_UInt64* id) {
        return Owner(self).Guard([&]() -> UA_StatusCode {
            if (interval <= 0)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            const auto ticks = static_cast<UA_DateTime>(interval * UA_DATETIME_MSEC);
            auto& owner = Owner(self);
            owner.timers[++owner.lastTimer] = {callback, application, data,
                                               UA_DateTime_nowMonotonic() + ticks, ticks};
            if (id != nullptr)
                *id = owner.lastTimer;
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.modifyCyclicCallback = [](UA_EventLoop* self, UA_UInt64 id, UA_Double interval,
                                     UA_DateTime*, UA_TimerPolicy) -> UA_StatusCode {
        const auto found = Owner(self).timers.find(id);
        if (found == Owner(self).timers.end())
            return UA_STATUSCODE_BADNOTFOUND;
        found->second.interval = static_cast<UA_DateTime>(interval * UA_DATETIME_MSEC);
        found->second.next = UA_DateTime_nowMonotonic() + found->second.interval;
        return UA_STATUSCODE_GOOD;
    };
    handle.removeCyclicCallback = [](UA_EventLoop* self, UA_UInt64 id) {
        Owner(self).timers.erase(id);
    };
    handle.addTimedCallback = [](UA_EventLoop* self, UA_Callback callback, void* application,
                                 void* data, UA_DateTime date, UA_UInt64* id) {
        return Owner(self).Guard([&]() -> UA_StatusCode {
            auto& owner = Owner(self);
            owner.timers[++owner.lastTimer] = {callback, application, data, date, 0};
            if (id != nullptr)
                *id = owner.lastTimer;
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.addDelayedCallback = [](UA_EventLoop* self, UA_DelayedCallback* callback) {
        Owner(self).Guard([&]() -> UA_StatusCode {
            Owner(self).delayed.push_back(callback);
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.removeDelayedCallback = [](UA_EventLoop* self, UA_DelayedCallback* callback) {
        auto& delayed = Owner(self).delayed;
        std::replace(delayed.begin(), delayed.end(), callback,
                     static_cast<UA_DelayedCallback*>(nullptr));
    };
}

void EventLoop::Implementation::FillManager()
{
    manager.owner = this;
    manager.protocol = Borrow("tcp");
    manager.eventSource.name = Borrow("tcp");
    manager.eventSource.eventSourceType = UA_EVENTSOURCETYPE_CONNECTIONMANAGER;
    manager.eventSource.eventLoop = &handle;
    manager.eventSource.state = UA_EVENTSOURCESTATE_STOPPED;
    handle.eventSources = &manager.eventSource;
    manager.openConnection = [](UA_ConnectionManager* self, const UA_KeyValueMap* parameters,
                                void* application, void* context,
                                UA_ConnectionManager_connectionCallback callback) {
        return Owner(self).Guard([&] {
            TcpConnection connection;
            connection.callback = callback;
            connection.application = application;
            connection.context = context;
            return Owner(self).Open(*parameters, std::move(connection));
        });
    };
    manager.sendWithConnection = [](UA_ConnectionManager* self, uintptr_t id, const UA_KeyValueMap*,
                                    UA_ByteString* bytes) {
        return Owner(self).Guard([&] { return Owner(self).Send(id, *bytes); });
    };
    manager.closeConnection = [](UA_ConnectionManager* self, uintptr_t id) -> UA_StatusCode {
        const auto found = Owner(self).connections.find(id);
        if (found == Owner(self).connections.end())
            return UA_STATUSCODE_BADNOTFOUND;
        Owner(self).Flush(found->second); // often the farewell
        found->second.phase = Phase::Closing;
        return UA_STATUSCODE_GOOD;
    };
    manager.allocNetworkBuffer = [](UA_ConnectionManager* self, uintptr_t, UA_ByteString* bytes,
                                    size_t size) {
        return Owner(self).Guard([&]() -> UA_StatusCode {
            *bytes = {size, Owner(self).Allocate(size).Release()};
            return bytes->data == nullptr ? UA_STATUSCODE_BADOUTOFMEMORY : UA_STATUSCODE_GOOD;
        });
    };
    manager.freeNetworkBuffer = [](UA_ConnectionManager* self, uintptr_t, UA_ByteString* bytes) {
        if (bytes->data != nullptr)
            Owner(self).Guard([&]() -> UA_StatusCode {
                Owner(self).Recycle(Buffer(bytes->data));
                return UA_STATUSCODE_GOOD;
            });
        UA_ByteString_init(bytes);
    };
}

void EventLoop::Implementation::Wake() noexcept
{
    isWoken = true;
    if (!isSleeping)
        return;
    // Can fail only when it is readable already.
    eventfd_write(wake.Get(), 1);
}

std::size_t EventLoop::Implementation::GetQueuedOutput() const noexcept
{
    std::size_t queued = 0;
    for (const auto& [id, connection] : connections)
        queued += connection.queued;
    return queued;
}

void EventLoop::Implementation::Break() noexcept
{
    for (auto& [id, connection] : connections)
        connection.phase = Phase::Closing;
}

void EventLoop::Implementation::EndBy(steady_clock::time_point deadline) noexcept
{
    end = deadline.time_since_epoch().count();
    Wake();
}

steady_clock::time_point EventLoop::Implementation::GetEnd() const noexcept
{
    return steady_clock::time_point(steady_clock::duration(end));
}

// One turn

void EventLoop::Implementation::Turn(UA_UInt32 timeout)
{
    const bool ranTimers = RunTimers();
    const bool ranDelayed = RunDelayed();
    if ((cancellation != nullptr && cancellation->IsCancelled()) || steady_clock::now() >= GetEnd())
        Break();
    const bool hasClosed = FinishClosing();
    for (auto& [id, connection] : connections)
        Flush(connection);
    // Whoever runs the loop may have something to do about what has happened.
    Poll(ranTimers || ranDelayed || hasClosed ? 0 : GetWait(timeout));
    FinishClosing();
}

bool EventLoop::Implementation::RunTimers()
{
    const auto now = UA_DateTime_nowMonotonic();
    std::vector<UA_UInt64> due;
    for (const auto& [id, timer] : timers)
        if (timer.next <= now)
            due.push_back(id);
    for (const auto id : due) {
        const auto found = timers.find(id);
        if (found == timers.end())
            continue; // removed by another one
        const Timer timer = found->second;
        if (timer.interval > 0)
            found->second.next = now + timer.interval;
        else
            timers.erase(found);
        timer.callback(timer.application, timer.data);
    }
    return !due.empty();
}

bool EventLoop::Implementation::RunDelayed()
{
    bool ran = false;
    // One may remove others that are yet to come, or add further ones, which are for the next turn.
    const std::size_t count = delayed.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (auto* const callback = delayed[i]) {
            ran = true;
            if (callback->callback != nullptr)
                callback->callback(callback->application, callback->context);
        }
    }
    delayed.erase(delayed.begin(), delayed.begin() + static_cast<std::ptrdiff_t>(count));
    return ran;
}

int EventLoop::Implementation::GetWait(UA_UInt32 timeout) const
{
    auto wait = static_cast<UA_DateTime>(timeout);
    const auto now = UA_DateTime_nowMonotonic();
    for (const auto& [id, timer] : timers) {
        const auto left = std::max<UA_DateTime>(timer.next - now, 0);
        wait = std::min<UA_DateTime>(wait, (left + UA_DATETIME_MSEC - 1) / UA_DATETIME_MSEC);
    }
    using std::chrono::milliseconds;
    if (const auto last = GetEnd(); last != steady_clock::time_point::max()) {
        const auto left = std::chrono::ceil<milliseconds>(last - steady_clock::now()).count();
        wait = std::clamp<UA_DateTime>(left, 0, wait);
    }
    return static_cast<int>(std::min<UA_DateTime>(wait, std::numeric_limits<int>::max()));
}

void EventLoop::Implementation::Poll(int wait)
{
    const int cancelling = cancellation == nullptr ? -1 : cancellation->GetDescriptor();
    std::vector<pollfd> queries{{wake.Get(), POLLIN, 0}, {cancelling, POLLIN, 0}};
    std::vector<uintptr_t> ids(queries.size());
    for (const auto& [id, connection] : connections) {
        const bool writes = connection.phase == Phase::Connecting || !connection.output.empty();
        const bool reads = connection.phase == Phase::Open;
        const int events = (writes ? POLLOUT : 0) | (reads ? POLLIN : 0);
        queries.push_back({connection.socket.Get(), static_cast<short>(events), 0});
        ids.push_back(id);
    }
    isSleeping = true;
    const int ready = ::poll(queries.data(), queries.size(), isWoken.exchange(false) ? 0 : wait);
    isSleeping = false;
    if (ready <= 0)
        return;
    eventfd_t ignored{};
    if (queries.front().revents != 0)
        eventfd_read(wake.Get(), &ignored);
    for (std::size_t i = 2; i < queries.size(); ++i) {
        const auto found = connections.find(ids[i]);
        if (queries[i].revents == 0 || found == connections.end())
            continue;
        auto& connection = found->second;
        if (connection.phase == Phase::Connecting) {
            OnConnected(connection);
            continue;
        }
        if ((queries[i].revents & POLLOUT) != 0)
            Flush(connection);
        if ((queries[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
            OnReadable(connection);
    }
}

// Connections

void EventLoop::Implementation::Tell(TcpConnection& connection, UA_ConnectionState state,
                                     UA_ByteString bytes)
{
    const UA_KeyValueMap nothing{};
    connection.callback(&manager, connection.id, connection.application, &connection.context, state,
                        &nothing, bytes);
}

UA_StatusCode EventLoop::Implementation::Open(const UA_KeyValueMap& parameters,
                                              TcpConnection connection)
{
    const auto* const port = static_cast<const UA_UInt16*>(
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("port")}, &UA_TYPES[UA_TYPES_UINT16]));
    const auto* const address = static_cast<const UA_String*>(
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("address")}, &UA_TYPES[UA_TYPES_STRING]));
    if (port == nullptr || address == nullptr)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string name(reinterpret_cast<const char*>(address->data), address->length);
    const int error = getaddrinfo(name.c_str(), std::to_string(*port).c_str(), &hints, &found);
    if (error != 0) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "the address of '%s' cannot be found: %s",
                     name.c_str(), gai_strerror(error));
        return UA_STATUSCODE_BADCONNECTIONREJECTED;
    }
    connection.addresses.reset(found);
    connection.nextAddress = found;
    connection.id = ++lastConnection;
    auto& opened = connections.emplace(connection.id, std::move(connection)).first->second;
    ConnectNext(opened);
    if (opened.phase == Phase::Closing) {
        connections.erase(opened.id);
        return UA_STATUSCODE_BADCONNECTIONREJECTED;
    }
    Tell(opened, UA_CONNECTIONSTATE_OPENING, UA_BYTESTRING_NULL);
    return UA_STATUSCODE_GOOD;
}

/// Tries the addresses one after the other.
void EventLoop::Implementation::ConnectNext(TcpConnection& connection)
{
    while (connection.nextAddress != nullptr) {
        const addrinfo& address =
            *std::exchange(connection.nextAddress, connection.nextAddress->ai_next);
        connection.socket = Support::Descriptor(
            ::socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!connection.socket.IsOpen())
            continue;
        Configure(connection.socket.Get());
        if (::connect(connection.socket.Get(), address.ai_addr, address.ai_addrlen) == 0 ||
            errno == EINPROGRESS)
            return;
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "%s",
                     std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
    }
    connection.phase = Phase::Closing;
}

void EventLoop::Implementation::OnConnected(TcpConnection& connection)
{
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(connection.socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "%s",
                     std::strerror(error)); // NOLINT(concurrency-mt-unsafe)
        ConnectNext(connection);
        return;
    }
    connection.phase = Phase::Open;
    connection.addresses.reset();
    Tell(connection, UA_CONNECTIONSTATE_ESTABLISHED, UA_BYTESTRING_NULL);
}

void EventLoop::Implementation::OnReadable(TcpConnection& connection)
{
    for (int i = 0; i < readsPerTurn && connection.phase == Phase::Open; ++i) {
        const auto count = ::recv(connection.socket.Get(), input.data(), input.size(), 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (count <= 0) {
            connection.phase = Phase::Closing;
            return;
        }
        const auto size = static_cast<std::size_t>(count);
        TellMessages(connection, std::span(input).first(size));
        if (size < input.size())
            return;
    }
}

/// One by one: what comes at once with the answer that a call waits for, the library would leave
/// until more comes.
void EventLoop::Implementation::TellMessages(TcpConnection& connection, std::span<UA_Byte> bytes)
{
    while (!bytes.empty() && connection.phase == Phase::Open) {
        const auto message = bytes.first(connection.input.Measure(bytes));
        Tell(connection, UA_CONNECTIONSTATE_ESTABLISHED, {message.size(), message.data()});
        bytes = bytes.subspan(message.size());
    }
}

Buffer EventLoop::Implementation::Allocate(std::size_t size)
{
    if (spare.empty() || spare.back().GetCapacity() < size)
        return Buffer::Allocate(size);
    Buffer buffer = std::move(spare.back());
    spare.pop_back();
    return buffer;
}

/// Keeps a buffer for the next message.
void EventLoop::Implementation::Recycle(Buffer buffer)
{
    if (spare.size() < keptBuffers)
        spare.push_back(std::move(buffer));
}

UA_StatusCode EventLoop::Implementation::Send(uintptr_t id, UA_ByteString& bytes)
{
    const std::size_t size = bytes.length;
    Buffer buffer(bytes.data);
    UA_ByteString_init(&bytes);
    const auto found = connections.find(id);
    if (found == connections.end() || found->second.phase != Phase::Open)
        return UA_STATUSCODE_BADCONNECTIONCLOSED;
    auto& connection = found->second;
    auto& output = connection.output;
    if (size < gatherBelow && !output.empty() && output.back().GetRoom() >= size) {
        std::memcpy(output.back().buffer.GetData() + output.back().size, buffer.GetData(), size);
        output.back().size += size;
        Recycle(std::move(buffer));
    } else {
        output.push_back({std::move(buffer), size, 0});
    }
    connection.queued += size;
    if (connection.queued >= flushFrom)
        Flush(connection);
    return connection.phase == Phase::Open ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADCONNECTIONCLOSED;
}

void EventLoop::Implementation::Flush(TcpConnection& connection)
{
    while (connection.phase == Phase::Open && !connection.output.empty()) {
        std::array<iovec, buffersAtOnce> parts{};
        std::size_t count = 0;
        for (auto& output : connection.output) {
            parts[count++] = {output.buffer.GetData() + output.sent, output.size - output.sent};
            if (count == parts.size())
                break;
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = count;
        const auto result = ::sendmsg(connection.socket.Get(), &message, MSG_NOSIGNAL);
        if (result < 0 && errno == EINTR)
            continue;
        if (result < 0 && errno == EAGAIN)
            return;
        if (result < 0) {
            connection.phase = Phase::Closing;
            return;
        }
        auto sent = static_cast<std::size_t>(result);
        connection.queued -= sent;
        while (sent > 0) {
            auto& front = connection.output.front();
            const auto part = std::min(sent, front.size - front.sent);
            front.sent += part;
            sent -= part;
            if (front.sent == front.size) {
                Recycle(std::move(front.buffer));
                connection.output.pop_front();
            }
        }
    }
}

bool EventLoop::Implementation::FinishClosing()
{
    bool hasClosed = false;
    for (auto each = connections.begin(); each != connections.end();) {
        if (each->second.phase != Phase::Closing) {
            ++each;
            continue;
        }
        hasClosed = true;
        auto node = connections.extract(each++);
        ::shutdown(node.mapped().socket.Get(), SHUT_RDWR);
        Tell(node.mapped(), UA_CONNECTIONSTATE_CLOSING, UA_BYTESTRING_NULL);
    }
    return hasClosed;
}

EventLoop::EventLoop(const UA_Logger& logger, const Cancellation* cancellation)
    : implementation(std::make_unique<Implementation>(logger, cancellation))
{}

EventLoop::~EventLoop() = default;

UA_EventLoop* EventLoop::GetHandle() noexcept
{
    return implementation->GetHandle();
}

void EventLoop::Wake() noexcept
{
    implementation->Wake();
}

std::size_t EventLoop::GetQueuedOutput() const noexcept
{
    return implementation->GetQueuedOutput();
}

void EventLoop::Break() noexcept
{
    implementation->Break();
}

void EventLoop::EndBy(std::chrono::steady_clock::time_point deadline) noexcept
{
    implementation->EndBy(deadline);
}

} // namespace Client
