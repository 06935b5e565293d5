#pragma once

#include <cstddef>

namespace Bench {

/// Returns the number of allocations with operator new by the calling thread.
[[nodiscard]] std::size_t CountAllocations() noexcept;

} // namespace Bench
