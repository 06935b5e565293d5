#pragma once

#include "CallSender.h"
#include "Client/Connection.h"
#include "Connector.h"
#include "Ending.h"
#include "EventListener.h"
#include "PostedCall.h"
#include "Subscriptions.h"
#include "Waiter.h"

#include <Support/Mutex.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Client {

/// The one thread that drives the OPC UA client: sends the calls that others post, hands over
/// answers and events, and makes a lost connection again.
class Engine
{
public:
    /// Connects on the calling thread. Throws as Connection's constructor does.
    Engine(ConnectionOptions options, const Cancellation* cancellation);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine();

    /// Closes the session and ends the thread; nothing can be asked afterwards. REQUIRES: every
    /// listener has left.
    void Close() noexcept;

    /// Sends the call soon; while the connection is lost, when it is there again. It is answered or
    /// lost in any case. Any thread.
    void Post(PostedCallPointer call) EXCLUDES(mutex);

    /// Runs on the engine's thread while it is connected, and waits for it. Throws what it throws,
    /// and ConnectionLostException. Not for the engine's thread.
    void Run(const std::function<void()>& function) EXCLUDES(mutex);

    /// Lets the listener hear nothing from now on, and waits for that, also when the connection is
    /// lost. Not for the engine's thread.
    void Leave(EventListener& listener) noexcept EXCLUDES(mutex);

    /// Makes the connection again since nobody waits any longer for a call: what comes for it later
    /// would be taken for the answer to another one. Any thread.
    void GiveUp(const std::string& reason) EXCLUDES(mutex);

    /// From that time on there is no connection, and none is made. Any thread.
    void EndBy(std::chrono::steady_clock::time_point deadline) noexcept;

    /// Returns the certificate's fingerprint, by which a server is recognised whatever URL leads
    /// there, or the URL where it shows no certificate. Any thread.
    [[nodiscard]] const std::string& GetServer() const noexcept
    {
        return connector.GetFingerprint().empty() ? options.url : connector.GetFingerprint();
    }
    [[nodiscard]] const ConnectionOptions& GetOptions() const noexcept { return options; }
    /// Returns true once the connection will not come back. Any thread.
    [[nodiscard]] bool IsDead() const noexcept { return isDead; }
    /// Returns true if the server has file objects. Any thread.
    [[nodiscard]] bool OffersObjects() const noexcept { return offersObjects; }
    /// Returns why there is no connection any more. Any thread.
    [[nodiscard]] std::string GetLossReason() const EXCLUDES(mutex);

    // For the engine's thread.

    void Add(EventListener& listener);
    /// Subscribes to the events of a node, in place of the listener's earlier subscription. Throws
    /// CallRefusedException, ConnectionLostException.
    void Subscribe(const UA_NodeId& node, EventListener& listener);
    /// Closes the connection, to make it again: for when events are missing.
    void Break(std::string_view reason) noexcept { connector.Break(reason); }
    [[nodiscard]] UA_Client* GetClient() const noexcept { return &connector.GetClient(); }
    [[nodiscard]] const Namespaces& GetNamespaces() const noexcept
    {
        return connector.GetFacts().GetNamespaces();
    }
    /// Asks the server. Throws ConnectionLostException.
    [[nodiscard]] ServerInfo AskInfo() const { return connector.AskInfo(); }

private:
    struct Departure
    {
        EventListener* listener;
        std::promise<void>* promise;
    };
    struct Function
    {
        const std::function<void()>* function;
        // Not left to the promise: it lets go of an exception after the waiting thread has gone on.
        std::exception_ptr* failure;
        std::promise<void>* promise;
    };

    void RunThread() EXCLUDES(mutex);
    [[nodiscard]] bool HasWork() const EXCLUDES(mutex);
    void TakePosted() EXCLUDES(mutex);
    void RunFunctions() EXCLUDES(mutex);
    void RunDepartures() EXCLUDES(mutex);
    void TakeOverdue() EXCLUDES(mutex);
    void HandleLoss();
    bool Reconnect();
    void TryReconnect(Waiter::Deadline deadline);
    void AwaitDeparture(Waiter::Deadline deadline) EXCLUDES(mutex);
    void LosePosted();
    void Die(const std::string& reason) EXCLUDES(mutex);
    void Report(const std::string& text) const;

    const ConnectionOptions options;
    Ending ending;
    Connector connector;
    // The connector's client calls these while it is there: `RunThread` ends it.
    Subscriptions subscriptions;
    CallSender sender;

    // Of the engine's thread.
    EventListeners listeners;
    bool isConnected = true;

    mutable Support::Mutex mutex;
    std::vector<PostedCallPointer> posted GUARDED_BY(mutex);
    std::vector<Function> functions GUARDED_BY(mutex);
    std::vector<Departure> departures GUARDED_BY(mutex);
    std::string lossReason GUARDED_BY(mutex);
    std::string overdue GUARDED_BY(mutex); // the call that nobody waits for any longer

    Waiter interruption; // ends waiting between two attempts to connect
    std::atomic<bool> isDead{false};
    std::atomic<bool> offersObjects{false};
    std::thread thread; // last
};

} // namespace Client
