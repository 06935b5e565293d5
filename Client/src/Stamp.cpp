#include "Stamp.h"

#include <chrono>
#include <cstdint>
#include <random>

namespace Client {

namespace {

/// A time so close to now says nothing: writing sets it too.
constexpr std::chrono::seconds presentTime{60};

} // namespace

UA_Byte MakePermissions(Permissions permissions) noexcept
{
    constexpr UA_Byte readOnly = 0x02;
    constexpr UA_Byte executable = 0x04;
    return static_cast<UA_Byte>((permissions.readOnly ? readOnly : 0) |
                                (permissions.executable ? executable : 0));
}

bool IsPast(FileTime time)
{
    return time < std::chrono::system_clock::now() - presentTime;
}

FileTime MakeMarker()
{
    constexpr std::int64_t earliest = 100'000'000; // 1973
    constexpr std::int64_t latest = 900'000'000;   // 1998
    std::random_device random;
    return FileTime(std::chrono::seconds(
        std::uniform_int_distribution<std::int64_t>(earliest, latest)(random)));
}

} // namespace Client
