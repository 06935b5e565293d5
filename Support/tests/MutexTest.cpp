#include "Support/Mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace {

using Support::Condition;
using Support::Lock;
using Support::Mutex;
using Support::ReadLock;
using Support::RecursiveMutex;
using Support::SharedMutex;

/// Tries a mutex on another thread, since its owner may not.
template <typename AnyMutex>
bool IsFree(AnyMutex& mutex) NO_THREAD_SAFETY_ANALYSIS // takes it and gives it back
{
    return std::async(std::launch::async,
                      [&mutex]() NO_THREAD_SAFETY_ANALYSIS {
                          if (!mutex.try_lock())
                              return false;
                          mutex.unlock();
                          return true;
                      })
        .get();
}

TEST(ALock, HoldsItsMutexUntilItsEnd)
{
    Mutex mutex;
    {
        const Lock lock(mutex);
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ALock, LeavesItsMutexBetweenUnlockAndRelock)
{
    Mutex mutex;
    {
        Lock lock(mutex);
        lock.Unlock();
        EXPECT_TRUE(IsFree(mutex));
        lock.Relock();
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ALock, ThatIsUnlockedIsNotUnlockedAgainAtItsEnd)
{
    Mutex mutex;
    {
        Lock lock(mutex);
        lock.Unlock();
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ARecursiveMutex, IsTakenAgainByItsOwner) NO_THREAD_SAFETY_ANALYSIS // which takes it twice
{
    RecursiveMutex mutex;
    {
        const Lock outer(mutex);
        {
            const Lock inner(mutex);
        }
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(ASharedMutex, HasSeveralReadersAtATime)
{
    SharedMutex mutex;
    const ReadLock lock(mutex);
    std::async(std::launch::async, [&mutex] { const ReadLock another(mutex); }).get();
}

TEST(ASharedMutex, LetsAWriterWaitForItsReaders)
{
    SharedMutex mutex;
    int value = 0;
    std::thread writer;
    {
        const ReadLock lock(mutex);
        writer = std::thread([&] {
            const Lock writing(mutex);
            value = 1;
        });
        EXPECT_EQ(value, 0);
    }
    writer.join();
    EXPECT_EQ(value, 1);
}

struct Box
{
    Mutex mutex;
    Condition changed;
    int value GUARDED_BY(mutex) = 0;
};

TEST(ACondition, ReleasesTheLockWhileItWaits)
{
    Box box;
    std::thread other;
    {
        Lock lock(box.mutex);
        other = std::thread([&box] {
            const Lock otherLock(box.mutex);
            box.value = 1;
            box.changed.NotifyOne();
        });
        while (box.value == 0)
            box.changed.Wait(lock);
        EXPECT_FALSE(IsFree(box.mutex)) << "the wait ends with the lock held";
    }
    other.join();
}

TEST(ACondition, WakesAllThatWait)
{
    Box box;
    const auto wait = [&box] {
        Lock lock(box.mutex);
        while (box.value == 0)
            box.changed.Wait(lock);
    };
    std::thread first(wait);
    std::thread second(wait);
    {
        const Lock lock(box.mutex);
        box.value = 1;
    }
    box.changed.NotifyAll();
    first.join();
    second.join();
}

TEST(ACondition, EndsAWaitWhenTheTimeHasCome)
{
    Box box;
    Lock lock(box.mutex);
    EXPECT_FALSE(box.changed.WaitUntil(lock, std::chrono::steady_clock::now()));
    EXPECT_FALSE(IsFree(box.mutex));
}

TEST(ACondition, EndsATimedWaitWhenItIsNotified)
{
    Box box;
    std::thread other;
    bool isInTime = true;
    {
        Lock lock(box.mutex);
        other = std::thread([&box] {
            const Lock otherLock(box.mutex);
            box.value = 1;
            box.changed.NotifyOne();
        });
        const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (box.value == 0 && isInTime)
            isInTime = box.changed.WaitUntil(lock, limit);
    }
    other.join();
    EXPECT_TRUE(isInTime);
}

} // namespace
