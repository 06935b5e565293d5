#pragma once

#include <cstddef>

namespace Bench {

/// How often the calling thread has allocated with operator new.
[[nodiscard]] std::size_t CountAllocations() noexcept;

} // namespace Bench
