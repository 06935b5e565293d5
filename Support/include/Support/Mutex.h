#pragma once

#include "Support/ThreadAnnotations.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

namespace Support {

/// The standard library's mutexes, known to clang's check of locks.
template <typename Native>
class CAPABILITY("mutex") BasicMutex
{
public:
    void lock() ACQUIRE() { native.lock(); }
    void unlock() RELEASE() { native.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return native.try_lock(); }

    [[nodiscard]] Native& GetNative() noexcept { return native; }

private:
    Native native;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

/// Any number of readers, or one writer.
class CAPABILITY("mutex") SharedMutex
{
public:
    void lock() ACQUIRE() { native.lock(); }
    void unlock() RELEASE() { native.unlock(); }
    void lock_shared() ACQUIRE_SHARED() { native.lock_shared(); }
    void unlock_shared() RELEASE_SHARED() { native.unlock_shared(); }

private:
    std::shared_mutex native;
};

/// Holds a mutex from its construction to its destruction, except between `Unlock` and `Relock`.
template <typename Mutex>
class SCOPED_CAPABILITY Lock
{
public:
    explicit Lock(Mutex& mutex) ACQUIRE(mutex)
        : mutex(mutex)
    {
        mutex.lock();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() RELEASE()
    {
        if (isHeld)
            mutex.unlock();
    }

    void Unlock() RELEASE()
    {
        mutex.unlock();
        isHeld = false;
    }
    void Relock() ACQUIRE()
    {
        mutex.lock();
        isHeld = true;
    }

private:
    friend class Condition;

    Mutex& mutex;
    bool isHeld = true;
};

/// Holds a shared mutex for reading.
class SCOPED_CAPABILITY ReadLock
{
public:
    explicit ReadLock(SharedMutex& mutex) ACQUIRE_SHARED(mutex)
        : mutex(mutex)
    {
        mutex.lock_shared();
    }
    ReadLock(const ReadLock&) = delete;
    ReadLock& operator=(const ReadLock&) = delete;
    ~ReadLock() RELEASE_GENERIC() { mutex.unlock_shared(); }

private:
    SharedMutex& mutex;
};

/// A condition variable for `Mutex`. A wait may end without a reason: wait in a loop that asks for
/// the condition, so that the compiler sees it asked with the lock held.
class Condition
{
public:
    void NotifyOne() noexcept { native.notify_one(); }
    void NotifyAll() noexcept { native.notify_all(); }

    /// Releases the lock while it waits, and holds it again when it returns.
    void Wait(Lock<Mutex>& lock)
    {
        std::unique_lock adopted(lock.mutex.GetNative(), std::adopt_lock);
        native.wait(adopted);
        adopted.release();
    }

    /// As `Wait`; returns false once the time has come.
    template <typename Clock, typename Duration>
    bool WaitUntil(Lock<Mutex>& lock, const std::chrono::time_point<Clock, Duration>& time)
    {
        std::unique_lock adopted(lock.mutex.GetNative(), std::adopt_lock);
        const auto result = native.wait_until(adopted, time);
        adopted.release();
        return result == std::cv_status::no_timeout;
    }

private:
    std::condition_variable native;
};

} // namespace Support
