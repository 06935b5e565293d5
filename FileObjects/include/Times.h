#pragma once

#include "Core/DateTime.h"

#include <ctime>

namespace FileObjects {

[[nodiscard]] inline Core::DateTime ToDateTime(const timespec& time)
{
    return Core::DateTime::FromTicks(Core::DateTime::unixEpochTicks +
                                     time.tv_sec * Core::DateTime::ticksPerSecond +
                                     time.tv_nsec / 100);
}

[[nodiscard]] inline timespec ToTimespec(const Core::DateTime& time)
{
    const long seconds = time.ToUnixEpochTime();
    const long ticks = time.GetTicks() - Core::DateTime::unixEpochTicks;
    return {seconds, (ticks - seconds * Core::DateTime::ticksPerSecond) * 100};
}

} // namespace FileObjects
