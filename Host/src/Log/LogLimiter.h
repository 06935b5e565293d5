#pragma once

#include "Core/LogEntry.h"
#include "Support/Mutex.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Host {

/// Limits how many lines of one kind the log takes, so that a client that fails all the time does
/// not fill the disk: `atOnce` lines, then one every `interval`. Counts the lines beyond that and
/// keeps the first of them. Any thread may call any function.
class LogLimiter
{
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;
    /// The source file or the format of the lines, and a number that distinguishes kinds with the
    /// same one.
    using Kind = std::pair<const void*, int>;

    static constexpr std::uint64_t atOnce = 500;
    static constexpr std::chrono::milliseconds interval{200}; ///< between later lines

    explicit LogLimiter(TimeSource timeSource = &Clock::now);

    /// Returns true if the line may be written; otherwise counts it.
    [[nodiscard]] bool MayWrite(const Kind& kind, const Core::LogEntry& entry) EXCLUDES(mutex);

    /// Returns, for each kind with lines left out since the last call, the first of them. Its
    /// message says how many more there were.
    [[nodiscard]] std::vector<Core::LogEntry> TakeLeftOut() EXCLUDES(mutex);

private:
    struct State
    {
        Clock::time_point full;    ///< from then on, `atOnce` lines may be written again
        std::uint64_t leftOut = 0; ///< since they were last taken
        Core::LogEntry firstLeftOut;
    };

    const TimeSource timeSource;
    Support::Mutex mutex;
    std::map<Kind, State> states GUARDED_BY(mutex);
};

} // namespace Host
