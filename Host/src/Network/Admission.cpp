#include "Network/Admission.h"

#include <algorithm>

namespace Host {

Admission DecideAdmission(const std::vector<ListenAddress>& addresses,
                          const Credentials& credentials)
{
    const auto reachable =
        std::find_if(addresses.begin(), addresses.end(),
                     [](const ListenAddress& address) { return !address.isLoopback; });
    if (reachable == addresses.end())
        return {.allowsAnonymous = !credentials.hasUsers, .allowsUnencrypted = true};

    const auto require = [&reachable](bool isThere, const std::string& missing) {
        if (!isThere)
            throw OpenDoorsException("other machines can reach " + reachable->text + ", but " +
                                     missing);
    };
    require(credentials.hasUsers, "there are no users: write a user file with 'talvensor-host "
                                  "passwd FILE USER' and name it with --users");
    require(credentials.hasTrustedCertificates || credentials.trustsAnyClient,
            "no client's certificate is trusted: copy certificates into the folder 'trusted' of "
            "--pki, or use --trust-any-client to rely on passwords alone");
    return {};
}

} // namespace Host
