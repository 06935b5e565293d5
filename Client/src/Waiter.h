#pragma once

#include "Client/Cancellation.h"
#include "Client/Exceptions.h"
#include "Support/Descriptor.h"

#include <atomic>
#include <chrono>

namespace Client {

/// Lets one thread wait until others have changed something, which has to be atomic.
class Waiter
{
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Throws ClientException when there is no descriptor left.
    Waiter();

    /// After a change. Any thread.
    void Notify() noexcept;

    /// Throws CancelledException.
    template <typename Condition>
    void Wait(const Condition& condition, const Cancellation* cancellation)
    {
        while (!condition()) {
            if (cancellation != nullptr && cancellation->IsCancelled())
                throw CancelledException();
            SleepUnless(condition, cancellation, Deadline::max());
        }
    }

    /// Likewise, until a deadline. Returns false when the condition has not come true by then.
    /// Throws CancelledException.
    template <typename Condition>
    bool WaitUntil(const Condition& condition, const Cancellation* cancellation, Deadline deadline)
    {
        while (!condition()) {
            if (cancellation != nullptr && cancellation->IsCancelled())
                throw CancelledException();
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            SleepUnless(condition, cancellation, deadline);
        }
        return true;
    }

    /// False when the condition has not come true by the deadline.
    template <typename Condition>
    bool WaitUntil(const Condition& condition, Deadline deadline)
    {
        while (!condition()) {
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            SleepUnless(condition, nullptr, deadline);
        }
        return true;
    }

private:
    template <typename Condition>
    void SleepUnless(const Condition& condition, const Cancellation* cancellation,
                     Deadline deadline)
    {
        isSleeping = true;
        // A thread that changed it before the line above does not wake us.
        if (!condition())
            Sleep(cancellation, deadline);
        isSleeping = false;
    }
    void Sleep(const Cancellation* cancellation, Deadline deadline) noexcept;

    Support::Descriptor descriptor;
    std::atomic<bool> isSleeping{false};
};

} // namespace Client
