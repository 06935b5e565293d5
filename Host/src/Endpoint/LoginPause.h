#pragma once

#include "Endpoint/UnclaimedSessions.h"
#include "Network/EventLoop.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace Host {

/// Makes clients wait after logins that failed: holds the connections that may log in next, which
/// are not read meanwhile. Loop thread.
class LoginPause
{
public:
    /// Both must outlive it.
    LoginPause(EventLoop& loop, const UnclaimedSessions& unclaimed) noexcept;
    LoginPause(const LoginPause&) = delete;
    LoginPause& operator=(const LoginPause&) = delete;

    /// Holds all connections that may log in, but one that has just done so (0: none). A pause that
    /// is on already is not prolonged.
    void Begin(std::chrono::milliseconds pause, ConnectionId except);

    [[nodiscard]] bool IsOn() const noexcept { return timer != 0; }

    /// Holds a further connection until the pause ends.
    void Hold(ConnectionId connection);

    /// Forgets a connection that has closed.
    void Forget(ConnectionId connection);

private:
    void End();

    EventLoop& loop;
    const UnclaimedSessions& unclaimed;
    std::vector<ConnectionId> held; // in the order in which they were held
    std::uint64_t timer = 0;        // runs while logins pause; 0: they do not
};

} // namespace Host
