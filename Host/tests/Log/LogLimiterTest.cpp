#include "Log/LogLimiter.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

using namespace std::chrono_literals;

class ALogLimiter : public testing::Test
{
protected:
    /// How many of the lines may be written.
    std::uint64_t Write(std::uint64_t count, int kind = 1)
    {
        std::uint64_t written = 0;
        for (std::uint64_t number = 1; number <= count; ++number) {
            Core::LogEntry entry;
            entry.message = "line " + std::to_string(number);
            written += limiter.MayWrite({nullptr, kind}, entry) ? 1U : 0U;
        }
        return written;
    }

    LogLimiter::Clock::time_point now{1h};
    LogLimiter limiter{[this] {
        return now;
    }};
};

TEST_F(ALogLimiter, LetsManyLinesPassAtOnce)
{
    EXPECT_EQ(Write(LogLimiter::atOnce), LogLimiter::atOnce);
    EXPECT_TRUE(limiter.TakeLeftOut().empty());
}

TEST_F(ALogLimiter, LetsOnePassInEachIntervalOfAFlood)
{
    Write(LogLimiter::atOnce);
    for (int interval = 0; interval < 10; ++interval) {
        EXPECT_EQ(Write(1'000), 0U);
        now += LogLimiter::interval;
        EXPECT_EQ(Write(1'000), 1U);
    }
}

TEST_F(ALogLimiter, SaysOnceHowManyLinesItLeftOutAndShowsTheFirst)
{
    Write(LogLimiter::atOnce + 1'201);
    const auto entries = limiter.TakeLeftOut();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].message,
              "line " + std::to_string(LogLimiter::atOnce + 1) + " (and 1200 more like it)");
    EXPECT_TRUE(limiter.TakeLeftOut().empty());
}

TEST_F(ALogLimiter, LosesNothingWhenOnlyOneLineWasTooMany)
{
    Write(LogLimiter::atOnce + 1);
    const auto entries = limiter.TakeLeftOut();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].message, "line " + std::to_string(LogLimiter::atOnce + 1));
}

TEST_F(ALogLimiter, KeepsKindsApart)
{
    Write(10'000);
    EXPECT_EQ(Write(10, 2), 10U);
}

TEST_F(ALogLimiter, HasAllItsRoomAgainAfterSomeQuiet)
{
    Write(10'000);
    now += LogLimiter::atOnce * LogLimiter::interval;
    EXPECT_EQ(Write(10'000), LogLimiter::atOnce);
}

} // namespace
} // namespace Host
