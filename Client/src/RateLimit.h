#pragma once

#include "Client/Cancellation.h"

#include <Support/Mutex.h>

#include <chrono>
#include <cstdint>
#include <functional>

namespace Client {

/// Spaces the bytes of a transfer so that they keep a rate. Any thread.
class RateLimit
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// 0: no limit. `clock` says the time, and is called on the threads that reserve.
    explicit RateLimit(std::uint64_t bytesPerSecond,
                       std::function<Time()> clock = std::chrono::steady_clock::now);

    [[nodiscard]] bool IsLimiting() const noexcept { return bytesPerSecond > 0; }

    /// Returns the time from which so many bytes may be moved: when all that was reserved before
    /// has had its time. A pause is not made up for.
    [[nodiscard]] Time Reserve(std::uint64_t bytes) EXCLUDES(mutex);

    /// Reserves, and waits until then. Throws CancelledException.
    void Wait(std::uint64_t bytes, const Cancellation* cancellation);

private:
    const std::uint64_t bytesPerSecond;
    const std::function<Time()> clock;
    Support::Mutex mutex;
    Time free GUARDED_BY(mutex); ///< of all that was reserved
};

} // namespace Client
