#pragma once

#include "Transport/Accepting/Limits.h"
#include "Transport/Accepting/MemoryBrake.h"
#include "Transport/Asio.h"
#include "Transport/Loop.h"

#include <functional>

namespace Transport {

/// Turns the memory brake on when memory gets short, and off when it no longer is. The loop's lock
/// guards it.
class BrakeWatch
{
public:
    /// Called every 50 ms while the brake is on, with the lock held.
    struct Owner
    {
        std::function<void()> closeAbandoned;
        std::function<void()> readAll;
    };

    /// The loop must outlive it.
    BrakeWatch(Loop& loop, const ConnectionLimits& limits, Owner owner);

    /// See `AcceptedConnections::SetMemoryBrake`.
    void SetShortage(std::function<bool()> shortage) REQUIRES(loopLock);

    [[nodiscard]] bool IsOn() const REQUIRES(loopLock) { return brake.IsOn(); }
    [[nodiscard]] MemoryBrake& GetBrake() REQUIRES(loopLock) { return brake; }

    /// Asks whether memory is short. Returns true if the connection may be read.
    [[nodiscard]] bool MayRead(ConnectionId connection) REQUIRES(loopLock);

    /// Releases the brake soon, since nothing is read any more.
    void Stop() REQUIRES(loopLock);

private:
    [[nodiscard]] bool IsShort() const REQUIRES(loopLock);
    void Update() REQUIRES(loopLock);
    void CheckLater() REQUIRES(loopLock);
    void OnTimer(const boost::system::error_code& error);
    void Check() REQUIRES(loopLock);

    Loop& loop;
    const Owner owner;
    std::function<bool()> isMemoryShort GUARDED_BY(loopLock);
    MemoryBrake brake GUARDED_BY(loopLock);
    boost::asio::steady_timer timer;
};

} // namespace Transport
