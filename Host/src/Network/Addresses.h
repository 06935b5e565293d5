#pragma once

#include "Configuration/Configuration.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Host {

/// An address to listen on.
struct ListenAddress
{
    std::string text; ///< numeric
    bool isLoopback = false;
};

/// The addresses of a host's name, or the one that it is. Throws SystemException when it has none.
/// Call it before the sandbox is entered, and listen on what it returns: a name can have other
/// addresses later.
[[nodiscard]] std::vector<ListenAddress> ResolveListenUrl(const ListenUrl& url);

/// Listens on the addresses for a moment. Throws SystemException when one of them is in use, or
/// none can be listened on: on some machines "localhost" has an address that no interface has.
void RequireListening(const std::vector<ListenAddress>& addresses, std::uint16_t port);

} // namespace Host
