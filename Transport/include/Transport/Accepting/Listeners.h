#pragma once

#include "Transport/Asio.h"
#include "Transport/Channel.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Transport {

/// Where a socket listens, with the port that the system chose if it was asked to.
struct ListeningSocket
{
    std::string address; ///< numeric
    std::uint16_t port{};
};

/// Calls a function while the process may use the descriptors that it keeps back.
using LendDescriptors = std::function<void(const std::function<void()>&)>;

/// The sockets that listen for connections. The loop's lock guards it: it is held when an operation
/// is called, and the handlers take it.
class Listeners
{
public:
    using Tcp = boost::asio::ip::tcp;

    /// The operations of the owner for its listeners; called with the lock held.
    struct Owner
    {
        std::function<ConnectionId()> makeId;
        /// Tells the server; the lock may be given back meanwhile.
        std::function<void(Channel&, UA_ConnectionState, const UA_KeyValueMap&)> notify;
        /// Takes over a new connection. What it throws is logged.
        std::function<void(const Channel& listener, Tcp::socket)> accept;
        /// There is no descriptor or memory for a further connection; the next try follows.
        std::function<void()> makeRoom;
        /// One has closed, and is no longer among them.
        std::function<void()> closed;
        LendDescriptors lendDescriptors; ///< empty: there are none kept back
    };

    Listeners(boost::asio::io_context& context, LoopMutex& mutex, const UA_Logger& logger,
              Owner owner);

    /// Listens as the parameters say, which are those of the library; every socket starts from
    /// `channel`.
    UA_StatusCode Open(const UA_KeyValueMap& parameters, const Channel& channel);

    /// True if it begins to close now, false if it does already; nothing if there is none.
    std::optional<bool> Close(ConnectionId id);
    void CloseAll();

    [[nodiscard]] bool IsEmpty() const noexcept { return listeners.empty(); }
    [[nodiscard]] std::vector<ListeningSocket> GetAddresses() const;

private:
    using Lock = std::unique_lock<LoopMutex>;
    using ErrorCode = boost::system::error_code;

    struct Listener : Channel
    {
        Listener(const Channel& channel, Tcp::acceptor opened);

        Tcp::acceptor acceptor;
        boost::asio::steady_timer retry;
        ListeningSocket address;
        bool failing = false; // and that is logged
    };
    using SharedListener = std::shared_ptr<Listener>;

    struct Request
    {
        std::vector<std::string> addresses; // empty: all of the machine
        std::uint16_t port{};
        bool onlyCheck = false;
        Channel channel; // what every socket that is opened for it starts from
    };

    UA_StatusCode Listen(Request request);
    [[nodiscard]] std::vector<Tcp::endpoint> Resolve(const Request& request) const;
    std::optional<Tcp::acceptor> OpenAcceptor(const Tcp::endpoint& endpoint);
    void Add(const Channel& channel, Tcp::acceptor acceptor);
    void Accept(const SharedListener& listener);
    void OnAcceptable(const SharedListener& listener, const ErrorCode& error);
    void TakeOver(const Listener& listener, Tcp::socket socket);
    Tcp::socket AcceptWithKeptDescriptor(Listener& listener, ErrorCode& error);
    void OnAcceptFailed(Listener& listener, const ErrorCode& error);
    void RetryAccept(const SharedListener& listener);
    void BeginClose(const SharedListener& listener);
    void FinishClose(const SharedListener& listener);

    boost::asio::io_context& context;
    LoopMutex& mutex;
    const UA_Logger& logger;
    const Owner owner;
    std::map<ConnectionId, SharedListener> listeners;
};

} // namespace Transport
