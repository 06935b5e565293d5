#pragma once

#include "OpcUa/SymmetricCiphers.h"
#include "Transport/Accepting/ConnectionInfo.h"
#include "Transport/Accepting/Limits.h"

#include <open62541/plugin/eventloop.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Host {

using Transport::ConnectionId;
using Transport::ConnectionInfo;
using Transport::ConnectionLimits;
using Transport::ListeningSocket;

/// The event loop and the TCP transport of an OPC UA server: timers, delayed callbacks and
/// connections on one thread, the one that calls `run` of the handle. Sending never blocks.
///
/// Threads: `Post`, `Wake`, `DeliverEvents` and `GetConnection` are for any thread, and so are the
/// handle's operations other than `start`, `stop`, `run` and `free`; everything else is for the
/// thread that runs the loop. The loop's lock is recursive (`lock` and `unlock` of the handle) and
/// is never held while callbacks, posted functions or observers run. It may be taken with the
/// server's lock held, never the other way round.
///
/// Lifetime: give the handle to a server's configuration before its defaults are set. The server
/// starts, stops and frees the loop; freed, it runs the delayed callbacks that are left, forgets
/// its timers and frees the event sources that others added. The loop itself belongs to whoever
/// made it and must outlive the server.
class EventLoop
{
public:
    /// `logger` must outlive the loop. It is called with the loop's lock held and must not call
    /// back.
    explicit EventLoop(const UA_Logger& logger, const ConnectionLimits& limits = {});
    /// REQUIRES: never started, or stopped. Posted functions that wait are dropped without being
    /// run.
    ~EventLoop();

    EventLoop(const EventLoop&) = delete;
    EventLoop(EventLoop&&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    EventLoop& operator=(EventLoop&&) = delete;

    /// Returns the loop as the library knows it, with its connection manager registered:
    /// connections are accepted only.
    [[nodiscard]] UA_EventLoop* GetHandle() noexcept;

    /// Runs the function on the loop's thread, soon, in the order in which a thread posts. What it
    /// throws is logged. A loop that is not run keeps it until it is.
    void Post(std::function<void()> function);

    /// Makes a waiting `run` return.
    void Wake();

    /// Sends the results of asynchronous calls that `UA_Server_setAsyncOperationResult` has stored;
    /// at the end of the current turn of the loop, however often it is asked for in one.
    ///
    /// The library answers such calls from a cyclic callback alone, each second, and offers no
    /// other way. It is the first cyclic callback that a server registers, when it is made (and it
    /// does nothing while `asyncOperationTimeout` is 0), so the loop remembers that one and calls
    /// it between its regular times. One loop therefore serves one server.
    void FlushAnswers();

    /// Sends queued events now instead of at the end of the subscriptions' publishing intervals.
    /// To be called after events were raised; wakes the loop.
    ///
    /// The library publishes from a cyclic callback for each subscription. Clients make a
    /// subscription before anything else that is cyclic, so the function of the first cyclic
    /// callback that was registered in answer to a client's message is the one that publishes, and
    /// every callback of that function belongs to a subscription of the client whose message was
    /// being handled. These callbacks are called once between their regular times.
    ///
    /// Each call that has nothing to send counts as an interval towards the subscription's
    /// keep-alive and lifetime counts. So these are rationed: 100 a second for a subscription and
    /// at most 20 at once; beyond them delivery waits for the next ration (10 ms). Calls that send
    /// something are free. The server's least lifetime count must be chosen with that in mind:
    /// 12000 is two minutes under constant fire.
    void DeliverEvents();

    /// The same for the subscriptions of one owner, see `SetSubscriptionOwners`.
    void DeliverEvents(const void* owner);

    /// Sets the function that returns the owner of the subscriptions made on a connection. It is
    /// called on the loop's thread with the loop's lock held.
    void SetSubscriptionOwners(std::function<const void*(ConnectionId)> find);

    /// Ends the subscriptions that a session has left behind: the library keeps these until their
    /// lifetime is over. Nothing can be sent for them, so each call of their publishing callbacks
    /// counts towards the lifetime, and they are called until it is over: a tenth of the loop's
    /// time at most. On the loop's thread, once the library has deleted the subscriptions that it
    /// does not keep.
    void EndSubscriptions(const void* owner);

    /// Calls a function at the end of each turn of the loop, after answers and events were sent; an
    /// empty one ends that. On the loop's thread.
    void SetTurnObserver(std::function<void()> observer);

    /// Returns the connection whose message (or opening, or closing) is being handled; 0 outside of
    /// that, and on other threads.
    [[nodiscard]] ConnectionId GetCurrentConnection() const;

    // The connections; `Transport::AcceptedConnections` describes these operations.

    [[nodiscard]] std::optional<ConnectionInfo> GetConnection(ConnectionId connection) const;
    [[nodiscard]] std::size_t CountConnections() const;
    [[nodiscard]] std::uint64_t CountBytes() const;
    [[nodiscard]] Transport::Traffic GetTraffic() const;
    [[nodiscard]] bool IsMemoryBrakeOn() const;
    [[nodiscard]] std::vector<ListeningSocket> GetListenAddresses() const;

    using Output = Transport::ConnectionOutput;
    [[nodiscard]] Output GetOutput(ConnectionId connection) const;

    /// Returns the observer of all that the loop's connections sign: it keeps messages within
    /// bounds.
    [[nodiscard]] OpcUa::MessageObserver& GetMessageObserver() noexcept;

    void HoldConnection(ConnectionId connection, bool isHeld);
    void CloseConnection(ConnectionId connection);
    void CloseAbandonedConnections();
    void MarkAdmitted(ConnectionId connection, bool isAdmitted);
    void CloseOverdueConnections();
    void SetClosedObserver(std::function<void(ConnectionId)> observer);
    void SetMemoryBrake(std::function<bool()> isMemoryShort);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Host
