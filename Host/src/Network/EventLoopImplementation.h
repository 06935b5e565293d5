#pragma once

#include "Network/EventDelivery.h"
#include "Network/EventLoop.h"
#include "Transport/Accepting/AcceptedConnections.h"
#include "Transport/Asio.h"
#include "Transport/LoopTimers.h"

#include <open62541/plugin/log.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <new>
#include <thread>

namespace Host {

/// The parts of the loop, for EventLoop.cpp and EventLoopHandle.cpp alone; the latter has what the
/// library calls.
class EventLoop::Implementation
{
public:
    Implementation(const UA_Logger& logger, const ConnectionLimits& limits);

    [[nodiscard]] UA_EventLoop* GetHandle() noexcept { return &handle; }
    [[nodiscard]] Transport::AcceptedConnections& GetConnections() noexcept { return connections; }
    void SetTurnObserver(std::function<void()> observer) { turnObserver = std::move(observer); }

    void Post(std::function<void()> function);
    void Wake();
    void FlushAnswers();
    void DeliverEvents(std::optional<const void*> owner);
    void SetSubscriptionOwners(std::function<const void*(ConnectionId)> find);
    void EndSubscriptions(const void* owner);
    [[nodiscard]] ConnectionId GetCurrentConnection() const;

private:
    using Mutex = Transport::AcceptedConnections::Mutex;
    using Lock = std::unique_lock<Mutex>;

    struct Handle : UA_EventLoop
    {
        Implementation* owner{};
    };

    static Implementation& GetOwner(UA_EventLoop* loop)
    {
        // The library's type is not polymorphic, and every loop given to it here is of this class.
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast)
        return *static_cast<Handle*>(loop)->owner;
    }

    void FillLifecycle();
    void FillClock();
    void FillTimers();
    void FillDelayed();
    void FillSources();

    // Lifecycle
    void SetState(UA_EventLoopState state);
    UA_StatusCode Start();
    void Stop();
    void CheckStopped();
    UA_StatusCode Free();
    void FreeOtherSources();
    UA_StatusCode Register(UA_EventSource* source);
    UA_StatusCode Deregister(UA_EventSource* source);
    void Unlink(UA_EventSource* source);

    // One turn of the loop
    UA_StatusCode Run(std::chrono::milliseconds timeout);
    void Turn(std::chrono::milliseconds timeout);
    bool RunDueTimers(); // true if there were any
    bool RunDelayed();   // likewise
    void RunHandlers(std::chrono::milliseconds timeout);
    void RunAnswers();
    void RunDelivery();
    void RunEnding();
    void RunObserver();
    [[nodiscard]] std::chrono::microseconds GetWait(std::chrono::milliseconds timeout);
    [[nodiscard]] bool IsOnLoopThread() const;

    // Timers and delayed callbacks
    UA_UInt64 AddCyclic(const LoopTimers::Callback& callback, const LoopTimers::Schedule& schedule);
    UA_UInt64 AddOnce(const LoopTimers::Callback& callback, UA_DateTime date);
    bool Modify(UA_UInt64 id, const LoopTimers::Schedule& schedule);
    void Remove(UA_UInt64 id);
    void AddDelayed(UA_DelayedCallback* callback);
    void RemoveDelayed(UA_DelayedCallback* callback);

    /// Runs what may throw for the library, or for the loop itself, which goes on.
    template <typename Function>
    UA_StatusCode Guard(const char* what, Function function);

    const UA_Logger& logger;
    Handle handle{};
    UA_KeyValueMap parameters{};

    boost::asio::io_context context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work;
    std::atomic<bool> waking = false; // a wake-up is on its way
    std::atomic<std::thread::id> loopThread{};

    mutable Mutex mutex; // the loop's lock, guards what follows
    Transport::AcceptedConnections connections;
    LoopTimers timers;
    LoopTimers::Id answers{}; // the cyclic callback that sends the results of asynchronous calls
    EventDelivery delivery;
    UA_DelayedCallback* delayed{};        // to be run in the next turn, in order
    UA_DelayedCallback* runningDelayed{}; // of these the ones that this turn has yet to run
    bool flushAnswers = false;
    bool running = false;

    std::function<void()> turnObserver; // loop thread
};

template <typename Function>
UA_StatusCode EventLoop::Implementation::Guard(const char* what, Function function)
{
    try {
        return function();
    } catch (const std::bad_alloc&) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_EVENTLOOP, "%s: out of memory", what);
        return UA_STATUSCODE_BADOUTOFMEMORY;
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_EVENTLOOP, "%s: %s", what, failure.what());
        return UA_STATUSCODE_BADINTERNALERROR;
    } catch (...) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_EVENTLOOP, "%s: failed for an unknown reason", what);
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

} // namespace Host
