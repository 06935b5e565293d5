#pragma once

#include "Client/Transfer.h"
#include "Output/Console.h"

#include <Support/Mutex.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Cli {

/// Measures how fast a number has grown lately.
class RateMeter
{
public:
    using Time = std::chrono::steady_clock::time_point;

    void Add(Time time, std::uint64_t number);

    /// Returns the growth in a second; none during the first second.
    [[nodiscard]] std::optional<double> GetRate() const;

private:
    struct Sample
    {
        Time time;
        std::uint64_t number = 0;
    };
    std::deque<Sample> samples;
};

/// Returns two lines, of the current file and of the whole, with no more columns than that.
[[nodiscard]] std::vector<std::string>
RenderProgress(const Client::Progress& progress, std::optional<double> rate, std::size_t columns);

/// Describes files, bytes, rate and the time that is left, as far as they are known.
[[nodiscard]] std::string DescribeProgress(const Client::Progress& progress,
                                           std::optional<double> rate);

/// Shows the progress of a transfer while it exists: over the same lines on a terminal that can do
/// that, otherwise as a new line every few seconds. A thread of its own draws, so that a terminal
/// that blocks holds up nothing else.
class ProgressDisplay
{
public:
    /// The console must outlive it.
    explicit ProgressDisplay(Console& console);
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;
    ~ProgressDisplay();

    /// Any thread.
    void Update(const Client::Progress& progress) EXCLUDES(mutex);

private:
    void Run() EXCLUDES(mutex);
    void Show(const Client::Progress& progress);

    Console& console;
    RateMeter meter; // of the drawing thread

    Support::Mutex mutex;
    Support::Condition changed;
    std::optional<Client::Progress> latest GUARDED_BY(mutex);
    bool isEnding GUARDED_BY(mutex) = false;
    std::thread thread; // last: uses all of the above
};

} // namespace Cli
