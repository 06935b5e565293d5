#include "Endpoint/MemoryTrim.h"

#include <algorithm>
#include <utility>

namespace Host {

bool MemoryTrim::IsDue(std::uint64_t resident, std::uint64_t transferred) noexcept
{
    const auto traffic = transferred - std::exchange(lastTransferred, transferred);
    lastResident = resident;
    least = std::min(least, resident);
    if (traffic >= idleTraffic) {
        pause = 1;
        left = 0;
        return false;
    }
    if (left > 0) {
        --left;
        return false;
    }
    return resident - least > tolerance;
}

void MemoryTrim::NoteTrimmed(std::uint64_t resident) noexcept
{
    const bool wasWorthIt = resident + tolerance / 2 < lastResident;
    pause = wasWorthIt ? 1 : std::min(2 * pause, longestPause);
    left = pause - 1;
    least = std::min(least, resident);
}

} // namespace Host
