#pragma once

#include "Core/Embedding/LogControl.h"
#include "Core/Embedding/Runtime.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Stress {

/// The amount of work, from the environment.
struct Settings
{
    std::uint64_t calls; ///< TALVENSOR_STRESS_CALLS
    std::uint64_t seed;  ///< TALVENSOR_STRESS_SEED

    static constexpr unsigned int threads = 8;
    static constexpr std::uint64_t callsPerSession = 250;
    static constexpr std::uint64_t callsPerRestart = 10'000;

    [[nodiscard]] static Settings FromEnvironment();
};

/// The violations of rules. Any thread.
class Violations
{
public:
    void Add(const std::string& text);
    [[nodiscard]] std::uint64_t GetCount() const;
    /// The first ones.
    [[nodiscard]] std::string GetTexts() const;

private:
    mutable std::mutex mutex;
    std::uint64_t count = 0;        // guarded by mutex
    std::vector<std::string> texts; // guarded by mutex
};

/// The methods, in the order in which their counts are kept.
enum class Method : unsigned int
{
    Open,
    Close,
    UploadFile,
    OpenWrite,
    Write,
    WriteClose,
    CreateDirectory,
    Delete,
    List,
    Exists,
    Read,
    GetDateTime,
    SetDateTime,
    GetPosition,
    SetPosition,
    Count
};

[[nodiscard]] const char* ToString(Method method);

class MethodCounts
{
public:
    void Add(Method method) { ++counts.at(static_cast<std::size_t>(method)); }
    [[nodiscard]] std::uint64_t Get(Method method) const
    {
        return counts.at(static_cast<std::size_t>(method));
    }

private:
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Method::Count)> counts{};
};

/// Lets one thread wait until a worker has reached its mark in the queue: closing a number that
/// is no handle is always acknowledged.
class Mark
{
public:
    /// Called by the waiting thread before the mark is queued.
    void Expect(unsigned int number);
    /// Returns false when the worker never reaches it.
    [[nodiscard]] bool Wait();
    /// Any thread.
    void Reach(unsigned int number);

private:
    std::mutex mutex;
    std::condition_variable changed;
    unsigned int expected = 0; // guarded by mutex
    bool reached = false;      // guarded by mutex
};

/// Handles that several threads use. Any thread.
class HandlePool
{
public:
    void Put(unsigned int handle, std::uint64_t random)
    {
        handles.at(random % handles.size()).store(handle, std::memory_order_relaxed);
    }
    [[nodiscard]] unsigned int Get(std::uint64_t random) const
    {
        return handles.at(random % handles.size()).load(std::memory_order_relaxed);
    }

private:
    std::array<std::atomic<unsigned int>, 48> handles{};
};

/// Sessions that several threads use, each ended while they do. Any thread.
class SessionPool
{
public:
    explicit SessionPool(Core::Embedding::Runtime& runtime);

    [[nodiscard]] std::shared_ptr<Core::Embedding::Session> Get(std::uint64_t random) const;
    /// Puts a new session in the place of another and ends the other.
    void EndOne(std::uint64_t random);
    void EndAll();
    [[nodiscard]] std::uint64_t GetEnded() const { return ended; }

private:
    [[nodiscard]] std::shared_ptr<Core::Embedding::Session> Open();

    Core::Embedding::Runtime* runtime;
    mutable std::mutex mutex;
    std::vector<std::shared_ptr<Core::Embedding::Session>> sessions; // guarded by mutex
    std::atomic<std::uint64_t> opened = 0;
    std::atomic<std::uint64_t> ended = 0;
};

/// Reads every entry as a writing sink would, and looks for those that must not occur.
class WatchingSink final : public Core::Embedding::LogSink
{
public:
    explicit WatchingSink(Violations& violations)
        : violations(&violations)
    {}
    void Write(const Core::LogEntry& entry) override;
    [[nodiscard]] std::uint64_t GetEntries() const { return entries; }
    /// Returns the number of listings that ended without an event because a directory vanished.
    [[nodiscard]] std::uint64_t GetBrokenListings() const { return brokenListings; }

private:
    Violations* violations;
    std::atomic<std::uint64_t> entries = 0;
    std::atomic<std::uint64_t> brokenListings = 0;
};

/// Ends the process when it makes no progress.
class Watchdog
{
public:
    explicit Watchdog(std::function<std::uint64_t()> getProgress);
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog();

private:
    void Watch();

    std::function<std::uint64_t()> getProgress;
    std::mutex mutex;
    std::condition_variable ending;
    bool ended = false; // guarded by mutex
    std::thread thread; // last
};

} // namespace Stress
