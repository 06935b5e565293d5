#pragma once

#include "Support/Mutex.h"

#include <cstddef>

namespace Host {

/// Stops a session's own objects from raising more events while enough of them wait: its calls run
/// as fast as it takes the events that they raise. Any thread.
class EventGate
{
public:
    /// Waits while `limit` bytes or more are inside.
    void Enter(std::size_t bytes, std::size_t limit) EXCLUDES(mutex)
    {
        Support::Lock lock(mutex);
        while (!isOpen && inside >= limit)
            changed.Wait(lock);
        inside += bytes;
    }

    void Leave(std::size_t bytes) EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        inside -= bytes;
        changed.NotifyAll();
    }

    /// Lets everybody pass from now on.
    void Open() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        isOpen = true;
        changed.NotifyAll();
    }

private:
    Support::Mutex mutex;
    Support::Condition changed;
    std::size_t inside GUARDED_BY(mutex) = 0;
    bool isOpen GUARDED_BY(mutex) = false;
};

} // namespace Host
