#include "Transport/KeepAlive.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

namespace Transport {

namespace asio = boost::asio;

void Configure(asio::ip::tcp::socket& socket, const KeepAlive& keepAlive)
{
    using asio::detail::socket_option::integer;
    using Idle = integer<IPPROTO_TCP, TCP_KEEPIDLE>;
    using Interval = integer<IPPROTO_TCP, TCP_KEEPINTVL>;
    using Probes = integer<IPPROTO_TCP, TCP_KEEPCNT>;
    using Unacknowledged = integer<IPPROTO_TCP, TCP_USER_TIMEOUT>;
    socket.non_blocking(true);
    socket.set_option(asio::ip::tcp::no_delay(true));
    socket.set_option(asio::socket_base::keep_alive(true));
    socket.set_option(Idle(static_cast<int>(keepAlive.idle.count())));
    socket.set_option(Interval(static_cast<int>(keepAlive.interval.count())));
    socket.set_option(Probes(keepAlive.probes));
    if (keepAlive.unacknowledged.count() > 0)
        socket.set_option(Unacknowledged(static_cast<int>(keepAlive.unacknowledged.count())));
}

} // namespace Transport
