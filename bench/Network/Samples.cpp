#include "Samples.h"

#include <algorithm>

namespace Bench {

namespace {

double GetQuantile(const std::vector<double>& sorted, double share)
{
    const auto last = static_cast<double>(sorted.size() - 1);
    return sorted[static_cast<std::size_t>(share * last)];
}

} // namespace

nlohmann::json Samples::Summarise() const
{
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    return {{"median", GetQuantile(sorted, 0.5)},
            {"p99", GetQuantile(sorted, 0.99)},
            {"largest", sorted.back()},
            {"count", sorted.size()}};
}

} // namespace Bench
