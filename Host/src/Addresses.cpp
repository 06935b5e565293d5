#include "Addresses.h"

#include "Core/Exception.h"

#include <array>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

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

} // namespace

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
