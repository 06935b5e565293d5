#pragma once

#include "EventRecorder.h"
#include "FileSystemBehaviour.h"
#include "WorkerQueueTask.h"

#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <utility>

namespace FileSystemTests {

/// Waits for the value that another thread promised.
template <typename Result>
Result Await(std::future<Result>& future)
{
    if (future.wait_for(hangLimit) != std::future_status::ready)
        throw std::runtime_error("What was waited for did not happen");
    return future.get();
}

/// A task that runs a function.
class FunctionTask final : public FileSystem::FileSystemAsyncTask
{
public:
    FunctionTask(FileSystem::FileSystemBehaviour& behaviour, std::function<void()> work)
        : FileSystemAsyncTask(behaviour)
        , work(std::move(work))
    {}

    void DoWork() override { work(); }

private:
    std::function<void()> work;
};

/// Queues a function behind all queued tasks.
inline void Enqueue(FileSystem::FileSystemBehaviour& behaviour, std::function<void()> work)
{
    behaviour.EnqueueAsyncTask(std::make_shared<FunctionTask>(behaviour, std::move(work)));
}

/// Runs a function on the worker thread, after all queued tasks, and returns its result.
template <typename Function>
auto OnWorker(FileSystem::FileSystemBehaviour& behaviour, Function function)
{
    using Result = decltype(function());
    const auto task = std::make_shared<std::packaged_task<Result()>>(std::move(function));
    auto result = task->get_future();
    Enqueue(behaviour, [task] { (*task)(); });
    return Await(result);
}

/// Waits until all queued tasks have run.
inline void FinishQueue(FileSystem::FileSystemBehaviour& behaviour)
{
    OnWorker(behaviour, [] {});
}

/// Runs one task on the worker thread, to its end.
template <typename Task, typename... Arguments>
void RunTask(FileSystem::FileSystemBehaviour& behaviour, Arguments&&... arguments)
{
    behaviour.EnqueueAsyncTask(
        std::make_shared<Task>(behaviour, std::forward<Arguments>(arguments)...));
    FinishQueue(behaviour);
}

/// Holds the worker up, from its construction until `Open` or its end.
class WorkerGate
{
public:
    explicit WorkerGate(FileSystem::FileSystemBehaviour& behaviour)
    {
        const auto entered = std::make_shared<std::promise<void>>();
        auto isEntered = entered->get_future();
        Enqueue(behaviour, [entered, opened = opened.get_future().share()] {
            entered->set_value();
            opened.wait();
        });
        Await(isEntered);
    }
    WorkerGate(const WorkerGate&) = delete;
    WorkerGate& operator=(const WorkerGate&) = delete;
    ~WorkerGate() { Open(); }

    void Open()
    {
        if (!std::exchange(isOpen, true))
            opened.set_value();
    }

private:
    std::promise<void> opened;
    bool isOpen = false;
};

} // namespace FileSystemTests
