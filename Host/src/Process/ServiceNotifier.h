#pragma once

#include "Support/Descriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace Host {

/// Tells the service manager that started the host how it is getting on, by the protocol of
/// sd_notify(3). Any thread may call any function.
class ServiceNotifier
{
public:
    /// Has no manager: tells nobody.
    ServiceNotifier() = default;

    /// Connects to the socket that NOTIFY_SOCKET names, if it is set. Call it before the sandbox is
    /// entered, which hides the socket. Throws std::system_error if the socket cannot be reached,
    /// and InvalidArgumentException if it is neither a path nor an abstract name.
    [[nodiscard]] static ServiceNotifier Connect();

    /// The host serves; `status` says so in a few words.
    void NotifyReady(const std::string& status) const;
    /// The host reloads, until it is ready again.
    void NotifyReloading() const;
    void NotifyStopping() const;
    /// The host is alive.
    void NotifyAlive() const;

    /// Returns how often the manager must hear that the host is alive: half of the time after which
    /// it ends the host. Nothing if it does not watch the host.
    [[nodiscard]] std::optional<std::chrono::milliseconds> GetAliveInterval() const noexcept
    {
        return aliveInterval;
    }

private:
    void Send(std::string_view text, int flags) const;

    // Constant once it is connected:
    Support::Descriptor socket; // not open: there is no manager
    std::optional<std::chrono::milliseconds> aliveInterval;
};

} // namespace Host
