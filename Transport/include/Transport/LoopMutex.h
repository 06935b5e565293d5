#pragma once

#include "Support/ThreadAnnotations.h"

#include <mutex>

namespace Transport {

/// Names the lock of the loop that an object belongs to, for clang's check of locks: the loop's
/// parts refer to one lock by many names, which clang cannot tell to be the same.
struct CAPABILITY("mutex") LoopCapability
{};
inline LoopCapability loopLock;

/// Guards a loop and its connections. Recursive: the library and what it calls take it again.
class LoopMutex
{
public:
    // Not checked inside: the native mutex does not say that it is `loopLock`.
    void lock() ACQUIRE(loopLock) NO_THREAD_SAFETY_ANALYSIS { native.lock(); }
    void unlock() RELEASE(loopLock) NO_THREAD_SAFETY_ANALYSIS { native.unlock(); }

private:
    std::recursive_mutex native;
};

/// Holds the loop's lock, except between `Unlock` and `Relock`.
class SCOPED_CAPABILITY LoopLock
{
public:
    explicit LoopLock(LoopMutex& mutex) ACQUIRE(loopLock)
        : mutex(mutex)
    {
        mutex.lock();
    }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;
    ~LoopLock() RELEASE() { mutex.unlock(); }

    void Unlock() RELEASE() { mutex.unlock(); }
    /// To be called after each `Unlock`: the destructor unlocks in any case.
    void Relock() ACQUIRE() { mutex.lock(); }

private:
    LoopMutex& mutex;
};

} // namespace Transport
