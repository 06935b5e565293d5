#include "Core/Embedding/LogControl.h"

#include "Support/Mutex.h"

#include <algorithm>
#include <cstddef>

namespace Core::Embedding {

struct CapturingLogSink::State
{
    using Time = std::chrono::steady_clock::time_point;

    /// Waits for entries after the first `seen` ever written, returns those and counts them as
    /// seen; empty once the time has come.
    [[nodiscard]] std::vector<LogEntry> AwaitUnseen(std::size_t& seen, const Time& deadline)
        EXCLUDES(mutex)
    {
        Support::Lock lock(mutex);
        bool isLate = false;
        seen = std::max(seen, forgotten);
        while (seen == forgotten + entries.size()) {
            if (isLate)
                return {};
            isLate = !changed.WaitUntil(lock, deadline);
            seen = std::max(seen, forgotten);
        }
        const auto first = entries.begin() + static_cast<std::ptrdiff_t>(seen - forgotten);
        seen = forgotten + entries.size();
        return {first, entries.end()};
    }

    Support::Mutex mutex;
    Support::Condition changed; // with mutex: an entry has been written
    std::vector<LogEntry> entries GUARDED_BY(mutex);
    std::size_t forgotten GUARDED_BY(mutex) = 0; // the number of entries that Clear has removed
};

CapturingLogSink::CapturingLogSink()
    : state(std::make_unique<State>())
{}

CapturingLogSink::~CapturingLogSink() = default;

void CapturingLogSink::Write(const LogEntry& entry)
{
    {
        const Support::Lock lock(state->mutex);
        state->entries.push_back(entry);
    }
    state->changed.NotifyAll();
}

std::vector<LogEntry> CapturingLogSink::GetEntries() const
{
    const Support::Lock lock(state->mutex);
    return state->entries;
}

void CapturingLogSink::Clear()
{
    const Support::Lock lock(state->mutex);
    state->forgotten += state->entries.size();
    state->entries.clear();
}

bool CapturingLogSink::WaitFor(const std::function<bool(const LogEntry&)>& predicate,
                               std::chrono::milliseconds limit) const
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::size_t seen = 0;
    std::vector<LogEntry> fresh;
    do {
        fresh = state->AwaitUnseen(seen, deadline);
        if (std::any_of(fresh.begin(), fresh.end(), predicate))
            return true;
    } while (!fresh.empty());
    return false;
}

} // namespace Core::Embedding
