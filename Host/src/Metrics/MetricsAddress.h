#pragma once

#include "Support/Descriptor.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace Host {

/// The address on which metrics are served: of this machine alone.
struct MetricsAddress
{
    std::filesystem::path socket; ///< a socket in the file system; empty: a port
    std::string host;             ///< numeric, loopback
    std::uint16_t port = 0;       ///< 0: the system chooses

    /// Parses "unix:PATH", "PORT" or "ADDRESS:PORT". Throws InvalidArgumentException, also for
    /// addresses that other machines reach.
    [[nodiscard]] static MetricsAddress Parse(const std::string& text);
};

/// A socket that listens for readers of metrics.
struct MetricsListener
{
    Support::Descriptor socket; ///< not open: metrics are not served
    std::string address;        ///< with the real port
};

/// Listens on an address. A socket in the file system may be used by its owner and its group; one
/// that a host before has left is replaced. Throws std::system_error.
[[nodiscard]] MetricsListener Listen(const MetricsAddress& address);

} // namespace Host
