#include "Transport/Accepting/MemoryBrake.h"

#include <algorithm>

namespace Transport {

MemoryBrake::MemoryBrake(std::size_t allowance, std::size_t refill) noexcept
    : allowance(allowance)
    , refill(refill)
{}

void MemoryBrake::Add(ConnectionId connection)
{
    auto& bytes = received[connection];
    if (on)
        bytes = GetShare(allowance);
}

void MemoryBrake::Remove(ConnectionId connection)
{
    received.erase(connection);
}

void MemoryBrake::Engage() noexcept
{
    on = true;
    for (auto& [connection, bytes] : received)
        bytes = 0;
}

void MemoryBrake::CountReceived(ConnectionId connection, std::size_t size)
{
    if (!on)
        return;
    if (const auto found = received.find(connection); found != received.end())
        found->second += size;
}

bool MemoryBrake::MayRead(ConnectionId connection) const
{
    if (!on)
        return true;
    const auto found = received.find(connection);
    return found == received.end() || found->second < GetShare(allowance);
}

/// However long it takes, everybody is heard a little: what somebody else fills up keeps nobody
/// from saying that a file is to be closed.
void MemoryBrake::Refill() noexcept
{
    for (auto& [connection, bytes] : received)
        bytes -= std::min(bytes, std::max<std::size_t>(GetShare(refill), 1));
}

} // namespace Transport
