#include "Network/Addresses.h"

#include "Core/Exception.h"
#include "Support/Descriptor.h"

#include <array>
#include <cerrno>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

namespace Host {

namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList Resolve(const std::string& host)
{
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    AddressList list(found, &freeaddrinfo);
    if (error != 0)
        throw Core::SystemException("the host '" + host +
                                    "' to listen on has no address: " + gai_strerror(error));
    return list;
}

bool IsLoopback(const sockaddr& address)
{
    if (address.sa_family == AF_INET) {
        const auto number = ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr);
        return number >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
    }
    const auto& address6 = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&address6) ||
           (IN6_IS_ADDR_V4MAPPED(&address6) && address6.s6_addr[12] == IN_LOOPBACKNET);
}

ListenAddress ToListenAddress(const addrinfo& info)
{
    std::array<char, NI_MAXHOST> text{};
    const int error = getnameinfo(info.ai_addr, info.ai_addrlen, text.data(), text.size(), nullptr,
                                  0, NI_NUMERICHOST);
    if (error != 0)
        throw Core::SystemException(std::string("an address cannot be written: ") +
                                    gai_strerror(error));
    return {.text = text.data(), .isLoopback = IsLoopback(*info.ai_addr)};
}

AddressList ParseAddress(const ListenAddress& address, std::uint16_t port)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error =
        getaddrinfo(address.text.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (error != 0)
        throw Core::SystemException("'" + address.text + "' is no address: " + gai_strerror(error));
    return {found, &freeaddrinfo};
}

/// False with errno set.
bool TryListening(const addrinfo& address)
{
    const Support::Descriptor listener(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    // As the host itself listens: beside connections that have ended, and by one family alone.
    if (!listener.IsOpen() ||
        setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) != 0 ||
        (address.ai_family == AF_INET6 &&
         setsockopt(listener.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof(yes)) != 0))
        return false;
    return bind(listener.Get(), address.ai_addr, address.ai_addrlen) == 0 &&
           listen(listener.Get(), 1) == 0;
}

[[noreturn]] void RefuseToListen(const ListenAddress& address, std::uint16_t port)
{
    const bool isInUse = errno == EADDRINUSE;
    const auto text = "cannot listen on " + address.text + ", port " + std::to_string(port);
    const auto reason = std::system_category().message(errno);
    throw Core::SystemException(text + ": " + reason +
                                (isInUse ? "; choose another port with --listen" : ""));
}

} // namespace

void RequireListening(const std::vector<ListenAddress>& addresses, std::uint16_t port)
{
    bool listens = false;
    for (const auto& address : addresses) {
        const auto parsed = ParseAddress(address, port);
        if (TryListening(*parsed))
            listens = true;
        else if (errno == EADDRINUSE || (!listens && &address == &addresses.back()))
            RefuseToListen(address, port);
    }
}

std::vector<ListenAddress> ResolveListenUrl(const ListenUrl& url)
{
    std::vector<ListenAddress> addresses;
    const auto list = Resolve(url.host);
    for (const auto* info = list.get(); info != nullptr; info = info->ai_next) {
        if (info->ai_family == AF_INET || info->ai_family == AF_INET6)
            addresses.push_back(ToListenAddress(*info));
    }
    return addresses;
}

} // namespace Host
