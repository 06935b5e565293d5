#include "Endpoint/ServerConfiguration.h"

#include "Endpoint/ServerFacts.h"
#include "Endpoint/Ua.h"
#include "OpcUa/SymmetricCiphers.h"

#include <open62541/server_config_default.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace Host {
namespace {

// Elements of one request.
constexpr std::uint32_t mostNodes = 1'000;
constexpr std::uint32_t mostReads = 5'000;
constexpr std::uint32_t mostBrowsed = 200;
constexpr std::uint32_t mostItems = 100;

UA_ByteString BytesViewOf(const std::vector<unsigned char>& bytes)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
    return {bytes.size(), const_cast<UA_Byte*>(bytes.data())};
}

void SetUrls(UA_ServerConfig& configuration, const EndpointSettings& settings)
{
    UA_Array_delete(configuration.serverUrls, configuration.serverUrlsSize,
                    &UA_TYPES[UA_TYPES_STRING]);
    const std::size_t count = settings.addresses.size();
    configuration.serverUrls =
        static_cast<UA_String*>(UA_Array_new(count, &UA_TYPES[UA_TYPES_STRING]));
    configuration.serverUrlsSize = count;
    for (std::size_t i = 0; i < count; ++i)
        configuration.serverUrls[i] =
            UA_STRING_ALLOC(MakeUrl(settings.addresses[i], settings.port).c_str());
}

/// The library checks certificates of connections and of sessions.
void SetTrust(UA_ServerConfig& configuration, const EndpointSettings& settings, EventLoop& loop)
{
    for (auto* const check : {&configuration.secureChannelPKI, &configuration.sessionPKI}) {
        if (settings.trustsAnyClient)
            ClientTrust().Swap(*check);
        else
            MakeClientTrust(settings.trust, settings, loop)->Swap(*check);
    }
}

void AddPolicies(UA_ServerConfig& configuration, const EndpointSettings& settings)
{
    const UA_ByteString certificate = BytesViewOf(settings.certificate);
    const UA_ByteString key = BytesViewOf(settings.key);
    RequireGood(UA_ServerConfig_addSecurityPolicyNone(&configuration, &certificate),
                "adding the security policy None");
    RequireGood(UA_ServerConfig_addSecurityPolicyBasic256Sha256(&configuration, &certificate, &key),
                "adding the security policy Basic256Sha256");
    RequireGood(
        UA_ServerConfig_addSecurityPolicyAes128Sha256RsaOaep(&configuration, &certificate, &key),
        "adding the security policy Aes128_Sha256_RsaOaep");
    RequireGood(
        UA_ServerConfig_addSecurityPolicyAes256Sha256RsaPss(&configuration, &certificate, &key),
        "adding the security policy Aes256_Sha256_RsaPss");
}

/// The policy None stays without an endpoint, too: for asking for the endpoints.
void AddEndpoints(UA_ServerConfig& configuration, const EndpointSettings& settings, EventLoop& loop)
{
    for (std::size_t i = 0; i < configuration.securityPoliciesSize; ++i) {
        OpcUa::UseOpenSsl(configuration.securityPolicies[i], &loop.GetMessageObserver());
        const UA_String uri = configuration.securityPolicies[i].policyUri;
        if (i > 0)
            RequireGood(UA_ServerConfig_addEndpoint(&configuration, uri,
                                                    UA_MESSAGESECURITYMODE_SIGNANDENCRYPT),
                        "adding an encrypted endpoint");
        else if (settings.allowsUnencrypted)
            RequireGood(
                UA_ServerConfig_addEndpoint(&configuration, uri, UA_MESSAGESECURITYMODE_NONE),
                "adding the unencrypted endpoint");
    }
    RankEndpoints(configuration);
    configuration.securityPolicyNoneDiscoveryOnly = !settings.allowsUnencrypted;
    // On a connection that is not encrypted, passwords are, with the server's certificate.
    configuration.allowNonePolicyPassword = false;
}

void SetMessageLimits(UA_ServerConfig& configuration)
{
    // The connections bound what comes in and what goes out; the library's bounds are for both, and
    // break an answer off in its middle.
    constexpr UA_UInt32 unreached = 1U << 30U;
    configuration.tcpBufSize = OpcUa::largestChunk;
    configuration.tcpMaxMsgSize = unreached;
    configuration.tcpMaxChunks = unreached;
}

void SetSessionLimits(UA_ServerConfig& configuration, const EndpointSettings& settings)
{
    // The bound of sessions is that of active ones, which `Sessions` keeps. As many more may be
    // about to be activated, and one more that makes an older one leave.
    constexpr std::size_t most = std::numeric_limits<UA_UInt16>::max();
    constexpr std::size_t channelsWithoutSession = 20;
    const auto created = std::min(2 * settings.maximumSessions + 1, most - channelsWithoutSession);
    configuration.maxSessions = static_cast<UA_UInt16>(created);
    configuration.maxSecureChannels = static_cast<UA_UInt16>(created + channelsWithoutSession);
}

void SetSubscriptionLimits(UA_ServerConfig& configuration, const EndpointSettings& settings)
{
    configuration.maxSubscriptionsPerSession =
        static_cast<UA_UInt32>(settings.subscriptionsPerSession);
    configuration.publishingIntervalLimits = {10, 10'000};
    // Events are delivered ahead of the interval; each vain look counts as one, see EventLoop. A
    // subscription does not outlive its session, however long this is.
    configuration.lifeTimeCountLimits = {12'000, 12'000};
    configuration.keepAliveCountLimits = {1, 100};
    configuration.queueSizeLimits.max = 200'000;
    configuration.maxRetransmissionQueueSize = 8; // one listing's event can have 6 MB
    configuration.maxMonitoredItemsPerSubscription = 1'000;
    configuration.maxPublishReqPerSession = 100;
    configuration.maxSubscriptions =
        static_cast<UA_UInt32>(settings.subscriptionsPerSession * settings.maximumSessions);
}

void SetOperationLimits(UA_ServerConfig& configuration)
{
    // A method belongs to its session by the connection that calls: one call after another.
    configuration.maxNodesPerMethodCall = mostNodes;
    configuration.pubSubConfig.enableInformationModelMethods = false;
    // The library makes the answer as a whole: each of these can have some kilobytes there, a
    // browsed node some dozens.
    configuration.maxNodesPerRead = mostReads;
    configuration.maxNodesPerWrite = mostNodes;
    configuration.maxNodesPerRegisterNodes = mostNodes;
    configuration.maxNodesPerNodeManagement = mostNodes;
    configuration.maxNodesPerTranslateBrowsePathsToNodeIds = mostNodes;
    configuration.maxNodesPerBrowse = mostBrowsed;
    configuration.maxReferencesPerNode = 1'000;
    configuration.maxMonitoredItemsPerCall = mostItems; // their filters take the loop's time
}

} // namespace

void FillConfiguration(RoomyConfiguration& filled, const EndpointSettings& settings,
                       EventLoop& loop, UA_Logger& log)
{
    UA_ServerConfig& configuration = filled.configuration;
    configuration.logging = &log;
    configuration.eventLoop = loop.GetHandle();
    RequireGood(UA_ServerConfig_setBasics_withPort(&configuration, settings.port),
                "configuring the server");
    RequireConfiguration(filled, loop.GetHandle());
    SetUrls(configuration, settings);
    DescribeApplication(configuration, settings);
    AddPolicies(configuration, settings);
    AddEndpoints(configuration, settings, loop);
    SetTrust(configuration, settings, loop);
    SetMessageLimits(configuration);
    SetSessionLimits(configuration, settings);
    SetSubscriptionLimits(configuration, settings);
    SetOperationLimits(configuration);
    configuration.asyncOperationTimeout = callLimitInMilliseconds;
}

std::shared_ptr<ClientTrust> MakeClientTrust(const Trust& trust, const EndpointSettings& settings,
                                             EventLoop& loop)
{
    return std::make_shared<ClientTrust>(
        trust, [&loop, take = settings.onRefused](std::span<const unsigned char> certificate) {
            const auto connection = loop.GetConnection(loop.GetCurrentConnection());
            take({.certificate = {certificate.begin(), certificate.end()},
                  .address = connection ? connection->remoteAddress : ""});
        });
}

Transport::ArrayLimits GetArrayLimits()
{
    constexpr std::size_t ageAndTimestamps = 12;
    constexpr std::size_t viewAndMost = 16; // without the view's node
    constexpr std::size_t numberAndTimestamps = 8;
    return {
        {UA_NS0ID_READREQUEST_ENCODING_DEFAULTBINARY, false, ageAndTimestamps, mostReads},
        {UA_NS0ID_WRITEREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_CALLREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_BROWSEREQUEST_ENCODING_DEFAULTBINARY, true, viewAndMost, mostBrowsed},
        {UA_NS0ID_TRANSLATEBROWSEPATHSTONODEIDSREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_REGISTERNODESREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_UNREGISTERNODESREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_ADDNODESREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_ADDREFERENCESREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_DELETENODESREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_DELETEREFERENCESREQUEST_ENCODING_DEFAULTBINARY, false, 0, mostNodes},
        {UA_NS0ID_CREATEMONITOREDITEMSREQUEST_ENCODING_DEFAULTBINARY, false, numberAndTimestamps,
         mostItems},
        {UA_NS0ID_MODIFYMONITOREDITEMSREQUEST_ENCODING_DEFAULTBINARY, false, numberAndTimestamps,
         mostItems},
    };
}

} // namespace Host
