#pragma once

#include "Transport/Asio.h"

#include <chrono>

namespace Transport {

/// When a peer that vanished without a word is noticed.
struct KeepAlive
{
    std::chrono::seconds idle{};     ///< without any traffic, until the first probe
    std::chrono::seconds interval{}; ///< between two probes
    int probes = 0;                  ///< without an answer, until the connection ends
    /// What was sent and is not acknowledged for so long ends the connection; 0: as the system
    /// does.
    std::chrono::milliseconds unacknowledged{};
};

/// Makes a socket non-blocking, has messages leave at once, and notices lost peers. The socket is
/// open. Throws boost::system::system_error.
void Configure(boost::asio::ip::tcp::socket& socket, const KeepAlive& keepAlive);

} // namespace Transport
