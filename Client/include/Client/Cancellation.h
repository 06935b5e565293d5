#pragma once

#include <atomic>

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

    /// Readable from `Cancel` on, for poll(2). Not to be read from.
    [[nodiscard]] int GetDescriptor() const noexcept { return descriptor; }

private:
    std::atomic<bool> isCancelled{false};
    int descriptor;
};

} // namespace Client
