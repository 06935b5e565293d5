#include "Users/Logins.h"

#include "Core/Embedding/LogControl.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace Host {
namespace {

using namespace std::chrono_literals;
using Core::Embedding::CapturingLogSink;
using Core::Embedding::LogControl;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class Logging : public testing::Test
{
protected:
    Logging()
    {
        LogControl::SetLevel(Core::LogLevel::Trace);
        LogControl::AddSink(sink);
    }
    ~Logging() override
    {
        LogControl::RemoveSink(sink);
        LogControl::SetLevel(Core::LogLevel::Warning);
    }

    std::shared_ptr<CapturingLogSink> sink = std::make_shared<CapturingLogSink>();
};

class ALogin : public Logging
{
protected:
    LoginResult Try(const std::string& password, const std::string& user = "ann",
                    const std::string& address = "192.0.2.1")
    {
        return logins.TryLogin(user, password, address);
    }

    std::filesystem::path MakeUsers() const
    {
        const auto file = folder.GetPath() / "users";
        SetPassword(file, "ann", "right");
        return file;
    }

    TemporaryFolder folder;
    Users users{MakeUsers()};
    std::atomic<std::chrono::seconds> now{1h};
    LoginThrottle throttle{[this] {
        return LoginThrottle::Clock::time_point(now.load());
    }};
    /// Has time for everything: an hour passes with each look at it.
    TimeShare hashing{[time = TimeShare::Clock::time_point()]() mutable {
        return time += 1h;
    }};
    Logins logins{users, throttle, hashing};
};

TEST_F(ALogin, IsAcceptedWithTheRightPassword)
{
    EXPECT_EQ(Try("right"), LoginResult::Accepted);
    EXPECT_EQ(logins.GetRefusedCount(), 0U);
}

TEST_F(ALogin, IsRefusedUnseenAfterThreeFailuresUntilTheDelayIsOver)
{
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(Try("wrong"), LoginResult::Refused);
    EXPECT_EQ(Try("right"), LoginResult::TooSoon);
    EXPECT_EQ(logins.GetRefusedCount(), 4U);
    now = now.load() + 1s;
    EXPECT_EQ(Try("right"), LoginResult::Accepted);
}

TEST_F(ALogin, DoesNotMakeTheDelayLongerByComingTooSoon)
{
    for (int time = 0; time < 3; ++time)
        std::ignore = Try("wrong");
    for (int time = 0; time < 20; ++time)
        EXPECT_EQ(Try("wrong"), LoginResult::TooSoon);
    now = now.load() + 1s;
    EXPECT_EQ(Try("right"), LoginResult::Accepted);
}

TEST_F(ALogin, CannotGetAroundTheDelayByComingManyAtATime)
{
    std::atomic<int> looks = 0;
    std::vector<std::jthread> threads;
    for (int number = 0; number < 16; ++number) {
        threads.emplace_back([this, &looks] {
            if (Try("wrong") == LoginResult::Refused)
                ++looks;
        });
    }
    threads.clear();
    EXPECT_EQ(looks, 3);
}

TEST_F(ALogin, ThatWasRightBeforeIsNotDelayedWhereItCameFrom)
{
    ASSERT_EQ(Try("right"), LoginResult::Accepted);
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(Try("wrong"), LoginResult::Refused);
    EXPECT_EQ(Try("wrong"), LoginResult::TooSoon);
    EXPECT_EQ(Try("right"), LoginResult::Accepted);
}

TEST_F(ALogin, ThatWasRightBeforeIsDelayedElsewhere)
{
    ASSERT_EQ(Try("right", "ann", "192.0.2.1"), LoginResult::Accepted);
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(Try("wrong", "ann", "192.0.2.2"), LoginResult::Refused);
    EXPECT_EQ(Try("right", "ann", "192.0.2.2"), LoginResult::TooSoon);
}

TEST_F(ALogin, CannotBeGuessedFasterWhereItWasRightBefore)
{
    ASSERT_EQ(Try("right"), LoginResult::Accepted);
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(Try("wrong"), LoginResult::Refused);
    bool isLocked = false;
    for (int time = 0; time < 100'000 && !isLocked; ++time) {
        EXPECT_EQ(Try("wrong"), LoginResult::TooSoon);
        isLocked = time > 50 && Try("right") == LoginResult::TooSoon;
    }
    EXPECT_TRUE(isLocked);
}

TEST_F(ALogin, OfOneUserIsNotDelayedByWrongOnesOfOthers)
{
    for (int time = 0; time < 3; ++time)
        std::ignore = Try("wrong", "bob");
    EXPECT_EQ(Try("right"), LoginResult::Accepted);
}

TEST_F(ALogin, TakesItsShareOfTheTimeAndNoMore)
{
    const TimeShare::Clock::time_point always{1h};
    Logins limited(users, throttle, TimeShare([always] { return always; }));
    int seen = 0;
    const auto tryNext = [&] {
        return limited.TryLogin("user" + std::to_string(seen), "wrong", "192.0.2.1");
    };
    while (tryNext() == LoginResult::Refused)
        ++seen;
    EXPECT_GT(seen, 1);
    EXPECT_GT(limited.GetPause(), 0s);
    // It is the look that has to wait, and no failure.
    EXPECT_EQ(throttle.GetDelay("user" + std::to_string(seen), "192.0.2.1"), 0s);
}

TEST_F(ALogin, BackToASessionNeedsThePasswordThatWasRightBeforeAndNoTime)
{
    EXPECT_EQ(logins.TryReturn("ann", "right", "192.0.2.9"), LoginResult::Refused);
    ASSERT_EQ(Try("right"), LoginResult::Accepted);
    for (int time = 0; time < 20; ++time)
        std::ignore = Try("wrong", "ann", "192.0.2.9");
    EXPECT_EQ(logins.TryReturn("ann", "right", "192.0.2.9"), LoginResult::Accepted);
    EXPECT_EQ(logins.TryReturn("ann", "wrong", "192.0.2.9"), LoginResult::Refused);
}

TEST_F(ALogin, IsLoggedWithUserAndAddressButNeverWithThePassword)
{
    for (int time = 0; time < 4; ++time)
        std::ignore = Try("a secret", "ann", "192.0.2.7");
    now = now.load() + 1s;
    std::ignore = Try("right", "ann", "192.0.2.7");
    const auto entries = sink->GetEntries();
    ASSERT_EQ(entries.size(), 5U);
    for (const auto& entry : entries) {
        EXPECT_THAT(entry.message, AllOf(HasSubstr("'ann' from 192.0.2.7"),
                                         Not(HasSubstr("secret")), Not(HasSubstr("right"))));
        EXPECT_EQ(entry.category, "Host.Login");
    }
    EXPECT_EQ(entries[0].level, Core::LogLevel::Warning);
    EXPECT_THAT(entries[2].message, HasSubstr("must wait 1 s"));
    EXPECT_THAT(entries[3].message, HasSubstr("too many failed logins"));
    EXPECT_EQ(entries[4].level, Core::LogLevel::Notice);
}

} // namespace
} // namespace Host
