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
    /// Bytes that are not acknowledged for so long end the connection; 0: the system decides.
    std::chrono::milliseconds unacknowledged{};
};

/// Makes a socket non-blocking, has messages leave at once, and notices lost peers. The socket is
/// open. Throws boost::system::system_error.
void Configure(boost::asio::ip::tcp::socket& socket, const KeepAlive& keepAlive);

} // namespace Transport
