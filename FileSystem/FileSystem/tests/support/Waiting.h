#pragma once

#include "EventRecorder.h"

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/syscall.h>
#include <sys/types.h>
#include <thread>
#include <utility>

namespace FileSystemTests {

/// Compares again, up to ten times, where trees have circles of links: near its limit of links the
/// kernel refuses a path that it took before whenever something is mounted on the machine, of which
/// the plain way throws. A real difference stays.
template <typename Compare>
void CompareUntilEqual(Compare&& compare)
{
    constexpr int mostAttempts = 10;
    for (int attempt = 1; attempt <= mostAttempts; ++attempt) {
        try {
            if (compare())
                return;
        } catch (const std::runtime_error&) {
            if (attempt == mostAttempts)
                throw;
        }
    }
}

/// Waits for a condition that no event announces; false when it does not come true.
template <typename Condition>
[[nodiscard]] bool WaitUntil(Condition&& condition)
{
    const auto limit = std::chrono::steady_clock::now() + hangLimit;
    while (!std::forward<Condition>(condition)()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// Waits until a thread of this process is stuck in a system call.
[[nodiscard]] inline bool WaitUntilStuckIn(long systemCall, pid_t threadId)
{
    const std::string expected = std::to_string(systemCall);
    return WaitUntil([&] {
        std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/syscall");
        std::string number;
        file >> number; // "running" for a thread in no system call
        return number == expected;
    });
}

} // namespace FileSystemTests
