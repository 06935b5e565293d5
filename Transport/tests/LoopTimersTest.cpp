#include "Transport/LoopTimers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace Transport {
namespace {

using testing::ElementsAre;

void DoNothing(void* /*application*/, void* /*data*/) {}

const LoopTimers::Callback nothing{&DoNothing, nullptr, nullptr};

std::vector<UA_DateTime> GetTimesUntil(LoopTimers& timers, UA_DateTime end)
{
    std::vector<UA_DateTime> times;
    while (timers.GetNext() <= end) {
        times.push_back(timers.GetNext());
        timers.TakeDue(times.back());
    }
    return times;
}

TEST(ACyclicTimer, IsDueEachInterval)
{
    LoopTimers timers;
    timers.AddCyclic(nothing, {10, {}, UA_TIMER_HANDLE_CYCLEMISS_WITH_CURRENTTIME}, 100);
    EXPECT_THAT(GetTimesUntil(timers, 130), ElementsAre(110, 120, 130));
}

TEST(ACyclicTimer, StartsAtTheNextMultipleOfItsIntervalFromItsBase)
{
    for (const UA_DateTime base : {3, 103, 143}) {
        LoopTimers timers;
        timers.AddCyclic(nothing, {10, base, UA_TIMER_HANDLE_CYCLEMISS_WITH_BASETIME}, 100);
        EXPECT_THAT(GetTimesUntil(timers, 123), ElementsAre(103, 113, 123)) << base;
    }
}

TEST(ACyclicTimer, ThatStartsAtItsBaseIsNotDueBeforeTheNextInterval)
{
    LoopTimers timers;
    timers.AddCyclic(nothing, {10, 100, UA_TIMER_HANDLE_CYCLEMISS_WITH_BASETIME}, 100);
    EXPECT_EQ(timers.GetNext(), 110);
}

TEST(ACyclicTimer, LeavesMissedTimesOutAndKeepsItsBaseIfToldTo)
{
    LoopTimers timers;
    timers.AddCyclic(nothing, {10, {}, UA_TIMER_HANDLE_CYCLEMISS_WITH_BASETIME}, 100);
    timers.TakeDue(137);
    EXPECT_EQ(timers.GetNext(), 140);
    EXPECT_FALSE(timers.TakeDue(137));
}

TEST(ACyclicTimer, LeavesMissedTimesOutAndCountsFromThePresentIfToldTo)
{
    LoopTimers timers;
    timers.AddCyclic(nothing, {10, {}, UA_TIMER_HANDLE_CYCLEMISS_WITH_CURRENTTIME}, 100);
    timers.TakeDue(137);
    EXPECT_EQ(timers.GetNext(), 147);
}

TEST(ACyclicTimer, CanBeChangedAndRemoved)
{
    LoopTimers timers;
    const auto id = timers.AddCyclic(nothing, {10, {}, {}}, 100);
    EXPECT_TRUE(timers.Modify(id, {50, {}, {}}, 100));
    EXPECT_THAT(GetTimesUntil(timers, 200), ElementsAre(150, 200));
    timers.Remove(id);
    EXPECT_EQ(timers.Count(), 0U);
    EXPECT_FALSE(timers.Modify(id, {10, {}, {}}, 100));
    EXPECT_FALSE(timers.Find(id));
}

TEST(ATimer, IsDueOnceAndInOrderOfTime)
{
    LoopTimers timers;
    timers.AddOnce(nothing, 30);
    timers.AddOnce(nothing, 10);
    timers.AddOnce(nothing, 20);
    EXPECT_THAT(GetTimesUntil(timers, 1000), ElementsAre(10, 20, 30));
    EXPECT_EQ(timers.Count(), 0U);
}

TEST(AnInterval, MustBeATimeThatCanBeWaitedFor)
{
    EXPECT_EQ(LoopTimers::ToInterval(2.5), 25000);
    for (const auto bad : {0.0, -1.0, 1e300, std::nan("")})
        EXPECT_FALSE(LoopTimers::ToInterval(bad)) << bad;
}
} // namespace
} // namespace Transport
