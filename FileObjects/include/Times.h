#pragma once

#include "Core/DateTime.h"

#include <algorithm>
#include <ctime>
#include <limits>

namespace FileObjects {

/// Times beyond the range of ticks give the earliest or the latest one.
[[nodiscard]] inline Core::DateTime ToDateTime(const timespec& time)
{
    const long seconds = Core::DateTime::FromUnixEpochTime(time.tv_sec).GetTicks();
    const long rest = time.tv_nsec / 100;
    return Core::DateTime::FromTicks(std::min(seconds, std::numeric_limits<long>::max() - rest) +
                                     rest);
}

[[nodiscard]] inline timespec ToTimespec(const Core::DateTime& time)
{
    constexpr long second = Core::DateTime::ticksPerSecond;
    const long rest = (time.GetTicks() % second + second) % second;
    return {time.ToUnixEpochTime(), rest * 100};
}

} // namespace FileObjects
