#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// An operation to measure. One whose name ends in "/reference" does the same work by hand.
struct Operation
{
    std::string name;
    /// The number of operations in one run: enough to keep a queue busy.
    std::size_t batch = 1;
    /// The bytes of one operation; 0 if they do not matter.
    std::size_t bytes = 0;

    /// Prepares a run before the clock starts. Its cost does not depend on the number of
    /// operations.
    std::function<void()> prepare = [] {
    };
    /// Does a number of operations, at most a batch, and returns when all have finished.
    std::function<void(std::size_t count)> run;
    /// Cleans up after a batch, when the clock has stopped.
    std::function<void()> tidy = [] {
    };
};

using Operations = std::vector<Operation>;

} // namespace Bench
