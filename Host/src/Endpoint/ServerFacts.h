#pragma once

#include "Endpoint/EndpointSettings.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Host {

/// The namespace of what the host adds to the address space, and the name of the product.
inline constexpr const char* hostUri = "urn:Talvensor:Host";

/// "opc.tcp://ADDRESS:PORT", with brackets around an address of IPv6.
[[nodiscard]] std::string MakeUrl(const std::string& address, std::uint16_t port);

/// The URLs by which clients reach what listens there: an address that stands for all is replaced
/// by those that the machine has now, without the ones that lead no further than itself or its
/// link if it has others.
[[nodiscard]] std::vector<std::string>
FindReachableUrls(const std::vector<ListeningSocket>& listening);

/// Says what the host is: its names, its version and its build.
void DescribeApplication(UA_ServerConfig& configuration, const EndpointSettings& settings);

/// Gives stronger security policies higher levels, which clients choose by.
void RankEndpoints(UA_ServerConfig& configuration);

/// Corrects and completes what the library tells clients of the server: the profiles, the URLs and
/// the limits of what it accepts. Once it listens, before it runs. Throws UaException.
void PublishFacts(UA_Server& server, const EndpointSettings& settings,
                  const std::vector<ListeningSocket>& listening);

} // namespace Host
