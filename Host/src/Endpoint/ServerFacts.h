#pragma once

#include "Endpoint/EndpointSettings.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Host {

/// The namespace of the host's own nodes, and the name of the product.
inline constexpr const char* hostUri = "urn:Talvensor:Host";

/// Returns "opc.tcp://ADDRESS:PORT", with brackets around an address of IPv6.
[[nodiscard]] std::string MakeUrl(const std::string& address, std::uint16_t port);

/// Returns the URLs by which clients reach the listening sockets. An address that stands for all is
/// replaced by those that the machine has now; if some lead further than to itself or its link,
/// only by these.
[[nodiscard]] std::vector<std::string>
FindReachableUrls(const std::vector<ListeningSocket>& listening);

/// Fills in the names, the version and the build of the host.
void DescribeApplication(UA_ServerConfig& configuration, const EndpointSettings& settings);

/// Gives stronger security policies higher levels, which clients choose by.
void RankEndpoints(UA_ServerConfig& configuration);

/// Corrects and completes the facts that the library tells clients of the server: its profiles,
/// URLs and limits. Call it once the server listens and before it runs. Throws UaException.
void PublishFacts(UA_Server& server, const EndpointSettings& settings,
                  const std::vector<ListeningSocket>& listening);

} // namespace Host
