#include "RateLimit.h"

#include "Client/Exceptions.h"

#include <poll.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace Client {

namespace {

/// Throws CancelledException as soon as it is set.
void WaitUntil(RateLimit::Time time, const Cancellation* cancellation)
{
    if (cancellation == nullptr) {
        std::this_thread::sleep_until(time);
        return;
    }
    using std::chrono::milliseconds;
    constexpr milliseconds longest{1'000};
    pollfd waiting = {.fd = cancellation->GetDescriptor(), .events = POLLIN, .revents = 0};
    for (;;) {
        if (cancellation->IsCancelled())
            throw CancelledException();
        const auto left = std::chrono::ceil<milliseconds>(time - std::chrono::steady_clock::now());
        if (left <= milliseconds::zero())
            return;
        poll(&waiting, 1, static_cast<int>(std::min(left, longest).count()));
    }
}

} // namespace

RateLimit::RateLimit(std::uint64_t bytesPerSecond, std::function<Time()> clock)
    : bytesPerSecond(bytesPerSecond)
    , clock(std::move(clock))
{}

RateLimit::Time RateLimit::Reserve(std::uint64_t bytes)
{
    const auto now = clock();
    if (!IsLimiting())
        return now;
    const std::chrono::duration<double> needed(static_cast<double>(bytes) /
                                               static_cast<double>(bytesPerSecond));
    const Support::Lock lock(mutex);
    const auto start = std::max(free, now);
    free = start + std::chrono::duration_cast<Time::duration>(needed);
    return start;
}

void RateLimit::Wait(std::uint64_t bytes, const Cancellation* cancellation)
{
    if (IsLimiting())
        WaitUntil(Reserve(bytes), cancellation);
}

} // namespace Client
