#pragma once

#include "Endpoint/EndpointSettings.h"
#include "Endpoint/LibraryAssumptions.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

namespace Host {

/// Fills the configuration of an endpoint's server: its log and loop, the defaults of the library
/// (which are checked), addresses, keys, trusted certificates and bounds. `log` and `loop` must
/// outlive the server. Throws UaException, OpcUa::LibraryException.
void FillConfiguration(RoomyConfiguration& filled, const EndpointSettings& settings,
                       EventLoop& loop, UA_Logger& log);

} // namespace Host
