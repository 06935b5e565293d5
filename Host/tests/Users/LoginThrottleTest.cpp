#include "Users/LoginThrottle.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace Host {
namespace {

using namespace std::chrono_literals;

class ALoginThrottle : public testing::Test
{
protected:
    void Fail(unsigned int times, const std::string& user, const std::string& address)
    {
        for (unsigned int time = 0; time < times; ++time)
            throttle.ReportFailure(user, address);
    }

    LoginThrottle::Clock::time_point now{1h};
    LoginThrottle throttle{[this] {
        return now;
    }};
};

TEST_F(ALoginThrottle, LetsTwoFailuresPass)
{
    Fail(2, "ann", "192.0.2.1");
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 0s);
}

TEST_F(ALoginThrottle, DelaysTheLoginAfterTheThirdFailureByASecond)
{
    Fail(2, "ann", "192.0.2.1");
    EXPECT_EQ(throttle.ReportFailure("ann", "192.0.2.1"), 1s);
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 1s);
    now += 400ms;
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 600ms);
    now += 600ms;
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 0s);
}

TEST_F(ALoginThrottle, DoublesTheDelayWithEachFurtherFailureUpToAMinute)
{
    Fail(2, "ann", "192.0.2.1");
    for (const auto delay : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s})
        EXPECT_EQ(throttle.ReportFailure("ann", "192.0.2.1"), delay);
    Fail(1'000, "ann", "192.0.2.1");
    EXPECT_EQ(throttle.ReportFailure("ann", "192.0.2.1"), 60s);
}

TEST_F(ALoginThrottle, DelaysAUserOnlyWhereTheFailuresComeFrom)
{
    Fail(9, "ann", "192.0.2.1");
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 60s);
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.4"), 0s);
    EXPECT_EQ(throttle.GetDelay("bob", "192.0.2.1"), 0s);
}

TEST_F(ALoginThrottle, TakesAnIpv6NetworkForOneOrigin)
{
    Fail(1, "ann", "2001:db8:1:2::1");
    Fail(1, "ann", "2001:db8:1:2:ffff::9");
    Fail(1, "ann", "2001:db8:1:2:3:4:5:6");
    EXPECT_EQ(throttle.GetDelay("ann", "2001:db8:1:2::7"), 1s);
    EXPECT_EQ(throttle.GetDelay("ann", "2001:db8:1:3::7"), 0s);
}

TEST_F(ALoginThrottle, KeepsIpv4AddressesInIpv6FormApart)
{
    Fail(3, "ann", "::ffff:192.0.2.1");
    EXPECT_EQ(throttle.GetDelay("ann", "::ffff:192.0.2.1"), 1s);
    EXPECT_EQ(throttle.GetDelay("ann", "::ffff:192.0.2.2"), 0s);
}

TEST_F(ALoginThrottle, ForgetsFailuresWithASuccessFromThere)
{
    Fail(3, "ann", "192.0.2.1");
    Fail(3, "ann", "192.0.2.2");
    throttle.ReportSuccess("ann", "192.0.2.1");
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 0s);
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.2"), 1s);
}

TEST_F(ALoginThrottle, ForgetsFailuresAfterAQuietQuarterOfAnHour)
{
    Fail(8, "ann", "192.0.2.1");
    now += LoginThrottle::memory;
    EXPECT_EQ(throttle.ReportFailure("ann", "192.0.2.1"), 0s);
}

TEST_F(ALoginThrottle, RemembersTheLatestOfVeryMany)
{
    for (std::size_t number = 0; number < 3 * LoginThrottle::mostRemembered; ++number) {
        now += 1ms;
        Fail(1, "user" + std::to_string(number), "host" + std::to_string(number));
    }
    EXPECT_LE(throttle.GetSize(), LoginThrottle::mostRemembered);
    Fail(3, "ann", "192.0.2.1");
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 1s);
}

TEST_F(ALoginThrottle, RemembersEndlessNamesAsOne)
{
    for (char letter = 'a'; letter <= 'z'; ++letter)
        Fail(1, std::string(1'000'000, letter), "192.0.2.1");
    EXPECT_EQ(throttle.GetSize(), 1U);
}

TEST_F(ALoginThrottle, CountsTheFailuresOfManyThreads)
{
    constexpr unsigned int perThread = 500;
    std::vector<std::jthread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([this, number] {
            for (unsigned int time = 0; time < perThread; ++time) {
                throttle.ReportFailure("ann", "192.0.2." + std::to_string(number % 2));
                std::ignore = throttle.GetDelay("ann", "192.0.2.9");
                throttle.ReportSuccess("bob", "192.0.2.1");
            }
        });
    }
    threads.clear();
    EXPECT_EQ(throttle.GetDelay("ann", "192.0.2.1"), 60s);
    EXPECT_EQ(throttle.GetSize(), 2U);
}

} // namespace
} // namespace Host
