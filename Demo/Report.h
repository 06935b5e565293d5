#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Demo {

/// What the run came to.
struct Report
{
    std::size_t directories = 0;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
    std::size_t deleted = 0;
    std::size_t skipped = 0;
    std::size_t failures = 0;

    /// Says what went wrong, or what differs.
    void Fail(const std::string& what);
    /// Says what is left out, since no method can carry it.
    void Skip(const std::string& what);
};

} // namespace Demo
