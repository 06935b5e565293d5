#include "EventLoop.h"

#include <gtest/gtest.h>
#include <open62541/types.h>

#include <chrono>
#include <thread>

using Client::Cancellation;
using Client::EventLoop;
using std::chrono::steady_clock;

namespace {

const UA_Logger silent{[](void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}, nullptr,
                       nullptr};
constexpr UA_UInt32 forever = 3'600'000; // ms; the tests' timeout is shorter

TEST(TheClientsLoop, RunsWhatIsStillDelayedWhenItEnds)
{
    int runs = 0;
    UA_DelayedCallback delayed{nullptr, [](void*, void* count) { ++*static_cast<int*>(count); },
                               nullptr, &runs};
    {
        EventLoop loop(silent);
        UA_EventLoop& handle = *loop.GetHandle();
        handle.start(&handle);
        handle.addDelayedCallback(&handle, &delayed);
    }
    EXPECT_EQ(runs, 1);
}

TEST(TheClientsLoop, DoesNotWaitOnceItIsCancelled)
{
    Cancellation cancellation;
    EventLoop loop(silent, &cancellation);
    UA_EventLoop& handle = *loop.GetHandle();
    handle.start(&handle);
    std::thread canceller([&] { cancellation.Cancel(); });
    EXPECT_EQ(handle.run(&handle, forever), UA_STATUSCODE_GOOD);
    canceller.join();
    EXPECT_EQ(handle.run(&handle, forever), UA_STATUSCODE_GOOD);
}

TEST(TheClientsLoop, DoesNotWaitBeyondItsDeadline)
{
    EventLoop loop(silent);
    UA_EventLoop& handle = *loop.GetHandle();
    handle.start(&handle);
    const auto deadline = steady_clock::now() + std::chrono::milliseconds(20);
    loop.EndBy(deadline);
    while (steady_clock::now() < deadline)
        EXPECT_EQ(handle.run(&handle, forever), UA_STATUSCODE_GOOD);
}

TEST(TheClientsLoop, DoesNotWaitWhenItWasWokenBefore)
{
    EventLoop loop(silent);
    UA_EventLoop& handle = *loop.GetHandle();
    handle.start(&handle);
    loop.Wake();
    EXPECT_EQ(handle.run(&handle, forever), UA_STATUSCODE_GOOD);
}

} // namespace
