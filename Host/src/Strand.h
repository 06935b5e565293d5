#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace Host {

/// Runs the work of one session in order, on a thread of its own: what one session waits for (a
/// dead mount, a pipe) holds up nobody else, and there are never more threads than sessions. The
/// thread starts with the first job.
class Strand
{
public:
    Strand() = default;
    Strand(const Strand&) = delete;
    Strand& operator=(const Strand&) = delete;
    /// Waits for the jobs that were posted.
    ~Strand();

    /// Any thread. Jobs may not throw.
    void Post(std::function<void()> job);

    /// True once everything that was posted has run; false when it has not within the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit);

private:
    void Run();

    std::mutex mutex;
    std::condition_variable changed; // with mutex: a job was posted or has run, or the end has come
    std::deque<std::function<void()>> jobs; // guarded by mutex; the running one stays in front
    bool ending = false;                    // guarded by mutex
    std::thread thread;                     // guarded by mutex until `ending`
};

} // namespace Host
