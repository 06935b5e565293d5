#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include <nlohmann/json.hpp>

namespace Bench {

using Clock = std::chrono::steady_clock;

[[nodiscard]] inline double MicrosecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// Durations in microseconds.
class Samples
{
public:
    void Reserve(std::size_t count) { values.reserve(count); }
    void Add(double microseconds) { values.push_back(microseconds); }

    /// {"median": ..., "p99": ..., "largest": ..., "count": ...}. REQUIRES: there are samples.
    [[nodiscard]] nlohmann::json Summarise() const;

private:
    std::vector<double> values;
};

} // namespace Bench
