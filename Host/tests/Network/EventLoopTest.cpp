#include "Network/EventLoop.h"
#include "Network/EventDelivery.h"
#include "Transport/LoopTimers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/client_highlevel_async.h>
#include <open62541/client_subscriptions.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Host {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto patience = 60s; // only against hanging
constexpr std::size_t megabyte = std::size_t{1} << 20U;
constexpr int lifetimeCount = 500; // of the subscriptions

/// Keeps what is logged.
class Log
{
public:
    Log()
        : logger{&Log::Add, this, nullptr}
    {}

    [[nodiscard]] const UA_Logger& GetLogger() const { return logger; }

    [[nodiscard]] std::size_t Count(const std::string& part) const
    {
        const std::scoped_lock lock(mutex);
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find(part) != std::string::npos;
            }));
    }

private:
    [[gnu::format(printf, 4, 0)]] static void Add(void* self, UA_LogLevel level,
                                                  UA_LogCategory /*category*/, const char* format,
                                                  va_list arguments)
    {
        if (level < UA_LOGLEVEL_INFO)
            return;
        std::array<char, 512> text{};
        static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
        auto& log = *static_cast<Log*>(self);
        const std::scoped_lock lock(log.mutex);
        log.lines.push_back((level == UA_LOGLEVEL_WARNING ? "Warning: " : "") +
                            std::string(text.data()));
    }

    UA_Logger logger;
    mutable std::mutex mutex;
    std::vector<std::string> lines;
};

/// Waits until something is true that another thread brings about.
template <typename Condition>
[[nodiscard]] bool Eventually(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

template <typename Value>
Value WaitFor(std::future<Value> future)
{
    if (future.wait_for(patience) != std::future_status::ready)
        throw std::runtime_error("the loop does not answer");
    return future.get();
}

/// Runs a function on the loop's thread and returns what it returns.
template <typename Function>
auto OnLoop(EventLoop& loop, Function function)
{
    auto task = std::make_shared<std::packaged_task<decltype(function())()>>(std::move(function));
    auto result = task->get_future();
    loop.Post([task] { (*task)(); });
    return WaitFor(std::move(result));
}

std::size_t CountDescriptors()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/fd"), &closedir);
    std::size_t count = 0;
    while (readdir(directory.get()) != nullptr) // NOLINT(concurrency-mt-unsafe): its own stream
        ++count;
    return count;
}

/// A plain TCP client.
class RawClient
{
public:
    RawClient()
        : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {}

    explicit RawClient(std::uint16_t port)
        : RawClient()
    {
        Connect(port);
    }

    ~RawClient() { Close(); }

    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    RawClient(RawClient&& other) noexcept
        : descriptor(std::exchange(other.descriptor, -1))
    {}
    RawClient& operator=(RawClient&&) = delete;

    void Connect(std::uint16_t port) const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot connect");
    }

    void Close()
    {
        if (descriptor >= 0)
            close(std::exchange(descriptor, -1));
    }

    /// Blocks until all of it is taken.
    void Send(const std::string& text) const
    {
        std::size_t sent = 0;
        while (sent < text.size()) {
            const auto count =
                send(descriptor, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                throw std::runtime_error("cannot send");
            sent += static_cast<std::size_t>(count);
        }
    }

    /// Sends what the system takes without waiting.
    [[nodiscard]] std::size_t SendSome(const std::string& text) const
    {
        const auto count = send(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return count < 0 ? 0 : static_cast<std::size_t>(count);
    }

    /// Less than asked for if the peer closes.
    [[nodiscard]] std::string Receive(std::size_t size) const
    {
        std::string text(size, '\0');
        std::size_t received = 0;
        while (received < size) {
            const auto count = recv(descriptor, text.data() + received, size - received, 0);
            if (count <= 0)
                break;
            received += static_cast<std::size_t>(count);
        }
        text.resize(received);
        return text;
    }

    [[nodiscard]] bool IsClosedByPeer() const
    {
        pollfd query{descriptor, POLLRDHUP, 0};
        return poll(&query, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) > 0;
    }

    [[nodiscard]] std::uint16_t GetPort() const
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }

private:
    int descriptor;
};

UA_String Borrow(std::string& text)
{
    return {text.size(), reinterpret_cast<UA_Byte*>(text.data())};
}

// Timers and delivery, without a loop

void DoNothing(void* /*application*/, void* /*data*/) {}
void DoNothingElse(void* /*application*/, void* /*data*/) {}

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

class Delivery : public testing::Test
{
protected:
    [[nodiscard]] int CountVainCallsUntil(UA_DateTime end)
    {
        auto calls = 0;
        for (auto now = start; now < end; now += UA_DATETIME_MSEC) {
            delivery.RequestAll();
            for (const auto id : delivery.TakeReady(now)) {
                delivery.CountVainCall(id, now);
                ++calls;
            }
        }
        return calls;
    }

    static constexpr UA_DateTime start = 1000 * UA_DATETIME_SEC;
    EventDelivery delivery;
};

TEST_F(Delivery, IsOnlyForTheSubscriptionsOfTheOwnerThatIsNamed)
{
    const int owner = 0;
    delivery.SetOwners(
        [&owner](ConnectionId connection) { return connection == 7 ? nullptr : &owner; });
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.NoteCyclicCallback(2, &DoNothing, 8);
    delivery.NoteCyclicCallback(3, &DoNothing, 9);
    delivery.Request(&owner);
    EXPECT_EQ(delivery.GetNext(start), start);
    EXPECT_THAT(delivery.TakeReady(start), ElementsAre(2, 3));
    EXPECT_THAT(delivery.TakeReady(start), IsEmpty());
    EXPECT_FALSE(delivery.GetNext(start));
}

TEST_F(Delivery, LeavesOtherCyclicCallbacksAlone)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.NoteCyclicCallback(2, &DoNothingElse, 7);
    delivery.RequestAll();
    EXPECT_THAT(delivery.TakeReady(start), ElementsAre(1));
}

TEST_F(Delivery, ForgetsASubscriptionThatHasEnded)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.RequestAll();
    delivery.Forget(1);
    EXPECT_FALSE(delivery.GetNext(start));
    EXPECT_THAT(delivery.TakeReady(start), IsEmpty());
}

TEST_F(Delivery, RationsCallsThatHaveNothingToSend)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    EXPECT_EQ(CountVainCallsUntil(start + UA_DATETIME_SEC), 119);
}

TEST_F(Delivery, WaitsForTheNextRationAndNoLonger)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.RequestAll();
    for (auto i = 0; i < 20; ++i)
        delivery.CountVainCall(1, start);
    EXPECT_THAT(delivery.TakeReady(start), IsEmpty());
    EXPECT_EQ(delivery.GetNext(start), start + 10 * UA_DATETIME_MSEC);
    EXPECT_THAT(delivery.TakeReady(start + 10 * UA_DATETIME_MSEC), ElementsAre(1));
}

// A loop without connections

/// Calls a function through the library's callbacks.
struct Caller
{
    explicit Caller(std::function<void()> function)
        : function(std::move(function))
    {}

    static void Call(void* /*application*/, void* self) { static_cast<Caller*>(self)->function(); }

    std::function<void()> function;
};

class ALoop : public testing::Test
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
    EventLoop loop{log.GetLogger()};
    UA_EventLoop* const handle = loop.GetHandle();
};

TEST_F(ALoop, GoesThroughItsStatesAndCanStartAgain)
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

TEST_F(ALoop, IsNotStoppedBeforeItsDelayedCallbacksHaveRun)
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

TEST_F(ALoop, RunsWhatIsStillDelayedWhenItIsFreed)
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

TEST_F(ALoop, CannotBeRunFromItself)
{
    Start();
    UA_StatusCode nested = UA_STATUSCODE_GOOD;
    loop.Post([&] { nested = handle->run(handle, 0); });
    handle->run(handle, 1000);
    EXPECT_EQ(nested, UA_STATUSCODE_BADINTERNALERROR);
}

TEST_F(ALoop, CallsACyclicCallbackUntilItIsRemovedInItself)
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

TEST_F(ALoop, CallsCallbacksInTheOrderOfTheirTimesAndNeverBefore)
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

TEST_F(ALoop, WakesUpForACallbackHoweverLongItMayWait)
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

TEST_F(ALoop, RefusesCallbacksThatItCannotCall)
{
    EXPECT_NE(
        handle->addCyclicCallback(handle, &DoNothing, nullptr, nullptr, 0.0, nullptr, {}, nullptr),
        UA_STATUSCODE_GOOD);
    EXPECT_NE(
        handle->addCyclicCallback(handle, nullptr, nullptr, nullptr, 1.0, nullptr, {}, nullptr),
        UA_STATUSCODE_GOOD);
    EXPECT_NE(handle->addTimedCallback(handle, nullptr, nullptr, nullptr, 0, nullptr),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(handle->modifyCyclicCallback(handle, 99, 1.0, nullptr, {}),
              UA_STATUSCODE_BADNOTFOUND);
}

TEST_F(ALoop, IsNotHeldUpByATimedCallbackThatAddsItselfAgain)
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

TEST_F(ALoop, RunsDelayedCallbacksInOrderInItsNextTurn)
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

TEST_F(ALoop, LetsADelayedCallbackRemoveTheOneThatFollows)
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

TEST_F(ALoop, KeepsPostedFunctionsUntilItRuns)
{
    auto ran = false;
    loop.Post([&] { ran = true; });
    Start();
    EXPECT_TRUE(RunUntil([&] { return ran; }));
}

TEST_F(ALoop, LogsWhatAPostedFunctionThrowsAndGoesOn)
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

TEST_F(ALoop, RunsWhatAThreadPostsInItsOrder)
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

TEST_F(ALoop, IsWokenByWhateverOtherThreadsGiveIt)
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

TEST_F(ALoop, ReturnsWhenItIsWoken)
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

TEST_F(ALoop, SleepsAllTheWhileThatItWaits)
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

TEST_F(ALoop, RefusesToConnectElsewhere)
{
    Start();
    auto* manager = reinterpret_cast<UA_ConnectionManager*>(handle->eventSources);
    UA_UInt16 port = 4840;
    UA_KeyValuePair pair{};
    std::string name = "port";
    pair.key = {0, Borrow(name)};
    UA_Variant_setScalar(&pair.value, &port, &UA_TYPES[UA_TYPES_UINT16]);
    const UA_KeyValueMap parameters{1, &pair};
    const auto callback = [](UA_ConnectionManager*, uintptr_t, void*, void**, UA_ConnectionState,
                             const UA_KeyValueMap*, UA_ByteString) {
    };
    EXPECT_EQ(manager->openConnection(manager, &parameters, nullptr, nullptr, callback),
              UA_STATUSCODE_BADNOTSUPPORTED);
}

// Connections, without a server

/// Listens on a loop of its own thread; what comes in is counted, and sent back if that is wanted.
class Connections : public testing::Test
{
protected:
    Connections() = default;

    explicit Connections(const ConnectionLimits& limits)
        : loop(log.GetLogger(), limits)
    {}

    void TearDown() override { Stop(); }

    void SetUp() override
    {
        loop.SetClosedObserver([this](ConnectionId id) {
            const std::scoped_lock lock(mutex);
            observed.push_back(id);
            if (const auto info = loop.GetConnection(id))
                lastInfo = *info;
        });
        ASSERT_EQ(handle->start(handle), UA_STATUSCODE_GOOD);
        ASSERT_EQ(Listen({"127.0.0.1"}, false), UA_STATUSCODE_GOOD);
        port = loop.GetListenAddresses().at(0).port;
        thread = std::thread([this] {
            while (handle->state != UA_EVENTLOOPSTATE_STOPPED)
                handle->run(handle, 60000);
        });
    }

    UA_StatusCode Listen(std::vector<std::string> addresses, bool onlyCheck)
    {
        UA_UInt16 any = 0;
        UA_Boolean yes = true;
        UA_Boolean validate = onlyCheck;
        std::vector<UA_String> texts;
        std::transform(addresses.begin(), addresses.end(), std::back_inserter(texts), &Borrow);
        std::array<std::string, 4> names{"port", "listen", "validate", "address"};
        std::array<UA_KeyValuePair, 4> pairs{};
        for (std::size_t i = 0; i < pairs.size(); ++i)
            pairs.at(i).key = {0, Borrow(names.at(i))};
        UA_Variant_setScalar(&pairs[0].value, &any, &UA_TYPES[UA_TYPES_UINT16]);
        UA_Variant_setScalar(&pairs[1].value, &yes, &UA_TYPES[UA_TYPES_BOOLEAN]);
        UA_Variant_setScalar(&pairs[2].value, &validate, &UA_TYPES[UA_TYPES_BOOLEAN]);
        UA_Variant_setArray(&pairs[3].value, texts.data(), texts.size(),
                            &UA_TYPES[UA_TYPES_STRING]);
        const UA_KeyValueMap parameters{pairs.size(), pairs.data()};
        auto* manager = GetManager();
        return manager->openConnection(manager, &parameters, this, nullptr, &OnConnection);
    }

    void Stop()
    {
        if (!thread.joinable())
            return;
        loop.Post([this] { handle->stop(handle); });
        thread.join();
    }

    [[nodiscard]] UA_ConnectionManager* GetManager() const
    {
        return reinterpret_cast<UA_ConnectionManager*>(handle->eventSources);
    }

    UA_StatusCode Send(ConnectionId id, std::size_t size)
    {
        auto* manager = GetManager();
        UA_ByteString bytes;
        manager->allocNetworkBuffer(manager, id, &bytes, size);
        std::fill_n(bytes.data, size, UA_Byte{'x'});
        return manager->sendWithConnection(manager, id, nullptr, &bytes);
    }

    [[nodiscard]] std::size_t GetReceived(ConnectionId id) const
    {
        const std::scoped_lock lock(mutex);
        const auto found = received.find(id);
        return found == received.end() ? 0 : found->second;
    }

    /// The connection that a client has opened, once it is there.
    ConnectionId WaitForConnection(const RawClient& client)
    {
        ConnectionId id = 0;
        EXPECT_TRUE(Eventually([&] {
            const std::scoped_lock lock(mutex);
            const auto found = ids.find(client.GetPort());
            if (found != ids.end())
                id = found->second;
            return id != 0;
        }));
        return id;
    }

    [[nodiscard]] std::size_t CountClosed(ConnectionId id) const
    {
        const std::scoped_lock lock(mutex);
        return static_cast<std::size_t>(std::count(closed.begin(), closed.end(), id));
    }

    Log log;
    EventLoop loop{log.GetLogger()};
    UA_EventLoop* const handle = loop.GetHandle();
    std::uint16_t port = 0;
    std::atomic<bool> echo = true;
    std::atomic<bool> closeAfterEcho = false;
    std::atomic<bool> admit = true; // as if each had a session, which takes no messages of OPC UA
    std::thread thread;

    mutable std::mutex mutex; // guards what follows
    std::map<ConnectionId, std::size_t> received;
    std::map<std::uint16_t, ConnectionId> ids; // by the client's port
    std::vector<ConnectionId> closed;
    std::vector<ConnectionId> observed;
    ConnectionInfo lastInfo;

private:
    static void OnConnection(UA_ConnectionManager* manager, uintptr_t id, void* self,
                             void** /*context*/, UA_ConnectionState state,
                             const UA_KeyValueMap* /*parameters*/, UA_ByteString message)
    {
        auto& test = *static_cast<Connections*>(self);
        const auto info = test.loop.GetConnection(id);
        if (info && test.admit)
            test.loop.MarkAdmitted(id, true);
        EXPECT_EQ(test.loop.GetCurrentConnection(), info ? id : 0);
        const std::scoped_lock lock(test.mutex);
        if (info)
            test.ids[info->remotePort] = id;
        if (state == UA_CONNECTIONSTATE_CLOSING)
            test.closed.push_back(id);
        test.received[id] += message.length;
        if (test.echo && message.length > 0) {
            UA_ByteString copy;
            UA_ByteString_copy(&message, &copy);
            manager->sendWithConnection(manager, id, nullptr, &copy);
            if (test.closeAfterEcho)
                manager->closeConnection(manager, id);
        }
    }
};

TEST_F(Connections, CarryBytesBothWays)
{
    const RawClient client(port);
    for (const std::size_t size : {std::size_t{1}, megabyte}) {
        const std::string text(size, 'y');
        std::thread sender([&] { client.Send(text); });
        EXPECT_EQ(client.Receive(text.size()), text);
        sender.join();
    }
}

TEST_F(Connections, AreDescribedUntilTheyHaveClosed)
{
    RawClient client(port);
    client.Send("12345");
    EXPECT_EQ(client.Receive(5), "12345");
    const auto id = WaitForConnection(client);
    const auto clientPort = client.GetPort();
    EXPECT_EQ(loop.CountConnections(), 1U);
    client.Close();
    EXPECT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    EXPECT_FALSE(loop.GetConnection(id));
    const std::scoped_lock lock(mutex);
    EXPECT_THAT(observed, ElementsAre(id));
    EXPECT_EQ(lastInfo.remoteAddress, "127.0.0.1");
    EXPECT_EQ(lastInfo.remotePort, clientPort);
    EXPECT_EQ(lastInfo.bytesIn, 5U);
    EXPECT_EQ(lastInfo.bytesOut, 5U);
}

TEST_F(Connections, AreCurrentOnlyWhileTheyAreHandled)
{
    EXPECT_EQ(OnLoop(loop, [&] { return loop.GetCurrentConnection(); }), 0U);
    EXPECT_EQ(loop.GetCurrentConnection(), 0U);
}

TEST_F(Connections, AreClosedOnceHoweverOftenThatIsAskedFor)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    auto* manager = GetManager();
    const auto [first, second, countMeanwhile] = OnLoop(loop, [&] {
        const auto one = manager->closeConnection(manager, id);
        const auto two = manager->closeConnection(manager, id);
        loop.CloseConnection(id);
        return std::tuple(one, two, CountClosed(id));
    });
    EXPECT_EQ(first, UA_STATUSCODE_GOOD);
    EXPECT_NE(second, UA_STATUSCODE_GOOD);
    EXPECT_EQ(countMeanwhile, 0U) << "closing is not to be told from within";
    EXPECT_TRUE(client.IsClosedByPeer());
    EXPECT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    EXPECT_EQ(CountClosed(id), 1U);
    EXPECT_NE(OnLoop(loop, [&] { return Send(id, 1); }), UA_STATUSCODE_GOOD);
}

TEST_F(Connections, DeliverWhatWasSentBeforeTheyWereClosed)
{
    closeAfterEcho = true; // while its message is still being handled
    const RawClient client(port);
    client.Send("hello");
    EXPECT_EQ(client.Receive(100), "hello");
}

TEST_F(Connections, AreAllToldOfTheEndOfTheLoop)
{
    std::vector<RawClient> clients;
    clients.reserve(10);
    for (auto i = 0; i < 10; ++i)
        clients.emplace_back(port);
    for (const auto& client : clients)
        WaitForConnection(client);
    Stop();
    const std::scoped_lock lock(mutex);
    EXPECT_EQ(closed.size(), 11U) << "the connections and the listening socket";
    std::sort(closed.begin(), closed.end());
    EXPECT_EQ(std::adjacent_find(closed.begin(), closed.end()), closed.end());
    EXPECT_EQ(observed.size(), 10U);
    EXPECT_THAT(loop.GetListenAddresses(), IsEmpty());
}

TEST_F(Connections, LeaveNoDescriptorsBehind)
{
    WaitForConnection(RawClient(port));
    ASSERT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    const auto before = CountDescriptors();
    for (auto i = 0; i < 200; ++i) {
        const RawClient client(port);
        if (i % 2 == 0)
            client.Send("x");
    }
    EXPECT_TRUE(Eventually([&] {
        const std::scoped_lock lock(mutex);
        return observed.size() == 201;
    }));
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == before; }));
    const std::scoped_lock lock(mutex);
    std::sort(observed.begin(), observed.end());
    EXPECT_EQ(std::adjacent_find(observed.begin(), observed.end()), observed.end())
        << "a number was used again";
}

TEST_F(Connections, ShareThePortThatTheSystemChoseAmongAddresses)
{
    const auto status = OnLoop(loop, [&] { return Listen({"127.0.0.1", "127.0.0.2"}, false); });
    EXPECT_EQ(status, UA_STATUSCODE_GOOD);
    const auto addresses = loop.GetListenAddresses();
    ASSERT_EQ(addresses.size(), 3U);
    EXPECT_EQ(addresses[1].port, addresses[2].port);
    EXPECT_EQ(addresses[2].address, "127.0.0.2");
}

TEST_F(Connections, AreOnlyCheckedIfThatIsAllThatIsAskedFor)
{
    EXPECT_EQ(OnLoop(loop, [&] { return Listen({"127.0.0.1"}, true); }), UA_STATUSCODE_GOOD);
    EXPECT_NE(OnLoop(loop, [&] { return Listen({"192.0.2.1"}, true); }), UA_STATUSCODE_GOOD);
    EXPECT_EQ(loop.GetListenAddresses().size(), 1U);
    EXPECT_EQ(log.Count("cannot listen on 192.0.2.1"), 1U);
}

/// Takes all descriptors that the process may have.
class NoDescriptors
{
public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        auto low = before;
        low.rlim_cur = std::min<rlim_t>(before.rlim_cur, 256);
        setrlimit(RLIMIT_NOFILE, &low);
        for (;;) {
            const auto descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (descriptor < 0)
                break;
            taken.push_back(descriptor);
        }
    }

    ~NoDescriptors()
    {
        for (const auto descriptor : taken)
            close(descriptor);
        setrlimit(RLIMIT_NOFILE, &before);
    }

    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors(NoDescriptors&&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    NoDescriptors& operator=(NoDescriptors&&) = delete;

private:
    rlimit before{};
    std::vector<int> taken;
};

TEST_F(Connections, WaitToBeAcceptedWhileThereAreNoDescriptors)
{
    const RawClient present(port);
    std::vector<RawClient> clients(3); // their descriptors are taken before
    WaitForConnection(present);
    {
        const NoDescriptors none;
        for (const auto& client : clients)
            client.Connect(port);
        EXPECT_TRUE(Eventually([&] { return log.Count("cannot accept connections") > 0; }));
        present.Send("hello");
        EXPECT_EQ(present.Receive(5), "hello");
        EXPECT_EQ(loop.CountConnections(), 1U);
    }
    for (const auto& client : clients) {
        client.Send("there");
        EXPECT_EQ(client.Receive(5), "there");
    }
    EXPECT_EQ(log.Count("cannot accept connections"), 1U);
    EXPECT_EQ(log.Count("can be accepted again"), 1U);
}

class ConnectionsWithLimits : public Connections
{
protected:
    static constexpr ConnectionLimits limits{
        .connections = 3,
        .outputPause = megabyte,
        .outputLimit = 8 * megabyte,
        .brakeAllowance = 2 * megabyte,
        .strangers = {},
    };

    ConnectionsWithLimits()
        : Connections(limits)
    {}
};

TEST_F(ConnectionsWithLimits, AreRefusedAboveTheirNumber)
{
    std::vector<RawClient> clients;
    clients.reserve(10);
    for (auto i = 0; i < 3; ++i)
        WaitForConnection(clients.emplace_back(port));
    for (auto i = 0; i < 5; ++i)
        EXPECT_TRUE(RawClient(port).IsClosedByPeer());
    EXPECT_EQ(log.Count("refuses connections"), 1U);
    clients.pop_back();
    ASSERT_TRUE(Eventually([&] { return loop.CountConnections() == 2; }));
    const RawClient next(port);
    next.Send("x");
    EXPECT_EQ(next.Receive(1), "x");
    EXPECT_EQ(log.Count("room for connections again"), 1U);
}

TEST_F(ConnectionsWithLimits, AreNotReadWhileTheirOutputWaits)
{
    const RawClient client(port);
    const RawClient other(port);
    const auto id = WaitForConnection(client);
    // More than the system's buffers take, less than the limit.
    EXPECT_EQ(OnLoop(loop, [&] { return Send(id, 8 * megabyte); }), UA_STATUSCODE_GOOD);
    client.Send("hello");
    for (auto i = 0; i < 100; ++i) {
        other.Send("x");
        EXPECT_EQ(other.Receive(1), "x");
    }
    EXPECT_EQ(GetReceived(id), 0U);
    EXPECT_EQ(client.Receive(8 * megabyte), std::string(8 * megabyte, 'x'));
    EXPECT_EQ(client.Receive(5), "hello");
}

TEST_F(ConnectionsWithLimits, AreClosedIfTheirOutputIsNotTaken)
{
    const RawClient client(port);
    const RawClient other(port);
    const auto id = WaitForConnection(client);
    const auto sent = OnLoop(loop, [&] {
        std::size_t count = 0;
        while (count < 100 * megabyte && Send(id, megabyte) == UA_STATUSCODE_GOOD)
            count += megabyte;
        return count;
    });
    EXPECT_LT(sent, 100 * megabyte);
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
    EXPECT_EQ(log.Count("does not take what it asked for"), 1U);
    other.Send("x");
    EXPECT_EQ(other.Receive(1), "x");
}

TEST_F(ConnectionsWithLimits, ThatSendMostAreNotReadWhileMemoryIsShort)
{
    std::atomic isShort = true;
    OnLoop(loop, [&] {
        loop.SetMemoryBrake([&] { return isShort.load(); });
        return true;
    });
    const RawClient quiet(port);
    quiet.Send("x");
    EXPECT_EQ(quiet.Receive(1), "x");
    echo = false;
    const RawClient uploader(port);
    const auto id = WaitForConnection(uploader);
    constexpr auto total = 16 * megabyte;
    std::thread upload([&] { uploader.Send(std::string(total, 'u')); });
    EXPECT_TRUE(Eventually([&] { return GetReceived(id) >= limits.brakeAllowance / 2; }));
    echo = true;
    for (auto i = 0; i < 1000; ++i) {
        quiet.Send("x");
        EXPECT_EQ(quiet.Receive(1), "x");
    }
    EXPECT_LT(GetReceived(id), limits.brakeAllowance);
    EXPECT_EQ(log.Count("memory is short"), 1U);
    echo = false;
    isShort = false;
    EXPECT_TRUE(Eventually([&] { return GetReceived(id) == total; }));
    upload.join();
    EXPECT_EQ(log.Count("Warning: TCP: memory is no longer short"), 1U);
}

TEST_F(ConnectionsWithLimits, ThatAreNotReadAreClosedWhenTheirClientHasGone)
{
    OnLoop(loop, [&] {
        loop.SetMemoryBrake([] { return true; });
        return true;
    });
    echo = false;
    RawClient uploader(port);
    const auto id = WaitForConnection(uploader);
    const std::string block(megabyte, 'u');
    EXPECT_TRUE(Eventually([&] {
        static_cast<void>(uploader.SendSome(block));
        return GetReceived(id) >= limits.brakeAllowance;
    }));
    static_cast<void>(uploader.SendSome(block)); // what will not be read any more
    uploader.Close();
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
}

/// Clients without a session.
class Strange : public Connections
{
protected:
    Strange()
        : Connections(MakeLimits())
    {
        admit = false;
    }

    static ConnectionLimits MakeLimits()
    {
        ConnectionLimits limits;
        limits.connections = 6;
        limits.strangers.perAddress = 3;
        limits.strangers.hello = 0ms;
        limits.strangers.output = megabyte;
        return limits;
    }

    void CloseOverdue()
    {
        OnLoop(loop, [&] {
            loop.CloseOverdueConnections();
            return true;
        });
    }

    const std::string hello{"HELF\x0a\0\0\0..", 10};
};

TEST_F(Strange, ConnectionsAreToldWhyTheyAreClosed)
{
    const RawClient client(port);
    client.Send(hello);
    EXPECT_EQ(client.Receive(hello.size()), hello);
    client.Send(std::string("MSGF\xff\xff\x02\0", 8));
    const std::string reason = "too large before a session is active";
    const auto answer = client.Receive(1000);
    ASSERT_EQ(answer.size(), 16 + reason.size());
    EXPECT_EQ(answer.substr(0, 8), std::string("ERRF\x34\0\0\0", 8));
    EXPECT_EQ(answer.substr(8, 4), std::string("\0\0\x80\x80", 4)) << "Bad_TcpMessageTooLarge";
    EXPECT_EQ(answer.substr(16), reason);
    EXPECT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
}

TEST_F(Strange, ConnectionsDoNotReachTheServerWithLargeMessages)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    client.Send(std::string("MSGF\xff\xff\x02\0", 8));
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
    EXPECT_EQ(GetReceived(id), 0U);
}

TEST_F(Strange, ConnectionsMaySendLargeMessagesOnceTheyAreAdmitted)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    loop.MarkAdmitted(id, true);
    client.Send(std::string("MSGF\xff\xff\x02\0", 8));
    EXPECT_TRUE(Eventually([&] { return GetReceived(id) == 8; }));
    CloseOverdue();
    CloseOverdue();
    EXPECT_EQ(CountClosed(id), 0U);
}

TEST_F(Strange, ConnectionsThatAreOverdueAreClosedAtTheSecondLook)
{
    const RawClient silent(port);
    const RawClient other(port);
    const auto id = WaitForConnection(silent);
    other.Send(hello);
    EXPECT_EQ(other.Receive(hello.size()), hello);
    CloseOverdue();
    EXPECT_EQ(CountClosed(id), 0U);
    CloseOverdue();
    EXPECT_TRUE(silent.IsClosedByPeer());
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
    other.Send(hello);
    EXPECT_EQ(other.Receive(hello.size()), hello);
}

TEST_F(Strange, ConnectionsGiveWayToNewerOnesOfTheirAddress)
{
    std::vector<RawClient> clients;
    clients.reserve(10);
    for (auto i = 0; i < 10; ++i)
        WaitForConnection(clients.emplace_back(port));
    for (auto i = 0; i < 7; ++i)
        EXPECT_TRUE(clients.at(static_cast<std::size_t>(i)).IsClosedByPeer()) << i;
    EXPECT_TRUE(Eventually([&] { return loop.CountConnections() == 3; }));
    clients.back().Send(hello);
    EXPECT_EQ(clients.back().Receive(hello.size()), hello);
}

TEST_F(Strange, ConnectionsDoNotKeepOthersOutWhereverTheyComeFrom)
{
    std::vector<RawClient> clients;
    clients.reserve(6);
    for (auto i = 0; i < 6; ++i) {
        const auto id = WaitForConnection(clients.emplace_back(port));
        if (i != 1)
            loop.MarkAdmitted(id, true);
    }
    const RawClient next(port);
    WaitForConnection(next);
    EXPECT_TRUE(clients.at(1).IsClosedByPeer());
    next.Send(hello);
    EXPECT_EQ(next.Receive(hello.size()), hello);
    EXPECT_EQ(log.Count("those without a session give way"), 1U);
}

TEST_F(Strange, ConnectionsGiveWayWhenThereAreNoDescriptors)
{
    const RawClient old(port);
    WaitForConnection(old);
    const RawClient next; // its descriptor is taken before
    const NoDescriptors none;
    next.Connect(port);
    EXPECT_TRUE(old.IsClosedByPeer());
    next.Send(hello);
    EXPECT_EQ(next.Receive(hello.size()), hello);
}

TEST_F(Strange, ConnectionsAreClosedWhenTheyDoNotTakeTheirAnswers)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    const auto sent = OnLoop(loop, [&] {
        std::size_t count = 0;
        while (count < 100 * megabyte && Send(id, megabyte) == UA_STATUSCODE_GOOD)
            count += megabyte;
        return count;
    });
    EXPECT_LT(sent, 20 * megabyte) << "the system's buffers take some";
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
}

// A server

const UA_NodeId objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
const UA_NodeId repeat = UA_NODEID_NUMERIC(1, 1000);      // a method: its argument comes back
const UA_NodeId repeatLater = UA_NODEID_NUMERIC(1, 1001); // the same, answered asynchronously
const UA_NodeId large = UA_NODEID_NUMERIC(1, 1002);       // a variable of a megabyte

UA_StatusCode Repeat(UA_Server* /*server*/, const UA_NodeId* /*session*/, void* /*sessionContext*/,
                     const UA_NodeId* /*method*/, void* /*methodContext*/,
                     const UA_NodeId* /*object*/, void* /*objectContext*/, size_t /*inputSize*/,
                     const UA_Variant* input, size_t /*outputSize*/, UA_Variant* output)
{
    return UA_Variant_copy(input, output);
}

/// A server that runs on the loop, on a thread of its own.
class AServer : public testing::Test
{
protected:
    AServer()
    {
        UA_ServerConfig config{};
        config.eventLoop = loop.GetHandle();
        config.logging = &logger;
        UA_ServerConfig_setMinimal(&config, 0, nullptr);
        UA_String_clear(config.serverUrls);
        *config.serverUrls = UA_String_fromChars("opc.tcp://127.0.0.1:0");
        config.asyncOperationTimeout = 60000;
        config.asyncOperationNotifyCallback = &OnAsynchronousCall;
        config.context = this;
        config.lifeTimeCountLimits.min = lifetimeCount;
        server = UA_Server_newWithConfig(&config);
        AddNodes();
    }

    void TearDown() override
    {
        Stop();
        UA_Server_delete(server);
    }

    void SetUp() override
    {
        ASSERT_EQ(UA_Server_run_startup(server), UA_STATUSCODE_GOOD);
        port = loop.GetListenAddresses().at(0).port;
        thread = std::thread([this] {
            while (!stopping)
                UA_Server_run_iterate(server, true);
            UA_Server_run_shutdown(server);
        });
    }

    void Stop()
    {
        if (!thread.joinable())
            return;
        stopping = true;
        loop.Wake();
        thread.join();
    }

    /// On the loop's thread or another one: the library allows both.
    void RaiseEvent(UA_UInt16 severity)
    {
        UA_NodeId event;
        ASSERT_EQ(
            UA_Server_createEvent(server, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE), &event),
            UA_STATUSCODE_GOOD);
        std::string name = "Severity";
        UA_Server_writeObjectProperty_scalar(server, event, {0, Borrow(name)}, &severity,
                                             &UA_TYPES[UA_TYPES_UINT16]);
        ASSERT_EQ(UA_Server_triggerEvent(server, event, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER),
                                         nullptr, true),
                  UA_STATUSCODE_GOOD);
    }

    /// Nobody says here which connections have a session.
    static ConnectionLimits MakeLimits()
    {
        ConnectionLimits limits;
        limits.strangers.messageSize = limits.outputLimit;
        limits.strangers.output = limits.outputLimit;
        return limits;
    }

    Log log;
    UA_Logger logger = log.GetLogger();
    EventLoop loop{log.GetLogger(), MakeLimits()};
    UA_Server* server{};
    std::uint16_t port = 0;
    std::atomic<bool> stopping = false;
    std::thread thread;

private:
    static AServer& GetTest(UA_Server* server)
    {
        return *static_cast<AServer*>(UA_Server_getConfig(server)->context);
    }

    void AddNodes() const
    {
        AddMethod(repeat, "Repeat");
        AddMethod(repeatLater, "RepeatLater");
        UA_Server_setMethodNodeAsync(server, repeatLater, true);
        std::string content(megabyte, 'l');
        auto bytes = Borrow(content);
        auto attributes = UA_VariableAttributes_default;
        UA_Variant_setScalar(&attributes.value, &bytes, &UA_TYPES[UA_TYPES_BYTESTRING]);
        attributes.dataType = UA_TYPES[UA_TYPES_BYTESTRING].typeId;
        attributes.accessLevel = UA_ACCESSLEVELMASK_READ;
        std::string name = "Large";
        ASSERT_EQ(UA_Server_addVariableNode(
                      server, large, objects, UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT),
                      {1, Borrow(name)}, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE),
                      attributes, nullptr, nullptr),
                  UA_STATUSCODE_GOOD);
    }

    void AddMethod(const UA_NodeId& id, std::string name) const
    {
        auto attributes = UA_MethodAttributes_default;
        attributes.executable = true;
        attributes.userExecutable = true;
        UA_Argument argument{};
        argument.name = Borrow(name);
        argument.dataType = UA_TYPES[UA_TYPES_INT32].typeId;
        argument.valueRank = UA_VALUERANK_SCALAR;
        ASSERT_EQ(UA_Server_addMethodNode(server, id, objects,
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT),
                                          {1, Borrow(name)}, attributes, &Repeat, 1, &argument, 1,
                                          &argument, nullptr, nullptr),
                  UA_STATUSCODE_GOOD);
    }

    static void OnAsynchronousCall(UA_Server* server)
    {
        auto& test = GetTest(server);
        test.loop.Post([&test] { test.AnswerAsynchronousCalls(); });
    }

    void AnswerAsynchronousCalls()
    {
        UA_AsyncOperationType type{};
        const UA_AsyncOperationRequest* request{};
        void* context{};
        UA_DateTime timeout{};
        while (
            UA_Server_getAsyncOperationNonBlocking(server, &type, &request, &context, &timeout)) {
            UA_AsyncOperationResponse response{};
            auto& result = response.callMethodResult;
            result.outputArguments = request->callMethodRequest.inputArguments;
            result.outputArgumentsSize = request->callMethodRequest.inputArgumentsSize;
            UA_Server_setAsyncOperationResult(server, &response, context);
        }
        loop.FlushAnswers();
    }
};

/// The library's own client.
class Client
{
public:
    explicit Client(std::uint16_t port)
        : client(UA_Client_new(), &UA_Client_delete)
    {
        auto* config = UA_Client_getConfig(client.get());
        config->logging->log = [](void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {
        };
        UA_ClientConfig_setDefault(config);
        config->outStandingPublishRequests = 5;
        const auto url = "opc.tcp://127.0.0.1:" + std::to_string(port);
        if (UA_Client_connect(client.get(), url.c_str()) != UA_STATUSCODE_GOOD)
            throw std::runtime_error("cannot connect");
    }

    [[nodiscard]] UA_Client* Get() const { return client.get(); }

    /// Minus one if the call fails.
    [[nodiscard]] int Call(const UA_NodeId& method, int value) const
    {
        UA_Variant input;
        UA_Variant_setScalar(&input, &value, &UA_TYPES[UA_TYPES_INT32]);
        std::size_t count = 0;
        UA_Variant* output{};
        const auto status =
            UA_Client_call(client.get(), objects, method, 1, &input, &count, &output);
        const auto result =
            status == UA_STATUSCODE_GOOD && count == 1 ? *static_cast<int*>(output->data) : -1;
        UA_Array_delete(output, count, &UA_TYPES[UA_TYPES_VARIANT]);
        return result;
    }

    [[nodiscard]] std::size_t ReadLarge() const
    {
        UA_Variant value;
        if (UA_Client_readValueAttribute(client.get(), large, &value) != UA_STATUSCODE_GOOD)
            return 0;
        const auto size = static_cast<UA_ByteString*>(value.data)->length;
        UA_Variant_clear(&value);
        return size;
    }

    /// Asks for it without taking the answer.
    [[nodiscard]] bool RequestLarge() const
    {
        const auto ignore = [](UA_Client*, void*, UA_UInt32, UA_StatusCode, UA_DataValue*) {
        };
        return UA_Client_readValueAttribute_async(client.get(), large, ignore, nullptr, nullptr) ==
               UA_STATUSCODE_GOOD;
    }

    /// Subscribes to the events of the server; what comes is kept in `severities`.
    void Subscribe(double interval)
    {
        auto request = UA_CreateSubscriptionRequest_default();
        request.requestedPublishingInterval = interval;
        request.requestedLifetimeCount = lifetimeCount;
        const auto response =
            UA_Client_Subscriptions_create(client.get(), request, nullptr, nullptr, nullptr);
        std::array<std::string, 1> path{"Severity"};
        UA_QualifiedName name{0, Borrow(path[0])};
        UA_SimpleAttributeOperand field{};
        field.typeDefinitionId = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE);
        field.browsePath = &name;
        field.browsePathSize = 1;
        field.attributeId = UA_ATTRIBUTEID_VALUE;
        UA_EventFilter filter{};
        filter.selectClauses = &field;
        filter.selectClausesSize = 1;
        auto item = UA_MonitoredItemCreateRequest_default(UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER));
        item.itemToMonitor.attributeId = UA_ATTRIBUTEID_EVENTNOTIFIER;
        item.requestedParameters.queueSize = 100;
        UA_ExtensionObject_setValue(&item.requestedParameters.filter, &filter,
                                    &UA_TYPES[UA_TYPES_EVENTFILTER]);
        const auto result = UA_Client_MonitoredItems_createEvent(
            client.get(), response.subscriptionId, UA_TIMESTAMPSTORETURN_NEITHER, item, this,
            &OnEvent, nullptr);
        if (result.statusCode != UA_STATUSCODE_GOOD)
            throw std::runtime_error("cannot subscribe");
    }

    /// Takes what comes until there are so many events.
    [[nodiscard]] bool RunUntil(std::size_t count, std::chrono::milliseconds longest) const
    {
        const auto end = std::chrono::steady_clock::now() + longest;
        while (severities.size() < count && std::chrono::steady_clock::now() < end)
            UA_Client_run_iterate(client.get(), 1);
        return severities.size() >= count;
    }

    std::vector<UA_UInt16> severities;

private:
    static void OnEvent(UA_Client* /*client*/, UA_UInt32 /*subscription*/, void* /*context*/,
                        UA_UInt32 /*item*/, void* self, size_t /*count*/, UA_Variant* fields)
    {
        if (UA_Variant_hasScalarType(fields, &UA_TYPES[UA_TYPES_UINT16]))
            static_cast<Client*>(self)->severities.push_back(
                *static_cast<UA_UInt16*>(fields->data));
    }

    std::unique_ptr<UA_Client, void (*)(UA_Client*)> client;
};

TEST_F(AServer, AnswersCallsAndReads)
{
    const Client client(port);
    for (auto i = 0; i < 100; ++i)
        EXPECT_EQ(client.Call(repeat, i), i);
    EXPECT_EQ(client.ReadLarge(), megabyte);
}

TEST_F(AServer, AnswersManyClientsAtOnce)
{
    std::atomic answered = 0;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (auto i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            const Client client(port);
            for (auto call = 0; call < 100; ++call)
                answered += client.Call(repeat, call) == call ? 1 : 0;
        });
    }
    for (auto& one : threads)
        one.join();
    EXPECT_EQ(answered, 800);
}

TEST_F(AServer, AnswersAsynchronousCallsBeforeTheLibraryDoesByItself)
{
    // It does so once a second, in the first cyclic callback that it registers.
    auto* handle = loop.GetHandle();
    ASSERT_EQ(handle->modifyCyclicCallback(handle, 1, 3'600'000.0, nullptr, {}),
              UA_STATUSCODE_GOOD);
    const Client client(port);
    for (auto i = 0; i < 30; ++i)
        EXPECT_EQ(client.Call(repeatLater, i), i);
}

TEST_F(AServer, DeliversEventsWhateverThePublishingInterval)
{
    Client client(port);
    client.Subscribe(120000);
    ASSERT_TRUE(client.RunUntil(0, 0ms));
    for (UA_UInt16 i = 1; i <= 20; ++i) {
        RaiseEvent(i);
        loop.DeliverEvents();
        ASSERT_TRUE(client.RunUntil(i, patience));
    }
    EXPECT_EQ(client.severities.back(), 20);
}

TEST_F(AServer, DeliversEventsToAClientThatTakesThemLate)
{
    Client client(port);
    client.Subscribe(120000);
    for (UA_UInt16 i = 1; i <= 100; ++i) { // more than the client has asked for
        RaiseEvent(i);
        loop.DeliverEvents();
    }
    EXPECT_TRUE(client.RunUntil(100, patience));
    RaiseEvent(101);
    loop.DeliverEvents();
    EXPECT_TRUE(client.RunUntil(101, patience));
    EXPECT_TRUE(std::is_sorted(client.severities.begin(), client.severities.end()));
}

TEST_F(AServer, DeliversEventsToTheOwnerThatIsNamedAlone)
{
    Client named(port);
    OnLoop(loop, [&] {
        ConnectionId id = 0; // the only one
        for (ConnectionId candidate = 1; candidate < 10; ++candidate)
            id = loop.GetConnection(candidate) ? candidate : id;
        loop.SetSubscriptionOwners([id, owner = &named](ConnectionId connection) {
            return connection == id ? owner : nullptr;
        });
        return id;
    });
    Client other(port);
    named.Subscribe(120000);
    other.Subscribe(120000);
    RaiseEvent(7);
    loop.DeliverEvents(&named);
    EXPECT_TRUE(named.RunUntil(1, patience));
    EXPECT_FALSE(other.RunUntil(1, 100ms));
}

TEST_F(AServer, KeepsASubscriptionAliveHoweverOftenEventsAreDeliveredInVain)
{
    Client client(port);
    client.Subscribe(100);
    auto* handle = loop.GetHandle();
    std::promise<bool> done;
    auto turns = 0;
    Caller eachTurn([&] {
        loop.DeliverEvents();
        if (++turns == 3 * lifetimeCount)
            done.set_value(true);
        else
            handle->addTimedCallback(handle, &Caller::Call, nullptr, &eachTurn, 0, nullptr);
    });
    loop.Post(eachTurn.function);
    EXPECT_TRUE(WaitFor(done.get_future()));
    RaiseEvent(3);
    loop.DeliverEvents();
    EXPECT_TRUE(client.RunUntil(1, patience));
}

TEST_F(AServer, IsNotDisturbedByAClientThatTakesNoAnswers)
{
    const Client stuck(port);
    const Client other(port);
    for (auto i = 0; i < 200 && loop.CountConnections() == 2; ++i) {
        static_cast<void>(stuck.RequestLarge());
        ASSERT_EQ(other.Call(repeat, i), i);
    }
    EXPECT_EQ(other.ReadLarge(), megabyte);
}

TEST_F(AServer, IsNotDisturbedByGarbageAndHalfMessages)
{
    const Client client(port);
    std::vector<RawClient> strangers;
    const std::string halfHello("HEL", 3);
    const std::string endless("HELF\xff\xff\xff\xff", 8);
    for (const auto& text : {std::string(1000, '\xaa'), halfHello, endless, std::string("GET / "),
                             std::string(1000, '\0')}) {
        strangers.emplace_back(port);
        try {
            strangers.back().Send(text);
        } catch (const std::runtime_error&) { // closed already
        }
    }
    EXPECT_TRUE(strangers.front().IsClosedByPeer());
    for (auto i = 0; i < 100; ++i)
        EXPECT_EQ(client.Call(repeat, i), i);
}

TEST_F(AServer, StopsWithConnectionsOpen)
{
    const Client client(port);
    const Client stuck(port);
    for (auto i = 0; i < 20; ++i)
        static_cast<void>(stuck.RequestLarge());
    const RawClient stranger(port);
    stranger.Send("HEL");
    Stop();
    EXPECT_EQ(loop.CountConnections(), 0U);
    EXPECT_EQ(loop.GetHandle()->state, UA_EVENTLOOPSTATE_STOPPED);
    EXPECT_TRUE(stranger.IsClosedByPeer());
}

TEST_F(AServer, LeavesNothingOfClientsThatComeAndGo)
{
    static_cast<void>(Client(port).Call(repeat, 1));
    ASSERT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    const auto before = CountDescriptors();
    for (auto i = 0; i < 20; ++i)
        EXPECT_EQ(Client(port).Call(repeat, i), i);
    EXPECT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    EXPECT_EQ(CountDescriptors(), before);
}

} // namespace
} // namespace Host
