#pragma once

#include "Transport/Channel.h"

#include <cstddef>
#include <unordered_map>

namespace Transport {

/// Decides which connections are read while memory is short; the rule is the one of
/// `AcceptedConnections::SetMemoryBrake`. Not synchronised: the loop's lock guards it.
class MemoryBrake
{
public:
    /// Bytes: of all connections together while the brake is on, and each time it is refilled.
    MemoryBrake(std::size_t allowance, std::size_t refill) noexcept;

    /// One that is added while the brake is on has used up its share: coming again gives none.
    void Add(ConnectionId connection);
    void Remove(ConnectionId connection);

    [[nodiscard]] bool IsOn() const noexcept { return on; }
    /// Gives every connection its whole share.
    void Engage() noexcept;
    void Release() noexcept { on = false; }

    void CountReceived(ConnectionId connection, std::size_t size);
    /// True for one that is not known.
    [[nodiscard]] bool MayRead(ConnectionId connection) const;
    /// Lets every connection read a little more.
    void Refill() noexcept;

private:
    /// REQUIRES: there are connections.
    [[nodiscard]] std::size_t GetShare(std::size_t ofAll) const noexcept
    {
        return ofAll / received.size();
    }

    const std::size_t allowance;
    const std::size_t refill;
    std::unordered_map<ConnectionId, std::size_t> received; // counted while the brake is on
    bool on = false;
};

} // namespace Transport
