#include "Endpoint/LookUps.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

namespace Host {
namespace {

using namespace std::chrono_literals;

/// Holds look-ups until it is opened.
class Gate
{
public:
    void Open() { promise.set_value(); }
    void Pass() const { opened.wait(); }

private:
    std::promise<void> promise;
    std::shared_future<void> opened = promise.get_future().share();
};

/// A look-up that is not slow is never too late here: on a busy machine, threads have to wait.
constexpr LookUpLimits patient{.silence = 60s, .longest = 60s, .budget = 60s, .free = 0us};
constexpr LookUpLimits impatient{.silence = 5ms, .longest = 60s, .budget = 60s, .free = 0us};

const LookUps::Lane theLane{0, 0};
const LookUps::Lane otherLane{0, 1};

LookUps::Work Count(const std::shared_ptr<std::atomic<int>>& count)
{
    return [count](const LookUps::Sign& /*sign*/) {
        ++*count;
    };
}

class LookUpsOfALane : public testing::Test
{
protected:
    static LookUps::Work WaitAt(const std::shared_ptr<Gate>& gate)
    {
        return [gate](const LookUps::Sign& /*sign*/) {
            gate->Pass();
        };
    }

    /// Waits until the lane takes look-ups again.
    static void WaitUntilOpen(LookUps& lookUps)
    {
        while (!lookUps.Run(theLane, [](const LookUps::Sign& /*sign*/) {}))
            std::this_thread::yield();
    }

    const std::shared_ptr<Gate> gate = std::make_shared<Gate>();
    const std::shared_ptr<std::atomic<int>> count = std::make_shared<std::atomic<int>>(0);
};

TEST_F(LookUpsOfALane, RunOnAThreadOfTheLane)
{
    LookUps lookUps(patient);
    std::thread::id first;
    std::thread::id second;
    std::thread::id other;
    ASSERT_TRUE(
        lookUps.Run(theLane, [&](const auto& /*sign*/) { first = std::this_thread::get_id(); }));
    ASSERT_TRUE(
        lookUps.Run(theLane, [&](const auto& /*sign*/) { second = std::this_thread::get_id(); }));
    ASSERT_TRUE(
        lookUps.Run(otherLane, [&](const auto& /*sign*/) { other = std::this_thread::get_id(); }));
    EXPECT_EQ(first, second);
    EXPECT_NE(first, other);
    EXPECT_NE(first, std::this_thread::get_id());
}

TEST_F(LookUpsOfALane, AreGivenUpWithoutASignOfProgressAndRefusedUntilItEnds)
{
    LookUps lookUps(impatient);
    EXPECT_FALSE(lookUps.Run(theLane, WaitAt(gate)));
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(lookUps.Run(theLane, Count(count)));
    EXPECT_EQ(*count, 0);
    gate->Open();
    WaitUntilOpen(lookUps);
    EXPECT_EQ(*count, 0); // none of those that were refused runs later
}

TEST_F(LookUpsOfALane, DoNotDisturbThoseOfAnother)
{
    LookUps lookUps(impatient);
    EXPECT_FALSE(lookUps.Run(theLane, WaitAt(gate)));
    int done = 0;
    for (int i = 0; i < 1'000 && done < 10; ++i)
        done += lookUps.Run(otherLane, Count(count)) ? 1 : 0;
    EXPECT_EQ(done, 10);
    gate->Open();
}

TEST_F(LookUpsOfALane, AreWaitedForWhileTheyShowProgress)
{
    constexpr LookUpLimits limits{.silence = 200ms, .longest = 60s, .budget = 60s, .free = 0us};
    LookUps lookUps(limits);
    EXPECT_TRUE(lookUps.Run(theLane, [this, &limits](const LookUps::Sign& sign) {
        const auto end = LookUps::Clock::now() + 2 * limits.silence;
        while (LookUps::Clock::now() < end) {
            sign();
            std::this_thread::yield();
        }
        ++*count;
    }));
    EXPECT_EQ(*count, 1);
}

TEST_F(LookUpsOfALane, AreGivenUpInTheEndAlthoughTheyShowProgress)
{
    constexpr LookUpLimits limits{.silence = 60s, .longest = 5ms, .budget = 60s, .free = 0us};
    LookUps lookUps(limits);
    const auto stop = std::make_shared<std::atomic<bool>>(false);
    const auto ticket = lookUps.Begin(theLane, [stop](const LookUps::Sign& sign) {
        while (!*stop)
            sign();
    });
    ASSERT_NE(ticket, nullptr);
    EXPECT_FALSE(lookUps.Wait(ticket));
    *stop = true;
}

TEST_F(LookUpsOfALane, ThatWereGivenUpCanBeWaitedForAgain)
{
    LookUps lookUps(impatient);
    std::promise<void> begun;
    const auto ticket = lookUps.Begin(theLane, [&begun, gate = gate](const auto& /*sign*/) {
        begun.set_value();
        gate->Pass();
    });
    ASSERT_NE(ticket, nullptr);
    begun.get_future().wait();
    EXPECT_FALSE(lookUps.Wait(ticket));
    EXPECT_FALSE(LookUps::IsOver(*ticket));
    gate->Open();
    while (!lookUps.Wait(ticket))
        std::this_thread::yield();
    EXPECT_TRUE(LookUps::IsOver(*ticket));
}

TEST_F(LookUpsOfALane, NeverBeginIfTheyWereGivenUpBefore)
{
    constexpr LookUpLimits limits{.silence = 60s, .longest = 1ms, .budget = 60s, .free = 0us};
    LookUps lookUps(limits);
    std::promise<void> begun;
    const auto first = lookUps.Begin(theLane, [&begun, gate = gate](const auto& /*sign*/) {
        begun.set_value();
        gate->Pass();
    });
    begun.get_future().wait();
    const auto second = lookUps.Begin(theLane, Count(count));
    ASSERT_NE(second, nullptr); // the first may still show progress
    EXPECT_FALSE(lookUps.Wait(second));
    EXPECT_TRUE(LookUps::IsOver(*second));
    gate->Open();
    EXPECT_TRUE(lookUps.WaitIdle(60s));
    EXPECT_EQ(*count, 0);
}

TEST_F(LookUpsOfALane, AreRefusedOnceTheyHaveUsedUpTheirBudget)
{
    // A minute later it has some again. The look-up sleeps to be slow, which is what is tested.
    constexpr LookUpLimits limits{.silence = 60s, .longest = 60s, .budget = 1ms, .free = 0us};
    LookUps lookUps(limits);
    EXPECT_TRUE(
        lookUps.Run(theLane, [](const auto& /*sign*/) { std::this_thread::sleep_for(60ms); }));
    EXPECT_FALSE(lookUps.Run(theLane, Count(count)));
    EXPECT_EQ(*count, 0);
}

TEST_F(LookUpsOfALane, CostNothingWhileTheyAreFast)
{
    constexpr LookUpLimits limits{.silence = 60s, .longest = 60s, .budget = 1us, .free = 60s};
    LookUps lookUps(limits);
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(lookUps.Run(theLane, Count(count)));
    EXPECT_EQ(*count, 100);
}

TEST_F(LookUpsOfALane, OfThoseWhoHaveAnAnswerWaitForHalfOfTheBudget)
{
    constexpr LookUpLimits limits{.silence = 60s, .longest = 60s, .budget = 2s, .free = 0us};
    LookUps lookUps(limits);
    const auto ticket = lookUps.Begin(theLane, WaitAt(gate));
    EXPECT_FALSE(lookUps.Wait(ticket, LookUps::Patience::Short));
    gate->Open();
    // The other half is left for those who have none.
    EXPECT_TRUE(lookUps.Run(theLane, Count(count)));
}

TEST_F(LookUpsOfALane, AreNotIdleWhileOneRuns)
{
    LookUps lookUps(impatient);
    EXPECT_FALSE(lookUps.Run(theLane, WaitAt(gate)));
    EXPECT_FALSE(lookUps.WaitIdle(0ms));
    gate->Open();
    EXPECT_TRUE(lookUps.WaitIdle(60s));
}

} // namespace
} // namespace Host
