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
    /// Returns the endpoint that fits the options. `server`: host and port, to look the server up
    /// among the known ones. Throws RefusedException.
    [[nodiscard]] const UA_EndpointDescription& Choose(const ConnectionOptions& options,
                                                       const std::string& server) const;

private:
    /// Returns the best one that signs and encrypts with a policy this library trusts; null when
    /// there is none.
    [[nodiscard]] const UA_EndpointDescription* FindEncrypted() const;
    /// Returns the one that neither signs nor encrypts; null when there is none.
    [[nodiscard]] const UA_EndpointDescription* FindPlain() const;

    [[nodiscard]] std::span<const UA_EndpointDescription> Get() const { return {list, count}; }

    std::size_t count = 0;
    UA_EndpointDescription* list = nullptr;
};

[[nodiscard]] bool IsPlain(const UA_EndpointDescription& endpoint);

/// Returns how to log in at the endpoint. Throws RefusedException when it does not take the login
/// of the options.
[[nodiscard]] const UA_UserTokenPolicy& ChooseToken(const UA_EndpointDescription& endpoint,
                                                    const ConnectionOptions& options);

/// Returns true when the token is encrypted by itself, also on a plain endpoint.
[[nodiscard]] bool IsTokenEncrypted(const UA_UserTokenPolicy& policy);

} // namespace Client
