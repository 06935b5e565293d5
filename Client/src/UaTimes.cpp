#include "UaTimes.h"

#include <chrono>

namespace Client {

std::optional<FileTime> ToFileTime(UA_DateTime time)
{
    if (time == 0)
        return std::nullopt;
    // Rounded down, also before 1970.
    const UA_DateTime ticks = time - UA_DATETIME_UNIX_EPOCH;
    UA_DateTime seconds = ticks / UA_DATETIME_SEC;
    if (ticks % UA_DATETIME_SEC < 0)
        --seconds;
    return FileTime(std::chrono::seconds(seconds));
}

UA_DateTime ToUaTime(FileTime time)
{
    return time.time_since_epoch().count() * UA_DATETIME_SEC + UA_DATETIME_UNIX_EPOCH;
}

} // namespace Client
