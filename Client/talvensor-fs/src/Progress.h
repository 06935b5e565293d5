#pragma once

#include "Client/Transfer.h"
#include "Console.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Cli {

/// How fast a number has grown lately.
class RateMeter
{
public:
    using Time = std::chrono::steady_clock::time_point;

    void Add(Time time, std::uint64_t number);

    /// In a second; nothing before there is a second to tell from.
    [[nodiscard]] std::optional<double> GetRate() const;

private:
    struct Sample
    {
        Time time;
        std::uint64_t number = 0;
    };
    std::deque<Sample> samples;
};

/// Two lines: the file that goes on, and all of it. No line has more columns than that.
[[nodiscard]] std::vector<std::string>
RenderProgress(const Client::Progress& progress, std::optional<double> rate, std::size_t columns);

/// Files, bytes, rate and the time that is left, as far as they are known.
[[nodiscard]] std::string DescribeProgress(const Client::Progress& progress,
                                           std::optional<double> rate);

/// Shows how a transfer goes on for as long as it lives: over the same lines on a terminal that can
/// do that, otherwise as a new line every few seconds. A thread of its own draws, so that a
/// terminal that is held up holds up nothing else.
class ProgressDisplay
{
public:
    /// The console must outlive it.
    explicit ProgressDisplay(Console& console);
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;
    ~ProgressDisplay();

    /// Any thread.
    void Update(const Client::Progress& progress);

private:
    void Run();
    void Show(const Client::Progress& progress);

    Console& console;
    RateMeter meter; // of the drawing thread

    std::mutex mutex;
    std::condition_variable changed;
    std::optional<Client::Progress> latest; // guarded by the mutex
    bool isEnding = false;                  // guarded by the mutex
    std::thread thread;                     // last: uses all of the above
};

} // namespace Cli
