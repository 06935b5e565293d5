#pragma once

#include "Core/LogEntry.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Host {

/// Bounds how many lines of one kind the log takes, so that a client that fails all the time does
/// not fill the disk: many at once, and some in every second after that. Lines beyond that are
/// counted, and the first of them is kept. Any thread.
class LogLimiter
{
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;
    /// The place that writes lines of the kind, or their format; and a number to tell apart
    /// further.
    using Kind = std::pair<const void*, int>;

    static constexpr std::uint64_t atOnce = 500;
    static constexpr std::chrono::milliseconds interval{200}; ///< makes room for one more

    explicit LogLimiter(TimeSource timeSource = &Clock::now);

    /// True if the line may be written; otherwise it is counted.
    [[nodiscard]] bool MayWrite(const Kind& kind, const Core::LogEntry& entry);

    /// For each kind with lines left out since the last time: the first of them, which says how
    /// many more there were.
    [[nodiscard]] std::vector<Core::LogEntry> TakeLeftOut();

private:
    struct State
    {
        Clock::time_point full;    ///< when there is room again for `atOnce` lines
        std::uint64_t leftOut = 0; ///< since they were last taken
        Core::LogEntry firstLeftOut;
    };

    const TimeSource timeSource;
    std::mutex mutex;
    std::map<Kind, State> states; // guarded by mutex
};

} // namespace Host
