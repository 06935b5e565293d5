#include "Network/EventLoop.h"

#include "Network/EventLoopImplementation.h"
#include "Process/Process.h"

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

EventLoop::Implementation::Implementation(const UA_Logger& logger, const ConnectionLimits& limits)
    : logger(logger)
    , work(context.get_executor())
    , connections(context, mutex, logger, limits, [](const std::function<void()>& accept) {
        const KeptDescriptors kept;
        accept();
    })
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
    RunObserver();
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

void EventLoop::Implementation::RunObserver()
{
    if (!turnObserver)
        return;
    const auto observer = turnObserver; // it may set another one
    Guard("Observing a turn of the loop", [&]() -> UA_StatusCode {
        observer();
        return UA_STATUSCODE_GOOD;
    });
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

void EventLoop::SetTurnObserver(std::function<void()> observer)
{
    implementation->SetTurnObserver(std::move(observer));
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

EventLoop::Output EventLoop::GetOutput(ConnectionId connection) const
{
    return implementation->GetConnections().GetOutput(connection);
}

OpcUa::MessageObserver& EventLoop::GetMessageObserver() noexcept
{
    return implementation->GetConnections();
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
