#include "Transport/Accepting/AcceptedConnection.h"

#include "Transport/ConnectionManager.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include <poll.h>

namespace Transport {

namespace asio = boost::asio;

namespace {

constexpr std::size_t inputSize = std::size_t{256} << 10U;
/// Read at a time from a connection that never had a session: each of a stranger's messages can
/// cost milliseconds, since it is signed or encrypted, and between two reads all others get their
/// turn.
constexpr std::size_t strangerInputSize = std::size_t{2} << 10U;
/// While a message is being handled its answers gather up to this, to be sent in one go.
constexpr std::size_t gatherSize = std::size_t{64} << 10U;

/// Returns true if the peer has closed its side, also while what it sent before has not been read.
bool IsAbandoned(asio::ip::tcp::socket& socket)
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

AcceptedShares::AcceptedShares(Loop& loop, const ConnectionLimits& limits, BrakeWatch::Owner owner)
    : limits(limits)
    , strangers(limits.strangers)
    , brake(loop, limits, std::move(owner))
    , input(inputSize)
{}

AcceptedConnection::AcceptedConnection(const Channel& channel, Tcp::socket accepted,
                                       ConnectionManager& manager, AcceptedShares& shares)
    : Connection(channel, std::move(accepted), manager, nullptr)
    , manager(manager)
    , shares(shares)
    , incoming(shares.limits.incoming, shares.limits.arrays)
    , outgoing(shares.limits.outgoing, shares.limits.incoming)
{
    const auto remote = GetSocket().remote_endpoint();
    info = {id, remote.address().to_string(), remote.port(), 0, 0};
}

void AcceptedConnection::Begin()
{
    auto address = Borrow(info.remoteAddress);
    UA_KeyValuePair pair{};
    pair.key = {0, Borrow("remote-address")};
    UA_Variant_setScalar(&pair.value, &address, &UA_TYPES[UA_TYPES_STRING]);
    Notify(UA_CONNECTIONSTATE_ESTABLISHED, {1, &pair}, {});
    Connection::Begin();
}

ConnectionOutput AcceptedConnection::DescribeOutput() const
{
    return {outgoing.GetLargest(), GetQueued(), shares.limits.outputLimit,
            GetQueued() > shares.limits.outputPause};
}

// Reading

void AcceptedConnection::Hold(bool isHeld)
{
    if (std::exchange(held, isHeld) && !isHeld)
        ReadOrClose();
}

bool AcceptedConnection::MayRead()
{
    if (held || GetQueued() > shares.limits.outputPause)
        return false;
    return shares.brake.MayRead(id);
}

void AcceptedConnection::OnInput()
{
    shares.turns.Enter(id, !shares.strangers.WasAdmitted(id));
}

void AcceptedConnection::Receive()
{
    ErrorCode error;
    const auto most = shares.strangers.WasAdmitted(id) ? inputSize : strangerInputSize;
    const auto size = GetSocket().read_some(asio::buffer(shares.input, most), error);
    if (error && error != asio::error::would_block)
        return static_cast<void>(Close());
    if (!error)
        Take(size);
    if (!closing)
        Flush();
}

void AcceptedConnection::Take(std::size_t size)
{
    auto* const data = shares.input.data();
    shares.traffic.received += size;
    info.bytesIn += size;
    shares.brake.GetBrake().CountReceived(id, size);
    if (const auto refusal = shares.strangers.Receive(id, {data, size}, Strangers::Clock::now()))
        return Refuse(*refusal);
    const bool knewClient = incoming.GetHello().has_value();
    if (!incoming.Count(data, size))
        return Refuse({UA_STATUSCODE_BADTCPMESSAGETOOLARGE,
                       "sends a larger message than is allowed, or mixes two"});
    if (!knewClient && incoming.GetHello())
        outgoing.SetHello(*incoming.GetHello());
    Notify(UA_CONNECTIONSTATE_ESTABLISHED, {0, nullptr}, {size, data});
}

bool AcceptedConnection::OnVerified(UA_Byte* chunk, std::size_t size)
{
    return incoming.CountSecured(chunk, size);
}

// Sending

/// Other things than messages are signed too.
void AcceptedConnection::OnSigning(UA_Byte* chunk, std::size_t size, OpcUa::Seal& seal)
{
    if (filling == chunk)
        outgoing.Prepare(chunk, size, seal);
}

UA_StatusCode AcceptedConnection::Send(OutputBuffer buffer, bool isGathering)
{
    if (closing)
        return UA_STATUSCODE_BADCONNECTIONCLOSED;
    ++shares.messages;
    auto& output = GetOutput();
    const auto before = output.GetSize();
    outgoing.Pass(std::move(buffer), output);
    const auto added = output.GetSize() - before;
    shares.traffic.sent += added;
    info.bytesOut += added;
    if (IsWriting())
        output.Shrink();
    ReportRefusal();
    if (!isGathering || output.GetSize() > gatherSize)
        Flush();
    return closing ? UA_STATUSCODE_BADCONNECTIONCLOSED : UA_STATUSCODE_GOOD;
}

void AcceptedConnection::ReportRefusal()
{
    if (outgoing.TakeRefusal())
        UA_LOG_WARNING(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK,
                       "TCP %zu: an answer is larger than the %zu bytes that %s takes: "
                       "BadResponseTooLarge instead",
                       id, outgoing.GetLargest(), info.remoteAddress.c_str());
}

void AcceptedConnection::OnOutputLeft()
{
    auto& output = GetOutput();
    output.Shrink();
    const auto& limits = shares.limits;
    const auto limit =
        shares.strangers.WasAdmitted(id) ? limits.outputLimit : limits.strangers.output;
    if (closing || output.GetSize() <= limit)
        return;
    UA_LOG_WARNING(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK,
                   "TCP %zu: closed: %s does not read its answers, %zu bytes are unsent", id,
                   info.remoteAddress.c_str(), output.GetSize());
    Close();
}

// Closing

void AcceptedConnection::Refuse(const Strangers::Refusal& refusal)
{
    if (closing)
        return;
    UA_LOG_INFO(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK, "TCP %zu: closed: %s: %s", id,
                info.remoteAddress.c_str(), refusal.reason);
    GetOutput().Push(MakeErrorMessage(refusal.status, refusal.reason));
    Close();
}

/// A connection that is not read would not notice that its client has left, nor free what is held
/// for it.
void AcceptedConnection::CloseIfAbandoned()
{
    if (!IsReading() && !closing && IsAbandoned(GetSocket()))
        Close();
}

void AcceptedConnection::OnClosing()
{
    shares.strangers.Remove(id);
}

void AcceptedConnection::OnClosed()
{
    if (!shares.closedObserver)
        return;
    auto& mutex = manager.GetMutex();
    mutex.unlock();
    try {
        shares.closedObserver(id);
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK,
                     "TCP %zu: its observer failed: %s", id, failure.what());
    }
    mutex.lock();
}

} // namespace Transport
