#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace CoreTests {

/// A limit against hanging: no passing test waits that long.
inline constexpr std::chrono::seconds hangLimit{60};

/// Raised once, waited for by any number of threads.
class Signal
{
public:
    void Raise()
    {
        const std::scoped_lock lock(mutex);
        isRaised = true;
        raised.notify_all();
    }

    /// Returns false when it is not raised in time.
    [[nodiscard]] bool Wait() const
    {
        std::unique_lock lock(mutex);
        return raised.wait_for(lock, hangLimit, [this] { return isRaised; });
    }

    [[nodiscard]] bool IsRaised() const
    {
        const std::scoped_lock lock(mutex);
        return isRaised;
    }

private:
    mutable std::mutex mutex;
    mutable std::condition_variable raised;
    bool isRaised = false; // guarded by mutex
};

} // namespace CoreTests
