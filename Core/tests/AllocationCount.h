#pragma once

#include <cstddef>

/// Counts the allocations of each thread, through the test program's own operator new.
[[nodiscard]] std::size_t GetAllocationsOfThisThread() noexcept;

/// False under a sanitizer whose operator new cannot be replaced.
[[nodiscard]] bool CountsAllocations() noexcept;
