#pragma once

#include "Support/Mutex.h"

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <thread>

namespace Host {

/// Runs jobs one after another, on a thread of its own. Each session has one: a session that waits
/// (for a dead mount, for a pipe) delays nobody else, and there are never more threads than
/// sessions.
class WorkerThread
{
public:
    WorkerThread() = default;
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;
    /// Waits until all posted jobs have run. If the thread was never started, drops them.
    ~WorkerThread();

    /// Starts the thread, which runs the jobs that were posted before, too. Call it once. Throws
    /// std::system_error, see StartThread.
    void Start(const std::string& purpose);

    /// Appends a job, which must not throw. Any thread may call it. Throws std::bad_alloc; the job
    /// does not run then.
    void Post(std::function<void()> job) EXCLUDES(mutex);

    /// Returns true once all posted jobs have run, false if they have not within the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit) EXCLUDES(mutex);

private:
    void Run() EXCLUDES(mutex);

    Support::Mutex mutex;
    Support::Condition changed; // a job was posted or has run, or `ending` was set
    std::deque<std::function<void()>> jobs GUARDED_BY(mutex); // the running one stays in front
    bool ending GUARDED_BY(mutex) = false;
    std::thread thread;
};

} // namespace Host
