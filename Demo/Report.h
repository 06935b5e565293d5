#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Demo {

/// The results of a run.
struct Report
{
    std::size_t directories = 0;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
    std::size_t deleted = 0;
    std::size_t skipped = 0;
    std::size_t failures = 0;

    /// Prints a failure or a difference, and counts it.
    void Fail(const std::string& what);
    /// Prints an entry that no method can handle, and counts it.
    void Skip(const std::string& what);
};

} // namespace Demo
