#include "Transport/Loop.h"
#include "LoopFixtures.h"
#include "Transport/Accepting/AcceptedConnections.h"
#include "Transport/Opening/OpenedConnections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <optional>

// The loop does the same at both ends of a connection.

namespace Transport {
namespace {

using testing::ElementsAre;

void DoNothingAtAll(void* /*application*/, void* /*data*/) {}

class NoPart : public TurnPart
{
    UA_DateTime GetNext(UA_DateTime /*now*/) override
    {
        return std::numeric_limits<UA_DateTime>::max();
    }
};

enum class End
{
    Accepting,
    Opening,
};

std::unique_ptr<ConnectionManager> MakeConnections(Loop& loop, End end)
{
    if (end == End::Accepting)
        return std::make_unique<AcceptedConnections>(loop, ConnectionLimits{});
    return std::make_unique<OpenedConnections>(loop);
}

class ALoop : public testing::TestWithParam<End>
{
protected:
    void TearDown() override { Stop(); }

    void Start() const { ASSERT_EQ(handle->start(handle), UA_STATUSCODE_GOOD); }

    void Stop() const
    {
        handle->stop(handle);
        while (handle->state == UA_EVENTLOOPSTATE_STOPPING)
            handle->run(handle, 100);
    }

    template <typename Condition>
    [[nodiscard]] bool RunUntil(Condition condition) const
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!condition() && std::chrono::steady_clock::now() < end)
            handle->run(handle, 1000);
        return condition();
    }

    UA_UInt64 AddCyclic(Caller& caller, double interval) const
    {
        UA_UInt64 id = 0;
        EXPECT_EQ(handle->addCyclicCallback(handle, &Caller::Call, nullptr, &caller, interval,
                                            nullptr, UA_TIMER_HANDLE_CYCLEMISS_WITH_CURRENTTIME,
                                            &id),
                  UA_STATUSCODE_GOOD);
        return id;
    }

    Log log;
    NoPart part;
    Loop loop{log.GetLogger(), part};
    const std::unique_ptr<ConnectionManager> connections = MakeConnections(loop, GetParam());
    UA_EventLoop* const handle = &loop.GetHandle();
};

TEST_P(ALoop, GoesThroughItsStatesAndCanStartAgain)
{
    EXPECT_EQ(handle->state, UA_EVENTLOOPSTATE_FRESH);
    EXPECT_EQ(handle->run(handle, 0), UA_STATUSCODE_BADINTERNALERROR);
    for (auto round = 0; round < 2; ++round) {
        Start();
        EXPECT_EQ(handle->state, UA_EVENTLOOPSTATE_STARTED);
        EXPECT_EQ(handle->start(handle), UA_STATUSCODE_BADINTERNALERROR);
        EXPECT_EQ(handle->run(handle, 0), UA_STATUSCODE_GOOD);
        EXPECT_EQ(handle->free(handle), UA_STATUSCODE_BADINTERNALERROR);
        Stop();
        EXPECT_EQ(handle->state, UA_EVENTLOOPSTATE_STOPPED);
        EXPECT_EQ(handle->free(handle), UA_STATUSCODE_GOOD);
    }
}

TEST_P(ALoop, IsNotStoppedBeforeItsDelayedCallbacksHaveRun)
{
    Start();
    auto runs = 0;
    Caller count([&] { ++runs; });
    UA_DelayedCallback delayed{nullptr, &Caller::Call, nullptr, &count};
    handle->addDelayedCallback(handle, &delayed);
    handle->stop(handle);
    EXPECT_EQ(handle->state, UA_EVENTLOOPSTATE_STOPPING);
    handle->run(handle, 0);
    EXPECT_EQ(handle->state, UA_EVENTLOOPSTATE_STOPPED);
    EXPECT_EQ(runs, 1);
}

TEST_P(ALoop, RunsWhatIsStillDelayedWhenItIsFreed)
{
    Start();
    Stop();
    std::string order;
    Caller b([&] { order += 'b'; });
    UA_DelayedCallback second{nullptr, &Caller::Call, nullptr, &b};
    Caller a([&] {
        order += 'a';
        handle->addDelayedCallback(handle, &second);
    });
    UA_DelayedCallback first{nullptr, &Caller::Call, nullptr, &a};
    handle->addDelayedCallback(handle, &first);
    EXPECT_EQ(handle->free(handle), UA_STATUSCODE_GOOD);
    EXPECT_EQ(order, "ab");
}

TEST_P(ALoop, CannotBeRunFromItself)
{
    Start();
    UA_StatusCode nested = UA_STATUSCODE_GOOD;
    loop.Post([&] { nested = handle->run(handle, 0); });
    handle->run(handle, 1000);
    EXPECT_EQ(nested, UA_STATUSCODE_BADINTERNALERROR);
}

TEST_P(ALoop, CallsACyclicCallbackUntilItIsRemovedInItself)
{
    Start();
    auto runs = 0;
    UA_UInt64 id = 0;
    Caller count([&] {
        if (++runs == 3)
            handle->removeCyclicCallback(handle, id);
    });
    id = AddCyclic(count, 5);
    EXPECT_TRUE(RunUntil([&] { return runs == 3; }));
    EXPECT_EQ(handle->nextCyclicTime(handle), UA_INT64_MAX);
}

TEST_P(ALoop, CallsCallbacksInTheOrderOfTheirTimesAndNeverBefore)
{
    Start();
    const auto begin = UA_DateTime_nowMonotonic();
    std::vector<int> order;
    std::vector<Caller> callers;
    constexpr std::array<int, 5> after{5, 1, 4, 2, 3}; // milliseconds
    callers.reserve(after.size());
    for (const auto milliseconds : after) {
        const auto due = begin + milliseconds * UA_DATETIME_MSEC;
        callers.emplace_back([&, due, milliseconds] {
            EXPECT_GE(UA_DateTime_nowMonotonic(), due);
            order.push_back(milliseconds);
        });
        handle->addTimedCallback(handle, &Caller::Call, nullptr, &callers.back(), due, nullptr);
    }
    ASSERT_TRUE(RunUntil([&] { return order.size() == after.size(); }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5));
}

TEST_P(ALoop, WakesUpForACallbackHoweverLongItMayWait)
{
    Start();
    auto called = false;
    Caller note([&] { called = true; });
    const auto due = UA_DateTime_nowMonotonic() + 7 * UA_DATETIME_MSEC;
    handle->addTimedCallback(handle, &Caller::Call, nullptr, &note, due, nullptr);
    // It waits once; a wait may end a moment too early.
    auto turns = 0;
    for (; !called && turns < 100; ++turns)
        handle->run(handle, 600000);
    EXPECT_TRUE(called);
    EXPECT_LE(turns, 10);
}

TEST_P(ALoop, RefusesCallbacksThatItCannotCall)
{
    EXPECT_NE(handle->addCyclicCallback(handle, &DoNothingAtAll, nullptr, nullptr, 0.0, nullptr, {},
                                        nullptr),
              UA_STATUSCODE_GOOD);
    EXPECT_NE(
        handle->addCyclicCallback(handle, nullptr, nullptr, nullptr, 1.0, nullptr, {}, nullptr),
        UA_STATUSCODE_GOOD);
    EXPECT_NE(handle->addTimedCallback(handle, nullptr, nullptr, nullptr, 0, nullptr),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(handle->modifyCyclicCallback(handle, 99, 1.0, nullptr, {}),
              UA_STATUSCODE_BADNOTFOUND);
}

TEST_P(ALoop, IsNotHeldUpByATimedCallbackThatAddsItselfAgain)
{
    Start();
    auto runs = 0;
    std::function<void()> again;
    Caller caller([&] {
        ++runs;
        handle->addTimedCallback(handle, &Caller::Call, nullptr, &caller, 0, nullptr);
    });
    caller.function();
    handle->run(handle, 0);
    EXPECT_EQ(runs, 2);
}

TEST_P(ALoop, RunsDelayedCallbacksInOrderInItsNextTurn)
{
    Start();
    std::string order;
    Caller a([&] { order += 'a'; });
    Caller c([&] { order += 'c'; });
    UA_DelayedCallback first{nullptr, &Caller::Call, nullptr, &a};
    UA_DelayedCallback last{nullptr, &Caller::Call, nullptr, &c};
    Caller b([&] {
        order += 'b';
        handle->addDelayedCallback(handle, &first);
    });
    UA_DelayedCallback middle{nullptr, &Caller::Call, nullptr, &b};
    for (auto* delayed : {&first, &middle, &last})
        handle->addDelayedCallback(handle, delayed);
    handle->run(handle, 1000);
    EXPECT_EQ(order, "abc");
    handle->run(handle, 1000);
    EXPECT_EQ(order, "abca");
}

TEST_P(ALoop, LetsADelayedCallbackRemoveTheOneThatFollows)
{
    Start();
    auto runs = 0;
    Caller count([&] { ++runs; });
    UA_DelayedCallback victim{nullptr, &Caller::Call, nullptr, &count};
    Caller remove([&] { handle->removeDelayedCallback(handle, &victim); });
    UA_DelayedCallback first{nullptr, &Caller::Call, nullptr, &remove};
    handle->addDelayedCallback(handle, &first);
    handle->addDelayedCallback(handle, &victim);
    handle->run(handle, 0);
    handle->run(handle, 0);
    EXPECT_EQ(runs, 0);
}

TEST_P(ALoop, KeepsPostedFunctionsUntilItRuns)
{
    auto ran = false;
    loop.Post([&] { ran = true; });
    Start();
    EXPECT_TRUE(RunUntil([&] { return ran; }));
}

TEST_P(ALoop, LogsWhatAPostedFunctionThrowsAndGoesOn)
{
    Start();
    auto ran = false;
    loop.Post([] { throw std::runtime_error("went wrong"); });
    loop.Post([] { throw 7; });
    loop.Post([&] { ran = true; });
    EXPECT_TRUE(RunUntil([&] { return ran; }));
    EXPECT_EQ(log.Count("went wrong"), 1U);
    EXPECT_EQ(log.Count("an unknown reason"), 1U);
}

TEST_P(ALoop, RunsWhatAThreadPostsInItsOrder)
{
    Start();
    constexpr std::size_t threadCount = 4;
    constexpr int each = 2000;
    std::array<std::vector<int>, threadCount> order;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (auto& own : order) {
        threads.emplace_back([&] {
            for (auto i = 0; i < each; ++i)
                loop.Post([&own, i] { own.push_back(i); });
        });
    }
    EXPECT_TRUE(RunUntil([&] {
        return std::all_of(order.begin(), order.end(),
                           [](const auto& own) { return own.size() == each; });
    }));
    for (auto& thread : threads)
        thread.join();
    for (const auto& own : order)
        EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
}

TEST_P(ALoop, IsWokenByWhateverOtherThreadsGiveIt)
{
    Start();
    const std::vector<std::function<void(Caller&)>> ways{
        [&](Caller& caller) { loop.Post(caller.function); },
        [&](Caller& caller) {
            handle->addTimedCallback(handle, &Caller::Call, nullptr, &caller, 0, nullptr);
        },
        [&](Caller& caller) {
            static UA_DelayedCallback delayed;
            delayed = {nullptr, &Caller::Call, nullptr, &caller};
            handle->addDelayedCallback(handle, &delayed);
        },
    };
    for (const auto& give : ways) {
        std::atomic called = false;
        Caller caller([&] { called = true; });
        std::thread giver([&] { give(caller); });
        const auto begin = std::chrono::steady_clock::now();
        while (!called && std::chrono::steady_clock::now() < begin + patience)
            handle->run(handle, 100000);
        giver.join();
        EXPECT_TRUE(called);
    }
}

TEST_P(ALoop, ReturnsWhenItIsWoken)
{
    Start();
    auto called = false;
    Caller note([&] { called = true; });
    const auto patienceEnds = UA_DateTime_nowMonotonic() + 60 * UA_DATETIME_SEC;
    handle->addTimedCallback(handle, &Caller::Call, nullptr, &note, patienceEnds, nullptr);
    std::thread waker([&] { loop.Wake(); });
    handle->run(handle, 600000);
    waker.join();
    handle->run(handle, 0);
    EXPECT_FALSE(called);
}

/// How often a thread of this process has gone to sleep; nothing while it is awake.
std::optional<std::string> CountSleeps(pid_t thread)
{
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    const std::string text(std::istreambuf_iterator<char>(status), {});
    if (text.find("State:\tS") == std::string::npos)
        return std::nullopt;
    const auto at = text.find("voluntary_ctxt_switches:");
    return text.substr(at, text.find('\n', at) - at);
}

TEST_P(ALoop, SleepsAllTheWhileThatItWaits)
{
    Start();
    std::promise<pid_t> id;
    std::thread runner([&] {
        id.set_value(gettid());
        handle->run(handle, 600000);
    });
    const auto thread = WaitFor(id.get_future());
    // That nothing happens is announced by nobody, so it is watched for a while; one that looks
    // around ten times a second is never found like that.
    EXPECT_TRUE(Eventually([&] {
        const auto before = CountSleeps(thread);
        std::this_thread::sleep_for(300ms);
        return before && before == CountSleeps(thread);
    }));
    loop.Wake();
    runner.join();
}

/// Asks for a connection of the kind that the end does not make.
TEST_P(ALoop, RefusesConnectionsOfTheOtherEnd)
{
    Start();
    auto* manager = &connections->GetHandle();
    UA_UInt16 port = 4840;
    UA_Boolean listens = GetParam() == End::Opening;
    std::array<UA_KeyValuePair, 2> pairs{};
    pairs[0].key = {0, Borrow("port")};
    UA_Variant_setScalar(&pairs[0].value, &port, &UA_TYPES[UA_TYPES_UINT16]);
    pairs[1].key = {0, Borrow("listen")};
    UA_Variant_setScalar(&pairs[1].value, &listens, &UA_TYPES[UA_TYPES_BOOLEAN]);
    const UA_KeyValueMap parameters{pairs.size(), pairs.data()};
    const auto callback = [](UA_ConnectionManager*, uintptr_t, void*, void**, UA_ConnectionState,
                             const UA_KeyValueMap*, UA_ByteString) {
    };
    EXPECT_EQ(manager->openConnection(manager, &parameters, nullptr, nullptr, callback),
              UA_STATUSCODE_BADNOTSUPPORTED);
}

TEST_P(ALoop, ChangesNoTimerToAPeriodThatCannotBeWaitedFor)
{
    Caller nothing([] {});
    const auto id = AddCyclic(nothing, 5);
    for (const auto bad : {0.0, -1.0})
        EXPECT_EQ(handle->modifyCyclicCallback(handle, id, bad, nullptr, {}),
                  UA_STATUSCODE_BADINVALIDARGUMENT);
}

INSTANTIATE_TEST_SUITE_P(BothEnds, ALoop, testing::Values(End::Accepting, End::Opening),
                         [](const auto& end) {
                             return end.param == End::Accepting ? "Accepting" : "Opening";
                         });

} // namespace
} // namespace Transport
