#pragma once

#include "Core/Export.h"

#include <compare>
#include <string>

namespace Core {

/// A point in time, UTC, in ticks of 100 ns since 1601-01-01T00:00:00Z (the DateTime of
/// OPC 10000-6, 5.2.2.5). Zero ticks mean "no time".
class CORE_API DateTime
{
public:
    static constexpr long ticksPerSecond = 10'000'000;
    /// 1970-01-01T00:00:00Z in ticks.
    static constexpr long unixEpochTicks = 116'444'736'000'000'000;

    /// Empty.
    constexpr DateTime() noexcept = default;

    [[nodiscard]] static constexpr DateTime FromTicks(long ticks) noexcept
    {
        DateTime result;
        result.ticks = ticks;
        return result;
    }

    [[nodiscard]] static DateTime Now() noexcept;

    /// Makes a time from whole seconds since 1970-01-01T00:00:00Z, negative before it. Seconds
    /// beyond the range of ticks give the earliest or the latest time.
    [[nodiscard]] static DateTime FromUnixEpochTime(long seconds) noexcept;

    /// Returns whole seconds since 1970-01-01T00:00:00Z, rounded towards the past; -11644473600
    /// when empty.
    [[nodiscard]] long ToUnixEpochTime() const noexcept;

    /// Returns "2026-11-21T08:30:00Z"; with seven decimals for a time that is no whole second.
    /// Years beyond four digits carry their sign.
    [[nodiscard]] std::string ToISO8601String() const;

    [[nodiscard]] constexpr bool IsEmpty() const noexcept { return ticks == 0; }
    [[nodiscard]] constexpr long GetTicks() const noexcept { return ticks; }

    // NOLINTNEXTLINE(modernize-use-nullptr): sees a null pointer in what the compiler writes
    friend constexpr auto operator<=>(const DateTime&, const DateTime&) noexcept = default;

private:
    long ticks = 0;
};

} // namespace Core
