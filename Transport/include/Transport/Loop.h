#pragma once

#include "Transport/Asio.h"
#include "Transport/DelayedCallbacks.h"
#include "Transport/LoopMutex.h"
#include "Transport/LoopTimers.h"

#include <open62541/plugin/eventloop.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace Transport {

/// The part that a program has in each turn of its loop. Called on the thread that runs the loop,
/// without the loop's lock where nothing else is said.
class TurnPart
{
public:
    TurnPart() = default;
    TurnPart(const TurnPart&) = delete;
    TurnPart& operator=(const TurnPart&) = delete;
    virtual ~TurnPart() = default;

    /// Called before the loop waits.
    virtual void BeforeWaiting() {}
    /// Returns when the loop has to go on at the latest, in the time of its clock; the highest date
    /// if nothing waits for it. With the lock held.
    [[nodiscard]] virtual UA_DateTime GetNext(UA_DateTime now) REQUIRES(loopLock) = 0;
    /// Called at the end of the turn.
    virtual void AfterHandlers() {}

    /// A cyclic callback was added, by any thread. With the lock held.
    virtual void OnCyclicAdded(LoopTimers::Id /*id*/, UA_Callback /*function*/) REQUIRES(loopLock)
    {}
    /// A callback was removed, by any thread. With the lock held.
    virtual void OnRemoved(LoopTimers::Id /*id*/) REQUIRES(loopLock) {}
    /// All callbacks are forgotten, by whoever frees the loop. With the lock held.
    virtual void OnFreed() REQUIRES(loopLock) {}
};

/// Work of which the loop does one piece in each turn. The loop's handlers run between two pieces,
/// so that what happens meanwhile can change which piece is next.
class TurnWork
{
public:
    TurnWork() = default;
    TurnWork(const TurnWork&) = delete;
    TurnWork& operator=(const TurnWork&) = delete;
    virtual ~TurnWork() = default;

    /// Returns true if there is something to do.
    [[nodiscard]] virtual bool IsWaiting() const REQUIRES(loopLock) = 0;
    /// Called on the thread that runs the loop, without the lock, when there was something to do.
    virtual void DoPiece() = 0;
};

/// The event loop as the OPC UA library knows it: its states, clock, timers, delayed callbacks and
/// event sources. Handlers of Boost.Asio run in its turns.
///
/// Threads: the handle's operations are for any thread, other than `start`, `stop`, `run` and
/// `free`, which are for the thread that runs the loop; so are `Post` and `Wake`. The lock is never
/// held while callbacks, posted functions and handlers run. It may be taken with the lock of a
/// server or a client held, never the other way round.
class Loop
{
public:
    /// As many handlers as run in one turn unless the constructor says otherwise: timers stay
    /// punctual under load.
    static constexpr std::size_t usualHandlers = 16;

    /// `logger` and `part` must outlive the loop. The logger is called with the lock held, and may
    /// not call the loop. Throws boost::system::system_error when there is no descriptor left.
    Loop(const UA_Logger& logger, TurnPart& part, std::size_t handlersPerTurn = usualHandlers);
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    /// REQUIRES: it is not run any more. Posted functions that wait are dropped without being run.
    ~Loop() = default;

    [[nodiscard]] UA_EventLoop& GetHandle() noexcept { return handle; }
    [[nodiscard]] boost::asio::io_context& GetContext() noexcept { return context; }
    [[nodiscard]] LoopMutex& GetMutex() const noexcept { return mutex; }
    [[nodiscard]] const UA_Logger& GetLogger() const noexcept { return logger; }

    /// Runs the function on the loop's thread, soon, in the order in which a thread posts. What it
    /// throws is logged. A loop that is not run keeps it until it is.
    void Post(std::function<void()> function);

    /// Makes a `run` that waits return, or the next one not wait.
    void Wake();

    /// Returns true on the thread that runs the loop, while it runs it.
    [[nodiscard]] bool IsOnLoopThread() const;

    /// Calls a callback ahead of its time. Returns false if there is none of that id.
    bool Call(LoopTimers::Id id);

    /// Adds an event source that is not to be freed with the loop, but lives as long as it.
    void AddOwnSource(UA_EventSource& source);

    /// Adds work, which must live as long as the loop is run. REQUIRES: there is none yet.
    void AddWork(TurnWork& added) noexcept { work = &added; }

    /// Runs what may throw for the library, or for the loop itself, which goes on.
    UA_StatusCode Guard(const char* what, const std::function<UA_StatusCode()>& function) const;

    /// Runs the delayed callbacks that are left, also those that these add.
    void RunAllDelayed();

private:
    struct Handle : UA_EventLoop
    {
        Loop* owner{};
    };

    static Loop& GetOwner(UA_EventLoop* loop);
    void FillLifecycle();
    void FillLock();
    void FillClock();
    void FillTimers();
    void FillCyclic();
    void FillDelayed();
    void FillSources();

    // Lifecycle
    void SetState(UA_EventLoopState state) REQUIRES(loopLock);
    UA_StatusCode Start();
    void Stop();
    void CheckStopped() REQUIRES(loopLock);
    UA_StatusCode Free();
    void FreeOtherSources() REQUIRES(loopLock);
    UA_StatusCode Register(UA_EventSource& source);
    UA_StatusCode Deregister(UA_EventSource& source);
    void Unlink(UA_EventSource& source) REQUIRES(loopLock);

    // One turn
    UA_StatusCode Run(std::chrono::milliseconds timeout);
    void Turn(std::chrono::milliseconds timeout);
    bool RunDueTimers(); // returns true if there were any
    bool RunDelayed();   // likewise
    bool DoWork();       // likewise
    void RunHandlers(std::chrono::milliseconds timeout);
    [[nodiscard]] std::chrono::microseconds GetWait(std::chrono::milliseconds timeout);
    [[nodiscard]] bool HasWork() const REQUIRES(loopLock)
    {
        return work != nullptr && work->IsWaiting();
    }

    // Timers and delayed callbacks
    LoopTimers::Id AddCyclic(const LoopTimers::Callback& callback,
                             const LoopTimers::Schedule& schedule);
    LoopTimers::Id AddOnce(const LoopTimers::Callback& callback, UA_DateTime date);
    bool Modify(LoopTimers::Id id, const LoopTimers::Schedule& schedule);
    void Remove(LoopTimers::Id id);
    void AddDelayed(UA_DelayedCallback& callback);
    void RemoveDelayed(const UA_DelayedCallback& callback);
    void WakeFromElsewhere();

    const UA_Logger& logger;
    TurnPart& part;
    TurnWork* work = nullptr;
    const std::size_t handlersPerTurn;
    Handle handle{}; // the lock guards its state and its list of event sources
    UA_KeyValueMap parameters{};
    std::vector<UA_EventSource*> ownSources;

    // The handlers that are left when it ends go before what they refer to.
    boost::asio::io_context context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard;
    std::atomic<bool> waking = false; // a wake-up is on its way
    std::atomic<std::thread::id> loopThread{};

    mutable LoopMutex mutex;
    LoopTimers timers GUARDED_BY(loopLock);
    DelayedCallbacks delayed GUARDED_BY(loopLock);
    bool running GUARDED_BY(loopLock) = false;
};

} // namespace Transport
