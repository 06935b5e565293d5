#include "Core/Logger.h"

#include "Core/Embedding/LogControl.h"
#include "Core/Exception.h"

#include "Support/Mutex.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <string_view>
#include <utility>

namespace Core {

struct Logger::State
{
    using Sinks = std::vector<std::shared_ptr<Embedding::LogSink>>;
    using SharedSinks = std::shared_ptr<const Sinks>;

    struct Levels
    {
        LogLevel ofOthers = LogLevel::Warning; // of categories without a level of their own
        std::map<std::string, LogLevel, std::less<>> ofCategories;
    };

    [[nodiscard]] bool IsEnabled(LogLevel level, std::string_view category) const EXCLUDES(mutex)
    {
        if (level <= LogLevel::Off || level > highestLevel.load(std::memory_order_acquire))
            return false;
        const Support::ReadLock lock(mutex);
        const auto own = levels.ofCategories.find(category);
        return level <= (own == levels.ofCategories.end() ? levels.ofOthers : own->second);
    }

    /// Calls `change(Levels&)`.
    template <typename Change>
    void ChangeLevels(Change change) EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        change(levels);
        auto highest = levels.ofOthers;
        for (const auto& [category, level] : levels.ofCategories)
            highest = std::max(highest, level);
        highestLevel.store(highest, std::memory_order_release);
    }

    /// Calls `change(Sinks&)` with a copy and publishes it.
    template <typename Change>
    void ChangeSinks(Change change) EXCLUDES(mutex)
    {
        SharedSinks before; // released after the lock: it may end a sink
        const Support::Lock lock(mutex);
        auto changed = *sinks;
        change(changed);
        before = std::exchange(sinks, std::make_shared<const Sinks>(std::move(changed)));
    }

    [[nodiscard]] SharedSinks GetSinks() const EXCLUDES(mutex)
    {
        const Support::ReadLock lock(mutex);
        return sinks;
    }

    /// The highest level that is on for any category: entries above it are refused without a lock.
    std::atomic<LogLevel> highestLevel{LogLevel::Warning};

    mutable Support::SharedMutex mutex;
    Levels levels GUARDED_BY(mutex);
    SharedSinks sinks GUARDED_BY(mutex) = std::make_shared<const Sinks>(); // replaced as a whole
};

Logger::Logger()
    : state(std::make_unique<State>())
{}

Logger::~Logger() = default;

Logger& Logger::Instance()
{
    // Never destroyed, since destructors may log until the very end of the process.
    static auto& instance = *new Logger;
    return instance;
}

bool Logger::IsEnabledForEntry(LogLevel level, const char* category) const
{
    return state->IsEnabled(level, category == nullptr ? std::string_view() : category);
}

void Logger::AppendEntry(LogEntry entry) // NOLINT(performance-unnecessary-value-param): published
{
    if (!state->IsEnabled(entry.level, entry.category))
        return;
    const auto sinks = state->GetSinks();
    for (const auto& sink : *sinks) {
        try {
            sink->Write(entry);
        } catch (...) {
            // This sink loses the entry; there is no place to report it.
        }
    }
}

namespace Embedding {

void LogControl::SetLevel(LogLevel level)
{
    Logger::Instance().state->ChangeLevels(
        [&](Logger::State::Levels& levels) { levels.ofOthers = level; });
}

void LogControl::SetLevel(const std::string& category, LogLevel level)
{
    Logger::Instance().state->ChangeLevels([&](Logger::State::Levels& levels) {
        levels.ofCategories.insert_or_assign(category, level);
    });
}

void LogControl::ResetCategoryLevels()
{
    Logger::Instance().state->ChangeLevels(
        [](Logger::State::Levels& levels) { levels.ofCategories.clear(); });
}

void LogControl::AddSink(std::shared_ptr<LogSink> sink)
{
    if (sink == nullptr)
        throw InvalidArgumentException("cannot add a null log sink");
    Logger::Instance().state->ChangeSinks(
        [&](Logger::State::Sinks& sinks) { sinks.push_back(std::move(sink)); });
}

void LogControl::RemoveSink(const std::shared_ptr<LogSink>& sink)
{
    Logger::Instance().state->ChangeSinks(
        [&](Logger::State::Sinks& sinks) { std::erase(sinks, sink); });
}

} // namespace Embedding
} // namespace Core
