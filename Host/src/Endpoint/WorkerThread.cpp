#include "Endpoint/WorkerThread.h"

#include "Process/StartThread.h"

#include <utility>

namespace Host {

WorkerThread::~WorkerThread()
{
    {
        const Support::Lock lock(mutex);
        ending = true;
    }
    changed.NotifyAll();
    if (thread.joinable())
        thread.join();
}

void WorkerThread::Start(const std::string& purpose)
{
    thread = StartThread(purpose, [this] { Run(); });
}

void WorkerThread::Post(std::function<void()> job)
{
    {
        const Support::Lock lock(mutex);
        jobs.push_back(std::move(job));
    }
    changed.NotifyAll();
}

bool WorkerThread::WaitIdle(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    Support::Lock lock(mutex);
    while (!jobs.empty()) {
        if (!changed.WaitUntil(lock, deadline))
            return jobs.empty();
    }
    return true;
}

void WorkerThread::Run()
{
    Support::Lock lock(mutex);
    while (true) {
        while (!ending && jobs.empty())
            changed.Wait(lock);
        if (jobs.empty())
            return;
        auto job = std::exchange(jobs.front(), nullptr);
        lock.Unlock();
        job();
        job = nullptr; // destroys what the job holds without the lock
        lock.Relock();
        jobs.pop_front();
        changed.NotifyAll();
    }
}

} // namespace Host
