#include "Transport/Loop.h"

#include <open62541/plugin/log.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace Transport {

namespace asio = boost::asio;

namespace {

UA_DateTime Now()
{
    return UA_DateTime_nowMonotonic();
}

std::chrono::microseconds ToDuration(UA_DateTime ticks)
{
    return std::chrono::microseconds{ticks / UA_DATETIME_USEC};
}

} // namespace

Loop::Loop(const UA_Logger& logger, TurnPart& part, std::size_t handlersPerTurn)
    : logger(logger)
    , part(part)
    , handlersPerTurn(handlersPerTurn)
    , guard(context.get_executor())
{
    handle.owner = this;
    handle.logger = &logger;
    handle.params = &parameters;
    FillLifecycle();
    FillLock();
    FillClock();
    FillTimers();
    FillCyclic();
    FillDelayed();
    FillSources();
}

UA_StatusCode Loop::Guard(const char* what, const std::function<UA_StatusCode()>& function) const
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

// Lifecycle

void Loop::SetState(UA_EventLoopState state)
{
    // The member is constant for those who use the loop; the loop itself sets it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    const_cast<volatile UA_EventLoopState&>(handle.state) = state;
}

UA_StatusCode Loop::Start()
{
    LoopLock lock(mutex);
    if (handle.state != UA_EVENTLOOPSTATE_FRESH && handle.state != UA_EVENTLOOPSTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    SetState(UA_EVENTLOOPSTATE_STARTED);
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    for (auto* source = handle.eventSources; source != nullptr; source = source->next) {
        lock.Unlock();
        const auto started = source->start(source);
        lock.Relock();
        if (started != UA_STATUSCODE_GOOD)
            status = started;
    }
    return status;
}

void Loop::Stop()
{
    LoopLock lock(mutex);
    if (handle.state != UA_EVENTLOOPSTATE_STARTED)
        return;
    SetState(UA_EVENTLOOPSTATE_STOPPING);
    for (auto* source = handle.eventSources; source != nullptr; source = source->next) {
        lock.Unlock();
        source->stop(source);
        lock.Relock();
    }
    CheckStopped();
}

void Loop::CheckStopped()
{
    if (handle.state != UA_EVENTLOOPSTATE_STOPPING || !delayed.IsEmpty())
        return;
    for (auto* source = handle.eventSources; source != nullptr; source = source->next) {
        if (source->state != UA_EVENTSOURCESTATE_STOPPED)
            return;
    }
    SetState(UA_EVENTLOOPSTATE_STOPPED);
}

UA_StatusCode Loop::Free()
{
    if (handle.state != UA_EVENTLOOPSTATE_FRESH && handle.state != UA_EVENTLOOPSTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    RunAllDelayed(); // a server that is deleted leaves the freeing of its sessions to these
    const LoopLock lock(mutex);
    timers = {};
    part.OnFreed();
    FreeOtherSources();
    return UA_STATUSCODE_GOOD;
}

void Loop::RunAllDelayed()
{
    while (RunDelayed()) {
    }
}

void Loop::FreeOtherSources()
{
    for (auto* source = handle.eventSources; source != nullptr;) {
        auto* next = source->next;
        if (std::find(ownSources.begin(), ownSources.end(), source) == ownSources.end()) {
            Unlink(*source);
            source->free(source);
        }
        source = next;
    }
}

void Loop::AddOwnSource(UA_EventSource& source)
{
    ownSources.push_back(&source);
    Register(source);
}

UA_StatusCode Loop::Register(UA_EventSource& source)
{
    const LoopLock lock(mutex);
    if (source.state != UA_EVENTSOURCESTATE_FRESH)
        return UA_STATUSCODE_BADINTERNALERROR;
    source.next = std::exchange(handle.eventSources, &source);
    source.eventLoop = &handle;
    source.state = UA_EVENTSOURCESTATE_STOPPED;
    return handle.state == UA_EVENTLOOPSTATE_STARTED ? source.start(&source) : UA_STATUSCODE_GOOD;
}

UA_StatusCode Loop::Deregister(UA_EventSource& source)
{
    const LoopLock lock(mutex);
    if (source.state != UA_EVENTSOURCESTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    Unlink(source);
    return UA_STATUSCODE_GOOD;
}

void Loop::Unlink(UA_EventSource& source)
{
    auto** link = &handle.eventSources;
    while (*link != nullptr && *link != &source)
        link = &(*link)->next;
    if (*link != nullptr)
        *link = source.next;
    source.state = UA_EVENTSOURCESTATE_FRESH;
}

// One turn of the loop

UA_StatusCode Loop::Run(std::chrono::milliseconds timeout)
{
    {
        const LoopLock lock(mutex);
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
    const LoopLock lock(mutex);
    running = false;
    loopThread = std::thread::id{};
    CheckStopped();
    return status;
}

void Loop::Turn(std::chrono::milliseconds timeout)
{
    const auto ranTimers = RunDueTimers();
    const auto ranDelayed = RunDelayed();
    const auto didWork = DoWork();
    part.BeforeWaiting();
    // Whoever runs the loop may have something to do about what has happened: no waiting then.
    const auto hasHappened = ranTimers || ranDelayed || didWork;
    RunHandlers(hasHappened ? std::chrono::milliseconds::zero() : timeout);
    part.AfterHandlers();
}

bool Loop::RunDueTimers()
{
    LoopLock lock(mutex);
    const auto now = Now();
    auto ran = false;
    // A callback that adds another one already due must not keep the loop here.
    for (auto left = timers.Count(); left > 0; --left) {
        const auto callback = timers.TakeDue(now);
        if (!callback)
            break;
        ran = true;
        lock.Unlock();
        (*callback)();
        lock.Relock();
    }
    return ran;
}

bool Loop::RunDelayed()
{
    LoopLock lock(mutex);
    const auto ran = delayed.BeginTurn();
    while (auto* const callback = delayed.TakeNext()) {
        if (callback->callback == nullptr)
            continue;
        lock.Unlock();
        callback->callback(callback->application, callback->context);
        lock.Relock();
    }
    return ran;
}

bool Loop::DoWork()
{
    {
        const LoopLock lock(mutex);
        if (!HasWork())
            return false;
    }
    work->DoPiece();
    return true;
}

void Loop::RunHandlers(std::chrono::milliseconds timeout)
{
    const auto wait = GetWait(timeout);
    auto ran = wait.count() > 0 ? context.run_one_for(wait) : context.poll_one();
    for (auto left = handlersPerTurn; ran > 0 && left > 1; --left)
        ran = context.poll_one();
}

std::chrono::microseconds Loop::GetWait(std::chrono::milliseconds timeout)
{
    const LoopLock lock(mutex);
    if (!delayed.IsEmpty() || HasWork())
        return {};
    const auto now = Now();
    const auto next = std::min(timers.GetNext(), part.GetNext(now));
    const std::chrono::microseconds longest = timeout;
    return next > now + longest.count() * UA_DATETIME_USEC ? longest
                                                           : ToDuration(std::max(next - now, {}));
}

bool Loop::IsOnLoopThread() const
{
    return loopThread == std::this_thread::get_id();
}

bool Loop::Call(LoopTimers::Id id)
{
    std::optional<LoopTimers::Callback> callback;
    {
        const LoopLock lock(mutex);
        callback = timers.Find(id);
    }
    if (callback)
        (*callback)();
    return callback.has_value();
}

// Timers and delayed callbacks

LoopTimers::Id Loop::AddCyclic(const LoopTimers::Callback& callback,
                               const LoopTimers::Schedule& schedule)
{
    const LoopLock lock(mutex);
    const auto id = timers.AddCyclic(callback, schedule, Now());
    part.OnCyclicAdded(id, callback.function);
    WakeFromElsewhere();
    return id;
}

LoopTimers::Id Loop::AddOnce(const LoopTimers::Callback& callback, UA_DateTime date)
{
    const LoopLock lock(mutex);
    const auto id = timers.AddOnce(callback, date);
    WakeFromElsewhere();
    return id;
}

bool Loop::Modify(LoopTimers::Id id, const LoopTimers::Schedule& schedule)
{
    const LoopLock lock(mutex);
    if (!timers.Modify(id, schedule, Now()))
        return false;
    WakeFromElsewhere();
    return true;
}

void Loop::Remove(LoopTimers::Id id)
{
    const LoopLock lock(mutex);
    timers.Remove(id);
    part.OnRemoved(id);
}

void Loop::AddDelayed(UA_DelayedCallback& callback)
{
    const LoopLock lock(mutex);
    delayed.Add(callback);
    WakeFromElsewhere();
}

void Loop::RemoveDelayed(const UA_DelayedCallback& callback)
{
    const LoopLock lock(mutex);
    delayed.Remove(callback);
}

/// On its own thread the loop looks at what was added before it waits.
void Loop::WakeFromElsewhere()
{
    if (!IsOnLoopThread())
        Wake();
}

void Loop::Post(std::function<void()> function)
{
    asio::post(context, [this, function = std::move(function)] {
        Guard("A function given to the loop", [&]() -> UA_StatusCode {
            function();
            return UA_STATUSCODE_GOOD;
        });
    });
}

void Loop::Wake()
{
    if (!waking.exchange(true))
        asio::post(context, [this] { waking = false; });
}

} // namespace Transport
