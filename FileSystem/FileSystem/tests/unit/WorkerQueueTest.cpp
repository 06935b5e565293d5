#include "Core/Exception.h"
#include "Host.h"
#include "HostDoubles.h"
#include "LogCapture.h"
#include "Waiting.h"

#include <atomic>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace FileSystemTests {

using FileSystem::BehaviourProbe;
using FileSystem::FileSystemAsyncTask;
using FileSystem::FileSystemBehaviour;

namespace {

/// The fate of a task, and the threads that it met.
struct Fate
{
    std::atomic<bool> hasRun = false;
    std::atomic<bool> isDestroyed = false;
    std::atomic<std::thread::id> destroyedOn;
};

class MortalTask final : public FileSystemAsyncTask
{
public:
    MortalTask(FileSystemBehaviour& behaviour, std::shared_ptr<Fate> fate)
        : FileSystemAsyncTask(behaviour)
        , fate(std::move(fate))
    {}
    MortalTask(const MortalTask&) = delete;
    MortalTask& operator=(const MortalTask&) = delete;
    ~MortalTask()
    {
        fate->destroyedOn = std::this_thread::get_id();
        fate->isDestroyed = true;
    }

    void DoWork() override { fate->hasRun = true; }

private:
    std::shared_ptr<Fate> fate;
};

std::shared_ptr<Fate> EnqueueMortalTask(FileSystemBehaviour& behaviour)
{
    auto fate = std::make_shared<Fate>();
    behaviour.EnqueueAsyncTask(std::make_shared<MortalTask>(behaviour, fate));
    return fate;
}

/// True while a thread of this process waits in the kernel.
bool IsAsleep(pid_t threadId)
{
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const auto end = stat.rfind(')');
    return end != std::string::npos && stat.compare(end, 3, ") S") == 0;
}

/// Returns how often a thread of this process has gone to sleep.
std::string CountSleeps(pid_t threadId)
{
    constexpr std::string_view name = "voluntary_ctxt_switches:";
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/status");
    std::string line;
    while (std::getline(file, line) && line.compare(0, name.size(), name) != 0)
        continue;
    return line;
}

void StartTheWorkerTwice()
{
    Doubles::Context context;
    const auto behaviour = std::make_shared<FileSystemBehaviour>(*context.node);
    const BehaviourProbe probe{*behaviour};
    probe.StartWorkerThread();
    probe.StartWorkerThread();
}

} // namespace

class WorkerQueue : public FileSystemTest
{
protected:
    void Stop() { host.GetRuntime().StopBehaviour(host.GetObject()); }
    void Start() { host.GetRuntime().StartBehaviour(host.GetObject()); }
};

TEST_F(WorkerQueue, TasksRunInTheOrderInWhichTheyWereQueuedAndAllBeforeTheStopReturns)
{
    std::vector<int> order;
    {
        WorkerGate gate(behaviour);
        for (int i = 0; i < 10; ++i)
            Enqueue(behaviour, [&order, i] { order.push_back(i); });
        EXPECT_TRUE(order.empty());
    }
    Stop();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST_F(WorkerQueue, AStopWaitsForTheRunningTaskAndForAllThatAreQueued)
{
    auto gate = std::make_unique<WorkerGate>(behaviour);
    std::atomic<int> runs = 0;
    for (int i = 0; i < 10; ++i)
        Enqueue(behaviour, [&runs] { ++runs; });
    auto stopped = std::async(std::launch::async, [this, &runs] {
        Stop();
        return runs.load();
    });
    std::vector<Core::Value> outputs;
    EXPECT_TRUE(WaitUntil([&] {
        return !behaviour.OnExecuteMethod(nullptr, "GetPosition", {Core::Value(1U)}, outputs);
    }));
    EXPECT_EQ(runs, 0);
    gate->Open();
    EXPECT_EQ(Await(stopped), 10);
}

TEST_F(WorkerQueue, WhatADrainingTaskQueuesStillRuns)
{
    bool ran = false;
    {
        const WorkerGate gate(behaviour);
        Enqueue(behaviour, [&] { Enqueue(behaviour, [&] { ran = true; }); });
    }
    Stop();
    EXPECT_TRUE(ran);
}

TEST_F(WorkerQueue, TasksNeverOverlapAndThoseOfOneThreadKeepTheirOrder)
{
    constexpr int threadCount = 4;
    constexpr int taskCount = 1000;
    std::atomic<int> running = 0;
    std::atomic<bool> overlapped = false;
    std::vector<std::vector<int>> orders(threadCount);
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (auto& order : orders)
        threads.emplace_back([&] {
            for (int i = 0; i < taskCount; ++i)
                Enqueue(behaviour, [&, i] {
                    if (++running > 1)
                        overlapped = true;
                    order.push_back(i);
                    --running;
                });
        });
    for (auto& thread : threads)
        thread.join();
    FinishQueue(behaviour);
    EXPECT_FALSE(overlapped);
    for (const auto& order : orders) {
        EXPECT_EQ(order.size(), static_cast<std::size_t>(taskCount));
        EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    }
}

TEST_F(WorkerQueue, AllTasksRunOnOneThreadThatIsNotTheCallers)
{
    const auto getThread = [] {
        return std::this_thread::get_id();
    };
    const auto first = OnWorker(behaviour, getThread);
    EXPECT_NE(first, std::this_thread::get_id());
    EXPECT_EQ(OnWorker(behaviour, getThread), first);
}

TEST_F(WorkerQueue, NoLockIsHeldWhileATaskRuns)
{
    const bool taken = OnWorker(behaviour, [this] {
        std::vector<Core::Value> outputs;
        const Core::Embedding::SessionScope scope(session);
        return behaviour.OnExecuteMethod(nullptr, "Open",
                                         {Core::Value(folder / "x"), Core::Value(0U)}, outputs) &&
               behaviour.UnregisterAndCloseFile(outputs.at(0).Get<unsigned int>());
    });
    EXPECT_TRUE(taken);
}

TEST_F(WorkerQueue, RequestsAreTakenWhileTheWorkerIsBusyHoweverManyTheyAre)
{
    constexpr std::size_t requestCount = 10'000;
    const WorkerGate gate(behaviour);
    std::vector<Core::Value> outputs;
    for (std::size_t i = 0; i < requestCount; ++i)
        EXPECT_TRUE(behaviour.OnExecuteMethod(nullptr, "Exists", {Core::Value("/")}, outputs));
    EXPECT_EQ(probe.TaskQueue().size(), requestCount);
}

TEST_F(WorkerQueue, StoppingAWorkerThatNeverRanReturnsAtOnce)
{
    const auto unstarted = host.MakeUnstartedBehaviour();
    BehaviourProbe{*unstarted}.StopWorkerThread();
    std::vector<Core::Value> outputs;
    EXPECT_TRUE(unstarted->OnExecuteMethod(nullptr, "Exists", {Core::Value("/")}, outputs));
}

TEST_F(WorkerQueue, StoppingTwiceReturnsAtOnce)
{
    const auto other = host.MakeUnstartedBehaviour();
    const BehaviourProbe otherProbe{*other};
    otherProbe.StartWorkerThread();
    otherProbe.StopWorkerThread();
    otherProbe.StopWorkerThread();
    EXPECT_FALSE(otherProbe.HasWorker());
}

TEST(WorkerQueueDeathTest, StartingTheWorkerTwiceEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(StartTheWorkerTwice(), "terminate called");
}

TEST_F(WorkerQueue, OnceTheStopIsRequestedCallsAreRefusedWhileTheQueueStillDrains)
{
    auto gate = std::make_unique<WorkerGate>(behaviour);
    Enqueue(behaviour, [] {});
    auto stopped = std::async(std::launch::async, [this] { Stop(); });
    std::vector<Core::Value> outputs;
    const auto isRefused = [&] {
        return !behaviour.OnExecuteMethod(nullptr, "GetPosition", {Core::Value(1U)}, outputs);
    };
    EXPECT_TRUE(WaitUntil(isRefused));
    EXPECT_FALSE(behaviour.OnExecuteMethod(nullptr, "Exists", {Core::Value("/")}, outputs));
    gate->Open();
    Await(stopped);
    EXPECT_EQ(events.TakeAll().size(), 0U);
}

TEST_F(WorkerQueue, ATaskThatComesAfterTheWorkerHasLeftNeverRunsAlsoNotAfterARestart)
{
    Stop();
    bool ran = false;
    Enqueue(behaviour, [&ran] { ran = true; });
    behaviour.EnqueueAsyncTask(std::make_shared<FileSystem::ExistsTask>(behaviour, "/"));
    EXPECT_TRUE(probe.TaskQueue().empty());
    EXPECT_EQ(probe.TasksSetAside().size(), 2U);
    Start();
    FinishQueue(behaviour);
    Stop();
    Start();
    FinishQueue(behaviour);
    EXPECT_FALSE(ran);
    EXPECT_TRUE(events.TakeAll().empty());
}

TEST_F(WorkerQueue, ATaskThatNeverRanIsReleasedWithTheBehaviour)
{
    auto other = host.MakeUnstartedBehaviour();
    other->OnStart();
    other->OnStop();
    const auto late = EnqueueMortalTask(*other);
    EXPECT_FALSE(late->isDestroyed);
    other.reset();
    EXPECT_TRUE(late->isDestroyed);
    EXPECT_FALSE(late->hasRun);
}

TEST_F(WorkerQueue, TasksQueuedBeforeTheFirstStartRunInTheirOrder)
{
    const auto other = host.MakeUnstartedBehaviour();
    std::vector<int> order;
    for (int i = 0; i < 3; ++i)
        Enqueue(*other, [&order, i] { order.push_back(i); });
    other->OnStart();
    FinishQueue(*other);
    other->OnStop();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
}

TEST_F(WorkerQueue, AnIdleWorkerSleepsUntilThereIsSomethingToDo)
{
    const auto threadId = OnWorker(behaviour, [] { return ::gettid(); });
    // Watches for a while, since no event announces that nothing happens. A worker that looks
    // around ten times a second never stays asleep so long.
    EXPECT_TRUE(WaitUntil([&] {
        const bool wasAsleep = IsAsleep(threadId);
        const auto before = CountSleeps(threadId);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return wasAsleep && IsAsleep(threadId) && CountSleeps(threadId) == before;
    }));
}

// Lifetime of tasks

TEST_F(WorkerQueue, ATaskIsDestroyedOnTheWorkerWhenTheNextOneIsTaken)
{
    const auto workerId = OnWorker(behaviour, [] { return std::this_thread::get_id(); });
    const auto threadId = OnWorker(behaviour, [] { return ::gettid(); });
    const auto fate = EnqueueMortalTask(behaviour);
    ASSERT_TRUE(WaitUntil([&] { return fate->hasRun.load(); }));
    ASSERT_TRUE(WaitUntil([&] { return IsAsleep(threadId); }));
    EXPECT_FALSE(fate->isDestroyed);
    EXPECT_TRUE(OnWorker(behaviour, [&fate] { return fate->isDestroyed.load(); }));
    EXPECT_EQ(fate->destroyedOn.load(), workerId);
}

TEST_F(WorkerQueue, TheLastTaskIsDestroyedOnTheWorkerWhenItLeaves)
{
    const auto workerId = OnWorker(behaviour, [] { return std::this_thread::get_id(); });
    const auto fate = EnqueueMortalTask(behaviour);
    Stop();
    EXPECT_TRUE(fate->isDestroyed);
    EXPECT_EQ(fate->destroyedOn.load(), workerId);
}

// Tasks that throw

TEST_F(WorkerQueue, AStandardExceptionIsLoggedAndTheNextTaskRuns)
{
    const LogCapture log(Core::LogLevel::Error);
    Enqueue(behaviour, [] { throw std::runtime_error("x"); });
    FinishQueue(behaviour);
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "Exception caught: x");
    EXPECT_EQ(log.GetEntries()[0].code, 535U);
    EXPECT_EQ(log.GetEntries()[0].level, Core::LogLevel::Error);
    EXPECT_EQ(log.GetEntries()[0].details, "");
}

TEST_F(WorkerQueue, SomethingThatIsNoExceptionIsLoggedAndTheNextTaskRuns)
{
    const LogCapture log(Core::LogLevel::Error);
    Enqueue(behaviour, [] { throw 7; }); // NOLINT(hicpp-exception-baseclass): that is the point
    FinishQueue(behaviour);
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "Unknown exception caught");
    EXPECT_EQ(log.GetEntries()[0].code, 535U);
}

TEST_F(WorkerQueue, AnExceptionOfTheHostIsLoggedWithItsCodeAndItsFurtherText)
{
    const LogCapture log(Core::LogLevel::Error);
    Enqueue(behaviour, [] {
        throw Core::Exception(static_cast<Core::ErrorCode>(3), "the message", "the details");
    });
    FinishQueue(behaviour);
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "Exception caught: the message");
    EXPECT_EQ(log.GetEntries()[0].code, 197143U);
    EXPECT_EQ(log.GetEntries()[0].details, "the details");
}

TEST_F(WorkerQueue, OnlyTheLow16BitsOfAHostsErrorCodeAreLogged)
{
    const LogCapture log(Core::LogLevel::Error);
    Enqueue(behaviour,
            [] { throw Core::Exception(static_cast<Core::ErrorCode>(0x7FFF1203U), "x"); });
    FinishQueue(behaviour);
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].code, 0x12030217U);
}

TEST_F(WorkerQueue, AnExceptionIsCaughtAlsoWhenNobodyLogsIt)
{
    const LogCapture log(Core::LogLevel::Off);
    Enqueue(behaviour, [] { throw std::runtime_error("x"); });
    FinishQueue(behaviour);
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(WorkerQueue, NothingOfAnExceptionsTextIsBuiltWhenNobodyLogsIt)
{
    static std::atomic<int> asked;
    struct Curious : Core::Exception
    {
        using Core::Exception::Exception;
        std::string GetDetails() const override
        {
            ++asked;
            return {};
        }
    };
    const auto fail = [] {
        throw Curious(Core::ErrorCode::NotFound, "x");
    };
    asked = 0;
    {
        const LogCapture log(Core::LogLevel::Off);
        Enqueue(behaviour, fail);
        FinishQueue(behaviour);
    }
    EXPECT_EQ(asked, 0);
    const LogCapture log(Core::LogLevel::Error);
    Enqueue(behaviour, fail);
    FinishQueue(behaviour);
    EXPECT_EQ(asked, 1);
}

TEST_F(WorkerQueue, ATaskThatThrowsRaisesNoEvent)
{
    const LogCapture log(Core::LogLevel::Error);
    // Listing a file throws.
    RunTask<FileSystem::ListTask>(behaviour, folder.MakeFile("x"), false);
    ExpectNoEvent();
    EXPECT_EQ(log.GetEntries().size(), 1U);
}

TEST_F(WorkerQueue, ATaskThatThrowsWhileStoppingDoesNotEndTheDraining)
{
    const LogCapture log(Core::LogLevel::Error);
    bool ran = false;
    {
        const WorkerGate gate(behaviour);
        Enqueue(behaviour, [] { throw std::runtime_error("x"); });
        Enqueue(behaviour, [&ran] { ran = true; });
    }
    Stop();
    EXPECT_TRUE(ran);
}

} // namespace FileSystemTests
