#include "Metrics/MetricsAddress.h"

#include "Core/Exception.h"
#include "Network/Port.h"
#include "Support/SystemError.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Host {
namespace {

constexpr int mostWaiting = 8;

[[noreturn]] void Refuse(const std::string& text, const std::string& reason)
{
    throw Core::InvalidArgumentException("'" + text + "' " + reason);
}

std::uint16_t ParsePort(const std::string& text, std::string_view digits)
{
    const auto port = ReadPort(digits);
    if (!port)
        Refuse(text, "is none of unix:PATH, PORT and ADDRESS:PORT");
    return *port;
}

bool IsLoopback(const std::string& host)
{
    in_addr address4{};
    in6_addr address6{};
    if (inet_pton(AF_INET, host.c_str(), &address4) == 1)
        return ntohl(address4.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
    return inet_pton(AF_INET6, host.c_str(), &address6) == 1 && IN6_IS_ADDR_LOOPBACK(&address6);
}

void BindAndListen(const Support::Descriptor& listener, const sockaddr* address, socklen_t size,
                   const std::string& name)
{
    if (!listener.IsOpen() || bind(listener.Get(), address, size) != 0 ||
        listen(listener.Get(), mostWaiting) != 0)
        Support::ThrowSystemError("cannot serve metrics on " + name);
}

Support::Descriptor MakeSocket(int family)
{
    return Support::Descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

MetricsListener ListenOnSocket(const std::filesystem::path& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof(address.sun_path))
        throw Core::InvalidArgumentException("the path of the metrics socket is too long: '" +
                                             path.string() + "'");
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) && status.st_uid == geteuid())
        unlink(path.c_str());
    auto listener = MakeSocket(AF_UNIX);
    const auto before = umask(S_IXUSR | S_IXGRP | S_IRWXO); // the process has one thread
    try {
        BindAndListen(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address),
                      "'" + path.string() + "'");
    } catch (...) {
        umask(before);
        throw;
    }
    umask(before);
    return {std::move(listener), "unix:" + path.string()};
}

template <typename Address>
MetricsListener ListenOnPort(Address address, int family, in_port_t Address::*port,
                             const MetricsAddress& wanted)
{
    const bool is6 = family == AF_INET6;
    const auto host = is6 ? "[" + wanted.host + "]" : wanted.host;
    address.*port = htons(wanted.port);
    auto listener = MakeSocket(family);
    const int yes = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    BindAndListen(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address),
                  host + ", port " + std::to_string(wanted.port));
    socklen_t size = sizeof(address);
    if (getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        Support::ThrowSystemError("cannot read the port of the metrics");
    return {std::move(listener),
            "http://" + host + ":" + std::to_string(ntohs(address.*port)) + "/metrics"};
}

} // namespace

MetricsAddress MetricsAddress::Parse(const std::string& text)
{
    constexpr std::string_view scheme = "unix:";
    MetricsAddress address;
    if (text.starts_with(scheme)) {
        const auto path = text.substr(scheme.size());
        if (path.empty())
            Refuse(text, "names no socket");
        address.socket = std::filesystem::absolute(path).lexically_normal();
        return address;
    }
    const auto colon = text.rfind(':');
    address.host = colon == std::string::npos ? "127.0.0.1" : text.substr(0, colon);
    if (address.host.size() > 2 && address.host.front() == '[' && address.host.back() == ']')
        address.host = address.host.substr(1, address.host.size() - 2);
    if (address.host == "localhost")
        address.host = "127.0.0.1";
    address.port =
        ParsePort(text, std::string_view(text).substr(colon == std::string::npos ? 0 : colon + 1));
    if (!IsLoopback(address.host))
        Refuse(text, "is no address of loopback: others could read the metrics");
    return address;
}

MetricsListener Listen(const MetricsAddress& address)
{
    if (!address.socket.empty())
        return ListenOnSocket(address.socket);
    sockaddr_in address4{};
    address4.sin_family = AF_INET;
    if (inet_pton(AF_INET, address.host.c_str(), &address4.sin_addr) == 1)
        return ListenOnPort(address4, AF_INET, &sockaddr_in::sin_port, address);
    sockaddr_in6 address6{};
    address6.sin6_family = AF_INET6;
    inet_pton(AF_INET6, address.host.c_str(), &address6.sin6_addr);
    return ListenOnPort(address6, AF_INET6, &sockaddr_in6::sin6_port, address);
}

} // namespace Host
