#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace Host {

/// Stops a session's own objects from raising more events than wait for it already: its calls are
/// worked off as fast as it takes what comes of them. Any thread.
class EventGate
{
public:
    /// Waits while as many bytes as allowed are inside.
    void Enter(std::size_t bytes, std::size_t limit)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this, limit] { return isOpen || inside < limit; });
        inside += bytes;
    }

    void Leave(std::size_t bytes)
    {
        const std::lock_guard lock(mutex);
        inside -= bytes;
        changed.notify_all();
    }

    /// Nobody waits from now on.
    void Open()
    {
        const std::lock_guard lock(mutex);
        isOpen = true;
        changed.notify_all();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t inside = 0;
    bool isOpen = false;
};

} // namespace Host
