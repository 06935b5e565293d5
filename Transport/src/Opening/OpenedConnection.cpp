#include "Transport/Opening/OpenedConnection.h"

#include "Transport/ConnectionManager.h"
#include "Transport/KeepAlive.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace Transport {

namespace asio = boost::asio;

namespace {

constexpr std::size_t openedInputSize = std::size_t{256} << 10U;
/// As many reads in a row as are done before anything else gets its turn.
constexpr int readsPerTurn = 8;
/// Shorter messages are gathered in the room that a buffer before them has.
constexpr std::size_t gatherBelow = std::size_t{16} << 10U;
/// So much is queued before it is sent ahead of the end of the turn.
constexpr std::size_t flushFrom = std::size_t{256} << 10U;
constexpr KeepAlive clientKeepAlive{std::chrono::seconds{10}, std::chrono::seconds{5}, 4,
                                    std::chrono::milliseconds{30'000}};

} // namespace

OpenedShares::OpenedShares(Resolver::Function lookUp)
    : lookUp(std::move(lookUp))
    , input(openedInputSize)
{}

/// The pool is used with the lock held, as the rest.
OpenedConnection::OpenedConnection(const Channel& channel, Loop& loop, ConnectionManager& manager,
                                   OpenedShares& shares) NO_THREAD_SAFETY_ANALYSIS
    : Connection(channel, Tcp::socket(loop.GetContext()), manager, &shares.pool),
      manager(manager),
      shares(shares),
      resolver(loop.GetContext(), shares.lookUp)
{}

// Connecting

void OpenedConnection::Open(const std::string& name, std::uint16_t port)
{
    host = name;
    if (const auto endpoint = Resolver::Parse(host, port)) {
        ConnectTo({*endpoint});
    } else {
        // The connection owns the lookup, not the other way round.
        resolver.Resolve(host, port, [weak = weak_from_this()](const Lookup& lookup) {
            if (const auto self = std::static_pointer_cast<OpenedConnection>(weak.lock()))
                self->OnFound(lookup);
        });
    }
    Notify(UA_CONNECTIONSTATE_OPENING, {0, nullptr}, {});
}

void OpenedConnection::OnFound(const Lookup& lookup)
{
    const LoopLock lock(manager.GetMutex());
    if (closing)
        return;
    if (lookup.endpoints.empty())
        UA_LOG_ERROR(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK,
                     "the address of '%s' cannot be found: %s", host.c_str(), lookup.error.c_str());
    ConnectTo(lookup.endpoints);
}

void OpenedConnection::ConnectTo(std::vector<Tcp::endpoint> endpoints)
{
    addresses = std::move(endpoints);
    std::reverse(addresses.begin(), addresses.end());
    ConnectNext();
}

/// Tries the addresses one after the other.
void OpenedConnection::ConnectNext()
{
    while (!addresses.empty()) {
        const auto endpoint = addresses.back();
        addresses.pop_back();
        try {
            GetSocket() = Tcp::socket(GetSocket().get_executor(), endpoint.protocol());
            Configure(GetSocket(), clientKeepAlive);
            const auto self = std::static_pointer_cast<OpenedConnection>(shared_from_this());
            return GetSocket().async_connect(
                endpoint, [self](const ErrorCode& error) { self->OnConnected(error); });
        } catch (const boost::system::system_error& failure) {
            LogFailure(failure.code());
        }
    }
    Close();
}

void OpenedConnection::OnConnected(const ErrorCode& error)
{
    const LoopLock lock(manager.GetMutex());
    if (closing)
        return;
    if (!error)
        return Establish();
    LogFailure(error);
    ConnectNext();
}

void OpenedConnection::LogFailure(const ErrorCode& error) const
{
    UA_LOG_ERROR(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK, "%s", error.message().c_str());
}

void OpenedConnection::Establish()
{
    isOpen = true;
    addresses.clear();
    Notify(UA_CONNECTIONSTATE_ESTABLISHED, {0, nullptr}, {});
    ReadOrClose();
}

void OpenedConnection::OnClosing()
{
    resolver.Cancel();
}

// Reading

void OpenedConnection::Receive()
{
    auto& input = shares.input;
    for (int i = 0; i < readsPerTurn && !closing; ++i) {
        ErrorCode error;
        const auto size = GetSocket().read_some(asio::buffer(input), error);
        if (error == asio::error::would_block || error == asio::error::interrupted)
            return;
        if (error)
            return static_cast<void>(Close(Farewell::Drop));
        TellMessages(std::span(input).first(size));
        if (size < input.size())
            return;
    }
}

/// One by one: what comes at once with the answer that a call waits for, the library would leave
/// until more comes.
void OpenedConnection::TellMessages(std::span<UA_Byte> bytes)
{
    while (!bytes.empty() && !closing) {
        const auto message = bytes.first(splitter.Measure(bytes));
        Notify(UA_CONNECTIONSTATE_ESTABLISHED, {0, nullptr}, {message.size(), message.data()});
        bytes = bytes.subspan(message.size());
    }
}

// Sending

UA_StatusCode OpenedConnection::Send(OutputBuffer buffer)
{
    if (closing || !isOpen)
        return UA_STATUSCODE_BADCONNECTIONCLOSED;
    const auto size = buffer.GetSize();
    if (size < gatherBelow && GetOutput().Gather({buffer.GetData(), size}))
        shares.pool.Recycle(std::move(buffer).TakeMemory());
    else
        GetOutput().Push(std::move(buffer));
    if (GetQueued() >= flushFrom)
        Flush();
    return closing ? UA_STATUSCODE_BADCONNECTIONCLOSED : UA_STATUSCODE_GOOD;
}

} // namespace Transport
