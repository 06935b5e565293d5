#include "Network/EventLoop.h"

#include "Network/EventDelivery.h"
#include "Process/Process.h"
#include "Transport/Accepting/AcceptedConnections.h"
#include "Transport/Loop.h"
#include "Transport/LoopMutex.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Host {

using Transport::LoopLock;
using Transport::loopLock;

namespace {

UA_DateTime Now()
{
    return UA_DateTime_nowMonotonic();
}

void LendKeptDescriptors(const std::function<void()>& function)
{
    const KeptDescriptors kept;
    function();
}

} // namespace

/// The server's part in each turn of the loop: sends answers and events ahead of the library's
/// intervals.
class EventLoop::Implementation : private Transport::TurnPart
{
public:
    Implementation(const UA_Logger& logger, const ConnectionLimits& limits)
        : loop(logger, *this)
        , connections(loop, limits, &LendKeptDescriptors)
    {}

    [[nodiscard]] Transport::Loop& GetLoop() noexcept { return loop; }
    [[nodiscard]] Transport::AcceptedConnections& GetConnections() noexcept { return connections; }

    void FlushAnswers();
    void DeliverEvents(std::optional<const void*> owner);
    void SetSubscriptionOwners(std::function<const void*(ConnectionId)> find);
    void EndSubscriptions(const void* owner);
    void SetTurnObserver(std::function<void()> observer) { turnObserver = std::move(observer); }
    [[nodiscard]] ConnectionId GetCurrentConnection() const
    {
        return loop.IsOnLoopThread() ? connections.GetCurrent() : 0;
    }

private:
    [[nodiscard]] UA_DateTime GetNext(UA_DateTime now) override REQUIRES(loopLock);
    void AfterHandlers() override;
    void OnCyclicAdded(LoopTimers::Id id, UA_Callback function) override REQUIRES(loopLock);
    void OnRemoved(LoopTimers::Id id) override REQUIRES(loopLock);
    void OnFreed() override REQUIRES(loopLock);

    void RunAnswers();
    void RunDelivery();
    void RunEnding();
    void RunObserver();

    Transport::Loop loop;
    Transport::AcceptedConnections connections; // after the loop
    /// The cyclic callback that sends the results of asynchronous calls.
    LoopTimers::Id answers GUARDED_BY(loopLock){};
    EventDelivery delivery GUARDED_BY(loopLock);
    bool flushAnswers GUARDED_BY(loopLock) = false;
    std::function<void()> turnObserver; // loop thread
};

UA_DateTime EventLoop::Implementation::GetNext(UA_DateTime now)
{
    if (flushAnswers)
        return now;
    return delivery.GetNext(now).value_or(std::numeric_limits<UA_DateTime>::max());
}

void EventLoop::Implementation::AfterHandlers()
{
    RunAnswers();
    RunDelivery();
    RunEnding();
    RunObserver();
}

void EventLoop::Implementation::OnCyclicAdded(LoopTimers::Id id, UA_Callback function)
{
    if (const auto connection = GetCurrentConnection(); connection != 0)
        delivery.NoteCyclicCallback(id, function, connection);
    else if (answers == 0)
        answers = id;
}

void EventLoop::Implementation::OnRemoved(LoopTimers::Id id)
{
    delivery.Forget(id);
    if (answers == id)
        answers = 0; // a server that starts up again registers it anew
}

void EventLoop::Implementation::OnFreed()
{
    delivery = {};
    answers = 0;
}

void EventLoop::Implementation::RunAnswers()
{
    LoopLock lock(loop.GetMutex());
    if (!std::exchange(flushAnswers, false))
        return;
    const auto id = answers;
    lock.Unlock();
    loop.Call(id);
    lock.Relock();
}

void EventLoop::Implementation::RunDelivery()
{
    LoopLock lock(loop.GetMutex());
    for (const auto id : delivery.TakeReady(Now())) {
        const auto messages = connections.CountMessages();
        lock.Unlock();
        const bool isThere = loop.Call(id); // one before it may have removed it
        lock.Relock();
        if (isThere && connections.CountMessages() == messages)
            delivery.CountVainCall(id, Now());
    }
}

/// A part of the time only, since each call may sample what the subscription monitors.
void EventLoop::Implementation::RunEnding()
{
    constexpr UA_DateTime share = 1 * UA_DATETIME_MSEC;
    LoopLock lock(loop.GetMutex());
    const auto start = Now();
    if (!delivery.MayCallEnding(start))
        return;
    while (const auto id = delivery.FindEnding()) {
        lock.Unlock();
        loop.Call(*id); // is there as long as its subscription is
        lock.Relock();
        if (Now() - start >= share)
            return;
    }
}

void EventLoop::Implementation::RunObserver()
{
    if (!turnObserver)
        return;
    const auto observer = turnObserver; // it may set another one
    loop.Guard("Observing a turn of the loop", [&]() -> UA_StatusCode {
        observer();
        return UA_STATUSCODE_GOOD;
    });
}

void EventLoop::Implementation::FlushAnswers()
{
    const LoopLock lock(loop.GetMutex());
    flushAnswers = true;
}

void EventLoop::Implementation::DeliverEvents(std::optional<const void*> owner)
{
    const LoopLock lock(loop.GetMutex());
    if (owner)
        delivery.Request(*owner);
    else
        delivery.RequestAll();
    if (!loop.IsOnLoopThread())
        loop.Wake();
}

void EventLoop::Implementation::SetSubscriptionOwners(std::function<const void*(ConnectionId)> find)
{
    const LoopLock lock(loop.GetMutex());
    delivery.SetOwners(std::move(find));
}

void EventLoop::Implementation::EndSubscriptions(const void* owner)
{
    const LoopLock lock(loop.GetMutex());
    delivery.End(owner);
}

// The operations of the loop

EventLoop::EventLoop(const UA_Logger& logger, const ConnectionLimits& limits)
    : implementation(std::make_unique<Implementation>(logger, limits))
{}

EventLoop::~EventLoop() = default;

UA_EventLoop* EventLoop::GetHandle() noexcept
{
    return &implementation->GetLoop().GetHandle();
}

void EventLoop::Post(std::function<void()> function)
{
    implementation->GetLoop().Post(std::move(function));
}

void EventLoop::Wake()
{
    implementation->GetLoop().Wake();
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

Transport::Traffic EventLoop::GetTraffic() const
{
    return implementation->GetConnections().GetTraffic();
}

bool EventLoop::IsMemoryBrakeOn() const
{
    return implementation->GetConnections().IsMemoryBrakeOn();
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

void EventLoop::CloseConnection(ConnectionId connection)
{
    static_cast<void>(implementation->GetConnections().CloseConnection(connection));
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

void EventLoop::SetClosedObserver(std::function<void(ConnectionId)> observer)
{
    implementation->GetConnections().SetClosedObserver(std::move(observer));
}

void EventLoop::SetMemoryBrake(std::function<bool()> isMemoryShort)
{
    implementation->GetConnections().SetMemoryBrake(std::move(isMemoryShort));
}

} // namespace Host
