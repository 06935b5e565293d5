#include "Endpoint/SubscriptionProgress.h"

#include <cstddef>

namespace Host {

SubscriptionProgress::SubscriptionProgress(UA_Server& server)
{
    const UA_NodeId array =
        UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SUBSCRIPTIONDIAGNOSTICSARRAY);
    RequireGood(UA_Server_readValue(&server, array, &*all), "reading the state of subscriptions");
}

SessionProgress SubscriptionProgress::Of(const ClientSession& session) const
{
    SessionProgress progress;
    if (!UA_Variant_hasArrayType(&*all, &UA_TYPES[UA_TYPES_SUBSCRIPTIONDIAGNOSTICSDATATYPE]))
        return progress;
    const auto* entries = static_cast<const UA_SubscriptionDiagnosticsDataType*>(all->data);
    for (std::size_t i = 0; i < all->arrayLength; ++i) {
        const UA_SubscriptionDiagnosticsDataType& entry = entries[i];
        if (!UA_NodeId_equal(&entry.sessionId, &*session.id))
            continue;
        progress.settledEvents += entry.eventNotificationsCount;
        progress.settledEvents += entry.monitoringQueueOverflowCount;
        progress.isLate = progress.isLate || entry.currentLifetimeCount > 0;
        progress.hasDisabledItems =
            progress.hasDisabledItems || entry.disabledMonitoredItemCount > 0;
    }
    return progress;
}

} // namespace Host
