#pragma once

#include <cstdint>

namespace Bench {

/// What has gone over a connection so far, without headers.
struct SocketBytes
{
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
};

/// Of this process's one connection to a port on loopback. Throws when there is none.
[[nodiscard]] SocketBytes CountSocketBytes(std::uint16_t port);

/// The port of "opc.tcp://HOST:PORT". Throws when there is none.
[[nodiscard]] std::uint16_t GetPort(const char* url);

} // namespace Bench
