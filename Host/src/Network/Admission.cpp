#include "Network/Admission.h"

#include <algorithm>

namespace Host {

Admission DecideAdmission(const std::vector<ListenAddress>& addresses, bool hasUsers)
{
    const auto reachable =
        std::find_if(addresses.begin(), addresses.end(),
                     [](const ListenAddress& address) { return !address.isLoopback; });
    if (reachable == addresses.end())
        return {.allowsAnonymous = !hasUsers, .allowsUnencrypted = true};
    if (!hasUsers)
        throw OpenDoorsException("other machines can reach " + reachable->text +
                                 ", but there are no users: write a user file with 'talvensor-host "
                                 "passwd FILE USER' and name it with --users");
    return {};
}

} // namespace Host
