#include "Logins.h"

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
    Logins logins{users, throttle};
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
    EXPECT_THAT(entries[2].message, HasSubstr("has to wait 1 s"));
    EXPECT_THAT(entries[3].message, HasSubstr("too soon"));
    EXPECT_EQ(entries[4].level, Core::LogLevel::Notice);
}

} // namespace
} // namespace Host
