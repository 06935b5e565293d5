#include "Support/Memory.h"

#include <malloc.h>

namespace Support {

void KeepFreedMemory() noexcept
{
    constexpr int mostAtEnd = 16 << 20U;  // bytes kept at the end of each arena
    constexpr int ownMapping = 32 << 20U; // larger blocks get a mapping of their own; the maximum
    // If the allocator refuses, the program is only slower.
    mallopt(M_TRIM_THRESHOLD, mostAtEnd);  // NOLINT(concurrency-mt-unsafe): see the header
    mallopt(M_MMAP_THRESHOLD, ownMapping); // NOLINT(concurrency-mt-unsafe)
}

} // namespace Support
