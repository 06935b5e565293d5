#pragma once

#include "Endpoint/ClientTrust.h"
#include "Endpoint/EndpointSettings.h"
#include "Endpoint/LibraryAssumptions.h"
#include "Network/EventLoop.h"
#include "Transport/Accepting/ArrayLimits.h"

#include <open62541/server.h>

#include <memory>

namespace Host {

/// Fills the configuration of an endpoint's server: its log and loop, the defaults of the library
/// (which are checked), addresses, keys, trusted certificates and bounds. `log` and `loop` must
/// outlive the server. Throws UaException, OpcUa::LibraryException.
void FillConfiguration(RoomyConfiguration& filled, const EndpointSettings& settings,
                       EventLoop& loop, UA_Logger& log);

/// Makes the check of clients' certificates, which tells `settings.onRefused` of those that it
/// refuses. Throws as ClientTrust. `loop` must outlive it.
[[nodiscard]] std::shared_ptr<ClientTrust>
MakeClientTrust(const Trust& trust, const EndpointSettings& settings, EventLoop& loop);

/// Returns the bounds on arrays of requests that belong to the configuration.
[[nodiscard]] Transport::ArrayLimits GetArrayLimits();

} // namespace Host
