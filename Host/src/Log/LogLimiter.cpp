#include "Log/LogLimiter.h"

#include <algorithm>

namespace Host {

LogLimiter::LogLimiter(TimeSource timeSource)
    : timeSource(std::move(timeSource))
{}

bool LogLimiter::MayWrite(const Kind& kind, const Core::LogEntry& entry)
{
    const auto now = timeSource();
    const Support::Lock lock(mutex);
    State& state = states[kind];
    const auto next = std::max(state.full, now) + interval;
    if (next <= now + atOnce * interval) {
        state.full = next;
        return true;
    }
    if (state.leftOut++ == 0)
        state.firstLeftOut = entry;
    return false;
}

std::vector<Core::LogEntry> LogLimiter::TakeLeftOut()
{
    const Support::Lock lock(mutex);
    std::vector<Core::LogEntry> entries;
    for (auto& [kind, state] : states) {
        if (state.leftOut == 0)
            continue;
        Core::LogEntry& entry = entries.emplace_back(std::move(state.firstLeftOut));
        if (state.leftOut > 1)
            entry.message += " (and " + std::to_string(state.leftOut - 1) + " more like it)";
        state.firstLeftOut = {};
        state.leftOut = 0;
    }
    return entries;
}

} // namespace Host
