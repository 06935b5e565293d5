#include "Core/DateTime.h"

#include <fmt/format.h>

#include <chrono>
#include <limits>
#include <ratio>

namespace Core {
namespace {

using Ticks = std::chrono::duration<long, std::ratio<1, DateTime::ticksPerSecond>>;

constexpr long earliestTicks = std::numeric_limits<long>::min();
constexpr long latestTicks = std::numeric_limits<long>::max();
constexpr long secondsFrom1601To1970 = DateTime::unixEpochTicks / DateTime::ticksPerSecond;
constexpr std::chrono::sys_days firstDay{std::chrono::year{1601} / 1 / 1};

std::string FormatYear(int year)
{
    if (year > 9999)
        return fmt::format("{:+}", year);
    return year < 0 ? fmt::format("{:05}", year) : fmt::format("{:04}", year);
}

} // namespace

DateTime DateTime::Now() noexcept
{
    const auto sinceUnixEpoch = std::chrono::system_clock::now().time_since_epoch();
    return FromTicks(std::chrono::floor<Ticks>(sinceUnixEpoch).count() + unixEpochTicks);
}

DateTime DateTime::FromUnixEpochTime(long seconds) noexcept
{
    if (seconds > latestTicks / ticksPerSecond - secondsFrom1601To1970)
        return FromTicks(latestTicks);
    if (seconds < earliestTicks / ticksPerSecond - secondsFrom1601To1970)
        return FromTicks(earliestTicks);
    return FromTicks((seconds + secondsFrom1601To1970) * ticksPerSecond);
}

long DateTime::ToUnixEpochTime() const noexcept
{
    return std::chrono::floor<std::chrono::seconds>(Ticks(ticks)).count() - secondsFrom1601To1970;
}

std::string DateTime::ToISO8601String() const
{
    const Ticks since1601(ticks);
    const auto daysSince1601 = std::chrono::floor<std::chrono::days>(since1601);
    const std::chrono::year_month_day date(firstDay + daysSince1601);
    // Not `since1601 - daysSince1601`: the start of the earliest day lies below all ticks.
    constexpr long ticksPerDay = 86'400 * ticksPerSecond;
    const Ticks sinceMidnight((ticks % ticksPerDay + ticksPerDay) % ticksPerDay);
    const std::chrono::hh_mm_ss<Ticks> time(sinceMidnight);

    auto text =
        fmt::format("{}-{:02}-{:02}T{:02}:{:02}:{:02}", FormatYear(static_cast<int>(date.year())),
                    static_cast<unsigned int>(date.month()), static_cast<unsigned int>(date.day()),
                    time.hours().count(), time.minutes().count(), time.seconds().count());
    if (time.subseconds() != Ticks::zero())
        text += fmt::format(".{:07}", time.subseconds().count());
    return text + 'Z';
}

} // namespace Core
