#pragma once

#include <malloc.h>

namespace Support {

/// Memory that is freed stays with the process up to a bound, and is not made anew by the system,
/// page by page, for every block that passes through. To be called before other threads start.
inline void KeepFreedMemory() noexcept
{
    constexpr int most = 16 << 20U;       // at the end of each of the allocator's arenas
    constexpr int ownMapping = 32 << 20U; // the largest that the allocator takes
    // What it refuses costs time only.
    mallopt(M_TRIM_THRESHOLD, most);       // NOLINT(concurrency-mt-unsafe): see above
    mallopt(M_MMAP_THRESHOLD, ownMapping); // NOLINT(concurrency-mt-unsafe)
}

} // namespace Support
