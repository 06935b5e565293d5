#include "Endpoint/ServerFacts.h"

#include "Endpoint/Ua.h"
#include "Version.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <string_view>

namespace Host {
namespace {

/// An address of the machine and how far it leads.
struct OwnAddress
{
    std::string text;
    bool isNear = false; ///< of the machine itself or of one link
};

std::string Format(int family, const void* address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(family, address, text.data(), text.size()) == nullptr ? "" : text.data();
}

OwnAddress DescribeAddress(const sockaddr& address)
{
    if (address.sa_family == AF_INET6) {
        const auto& in6 = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
        return {Format(AF_INET6, &in6), IN6_IS_ADDR_LOOPBACK(&in6) || IN6_IS_ADDR_LINKLOCAL(&in6)};
    }
    constexpr std::uint32_t loopback = 127;
    constexpr std::uint32_t linkLocal = 0xA9FE; // 169.254
    const auto& in4 = reinterpret_cast<const sockaddr_in&>(address).sin_addr;
    const std::uint32_t number = ntohl(in4.s_addr);
    return {Format(AF_INET, &in4), number >> 24U == loopback || number >> 16U == linkLocal};
}

/// Returns the machine's addresses of one family, never none: those that lead further, if any do.
std::vector<std::string> FindOwnAddresses(int family)
{
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
        first = nullptr;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> list(first, freeifaddrs);
    std::vector<OwnAddress> found;
    for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next)
        if ((each->ifa_flags & IFF_UP) != 0 && each->ifa_addr != nullptr &&
            each->ifa_addr->sa_family == family)
            found.push_back(DescribeAddress(*each->ifa_addr));
    const bool isAlone =
        std::all_of(found.begin(), found.end(), [](const auto& each) { return each.isNear; });
    std::vector<std::string> addresses;
    for (auto& each : found)
        if (isAlone || !each.isNear)
            addresses.push_back(std::move(each.text));
    if (addresses.empty())
        addresses.emplace_back(family == AF_INET6 ? "::1" : "127.0.0.1");
    return addresses;
}

std::vector<std::string> FindReachable(const std::string& address)
{
    if (address == "0.0.0.0")
        return FindOwnAddresses(AF_INET);
    if (address == "::")
        return FindOwnAddresses(AF_INET6);
    return {address};
}

void SetDiscoveryUrls(UA_ApplicationDescription& application, const std::vector<std::string>& urls)
{
    UA_Array_delete(application.discoveryUrls, application.discoveryUrlsSize,
                    &UA_TYPES[UA_TYPES_STRING]);
    application.discoveryUrlsSize = 0;
    application.discoveryUrls =
        static_cast<UA_String*>(UA_Array_new(urls.size(), &UA_TYPES[UA_TYPES_STRING]));
    if (application.discoveryUrls == nullptr)
        throw std::bad_alloc();
    application.discoveryUrlsSize = urls.size();
    for (std::size_t i = 0; i < urls.size(); ++i)
        application.discoveryUrls[i] = UA_STRING_ALLOC(urls[i].c_str());
}

/// Leaves out the profiles whose services are refused: nodes cannot be managed, nor subscriptions
/// be transferred.
void WriteProfiles(UA_Server& server)
{
    std::array<UA_String, 2> profiles{
        ViewOf("http://opcfoundation.org/UA-Profile/Server/MicroEmbeddedDevice2017"),
        ViewOf("http://opcfoundation.org/UA-Profile/Server/Methods")};
    UA_Variant value;
    UA_Variant_setArray(&value, profiles.data(), profiles.size(), &UA_TYPES[UA_TYPES_STRING]);
    RequireGood(UA_Server_writeValue(
                    &server,
                    UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES_SERVERPROFILEARRAY),
                    value),
                "publishing the profiles");
}

/// Adds a limit that the library's address space lacks.
void AddLimit(UA_Server& server, UA_UInt32 number, const char* name, std::size_t limit)
{
    const auto value = static_cast<UA_UInt32>(limit);
    UA_VariableAttributes attributes = UA_VariableAttributes_default;
    attributes.displayName = LocalizedViewOf(name);
    attributes.dataType = UA_TYPES[UA_TYPES_UINT32].typeId;
    attributes.valueRank = UA_VALUERANK_SCALAR;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the server copies it
    UA_Variant_setScalar(&attributes.value, const_cast<UA_UInt32*>(&value),
                         &UA_TYPES[UA_TYPES_UINT32]);
    RequireGood(UA_Server_addVariableNode(
                    &server, UA_NODEID_NUMERIC(0, number),
                    UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES),
                    UA_NODEID_NUMERIC(0, UA_NS0ID_HASPROPERTY), {0, ViewOf(name)},
                    UA_NODEID_NUMERIC(0, UA_NS0ID_PROPERTYTYPE), attributes, nullptr, nullptr),
                fmt::format("publishing {}", name));
}

/// Returns the length of the longest byte string or text that fits a message.
std::size_t LongestIn(const EndpointSettings& settings)
{
    constexpr std::size_t rest = 65'536;  // of a call and its other inputs
    constexpr std::size_t chunk = 65'000; // that clients fill at least
    const std::size_t most = std::min(settings.maximumMessage, settings.maximumChunks * chunk);
    return most - std::min(most / 2, rest);
}

} // namespace

std::string MakeUrl(const std::string& address, std::uint16_t port)
{
    const bool isIPv6 = address.find(':') != std::string::npos;
    return isIPv6 ? fmt::format("opc.tcp://[{}]:{}", address, port)
                  : fmt::format("opc.tcp://{}:{}", address, port);
}

std::vector<std::string> FindReachableUrls(const std::vector<ListeningSocket>& listening)
{
    std::vector<std::string> urls;
    for (const auto& each : listening)
        for (const auto& address : FindReachable(each.address)) {
            auto url = MakeUrl(address, each.port);
            if (std::find(urls.begin(), urls.end(), url) == urls.end())
                urls.push_back(std::move(url));
        }
    return urls;
}

void DescribeApplication(UA_ServerConfig& configuration, const EndpointSettings& settings)
{
    UA_ApplicationDescription& application = configuration.applicationDescription;
    UA_ApplicationDescription_clear(&application);
    application.applicationUri = UA_STRING_ALLOC(settings.applicationUri.c_str());
    application.productUri = UA_STRING_ALLOC(hostUri);
    application.applicationName = UA_LOCALIZEDTEXT_ALLOC("", "talvensor-host");
    application.applicationType = UA_APPLICATIONTYPE_SERVER;
    UA_BuildInfo& build = configuration.buildInfo;
    UA_BuildInfo_clear(&build);
    build.productUri = UA_STRING_ALLOC(hostUri);
    build.manufacturerName = UA_STRING_ALLOC("Talvensor");
    build.productName = UA_STRING_ALLOC("talvensor-host");
    build.softwareVersion = UA_STRING_ALLOC(settings.version.c_str());
    const BuildDate date = GetBuildDate();
    build.buildNumber =
        UA_STRING_ALLOC(fmt::format("{}{:02}{:02}", date.year, date.month, date.day).c_str());
    UA_DateTimeStruct day{};
    day.year = static_cast<UA_Int16>(date.year);
    day.month = static_cast<UA_UInt16>(date.month);
    day.day = static_cast<UA_UInt16>(date.day);
    build.buildDate = UA_DateTime_fromStruct(day);
}

void RankEndpoints(UA_ServerConfig& configuration)
{
    constexpr std::array<std::string_view, 3> ascending{"#Basic256Sha256", "#Aes128_Sha256_RsaOaep",
                                                        "#Aes256_Sha256_RsaPss"};
    for (auto& endpoint : std::span(configuration.endpoints, configuration.endpointsSize)) {
        const auto found =
            std::find_if(ascending.begin(), ascending.end(), [&](std::string_view name) {
                return BytesOf(endpoint.securityPolicyUri).ends_with(name);
            });
        const auto rank = found == ascending.end() ? 0 : found - ascending.begin() + 1;
        endpoint.securityLevel = static_cast<UA_Byte>(rank);
    }
}

void PublishFacts(UA_Server& server, const EndpointSettings& settings,
                  const std::vector<ListeningSocket>& listening)
{
    SetDiscoveryUrls(UA_Server_getConfig(&server)->applicationDescription,
                     FindReachableUrls(listening));
    WriteProfiles(server);
    const std::size_t longest = LongestIn(settings);
    AddLimit(server, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBYTESTRINGLENGTH, "MaxByteStringLength",
             longest);
    AddLimit(server, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXSTRINGLENGTH, "MaxStringLength",
             longest);
    AddLimit(server, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXSESSIONS, "MaxSessions",
             settings.maximumSessions);
    AddLimit(server, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXSUBSCRIPTIONSPERSESSION,
             "MaxSubscriptionsPerSession", settings.subscriptionsPerSession);
    const UA_ServerConfig& configuration = *UA_Server_getConfig(&server);
    AddLimit(server, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXMONITOREDITEMSPERSUBSCRIPTION,
             "MaxMonitoredItemsPerSubscription", configuration.maxMonitoredItemsPerSubscription);
}

} // namespace Host
