#include "Endpoint/LoginPause.h"

#include <algorithm>

namespace Host {

LoginPause::LoginPause(EventLoop& loop, const UnclaimedSessions& unclaimed) noexcept
    : loop(loop)
    , unclaimed(unclaimed)
{}

void LoginPause::Begin(std::chrono::milliseconds pause, ConnectionId except)
{
    const auto end = [](void* /*application*/, void* context) {
        static_cast<LoginPause*>(context)->End();
    };
    UA_EventLoop* handle = loop.GetHandle();
    const UA_DateTime time = handle->dateTime_nowMonotonic(handle) +
                             static_cast<UA_DateTime>(pause.count()) * UA_DATETIME_MSEC;
    if (timer == 0 &&
        handle->addTimedCallback(handle, end, nullptr, this, time, &timer) != UA_STATUSCODE_GOOD)
        return;
    for (const ConnectionId connection : unclaimed.GetConnections())
        if (connection != except)
            Hold(connection);
}

void LoginPause::Hold(ConnectionId connection)
{
    if (std::find(held.begin(), held.end(), connection) != held.end())
        return;
    held.push_back(connection);
    loop.HoldConnection(connection, true);
}

void LoginPause::Forget(ConnectionId connection)
{
    std::erase(held, connection);
}

/// Has all connections read again in their order; the first login that takes time holds the others
/// again. Connections whose session had to go meanwhile come last.
void LoginPause::End()
{
    timer = 0;
    auto waiting = unclaimed.GetConnections();
    waiting.insert(waiting.end(), held.begin(), held.end());
    held.clear();
    for (const ConnectionId connection : waiting)
        loop.HoldConnection(connection, false);
}

} // namespace Host
