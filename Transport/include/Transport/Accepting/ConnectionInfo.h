#pragma once

#include "Transport/Channel.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Transport {

/// The address that a socket listens on, with the port that the system chose if it was asked to.
struct ListeningSocket
{
    std::string address; ///< numeric
    std::uint16_t port{};
};

/// Describes one connection.
struct ConnectionInfo
{
    ConnectionId id{};
    std::string remoteAddress; ///< numeric, without the port
    std::uint16_t remotePort{};
    std::uint64_t bytesIn{};  ///< received
    std::uint64_t bytesOut{}; ///< given to the connection to be sent
};

/// The bytes and connections so far.
struct Traffic
{
    std::uint64_t received = 0;
    std::uint64_t sent = 0; ///< given to connections to send
    std::uint64_t connections = 0;
};

/// The output on its way to a client.
struct ConnectionOutput
{
    std::size_t largestMessage = 0; ///< that it takes
    std::size_t queued = 0;         ///< bytes that wait to be sent
    std::size_t limit = 0;          ///< with more of them it is closed
    bool isPaused = false;          ///< there are so many that it is not read
};

} // namespace Transport
