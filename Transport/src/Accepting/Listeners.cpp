#include "Transport/Accepting/Listeners.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <string_view>
#include <utility>

namespace Transport {

namespace asio = boost::asio;

namespace {

using Tcp = asio::ip::tcp;
using ErrorCode = boost::system::error_code;

constexpr std::chrono::milliseconds acceptRetry{100};

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

/// Returns the addresses of a request; an empty one means all of the machine and is left out.
std::vector<std::string> FindAddresses(const UA_KeyValueMap& parameters)
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

bool IsOutOfResources(const ErrorCode& error)
{
    return error == asio::error::no_descriptors || error == asio::error::no_memory ||
           error == asio::error::no_buffer_space ||
           error == boost::system::errc::too_many_files_open_in_system;
}

} // namespace

Listeners::Listener::Listener(const Channel& channel, Tcp::acceptor opened)
    : Channel(channel)
    , acceptor(std::move(opened))
    , retry(acceptor.get_executor())
{
    const auto endpoint = acceptor.local_endpoint();
    address = {endpoint.address().to_string(), endpoint.port()};
}

Listeners::Listeners(Loop& loop, Owner& owner, LendDescriptors lend)
    : loop(loop)
    , owner(owner)
    , lend(std::move(lend))
{}

std::vector<ListeningSocket> Listeners::GetAddresses() const
{
    std::vector<ListeningSocket> addresses;
    for (const auto& [id, listener] : listeners)
        addresses.push_back(listener->address);
    return addresses;
}

UA_StatusCode Listeners::Open(const UA_KeyValueMap& parameters, const Channel& channel)
{
    const auto& boolean = UA_TYPES[UA_TYPES_BOOLEAN];
    const auto* port =
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("port")}, &UA_TYPES[UA_TYPES_UINT16]);
    if (port == nullptr || channel.callback == nullptr)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    if (!GetScalar(parameters, "listen", boolean, false))
        return UA_STATUSCODE_BADNOTSUPPORTED;
    return Listen({FindAddresses(parameters), *static_cast<const std::uint16_t*>(port),
                   GetScalar(parameters, "validate", boolean, false), channel});
}

UA_StatusCode Listeners::Listen(Request request)
{
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
            Add(request.channel, std::move(*acceptor));
    }
    return status;
}

std::vector<Listeners::Tcp::endpoint> Listeners::Resolve(const Request& request) const
{
    if (request.addresses.empty())
        return {{Tcp::v4(), request.port}, {Tcp::v6(), request.port}};
    std::vector<Tcp::endpoint> endpoints;
    Tcp::resolver resolver(loop.GetContext());
    for (const auto& address : request.addresses) {
        ErrorCode error;
        const auto found =
            resolver.resolve(address, std::to_string(request.port), Tcp::resolver::passive, error);
        if (error) {
            UA_LOG_ERROR(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                         "TCP: cannot find the address %s: %s", address.c_str(),
                         error.message().c_str());
        }
        for (const auto& entry : found) {
            if (std::find(endpoints.begin(), endpoints.end(), entry.endpoint()) == endpoints.end())
                endpoints.push_back(entry.endpoint());
        }
    }
    return endpoints;
}

std::optional<Listeners::Tcp::acceptor> Listeners::OpenAcceptor(const Tcp::endpoint& endpoint)
{
    try {
        Tcp::acceptor acceptor(loop.GetContext());
        acceptor.open(endpoint.protocol());
        acceptor.set_option(Tcp::acceptor::reuse_address(true));
        if (endpoint.protocol() == Tcp::v6())
            acceptor.set_option(asio::ip::v6_only(true)); // the other family has its own socket
        acceptor.bind(endpoint);
        acceptor.listen();
        acceptor.non_blocking(true);
        return acceptor;
    } catch (const boost::system::system_error& failure) {
        UA_LOG_WARNING(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                       "TCP: cannot listen on %s, port %u: %s",
                       endpoint.address().to_string().c_str(), unsigned{endpoint.port()},
                       failure.code().message().c_str());
        return std::nullopt;
    }
}

void Listeners::Add(const Channel& channel, Tcp::acceptor acceptor)
{
    const auto listener = std::make_shared<Listener>(channel, std::move(acceptor));
    listener->id = owner.MakeListenerId();
    listeners.emplace(listener->id, listener);
    UA_LOG_INFO(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK, "TCP %zu: listens on %s, port %u",
                listener->id, listener->address.address.c_str(), unsigned{listener->address.port});

    auto address = Borrow(listener->address.address);
    std::array<UA_KeyValuePair, 2> pairs{};
    pairs[0].key = {0, Borrow("listen-address")};
    UA_Variant_setScalar(&pairs[0].value, &address, &UA_TYPES[UA_TYPES_STRING]);
    pairs[1].key = {0, Borrow("listen-port")};
    UA_Variant_setScalar(&pairs[1].value, &listener->address.port, &UA_TYPES[UA_TYPES_UINT16]);
    owner.OnListenerChanged(*listener, UA_CONNECTIONSTATE_ESTABLISHED,
                            {pairs.size(), pairs.data()});
    Accept(listener);
}

/// Waits until there is somebody to accept: without a descriptor left the system refuses to accept
/// also when there is nobody, so that just trying would go round and round.
void Listeners::Accept(const SharedListener& listener)
{
    if (listener->closing)
        return;
    listener->acceptor.async_wait(
        Tcp::acceptor::wait_read,
        [this, listener](const ErrorCode& error) { OnAcceptable(listener, error); });
}

void Listeners::OnAcceptable(const SharedListener& listener, const ErrorCode& error)
{
    const LoopLock lock(loop.GetMutex());
    if (!listener->closing)
        AcceptOne(listener, error);
}

void Listeners::AcceptOne(const SharedListener& listener, const ErrorCode& error)
{
    ErrorCode failure = error;
    Tcp::socket socket(loop.GetContext());
    if (!failure)
        socket = listener->acceptor.accept(failure);
    if (failure == asio::error::no_descriptors)
        socket = AcceptWithKeptDescriptor(*listener, failure);
    if (failure == asio::error::would_block) // has gone already
        return Accept(listener);
    if (!failure) {
        TakeOver(*listener, std::move(socket));
        return Accept(listener);
    }
    OnAcceptFailed(*listener, failure);
    if (!IsOutOfResources(failure))
        return Accept(listener);
    owner.OnOutOfResources();
    RetryAccept(listener);
}

void Listeners::TakeOver(Listener& listener, Tcp::socket socket)
{
    if (std::exchange(listener.failing, false)) {
        UA_LOG_WARNING(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                       "TCP %zu: connections can be accepted again", listener.id);
    }
    try {
        owner.OnAccepted(listener, std::move(socket));
    } catch (const std::exception& gone) { // it may have gone already
        UA_LOG_INFO(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                    "TCP %zu: a connection was not taken: %s", listener.id, gone.what());
    }
}

Listeners::Tcp::socket Listeners::AcceptWithKeptDescriptor(Listener& listener,
                                                           ErrorCode& error) const
{
    Tcp::socket socket(loop.GetContext());
    if (lend)
        lend([&] { socket = listener.acceptor.accept(error); }); // does not wait
    return socket;
}

void Listeners::OnAcceptFailed(Listener& listener, const ErrorCode& error)
{
    if (!std::exchange(listener.failing, true)) {
        UA_LOG_WARNING(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                       "TCP %zu: cannot accept connections for now: %s", listener.id,
                       error.message().c_str());
    }
}

/// Without a descriptor or memory for it the connection waits in the system's queue.
void Listeners::RetryAccept(const SharedListener& listener)
{
    listener->retry.expires_after(acceptRetry);
    listener->retry.async_wait([this, listener](const ErrorCode&) {
        const LoopLock lock(loop.GetMutex());
        Accept(listener);
    });
}

std::optional<bool> Listeners::Close(ConnectionId id)
{
    const auto found = listeners.find(id);
    if (found == listeners.end())
        return std::nullopt;
    const auto first = !found->second->closing;
    BeginClose(found->second);
    return first;
}

void Listeners::CloseAll()
{
    for (const auto& [id, listener] : listeners)
        BeginClose(listener);
}

void Listeners::BeginClose(const SharedListener& listener)
{
    if (std::exchange(listener->closing, true))
        return;
    asio::post(loop.GetContext(), [this, listener] { FinishClose(listener); });
    ErrorCode ignored; // nothing could be done about it
    listener->acceptor.close(ignored);
    listener->retry.cancel();
}

void Listeners::FinishClose(const SharedListener& listener)
{
    const LoopLock lock(loop.GetMutex());
    owner.OnListenerChanged(*listener, UA_CONNECTIONSTATE_CLOSING, {0, nullptr});
    listeners.erase(listener->id);
    owner.OnListenerClosed();
}

} // namespace Transport
