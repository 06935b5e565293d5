#pragma once

#include "Support/Mutex.h"

#include <string>
#include <thread>
#include <vector>

namespace Core {

/// An activity of a thread for which others may have to wait. Lives on the stack of its thread.
struct Activity
{
    std::thread::id thread = std::this_thread::get_id();
};

/// Knows which thread waits for which, so that no two threads ever wait for each other while
/// foreign code runs.
class WaitGraph
{
public:
    /// A thread and the activities that it waits for. Guarded by `mutex` while it is in the graph.
    struct Waiter
    {
        std::thread::id thread = std::this_thread::get_id();
        std::vector<const Activity*> activities;
        Support::Condition ended;
    };

    /// Also guards the states from which its users decide who has to wait. No foreign code runs
    /// under it.
    Support::Mutex mutex;

    /// True for the calling thread's own activities and for those whose thread waits for the
    /// calling one, directly or through others: waiting for them would never end.
    [[nodiscard]] bool IsHeldUpByThisThread(const Activity& activity) const REQUIRES(mutex);

    /// Waits until all the activities have ended; releases the lock meanwhile.
    /// REQUIRES: `lock` holds the mutex; this thread holds up none of the activities.
    void Wait(Support::Lock<Support::Mutex>& lock, std::vector<const Activity*> activities)
        REQUIRES(mutex);

    /// Called when an activity is over.
    void End(const Activity& activity) noexcept REQUIRES(mutex);

    /// Puts a waiter into the graph and takes it out again, for a wait inside foreign code.
    void Enter(Waiter& waiter) REQUIRES(mutex) { waiters.push_back(&waiter); }
    void Leave(Waiter& waiter) noexcept REQUIRES(mutex) { std::erase(waiters, &waiter); }

private:
    [[nodiscard]] bool IsWaitingFor(std::thread::id waiting, std::thread::id other) const
        REQUIRES(mutex);

    std::vector<Waiter*> waiters GUARDED_BY(mutex); // without cycles
};

/// Lets threads through one at a time; a turn may run foreign code.
class Turnstile
{
    friend class Turn;
    const Activity* holder = nullptr; // guarded by the mutex of the wait graph
};

/// A thread's turn at a turnstile.
class Turn
{
public:
    /// Waits for its turn. Throws InvalidStateException naming `purpose` when this thread has the
    /// turn already, or the thread that has it waits for this one.
    Turn(WaitGraph& graph, Turnstile& turnstile, const std::string& purpose);
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

private:
    WaitGraph& graph;
    Turnstile& turnstile;
    const Activity activity;
};

} // namespace Core
