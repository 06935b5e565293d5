#pragma once

#include "Transport/Accepting/ArrayLimits.h"

#include <chrono>
#include <cstddef>

namespace Transport {

/// Bounds on one message; 0: none.
struct MessageLimits
{
    std::size_t size = 0; ///< bytes
    std::size_t chunks = 0;
};

/// Bounds on connections without an active session; `AcceptedConnections::MarkAdmitted` tells which
/// have one.
struct StrangerLimits
{
    // The longest message that such a client has to send, a certificate chain, has some 10 kB.
    std::size_t messageSize = std::size_t{64} << 10U; ///< bytes; a larger message is refused
    std::size_t messageChunks = 8;
    /// Bytes. A connection with more unsent output is closed.
    std::size_t output = std::size_t{256} << 10U;
    std::size_t perAddress = 64;               ///< a further one takes the place of the oldest
    std::chrono::milliseconds hello{5'000};    ///< until the first message is complete
    std::chrono::milliseconds session{15'000}; ///< until a session is active
    /// Until more of an unfinished message comes, on a connection with a session too.
    std::chrono::milliseconds progress{120'000};
};

/// Bounds on what connections may take. Sizes are bytes.
struct ConnectionLimits
{
    static constexpr std::size_t megabyte = std::size_t{1} << 20U;

    /// A further one takes the place of the oldest without a session; if there is none, it is
    /// accepted and closed at once.
    std::size_t connections = 1000;
    MessageLimits incoming = {}; ///< a connection that sends a larger message is closed
    ArrayLimits arrays = {}; ///< of requests; where one has more, the server refuses the request
    /// Larger answers are refused. A listing of 61440 entries with names of 255 bytes fits.
    MessageLimits outgoing{32'000'000, 0};

    std::size_t outputPause = 4 * megabyte;     ///< with more unsent output it is not read
    std::size_t outputLimit = 64 * megabyte;    ///< with more unsent output it is closed
    std::size_t brakeAllowance = 64 * megabyte; ///< see `AcceptedConnections::SetMemoryBrake`
    std::size_t brakeRefill = megabyte / 20;    ///< the same, each time the brake asks about memory
    StrangerLimits strangers;
};

} // namespace Transport
