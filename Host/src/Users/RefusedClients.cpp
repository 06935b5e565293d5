#include "Users/RefusedClients.h"

#include "Support/SystemError.h"

#include <algorithm>
#include <sys/eventfd.h>
#include <utility>

namespace Host {

RefusedClients::RefusedClients(TimeSource timeSource)
    : timeSource(std::move(timeSource))
    , available(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!available.IsOpen())
        Support::ThrowSystemError("cannot keep the certificates of refused clients");
}

void RefusedClients::Add(RefusedClient client)
{
    const auto now = timeSource();
    const Support::Lock lock(mutex);
    const auto next = std::max(full, now) + interval;
    if (next > now + atOnce * interval || waiting.size() == atOnce)
        return;
    full = next;
    waiting.push_back(std::move(client));
    eventfd_write(available.Get(), 1);
}

std::vector<RefusedClient> RefusedClients::TakeAll()
{
    const Support::Lock lock(mutex);
    eventfd_t count = 0;
    eventfd_read(available.Get(), &count);
    return std::exchange(waiting, {});
}

} // namespace Host
