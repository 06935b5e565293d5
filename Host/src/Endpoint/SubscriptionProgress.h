#pragma once

#include "Endpoint/ClientSession.h"
#include "Endpoint/Ua.h"

#include <open62541/server.h>

#include <cstdint>

namespace Host {

/// The progress of a session's subscriptions.
struct SessionProgress
{
    std::uint64_t settledEvents = 0; ///< sent or dropped since they were made
    bool isLate = false;             ///< one of them lacks requests to publish
    bool hasDisabledItems = false;   ///< which hear nothing
};

/// The state of all subscriptions, from the server's diagnostics. Loop thread.
class SubscriptionProgress
{
public:
    explicit SubscriptionProgress(UA_Server& server);

    [[nodiscard]] SessionProgress Of(const ClientSession& session) const;

private:
    Ua<UA_Variant> all;
};

} // namespace Host
