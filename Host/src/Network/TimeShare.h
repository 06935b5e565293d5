#pragma once

#include <chrono>
#include <functional>

namespace Host {

/// Bounds the share that work of one kind has of a thread's time: a tenth in the long run, more at
/// first. Not synchronised.
class TimeShare
{
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;

    static constexpr int divisor = 10;
    static constexpr std::chrono::milliseconds atOnce{400}; ///< of work, after a time without any

    explicit TimeShare(TimeSource timeSource = &Clock::now);

    /// Returns how long the next piece of work has to wait; 0: not at all.
    [[nodiscard]] Clock::duration GetPause() const;

    /// Counts a piece of work that took so long, and has just ended.
    void Count(Clock::duration taken);

private:
    const TimeSource timeSource;
    Clock::time_point paid; // until when the time for the work so far was due
};

} // namespace Host
