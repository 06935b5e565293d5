#pragma once

#include "Transport/Accepting/ConnectionInfo.h"
#include "Transport/Asio.h"
#include "Transport/Channel.h"
#include "Transport/Loop.h"
#include "Transport/LoopMutex.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Transport {

/// Calls a function while the process may use the descriptors that it keeps back.
using LendDescriptors = std::function<void(const std::function<void()>&)>;

/// The sockets that listen for connections. The loop's lock guards it.
class Listeners
{
public:
    using Tcp = boost::asio::ip::tcp;

    /// Told of listeners and of what they accept, with the lock held.
    class Owner
    {
    public:
        Owner() = default;
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
        virtual ~Owner() = default;

        virtual ConnectionId MakeListenerId() = 0;
        /// Tells the server; the lock may be given back meanwhile.
        virtual void OnListenerChanged(Channel& listener, UA_ConnectionState state,
                                       const UA_KeyValueMap& parameters) = 0;
        /// Takes over a new connection. What it throws is logged.
        virtual void OnAccepted(const Channel& listener, Tcp::socket socket) = 0;
        /// There is no descriptor or memory for a further connection; the next try follows.
        virtual void OnOutOfResources() = 0;
        /// One has closed, and is no longer among them.
        virtual void OnListenerClosed() = 0;
    };

    /// The loop and the owner must outlive it.
    Listeners(Loop& loop, Owner& owner, LendDescriptors lend);

    /// Listens as the parameters say, which are those of the library; every socket starts from
    /// `channel`.
    UA_StatusCode Open(const UA_KeyValueMap& parameters, const Channel& channel) REQUIRES(loopLock);

    /// Returns true if it begins to close now, false if it does already; nothing if there is none.
    std::optional<bool> Close(ConnectionId id) REQUIRES(loopLock);
    void CloseAll() REQUIRES(loopLock);

    [[nodiscard]] bool IsEmpty() const REQUIRES(loopLock) { return listeners.empty(); }
    [[nodiscard]] std::vector<ListeningSocket> GetAddresses() const REQUIRES(loopLock);

private:
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

    UA_StatusCode Listen(Request request) REQUIRES(loopLock);
    [[nodiscard]] std::vector<Tcp::endpoint> Resolve(const Request& request) const;
    std::optional<Tcp::acceptor> OpenAcceptor(const Tcp::endpoint& endpoint);
    void Add(const Channel& channel, Tcp::acceptor acceptor) REQUIRES(loopLock);
    void Accept(const SharedListener& listener) REQUIRES(loopLock);
    void OnAcceptable(const SharedListener& listener, const ErrorCode& error);
    void AcceptOne(const SharedListener& listener, const ErrorCode& error) REQUIRES(loopLock);
    void TakeOver(Listener& listener, Tcp::socket socket) REQUIRES(loopLock);
    Tcp::socket AcceptWithKeptDescriptor(Listener& listener, ErrorCode& error) const;
    void OnAcceptFailed(Listener& listener, const ErrorCode& error) REQUIRES(loopLock);
    void RetryAccept(const SharedListener& listener) REQUIRES(loopLock);
    void BeginClose(const SharedListener& listener) REQUIRES(loopLock);
    void FinishClose(const SharedListener& listener);

    Loop& loop;
    Owner& owner;
    const LendDescriptors lend;
    std::map<ConnectionId, SharedListener> listeners GUARDED_BY(loopLock);
};

} // namespace Transport
