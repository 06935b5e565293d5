#pragma once

#include <atomic>
#include <chrono>

namespace Client {

/// When an engine has to end: at once, or at a time from which on there is no connection. Any
/// thread.
class Ending
{
public:
    using Clock = std::chrono::steady_clock;

    void Stop() noexcept { isStopping = true; }
    [[nodiscard]] bool IsStopping() const noexcept { return isStopping; }

    void EndBy(Clock::time_point deadline) noexcept { end = deadline.time_since_epoch().count(); }
    [[nodiscard]] bool HasEnded() const noexcept
    {
        return Clock::now().time_since_epoch().count() >= end;
    }

private:
    std::atomic<bool> isStopping{false};
    std::atomic<Clock::rep> end{Clock::duration::max().count()};
};

} // namespace Client
