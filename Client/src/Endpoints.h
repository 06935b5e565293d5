#pragma once

#include "Client/Cancellation.h"
#include "Client/Connection.h"

#include <open62541/client.h>
#include <open62541/plugin/log.h>

#include <cstddef>
#include <span>
#include <string>

namespace Client {

/// The endpoints of a server as it lists them.
class EndpointList
{
public:
    EndpointList() = default;
    EndpointList(const EndpointList&) = delete;
    EndpointList& operator=(const EndpointList&) = delete;
    ~EndpointList();

    /// Asks the server over a connection of its own, which is neither signed nor encrypted. Throws
    /// CancelledException, ClientException.
    [[nodiscard]] UA_StatusCode Ask(const ConnectionOptions& options, const UA_Logger& logger,
                                    const Cancellation* cancellation);
    [[nodiscard]] std::span<const UA_EndpointDescription> Get() const { return {list, count}; }

    /// Returns the best one that signs and encrypts with a policy this library trusts; null when
    /// there is none.
    [[nodiscard]] const UA_EndpointDescription* FindEncrypted() const;
    /// Returns the one that neither signs nor encrypts; null when there is none.
    [[nodiscard]] const UA_EndpointDescription* FindPlain() const;

private:
    std::size_t count = 0;
    UA_EndpointDescription* list = nullptr;
};

[[nodiscard]] bool IsPlain(const UA_EndpointDescription& endpoint);

/// Returns how the endpoint lets a user log in; null when it does not. Prefers a policy that
/// encrypts the password where the endpoint itself does not.
[[nodiscard]] const UA_UserTokenPolicy* FindTokenPolicy(const UA_EndpointDescription& endpoint,
                                                        UA_UserTokenType type);

/// True when the token is encrypted by itself, also on a plain endpoint.
[[nodiscard]] bool IsTokenEncrypted(const UA_UserTokenPolicy& policy);

} // namespace Client
