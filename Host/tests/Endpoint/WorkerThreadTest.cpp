#include "Endpoint/WorkerThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace Host {
namespace {

TEST(AWorkerThread, RunsJobsInTheOrderInWhichTheyWerePosted)
{
    std::vector<int> ran;
    {
        WorkerThread worker;
        worker.Post([&ran] { ran.push_back(1); });
        worker.Start("for a test");
        worker.Post([&ran] { ran.push_back(2); });
        worker.Post([&ran] { ran.push_back(3); });
    }
    EXPECT_EQ(ran, (std::vector{1, 2, 3}));
}

TEST(AWorkerThread, RunsAllJobsOnOneThreadOfItsOwn)
{
    std::vector<std::thread::id> threads;
    {
        WorkerThread worker;
        worker.Start("for a test");
        for (int i = 0; i < 2; ++i)
            worker.Post([&threads] { threads.push_back(std::this_thread::get_id()); });
    }
    ASSERT_EQ(threads.size(), 2U);
    EXPECT_EQ(threads[0], threads[1]);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(AWorkerThread, IsIdleOnceAllJobsHaveRun)
{
    std::promise<void> release;
    WorkerThread worker;
    worker.Start("for a test");
    worker.Post([running = release.get_future().share()] { running.wait(); });
    EXPECT_FALSE(worker.WaitIdle(std::chrono::milliseconds(0)));
    release.set_value();
    EXPECT_TRUE(worker.WaitIdle(std::chrono::minutes(1)));
}

TEST(AWorkerThread, DestroysAJobBeforeItIsIdle)
{
    WorkerThread worker;
    const auto held = std::make_shared<int>(0);
    worker.Start("for a test");
    worker.Post([held] {});
    ASSERT_TRUE(worker.WaitIdle(std::chrono::minutes(1)));
    EXPECT_EQ(held.use_count(), 1);
}

TEST(AWorkerThread, DropsTheJobsOfAThreadThatWasNeverStarted)
{
    bool hasRun = false;
    {
        WorkerThread worker;
        worker.Post([&hasRun] { hasRun = true; });
    }
    EXPECT_FALSE(hasRun);
}

} // namespace
} // namespace Host
