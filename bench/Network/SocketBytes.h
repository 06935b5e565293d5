#pragma once

#include <cstdint>

namespace Bench {

/// The bytes that a connection has carried so far, without headers.
struct SocketBytes
{
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
};

/// Returns those of this process's one connection to a port on loopback. Throws if there is none.
[[nodiscard]] SocketBytes CountSocketBytes(std::uint16_t port);

/// Returns the port of "opc.tcp://HOST:PORT". Throws if there is none.
[[nodiscard]] std::uint16_t GetPort(const char* url);

} // namespace Bench
