#include "Transport/Accepting/BrakeWatch.h"

#include <open62541/plugin/log.h>

#include <chrono>
#include <exception>
#include <utility>

#include <malloc.h>

namespace Transport {

namespace {

constexpr std::chrono::milliseconds checkInterval{50};

}

BrakeWatch::BrakeWatch(Loop& loop, const ConnectionLimits& limits, Owner owner)
    : loop(loop)
    , owner(std::move(owner))
    , brake(limits.brakeAllowance, limits.brakeRefill)
    , timer(loop.GetContext())
{}

void BrakeWatch::SetShortage(std::function<bool()> shortage)
{
    isMemoryShort = std::move(shortage);
}

bool BrakeWatch::MayRead(ConnectionId connection)
{
    Update();
    return brake.MayRead(connection);
}

void BrakeWatch::Stop()
{
    timer.cancel();
}

bool BrakeWatch::IsShort() const
{
    try {
        return isMemoryShort && isMemoryShort();
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                     "TCP: the memory cannot be measured: %s", failure.what());
        return false;
    }
}

/// Notices that memory became short; that it is no longer is noticed by the timer.
void BrakeWatch::Update()
{
    if (brake.IsOn() || !IsShort())
        return;
    brake.Engage();
    UA_LOG_WARNING(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK,
                   "TCP: memory is short: connections that send most are not read for now");
    CheckLater();
}

void BrakeWatch::CheckLater()
{
    timer.expires_after(checkInterval);
    timer.async_wait([this](const boost::system::error_code& error) { OnTimer(error); });
}

void BrakeWatch::OnTimer(const boost::system::error_code& error)
{
    const LoopLock lock(loop.GetMutex());
    if (error) // it was stopped
        brake.Release();
    else
        Check();
}

/// Memory that was freed between blocks still in use stays with the process, and would keep the
/// brake on for good, unless it is given back.
void BrakeWatch::Check()
{
    malloc_trim(0);
    if (IsShort()) {
        owner.closeAbandoned();
        brake.Refill();
        CheckLater();
    } else {
        brake.Release();
        // A warning too: those who saw that it is short are to see this.
        UA_LOG_WARNING(&loop.GetLogger(), UA_LOGCATEGORY_NETWORK, "TCP: memory is no longer short");
    }
    owner.readAll();
}

} // namespace Transport
