#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// Something to be measured. One whose name ends in "/reference" does the same work by hand.
struct Operation
{
    std::string name;
    /// How many are done in one go: enough to keep a queue busy.
    std::size_t batch = 1;
    /// The bytes that one of them carries; 0 where that says nothing.
    std::size_t bytes = 0;

    /// What is done before the clock runs. What it costs does not depend on how many follow.
    std::function<void()> prepare = [] {
    };
    /// Does so many, at most a batch; back when all are done.
    std::function<void(std::size_t count)> run;
    /// What is done after a batch, when the clock has stopped.
    std::function<void()> tidy = [] {
    };
};

using Operations = std::vector<Operation>;

} // namespace Bench
