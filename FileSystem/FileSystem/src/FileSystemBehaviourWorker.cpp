#include "FileSystemBehaviour.h"

#include "BehaviourSource.h"
#include "Core/Exception.h"
#include "Diagnostics.h"
#include "WorkerQueueTask.h"

#include <exception>
#include <utility>

namespace FileSystem {

void FileSystemBehaviour::EnqueueAsyncTask(const std::shared_ptr<FileSystemAsyncTask>& task)
{
    {
        const std::lock_guard lock(taskMutex);
        if (workerGone)
            tasksSetAside.push_back(task);
        else
            taskQueue.push_back(task);
    }
    taskCondition.notify_one();
}

/// Leaves the behaviour as it was when the system gives no thread: a stopped behaviour goes on
/// refusing calls, without a gap.
void FileSystemBehaviour::StartWorkerThread()
{
    const std::lock_guard lock(taskMutex);
    workerThread = std::thread([this] { RunTasks(); });
    stopRequested = false;
    workerGone = false;
}

void FileSystemBehaviour::StopWorkerThread()
{
    if (!workerThread.joinable())
        return;
    {
        const std::lock_guard lock(taskMutex);
        stopRequested = true;
    }
    taskCondition.notify_one();
    workerThread.join();
}

bool FileSystemBehaviour::IsStopRequested()
{
    const std::lock_guard lock(taskMutex);
    return stopRequested;
}

void FileSystemBehaviour::RunTasks()
{
    // A task lives until the next one is taken: it is destroyed one pass later.
    std::shared_ptr<FileSystemAsyncTask> task;
    while (TakeTask(task))
        RunTask(*task);
}

bool FileSystemBehaviour::TakeTask(std::shared_ptr<FileSystemAsyncTask>& task)
{
    std::unique_lock lock(taskMutex);
    taskCondition.wait(lock, [this] { return stopRequested || !taskQueue.empty(); });
    if (taskQueue.empty()) {
        workerGone = true;
        return false;
    }
    task = std::move(taskQueue.front());
    taskQueue.pop_front();
    return true;
}

void FileSystemBehaviour::RunTask(FileSystemAsyncTask& task)
{
    // These entries name the worker's function object, as published.
    const auto describe = [](std::uint32_t code) {
        return LogStatement{Core::LogLevel::Error, code, behaviourSource, "operator()", 820};
    };
    try {
        task.DoWork();
    } catch (const Core::Exception& exception) {
        const std::uint32_t family = exception.GetErrorCode() << 16U;
        Log(
            describe(LogCode::general | family),
            [&](std::ostream& text) { text << "Exception caught: " << exception.GetMessage(); },
            [&] { return exception.GetDetails(); });
    } catch (const std::exception& exception) {
        Log(describe(LogCode::general),
            [&](std::ostream& text) { text << "Exception caught: " << exception.what(); });
    } catch (...) {
        Log(describe(LogCode::general),
            [](std::ostream& text) { text << "Unknown exception caught"; });
    }
}

} // namespace FileSystem
