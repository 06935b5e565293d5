#pragma once

#include <cstddef>

/// The test program's operator new counts, so that a test can tell what its thread allocates.
[[nodiscard]] std::size_t GetAllocationsOfThisThread() noexcept;

/// False where a sanitizer brings an operator new that cannot be replaced.
[[nodiscard]] bool CountsAllocations() noexcept;
