#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Core {

/// Something that a thread is doing and that others may have to wait for. Lives on the stack of its
/// thread.
struct Activity
{
    std::thread::id thread = std::this_thread::get_id();
};

/// Knows which thread waits for which, so that no two ever wait for each other while foreign code
/// runs. Its one lock also guards the states that decide who has to wait; no foreign code runs
/// under it.
class WaitGraph
{
public:
    using Lock = std::unique_lock<std::mutex>;

    [[nodiscard]] Lock Acquire() { return Lock(mutex); }

    /// True for the calling thread's own activities and for those whose thread waits for the
    /// calling one, directly or through others: waiting for them would never end.
    /// REQUIRES: the lock is held.
    [[nodiscard]] bool IsHeldUpByThisThread(const Activity& activity) const;

    /// Waits until every one of them has ended; releases the lock meanwhile.
    /// REQUIRES: the lock is held; none of them is held up by this thread.
    void Wait(Lock& lock, std::vector<const Activity*> activities);

    /// To be called when an activity is over. REQUIRES: the lock is held.
    void End(const Activity& activity) noexcept;

    /// A thread and the activities that it waits for. Guarded by the lock while it is in the graph.
    struct Waiter
    {
        std::thread::id thread = std::this_thread::get_id();
        std::vector<const Activity*> activities;
        std::condition_variable ended;
    };

    /// Puts a waiter into the graph and takes it out again, for a wait that foreign code may do by
    /// itself. REQUIRES: the lock is held.
    void Enter(Waiter& waiter) { waiters.push_back(&waiter); }
    void Leave(Waiter& waiter) noexcept { std::erase(waiters, &waiter); }

private:
    [[nodiscard]] bool IsWaitingFor(std::thread::id waiting, std::thread::id other) const;

    std::mutex mutex;
    std::vector<Waiter*> waiters; // guarded by mutex; without cycles
};

/// Something that threads do in turn, foreign code included.
class Turnstile
{
    friend class Turn;
    const Activity* holder = nullptr; // guarded by the lock of the wait graph
};

/// A thread's turn at a turnstile.
class Turn
{
public:
    /// Waits for its turn. Throws InvalidStateException naming `purpose` if this thread has the
    /// turn already or the one that has it waits for this thread.
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
