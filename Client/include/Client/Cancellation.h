#pragma once

#include <atomic>
#include <chrono>

namespace Client {

/// Lets a signal handler or another thread end an operation. Must outlive the operations that it
/// was given to.
class Cancellation
{
public:
    /// Throws ClientException when the process has no descriptor left.
    Cancellation();
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;
    ~Cancellation();

    /// Any thread, and any signal handler: async-signal-safe. Once set it stays.
    void Cancel() noexcept;

    [[nodiscard]] bool IsCancelled() const noexcept { return isCancelled; }

    /// Returns the time up to which an operation that was cancelled may close what it has open.
    /// REQUIRES: IsCancelled.
    [[nodiscard]] std::chrono::steady_clock::time_point GetTidyDeadline() const noexcept
    {
        return std::chrono::steady_clock::time_point(
                   std::chrono::steady_clock::duration(cancelledAt)) +
               tidyTime;
    }
    static constexpr std::chrono::seconds tidyTime{2};

    /// Readable from `Cancel` on, for poll(2). Not to be read from.
    [[nodiscard]] int GetDescriptor() const noexcept { return descriptor; }

private:
    static_assert(std::atomic<std::chrono::steady_clock::rep>::is_always_lock_free);

    std::atomic<std::chrono::steady_clock::rep> cancelledAt{0}; // set before the flag
    std::atomic<bool> isCancelled{false};
    int descriptor;
};

} // namespace Client
