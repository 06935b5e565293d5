#include "Endpoints.h"

#include "ClientPointer.h"
#include "EventLoop.h"
#include "ServerTrust.h"
#include "Status.h"

#include <OpcUa/Ua.h>

#include <open62541/client_config_default.h>

#include <array>
#include <string_view>

namespace Client {

namespace {

using OpcUa::BytesOf;

constexpr const char* nonePolicy = "http://opcfoundation.org/UA/SecurityPolicy#None";

/// Higher is better; 0: not to be used. The shorter key of the symmetric cipher is as safe for
/// what a session takes, and a fifth faster.
int RankPolicy(std::string_view uri)
{
    constexpr std::array<std::string_view, 3> known{"#Basic256Sha256", "#Aes256_Sha256_RsaPss",
                                                    "#Aes128_Sha256_RsaOaep"};
    for (std::size_t i = 0; i < known.size(); ++i)
        if (uri.ends_with(known[i]))
            return static_cast<int>(i) + 1;
    return 0;
}

int RankEndpoint(const UA_EndpointDescription& endpoint)
{
    return endpoint.securityMode == UA_MESSAGESECURITYMODE_SIGNANDENCRYPT
               ? RankPolicy(BytesOf(endpoint.securityPolicyUri))
               : 0;
}

/// Higher is better; 0: the library cannot send it.
int RankToken(const UA_UserTokenPolicy& policy)
{
    const auto uri = BytesOf(policy.securityPolicyUri);
    if (uri.empty() || uri == nonePolicy)
        return 1; // as safe as the endpoint
    const int rank = RankPolicy(uri);
    return rank == 0 ? 0 : rank + 1;
}

/// Returns how the endpoint lets a user log in; null when it does not. Prefers a policy that
/// encrypts the password where the endpoint itself does not.
const UA_UserTokenPolicy* FindTokenPolicy(const UA_EndpointDescription& endpoint,
                                          UA_UserTokenType type)
{
    const UA_UserTokenPolicy* best = nullptr;
    for (const auto& policy :
         std::span(endpoint.userIdentityTokens, endpoint.userIdentityTokensSize))
        if (policy.tokenType == type &&
            RankToken(policy) > (best == nullptr ? 0 : RankToken(*best)))
            best = &policy;
    return best;
}

} // namespace

bool IsPlain(const UA_EndpointDescription& endpoint)
{
    return endpoint.securityMode == UA_MESSAGESECURITYMODE_NONE;
}

EndpointList::~EndpointList()
{
    UA_Array_delete(list, count, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
}

UA_StatusCode EndpointList::Ask(const ConnectionOptions& options, const UA_Logger& logger,
                                const Cancellation* cancellation)
{
    // The library's own loop would wait for a tenth of a second when it ends.
    EventLoop loop(logger, cancellation);
    UA_ClientConfig asking{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only calls it
    asking.logging = const_cast<UA_Logger*>(&logger);
    asking.eventLoop = loop.GetHandle();
    asking.externalEventLoop = true;
    RequireGood(UA_ClientConfig_setDefault(&asking), "configuring the client");
    asking.timeout = static_cast<UA_UInt32>(options.connectTime.count());
    asking.noReconnect = true; // a server that hangs up will do so again
    // Without an endpoint the library looks for one that it could log in to, and gives up when the
    // server has but encrypted ones.
    asking.endpoint.endpointUrl = UA_STRING_ALLOC(options.url.c_str());
    asking.endpoint.securityMode = UA_MESSAGESECURITYMODE_NONE;
    asking.endpoint.securityPolicyUri = UA_STRING_ALLOC(nonePolicy);
    const ClientPointer client(UA_Client_newWithConfig(&asking));
    if (!client)
        throw ClientException("there is no memory for a client");
    const UA_StatusCode status =
        UA_Client_getEndpoints(client.get(), options.url.c_str(), &count, &list);
    if (cancellation != nullptr && cancellation->IsCancelled())
        throw CancelledException();
    return status;
}

const UA_EndpointDescription* EndpointList::FindEncrypted() const
{
    const UA_EndpointDescription* best = nullptr;
    for (const auto& endpoint : Get())
        if (RankEndpoint(endpoint) > (best == nullptr ? 0 : RankEndpoint(*best)))
            best = &endpoint;
    return best;
}

const UA_EndpointDescription* EndpointList::FindPlain() const
{
    const UA_EndpointDescription* plain = nullptr;
    for (const auto& endpoint : Get())
        if (IsPlain(endpoint))
            plain = &endpoint;
    return plain;
}

const UA_EndpointDescription& EndpointList::Choose(const ConnectionOptions& options,
                                                   const std::string& server) const
{
    const auto* const plain = FindPlain();
    const auto* const encrypted = FindEncrypted();
    switch (options.security) {
    case Security::Plain:
        if (plain == nullptr)
            throw RefusedException(Refusal::Security,
                                   options.url + " offers encrypted connections only");
        return *plain;
    case Security::Encrypted:
        break;
    case Security::Automatic:
        if (encrypted != nullptr)
            break;
        if (options.login)
            throw RefusedException(Refusal::Security,
                                   options.url +
                                       " offers no encryption, so the password would be "
                                       "readable on the way (use --security plain to accept that)");
        RequireUnknown(options, server);
        if (plain != nullptr)
            return *plain;
        break;
    }
    if (encrypted == nullptr)
        throw RefusedException(Refusal::Security,
                               options.url + " offers no encryption that is strong enough");
    return *encrypted;
}

const UA_UserTokenPolicy& ChooseToken(const UA_EndpointDescription& endpoint,
                                      const ConnectionOptions& options)
{
    const auto type = options.login ? UA_USERTOKENTYPE_USERNAME : UA_USERTOKENTYPE_ANONYMOUS;
    if (const auto* const found = FindTokenPolicy(endpoint, type))
        return *found;
    if (!options.login)
        throw RefusedException(Refusal::Login,
                               options.url + " requires a user name and a password (use -u)");
    throw RefusedException(Refusal::Login,
                           options.url + " does not take user names and passwords" +
                               (IsPlain(endpoint) ? " over a plain connection" : ""));
}

bool IsTokenEncrypted(const UA_UserTokenPolicy& policy)
{
    return RankToken(policy) > 1;
}

} // namespace Client
