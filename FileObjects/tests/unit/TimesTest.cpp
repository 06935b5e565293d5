#include "Times.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace FileObjects;

constexpr long earliest = std::numeric_limits<long>::min();
constexpr long latest = std::numeric_limits<long>::max();

TEST(ATime, ComesBackFromTheFileSystem)
{
    for (const long ticks : {-1L, 0L, 1L, Core::DateTime::unixEpochTicks - 1,
                             Core::DateTime::unixEpochTicks + 15, latest}) {
        const auto time = ToTimespec(Core::DateTime::FromTicks(ticks));
        EXPECT_GE(time.tv_nsec, 0);
        EXPECT_EQ(ToDateTime(time).GetTicks(), ticks);
    }
}

TEST(ATime, BeyondTheRangeIsTheEarliestOrLatest)
{
    EXPECT_EQ(ToDateTime({latest, 999'999'999}).GetTicks(), latest);
    EXPECT_EQ(ToDateTime({earliest, 0}).GetTicks(), earliest);
}

TEST(ATime, IsThereForTheEarliestTicks)
{
    const auto time = ToTimespec(Core::DateTime::FromTicks(earliest + 1));
    EXPECT_LT(time.tv_sec, 0);
    EXPECT_GE(time.tv_nsec, 0);
    EXPECT_LT(time.tv_nsec, 1'000'000'000);
}

} // namespace
