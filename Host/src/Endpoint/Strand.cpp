#include "Endpoint/Strand.h"

#include "Process/StartThread.h"

#include <utility>

namespace Host {

Strand::~Strand()
{
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    changed.notify_all();
    if (thread.joinable())
        thread.join();
}

void Strand::Start(const std::string& purpose)
{
    thread = StartThread(purpose, [this] { Run(); });
}

void Strand::Post(std::function<void()> job)
{
    {
        const std::lock_guard lock(mutex);
        jobs.push_back(std::move(job));
    }
    changed.notify_all();
}

bool Strand::WaitIdle(std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [this] { return jobs.empty(); });
}

void Strand::Run()
{
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return ending || !jobs.empty(); });
        if (jobs.empty())
            return;
        auto job = std::exchange(jobs.front(), nullptr);
        lock.unlock();
        job();
        job = nullptr; // what it holds may be the last of its kind: not under the lock
        lock.lock();
        jobs.pop_front();
        changed.notify_all();
    }
}

} // namespace Host
