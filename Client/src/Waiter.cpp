#include "Waiter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>

namespace Client {

namespace {

int MakeEventDescriptor()
{
    const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor < 0)
        throw ClientException(std::string("an event descriptor cannot be made: ") +
                              std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
    return descriptor;
}

int ToPollTime(Waiter::Deadline deadline)
{
    using namespace std::chrono;
    if (deadline == Waiter::Deadline::max())
        return -1;
    const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

} // namespace

Waiter::Waiter()
    : descriptor(MakeEventDescriptor())
{}

void Waiter::Notify() noexcept
{
    // Can fail only when it is readable already.
    if (isSleeping.exchange(false))
        eventfd_write(descriptor.Get(), 1);
}

void Waiter::Sleep(const Cancellation* cancellation, Deadline deadline) noexcept
{
    std::array<pollfd, 2> queries{};
    queries[0] = {descriptor.Get(), POLLIN, 0};
    queries[1] = {cancellation == nullptr ? -1 : cancellation->GetDescriptor(), POLLIN, 0};
    poll(queries.data(), queries.size(), ToPollTime(deadline));
    eventfd_t ignored{};
    if (queries[0].revents != 0)
        eventfd_read(descriptor.Get(), &ignored);
}

Cancellation::Cancellation()
    : descriptor(MakeEventDescriptor())
{}

Cancellation::~Cancellation()
{
    close(descriptor);
}

void Cancellation::Cancel() noexcept
{
    const int kept = errno;
    if (!isCancelled)
        cancelledAt = std::chrono::steady_clock::now().time_since_epoch().count();
    isCancelled = true;
    eventfd_write(descriptor, 1);
    errno = kept;
}

} // namespace Client
