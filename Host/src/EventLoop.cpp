#include "EventLoop.h"

#include "Asio.h"
#include "EventDelivery.h"
#include "LoopTimers.h"
#include "TcpConnections.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace Host {

namespace asio = boost::asio;

namespace {

/// As many handlers as run in one turn, so that timers stay punctual under load.
constexpr std::size_t handlersPerTurn = 16;

UA_DateTime Now()
{
    return UA_DateTime_nowMonotonic();
}

std::chrono::microseconds ToDuration(UA_DateTime ticks)
{
    return std::chrono::microseconds{ticks / UA_DATETIME_USEC};
}

} // namespace

class EventLoop::Implementation
{
public:
    Implementation(const UA_Logger& logger, const ConnectionLimits& limits);

    [[nodiscard]] UA_EventLoop* GetHandle() noexcept { return &handle; }
    [[nodiscard]] TcpConnections& GetConnections() noexcept { return connections; }

    void Post(std::function<void()> function);
    void Wake();
    void FlushAnswers();
    void DeliverEvents(std::optional<const void*> owner);
    void SetSubscriptionOwners(std::function<const void*(ConnectionId)> find);
    void EndSubscriptions(const void* owner);
    [[nodiscard]] ConnectionId GetCurrentConnection() const;

private:
    using Mutex = TcpConnections::Mutex;
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

    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work;
    std::atomic<bool> waking = false; // a wake-up is on its way
    std::atomic<std::thread::id> loopThread{};

    mutable Mutex mutex; // the loop's lock, guards what follows
    TcpConnections connections;
    LoopTimers timers;
    LoopTimers::Id answers{}; // the cyclic callback that sends the results of asynchronous calls
    EventDelivery delivery;
    UA_DelayedCallback* delayed{};        // to be run in the next turn, in order
    UA_DelayedCallback* runningDelayed{}; // of these the ones that this turn has yet to run
    bool flushAnswers = false;
    bool running = false;
};

EventLoop::Implementation::Implementation(const UA_Logger& logger, const ConnectionLimits& limits)
    : logger(logger)
    , work(context.get_executor())
    , connections(context, mutex, logger, limits)
{
    handle.owner = this;
    handle.logger = &logger;
    handle.params = &parameters;
    FillLifecycle();
    FillClock();
    FillTimers();
    FillDelayed();
    FillSources();
    Register(&connections.GetManager().eventSource);
}

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

// What the library calls

void EventLoop::Implementation::FillLifecycle()
{
    handle.start = [](UA_EventLoop* self) {
        return GetOwner(self).Start();
    };
    handle.stop = [](UA_EventLoop* self) {
        auto& owner = GetOwner(self);
        owner.Guard("Stopping the loop", [&]() -> UA_StatusCode {
            owner.Stop();
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.run = [](UA_EventLoop* self, UA_UInt32 timeout) {
        return GetOwner(self).Run(std::chrono::milliseconds{timeout});
    };
    handle.free = [](UA_EventLoop* self) {
        return GetOwner(self).Free();
    };
    handle.lock = [](UA_EventLoop* self) {
        GetOwner(self).mutex.lock();
    };
    handle.unlock = [](UA_EventLoop* self) {
        GetOwner(self).mutex.unlock();
    };
}

void EventLoop::Implementation::FillClock()
{
    handle.dateTime_now = [](UA_EventLoop*) {
        return UA_DateTime_now();
    };
    handle.dateTime_nowMonotonic = [](UA_EventLoop*) {
        return Now();
    };
    handle.dateTime_localTimeUtcOffset = [](UA_EventLoop*) {
        return UA_DateTime_localTimeUtcOffset();
    };
}

namespace {

std::optional<LoopTimers::Schedule> ToSchedule(UA_Double milliseconds, const UA_DateTime* base,
                                               UA_TimerPolicy policy)
{
    const auto interval = LoopTimers::ToInterval(milliseconds);
    if (!interval)
        return std::nullopt;
    return LoopTimers::Schedule{*interval, base == nullptr ? std::nullopt : std::optional(*base),
                                policy};
}

void SetIfWanted(UA_UInt64* target, UA_UInt64 value)
{
    if (target != nullptr)
        *target = value;
}

} // namespace

void EventLoop::Implementation::FillTimers()
{
    handle.nextCyclicTime = [](UA_EventLoop* self) {
        auto& owner = GetOwner(self);
        const Lock lock(owner.mutex);
        return owner.timers.GetNext();
    };
    handle.addCyclicCallback = [](UA_EventLoop* self, UA_Callback function, void* application,
                                  void* data, UA_Double interval, UA_DateTime* base,
                                  UA_TimerPolicy policy, UA_UInt64* id) {
        auto& owner = GetOwner(self);
        return owner.Guard("Adding a cyclic callback", [&]() -> UA_StatusCode {
            const auto schedule = ToSchedule(interval, base, policy);
            if (!schedule || function == nullptr)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            SetIfWanted(id, owner.AddCyclic({function, application, data}, *schedule));
            return UA_STATUSCODE_GOOD;
        });
    };
    handle.modifyCyclicCallback = [](UA_EventLoop* self, UA_UInt64 id, UA_Double interval,
                                     UA_DateTime* base, UA_TimerPolicy policy) {
        auto& owner = GetOwner(self);
        return owner.Guard("Changing a cyclic callback", [&]() -> UA_StatusCode {
            const auto schedule = ToSchedule(interval, base, policy);
            if (!schedule)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            return owner.Modify(id, *schedule) ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADNOTFOUND;
        });
    };
    handle.removeCyclicCallback = [](UA_EventLoop* self, UA_UInt64 id) {
        GetOwner(self).Remove(id);
    };
    handle.addTimedCallback = [](UA_EventLoop* self, UA_Callback function, void* application,
                                 void* data, UA_DateTime date, UA_UInt64* id) {
        auto& owner = GetOwner(self);
        return owner.Guard("Adding a timed callback", [&]() -> UA_StatusCode {
            if (function == nullptr)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            SetIfWanted(id, owner.AddOnce({function, application, data}, date));
            return UA_STATUSCODE_GOOD;
        });
    };
}

void EventLoop::Implementation::FillDelayed()
{
    handle.addDelayedCallback = [](UA_EventLoop* self, UA_DelayedCallback* callback) {
        GetOwner(self).AddDelayed(callback);
    };
    handle.removeDelayedCallback = [](UA_EventLoop* self, UA_DelayedCallback* callback) {
        GetOwner(self).RemoveDelayed(callback);
    };
}

void EventLoop::Implementation::FillSources()
{
    handle.registerEventSource = [](UA_EventLoop* self, UA_EventSource* source) {
        return GetOwner(self).Register(source);
    };
    handle.deregisterEventSource = [](UA_EventLoop* self, UA_EventSource* source) {
        return GetOwner(self).Deregister(source);
    };
}

// Lifecycle

void EventLoop::Implementation::SetState(UA_EventLoopState state)
{
    // The member is constant for those who use the loop; the loop itself is who sets it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    const_cast<volatile UA_EventLoopState&>(handle.state) = state;
}

UA_StatusCode EventLoop::Implementation::Start()
{
    Lock lock(mutex);
    if (handle.state != UA_EVENTLOOPSTATE_FRESH && handle.state != UA_EVENTLOOPSTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    SetState(UA_EVENTLOOPSTATE_STARTED);
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    for (auto* source = handle.eventSources; source != nullptr; source = source->next) {
        lock.unlock();
        const auto started = source->start(source);
        lock.lock();
        if (started != UA_STATUSCODE_GOOD)
            status = started;
    }
    return status;
}

void EventLoop::Implementation::Stop()
{
    Lock lock(mutex);
    if (handle.state != UA_EVENTLOOPSTATE_STARTED)
        return;
    SetState(UA_EVENTLOOPSTATE_STOPPING);
    for (auto* source = handle.eventSources; source != nullptr; source = source->next) {
        lock.unlock();
        source->stop(source);
        lock.lock();
    }
    CheckStopped();
}

void EventLoop::Implementation::CheckStopped()
{
    if (handle.state != UA_EVENTLOOPSTATE_STOPPING || delayed != nullptr)
        return;
    for (auto* source = handle.eventSources; source != nullptr; source = source->next) {
        if (source->state != UA_EVENTSOURCESTATE_STOPPED)
            return;
    }
    SetState(UA_EVENTLOOPSTATE_STOPPED);
}

UA_StatusCode EventLoop::Implementation::Free()
{
    if (handle.state != UA_EVENTLOOPSTATE_FRESH && handle.state != UA_EVENTLOOPSTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    // A server that is deleted leaves the freeing of its sessions to these.
    while (RunDelayed()) {
    }
    const Lock lock(mutex);
    timers = {};
    delivery = {};
    answers = 0;
    FreeOtherSources();
    return UA_STATUSCODE_GOOD;
}

void EventLoop::Implementation::FreeOtherSources()
{
    auto* own = &connections.GetManager().eventSource;
    for (auto* source = handle.eventSources; source != nullptr;) {
        auto* next = source->next;
        if (source != own) {
            Unlink(source);
            source->free(source);
        }
        source = next;
    }
}

UA_StatusCode EventLoop::Implementation::Register(UA_EventSource* source)
{
    const Lock lock(mutex);
    if (source->state != UA_EVENTSOURCESTATE_FRESH)
        return UA_STATUSCODE_BADINTERNALERROR;
    source->next = std::exchange(handle.eventSources, source);
    source->eventLoop = &handle;
    source->state = UA_EVENTSOURCESTATE_STOPPED;
    return handle.state == UA_EVENTLOOPSTATE_STARTED ? source->start(source) : UA_STATUSCODE_GOOD;
}

UA_StatusCode EventLoop::Implementation::Deregister(UA_EventSource* source)
{
    const Lock lock(mutex);
    if (source->state != UA_EVENTSOURCESTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    Unlink(source);
    return UA_STATUSCODE_GOOD;
}

void EventLoop::Implementation::Unlink(UA_EventSource* source)
{
    auto** link = &handle.eventSources;
    while (*link != nullptr && *link != source)
        link = &(*link)->next;
    if (*link != nullptr)
        *link = source->next;
    source->state = UA_EVENTSOURCESTATE_FRESH;
}

// One turn of the loop

UA_StatusCode EventLoop::Implementation::Run(std::chrono::milliseconds timeout)
{
    {
        const Lock lock(mutex);
        if (running || handle.state == UA_EVENTLOOPSTATE_FRESH ||
            handle.state == UA_EVENTLOOPSTATE_STOPPED)
            return UA_STATUSCODE_BADINTERNALERROR;
        running = true;
        loopThread = std::this_thread::get_id();
    }
    const auto status = Guard("Running the loop", [&]() -> UA_StatusCode {
        Turn(timeout);
        return UA_STATUSCODE_GOOD;
    });
    const Lock lock(mutex);
    running = false;
    loopThread = std::thread::id{};
    CheckStopped();
    return status;
}

void EventLoop::Implementation::Turn(std::chrono::milliseconds timeout)
{
    const auto ranTimers = RunDueTimers();
    const auto ranDelayed = RunDelayed();
    // Whoever runs the loop may have something to do about what has happened: no waiting then.
    RunHandlers(ranTimers || ranDelayed ? std::chrono::milliseconds::zero() : timeout);
    RunAnswers();
    RunDelivery();
    RunEnding();
}

bool EventLoop::Implementation::RunDueTimers()
{
    Lock lock(mutex);
    const auto now = Now();
    auto ran = false;
    // A callback that adds another one already due must not keep the loop here.
    for (auto left = timers.Count(); left > 0; --left) {
        const auto callback = timers.TakeDue(now);
        if (!callback)
            break;
        ran = true;
        lock.unlock();
        (*callback)();
        lock.lock();
    }
    return ran;
}

bool EventLoop::Implementation::RunDelayed()
{
    Lock lock(mutex);
    runningDelayed = std::exchange(delayed, nullptr);
    const auto ran = runningDelayed != nullptr;
    while (runningDelayed != nullptr) {
        // Calling it may free it, or remove one that follows.
        auto* callback = std::exchange(runningDelayed, runningDelayed->next);
        if (callback->callback == nullptr)
            continue;
        lock.unlock();
        callback->callback(callback->application, callback->context);
        lock.lock();
    }
    return ran;
}

void EventLoop::Implementation::RunHandlers(std::chrono::milliseconds timeout)
{
    const auto wait = GetWait(timeout);
    auto ran = wait.count() > 0 ? context.run_one_for(wait) : context.poll_one();
    for (auto left = handlersPerTurn; ran > 0 && left > 1; --left)
        ran = context.poll_one();
}

std::chrono::microseconds EventLoop::Implementation::GetWait(std::chrono::milliseconds timeout)
{
    const Lock lock(mutex);
    if (delayed != nullptr || flushAnswers)
        return {};
    const auto now = Now();
    auto next = timers.GetNext();
    if (const auto delivering = delivery.GetNext(now))
        next = std::min(next, *delivering);
    const std::chrono::microseconds longest = timeout;
    return next > now + longest.count() * UA_DATETIME_USEC ? longest
                                                           : ToDuration(std::max(next - now, {}));
}

void EventLoop::Implementation::RunAnswers()
{
    Lock lock(mutex);
    if (!std::exchange(flushAnswers, false))
        return;
    const auto callback = timers.Find(answers);
    lock.unlock();
    if (callback)
        (*callback)();
}

void EventLoop::Implementation::RunDelivery()
{
    Lock lock(mutex);
    for (const auto id : delivery.TakeReady(Now())) {
        const auto callback = timers.Find(id); // one before it may have removed it
        if (!callback)
            continue;
        const auto messages = connections.CountMessages();
        lock.unlock();
        (*callback)();
        lock.lock();
        if (connections.CountMessages() == messages)
            delivery.CountVainCall(id, Now());
    }
}

/// A part of the time only, since each call may sample what the subscription monitors.
void EventLoop::Implementation::RunEnding()
{
    constexpr UA_DateTime share = 1 * UA_DATETIME_MSEC;
    Lock lock(mutex);
    const auto start = Now();
    if (!delivery.MayCallEnding(start))
        return;
    while (const auto id = delivery.FindEnding()) {
        const auto callback = timers.Find(*id); // is there as long as its subscription is
        lock.unlock();
        (*callback)();
        lock.lock();
        if (Now() - start >= share)
            return;
    }
}

bool EventLoop::Implementation::IsOnLoopThread() const
{
    return loopThread == std::this_thread::get_id();
}

// Timers and delayed callbacks

UA_UInt64 EventLoop::Implementation::AddCyclic(const LoopTimers::Callback& callback,
                                               const LoopTimers::Schedule& schedule)
{
    const Lock lock(mutex);
    const auto id = timers.AddCyclic(callback, schedule, Now());
    if (const auto connection = GetCurrentConnection(); connection != 0)
        delivery.NoteCyclicCallback(id, callback.function, connection);
    else if (answers == 0)
        answers = id;
    if (!IsOnLoopThread())
        Wake();
    return id;
}

UA_UInt64 EventLoop::Implementation::AddOnce(const LoopTimers::Callback& callback, UA_DateTime date)
{
    const Lock lock(mutex);
    const auto id = timers.AddOnce(callback, date);
    if (!IsOnLoopThread())
        Wake();
    return id;
}

bool EventLoop::Implementation::Modify(UA_UInt64 id, const LoopTimers::Schedule& schedule)
{
    const Lock lock(mutex);
    if (!timers.Modify(id, schedule, Now()))
        return false;
    if (!IsOnLoopThread())
        Wake();
    return true;
}

void EventLoop::Implementation::Remove(UA_UInt64 id)
{
    const Lock lock(mutex);
    timers.Remove(id);
    delivery.Forget(id);
    if (answers == id)
        answers = 0; // a server that starts up again registers it anew
}

void EventLoop::Implementation::AddDelayed(UA_DelayedCallback* callback)
{
    const Lock lock(mutex);
    auto** link = &delayed;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = callback;
    callback->next = nullptr;
    if (!IsOnLoopThread())
        Wake();
}

void EventLoop::Implementation::RemoveDelayed(UA_DelayedCallback* callback)
{
    const Lock lock(mutex);
    for (auto** link : {&delayed, &runningDelayed}) {
        while (*link != nullptr && *link != callback)
            link = &(*link)->next;
        if (*link != nullptr) {
            *link = callback->next;
            return;
        }
    }
}

// What the host calls

void EventLoop::Implementation::Post(std::function<void()> function)
{
    asio::post(context, [this, function = std::move(function)] {
        Guard("A function given to the loop", [&]() -> UA_StatusCode {
            function();
            return UA_STATUSCODE_GOOD;
        });
    });
}

void EventLoop::Implementation::Wake()
{
    if (!waking.exchange(true))
        asio::post(context, [this] { waking = false; });
}

void EventLoop::Implementation::FlushAnswers()
{
    const Lock lock(mutex);
    flushAnswers = true;
}

void EventLoop::Implementation::DeliverEvents(std::optional<const void*> owner)
{
    const Lock lock(mutex);
    if (owner)
        delivery.Request(*owner);
    else
        delivery.RequestAll();
    if (!IsOnLoopThread())
        Wake();
}

void EventLoop::Implementation::SetSubscriptionOwners(std::function<const void*(ConnectionId)> find)
{
    const Lock lock(mutex);
    delivery.SetOwners(std::move(find));
}

void EventLoop::Implementation::EndSubscriptions(const void* owner)
{
    const Lock lock(mutex);
    delivery.End(owner);
}

ConnectionId EventLoop::Implementation::GetCurrentConnection() const
{
    return IsOnLoopThread() ? connections.GetCurrent() : 0;
}

EventLoop::EventLoop(const UA_Logger& logger, const ConnectionLimits& limits)
    : implementation(std::make_unique<Implementation>(logger, limits))
{}

EventLoop::~EventLoop() = default;

UA_EventLoop* EventLoop::GetHandle() noexcept
{
    return implementation->GetHandle();
}

void EventLoop::Post(std::function<void()> function)
{
    implementation->Post(std::move(function));
}

void EventLoop::Wake()
{
    implementation->Wake();
}

void EventLoop::FlushAnswers()
{
    implementation->FlushAnswers();
}

void EventLoop::DeliverEvents()
{
    implementation->DeliverEvents(std::nullopt);
}

void EventLoop::DeliverEvents(const void* owner)
{
    implementation->DeliverEvents(owner);
}

void EventLoop::SetSubscriptionOwners(std::function<const void*(ConnectionId)> find)
{
    implementation->SetSubscriptionOwners(std::move(find));
}

void EventLoop::EndSubscriptions(const void* owner)
{
    implementation->EndSubscriptions(owner);
}

ConnectionId EventLoop::GetCurrentConnection() const
{
    return implementation->GetCurrentConnection();
}

std::optional<ConnectionInfo> EventLoop::GetConnection(ConnectionId connection) const
{
    return implementation->GetConnections().Get(connection);
}

std::size_t EventLoop::CountConnections() const
{
    return implementation->GetConnections().Count();
}

std::uint64_t EventLoop::CountBytes() const
{
    return implementation->GetConnections().CountBytes();
}

std::vector<ListeningSocket> EventLoop::GetListenAddresses() const
{
    return implementation->GetConnections().GetListenAddresses();
}

void EventLoop::HoldConnection(ConnectionId connection, bool isHeld)
{
    implementation->GetConnections().Hold(connection, isHeld);
}

void EventLoop::CloseAbandonedConnections()
{
    implementation->GetConnections().CloseAbandoned();
}

void EventLoop::MarkAdmitted(ConnectionId connection, bool isAdmitted)
{
    implementation->GetConnections().MarkAdmitted(connection, isAdmitted);
}

void EventLoop::CloseOverdueConnections()
{
    implementation->GetConnections().CloseOverdue();
}

void EventLoop::CloseConnection(ConnectionId connection)
{
    implementation->GetConnections().Close(connection);
}

void EventLoop::SetClosedObserver(std::function<void(ConnectionId)> observer)
{
    implementation->GetConnections().SetClosedObserver(std::move(observer));
}

void EventLoop::SetMemoryBrake(std::function<bool()> isMemoryShort)
{
    implementation->GetConnections().SetBrake(std::move(isMemoryShort));
}

} // namespace Host
