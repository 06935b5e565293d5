#include "Core/DateTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <type_traits>
#include <utility>

namespace Core {
namespace {

constexpr long latestTicks = std::numeric_limits<long>::max();
constexpr long earliestTicks = std::numeric_limits<long>::min();
constexpr long latestSeconds = 910'692'730'085;    // the last that ticks can hold
constexpr long earliestSeconds = -933'981'677'285; // the earliest that ticks can hold
constexpr long secondsOf1601 = -11'644'473'600;

static_assert(DateTime().IsEmpty());
static_assert(DateTime::FromTicks(5).GetTicks() == 5);
static_assert(std::is_nothrow_default_constructible_v<DateTime>);
static_assert(!std::is_convertible_v<long, DateTime>);

TEST(ADateTime, IsEmptyByDefaultAndWithoutTicks)
{
    EXPECT_TRUE(DateTime().IsEmpty());
    EXPECT_TRUE(DateTime::FromTicks(0).IsEmpty());
    EXPECT_FALSE(DateTime::FromTicks(1).IsEmpty());
    EXPECT_FALSE(DateTime::FromTicks(-1).IsEmpty());
    EXPECT_FALSE(DateTime::FromUnixEpochTime(0).IsEmpty());
}

TEST(ADateTime, IsOrderedByTime)
{
    EXPECT_LT(DateTime::FromTicks(earliestTicks), DateTime());
    EXPECT_LT(DateTime::FromUnixEpochTime(-1), DateTime::FromUnixEpochTime(0));
    EXPECT_EQ(DateTime::FromTicks(7), DateTime::FromTicks(7));
}

TEST(UnixSeconds, CountFrom1970)
{
    EXPECT_EQ(DateTime::FromUnixEpochTime(0).GetTicks(), DateTime::unixEpochTicks);
    EXPECT_EQ(DateTime::FromUnixEpochTime(1).GetTicks(), DateTime::unixEpochTicks + 10'000'000);
    EXPECT_EQ(DateTime::FromUnixEpochTime(-1).GetTicks(), DateTime::unixEpochTicks - 10'000'000);
    EXPECT_EQ(DateTime::FromUnixEpochTime(secondsOf1601).GetTicks(), 0);
}

TEST(UnixSeconds, OfAnEmptyTimeAreThoseOf1601)
{
    EXPECT_EQ(DateTime().ToUnixEpochTime(), secondsOf1601);
}

TEST(UnixSeconds, SurviveTheWayThereAndBack)
{
    for (const long seconds :
         {0L, 1L, -1L, 59L, 1'795'249'800L, -1'795'249'800L, secondsOf1601, secondsOf1601 - 1,
          secondsOf1601 + 1, 2'147'483'647L, 2'147'483'648L, -2'147'483'648L, -2'147'483'649L,
          latestSeconds, latestSeconds - 1, earliestSeconds, earliestSeconds + 1})
        EXPECT_EQ(DateTime::FromUnixEpochTime(seconds).ToUnixEpochTime(), seconds);
}

TEST(UnixSeconds, AreRoundedTowardsThePast)
{
    const auto secondsAt = [](long ticksFromUnixEpoch) {
        return DateTime::FromTicks(DateTime::unixEpochTicks + ticksFromUnixEpoch).ToUnixEpochTime();
    };
    EXPECT_EQ(secondsAt(9'999'999), 0);
    EXPECT_EQ(secondsAt(10'000'000), 1);
    EXPECT_EQ(secondsAt(-1), -1);
    EXPECT_EQ(secondsAt(-10'000'000), -1);
    EXPECT_EQ(secondsAt(-10'000'001), -2);
    EXPECT_EQ(DateTime::FromTicks(-1).ToUnixEpochTime(), secondsOf1601 - 1);
    EXPECT_EQ(DateTime::FromTicks(9'999'999).ToUnixEpochTime(), secondsOf1601);
}

TEST(UnixSeconds, BeyondTheTicksGiveTheEarliestAndTheLatestTime)
{
    EXPECT_EQ(DateTime::FromUnixEpochTime(latestSeconds).GetTicks(), 9'223'372'036'850'000'000);
    EXPECT_EQ(DateTime::FromUnixEpochTime(latestSeconds + 1).GetTicks(), latestTicks);
    EXPECT_EQ(DateTime::FromUnixEpochTime(latestTicks).GetTicks(), latestTicks);
    EXPECT_EQ(DateTime::FromUnixEpochTime(latestTicks - 1).GetTicks(), latestTicks);
    EXPECT_EQ(DateTime::FromUnixEpochTime(earliestSeconds).GetTicks(), -9'223'372'036'850'000'000);
    EXPECT_EQ(DateTime::FromUnixEpochTime(earliestSeconds - 1).GetTicks(), earliestTicks);
    EXPECT_EQ(DateTime::FromUnixEpochTime(earliestTicks).GetTicks(), earliestTicks);
    EXPECT_EQ(DateTime::FromUnixEpochTime(earliestTicks + 1).GetTicks(), earliestTicks);
}

TEST(UnixSeconds, AreGivenForTheEarliestAndTheLatestTime)
{
    EXPECT_EQ(DateTime::FromTicks(latestTicks).ToUnixEpochTime(), latestSeconds);
    EXPECT_EQ(DateTime::FromTicks(earliestTicks).ToUnixEpochTime(), earliestSeconds - 1);
}

TEST(Now, LiesBetweenTheSystemsTimeBeforeAndAfter)
{
    const auto systemSeconds = [] {
        return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())
            .time_since_epoch()
            .count();
    };
    const auto before = systemSeconds();
    const auto now = DateTime::Now().ToUnixEpochTime();
    EXPECT_LE(before, now);
    EXPECT_LE(now, systemSeconds());
}

TEST(Now, IsFinerThanASecond)
{
    // One tick in ten million is a whole second, so one of three neighbours is none.
    bool isFiner = false;
    for (int i = 0; i < 3; ++i)
        isFiner = isFiner || DateTime::Now().GetTicks() % DateTime::ticksPerSecond != 0;
    EXPECT_TRUE(isFiner);
}

class ATimesText : public testing::TestWithParam<std::pair<long, const char*>>
{};

TEST_P(ATimesText, IsItsDateInUtc)
{
    const auto& [ticks, text] = GetParam();
    EXPECT_EQ(DateTime::FromTicks(ticks).ToISO8601String(), text);
}

INSTANTIATE_TEST_SUITE_P(
    Times, ATimesText,
    testing::Values(
        std::pair{0L, "1601-01-01T00:00:00Z"}, std::pair{1L, "1601-01-01T00:00:00.0000001Z"},
        std::pair{-1L, "1600-12-31T23:59:59.9999999Z"},
        std::pair{DateTime::unixEpochTicks, "1970-01-01T00:00:00Z"},
        std::pair{DateTime::unixEpochTicks - 10'000'000, "1969-12-31T23:59:59Z"},
        std::pair{DateTime::unixEpochTicks + 17'952'498'000'000'000, "2026-11-21T08:30:00Z"},
        std::pair{DateTime::unixEpochTicks + 17'952'498'001'234'500,
                  "2026-11-21T08:30:00.1234500Z"},
        std::pair{DateTime::unixEpochTicks + 9'517'824'000'000'000, "2000-02-29T00:00:00Z"},
        std::pair{2'650'467'743'999'999'999L, "9999-12-31T23:59:59.9999999Z"},
        std::pair{2'650'467'744'000'000'000L, "+10000-01-01T00:00:00Z"},
        std::pair{-505'227'456'000'000'000L, "0000-01-01T00:00:00Z"},
        std::pair{-505'227'456'000'000'001L, "-0001-12-31T23:59:59.9999999Z"},
        std::pair{latestTicks, "+30828-09-14T02:48:05.4775807Z"},
        std::pair{earliestTicks, "-27627-04-19T21:11:54.5224192Z"}));

} // namespace
} // namespace Core
