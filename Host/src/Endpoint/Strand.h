#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace Host {

/// Runs the work of one session in order, on a thread of its own: what one session waits for (a
/// dead mount, a pipe) holds up nobody else, and there are never more threads than sessions.
class Strand
{
public:
    Strand() = default;
    Strand(const Strand&) = delete;
    Strand& operator=(const Strand&) = delete;
    /// Waits for the jobs that were posted, if it was started; drops them otherwise.
    ~Strand();

    /// Starts the thread; jobs that were posted before wait for it. Throws std::system_error, see
    /// StartThread. Once.
    void Start(const std::string& purpose);

    /// Any thread. Jobs may not throw. Throws std::bad_alloc; the job is not run then.
    void Post(std::function<void()> job);

    /// True once everything that was posted has run; false when it has not within the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit);

private:
    void Run();

    std::mutex mutex;
    std::condition_variable changed; // with mutex: a job was posted or has run, or the end has come
    std::deque<std::function<void()>> jobs; // guarded by mutex; the running one stays in front
    bool ending = false;                    // guarded by mutex
    std::thread thread;
};

} // namespace Host
