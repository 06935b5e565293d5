#include "Network/TimeShare.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

using namespace std::chrono_literals;

class ATimeShare : public testing::Test
{
protected:
    /// True if the work was not to wait.
    bool Work(std::chrono::milliseconds taken)
    {
        if (share.GetPause() > 0s)
            return false;
        now += taken;
        share.Count(taken);
        return true;
    }

    TimeShare::Clock::time_point now{1h};
    TimeShare share{[this] {
        return now;
    }};
};

TEST_F(ATimeShare, IsMoreAtFirst)
{
    int pieces = 0;
    while (Work(40ms))
        ++pieces;
    EXPECT_EQ(pieces, 12);
    EXPECT_GT(share.GetPause(), 0s);
}

TEST_F(ATimeShare, IsATenthInTheLongRun)
{
    const auto start = now;
    std::chrono::milliseconds worked{};
    while (now < start + 1min) {
        if (Work(40ms))
            worked += 40ms;
        else
            now += 1ms;
    }
    EXPECT_NEAR(static_cast<double>(worked / 1ms), 6'000.0, 500.0);
}

TEST_F(ATimeShare, IsNotSavedUpForever)
{
    while (Work(40ms))
        continue;
    now += 24h;
    int pieces = 0;
    while (Work(40ms))
        ++pieces;
    EXPECT_EQ(pieces, 12);
}

} // namespace
} // namespace Host
