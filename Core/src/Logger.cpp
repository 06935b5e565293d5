#include "Core/Logger.h"

#include "Core/Embedding/LogControl.h"
#include "Core/Exception.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <utility>

namespace Core {

struct Logger::State
{
    using Sinks = std::vector<std::shared_ptr<Embedding::LogSink>>;
    using SharedSinks = std::shared_ptr<const Sinks>;

    [[nodiscard]] bool IsEnabled(LogLevel level, std::string_view category) const
    {
        if (level <= LogLevel::Off || level > highestLevel.load(std::memory_order_acquire))
            return false;
        const std::shared_lock lock(mutex);
        const auto own = categoryLevels.find(category);
        return level <= (own == categoryLevels.end() ? defaultLevel : own->second);
    }

    template <typename Change>
    void ChangeLevels(Change change)
    {
        const std::unique_lock lock(mutex);
        change();
        auto highest = defaultLevel;
        for (const auto& [category, level] : categoryLevels)
            highest = std::max(highest, level);
        highestLevel.store(highest, std::memory_order_release);
    }

    template <typename Change>
    void ChangeSinks(Change change)
    {
        SharedSinks before; // let go after the lock: it may end a sink
        const std::unique_lock lock(mutex);
        auto changed = *sinks;
        change(changed);
        before = std::exchange(sinks, std::make_shared<const Sinks>(std::move(changed)));
    }

    [[nodiscard]] SharedSinks GetSinks() const
    {
        const std::shared_lock lock(mutex);
        return sinks;
    }

    /// The highest level that is on for any category: what lies above needs no look at the others.
    std::atomic<LogLevel> highestLevel{LogLevel::Warning};

    mutable std::shared_mutex mutex; // guards what follows
    LogLevel defaultLevel = LogLevel::Warning;
    std::map<std::string, LogLevel, std::less<>> categoryLevels;
    SharedSinks sinks = std::make_shared<const Sinks>(); // replaced, never changed
};

Logger::Logger()
    : state(std::make_unique<State>())
{}

Logger::~Logger() = default;

Logger& Logger::Instance()
{
    // Never destroyed: whoever is destroyed last may still have something to say.
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
            // The entry is lost to this sink: there is nowhere to tell.
        }
    }
}

namespace Embedding {

void LogControl::SetLevel(LogLevel level)
{
    auto& state = *Logger::Instance().state;
    state.ChangeLevels([&] { state.defaultLevel = level; });
}

void LogControl::SetLevel(const std::string& category, LogLevel level)
{
    auto& state = *Logger::Instance().state;
    state.ChangeLevels([&] { state.categoryLevels.insert_or_assign(category, level); });
}

void LogControl::ResetCategoryLevels()
{
    auto& state = *Logger::Instance().state;
    state.ChangeLevels([&] { state.categoryLevels.clear(); });
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
