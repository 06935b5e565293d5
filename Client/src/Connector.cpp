#include "Connector.h"

#include "ClientSecurity.h"
#include "Endpoints.h"
#include "ServerTrust.h"
#include "Status.h"
#include "StatusWords.h"
#include "TrustStore.h"

#include <OpcUa/Ua.h>

#include <open62541/client_config_default.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <unistd.h>
#include <utility>

namespace Client {

namespace {

using OpcUa::BytesOf;
using std::chrono::steady_clock;

constexpr UA_UInt32 cancellationWait = 50;      // ms
constexpr UA_UInt32 sessionTimeout = 3'600'000; // ms
/// The largest message that this client announces: a listing with 61440 names of 255 bytes that are
/// all escaped has 64 MB.
constexpr UA_UInt32 largestMessage = UA_UInt32{128} << 20U;
constexpr UA_UInt32 smallestChunk = 8192; // that the standard allows

/// Keeps the messages of the network; the other messages say no more than the statuses do.
[[gnu::format(printf, 4, 0)]] void KeepMessage(void* context, UA_LogLevel level,
                                               UA_LogCategory category, const char* message,
                                               va_list arguments)
{
    if (level < UA_LOGLEVEL_ERROR || category != UA_LOGCATEGORY_NETWORK)
        return;
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), message, arguments);
    *static_cast<std::string*>(context) = text.data();
}

/// `reason`: the words of the system, where it has some.
std::string DescribeNoConnection(const std::string& url, UA_StatusCode status,
                                 const std::string& reason)
{
    const std::string name = UA_StatusCode_name(status);
    return "cannot connect to " + url + ": " +
           (reason.empty() ? DescribeStatus(status) : reason + " (" + name + ")");
}

/// The name of the session at the server.
std::string MakeSessionName()
{
    return "talvensor-client " + std::to_string(getpid());
}

/// Says what its operator can do about it.
std::string DescribeDistrust(const ConnectionOptions& options, UA_StatusCode status)
{
    const auto own = GetOwnCertificate(options.stateFolder);
    return "cannot connect to " + options.url +
           ": it does not trust the certificate of this client (" + UA_StatusCode_name(status) +
           "). Give its operator " + own.file.string() + ", with the fingerprint " +
           own.fingerprint + ", who can trust it on the server with: talvensor-host trust " +
           own.fingerprint;
}

} // namespace

Connector::Connector(const ConnectionOptions& options, const Ending& ending)
    : options(options)
    , ending(ending)
    , logger{&KeepMessage, &lastFailure, nullptr}
    , loop(logger)
{}

void Connector::Connect(const Cancellation* cancellation)
{
    const std::string server = ParseServer(options.url);
    const auto deadline = steady_clock::now() + options.connectTime;
    EndpointList endpoints;
    const UA_StatusCode status = endpoints.Ask(options, logger, cancellation);
    if (status != UA_STATUSCODE_GOOD)
        throw NoConnectionException(DescribeNoConnection(options.url, status, lastFailure));
    const UA_EndpointDescription& endpoint = endpoints.Choose(options, server);
    const UA_UserTokenPolicy& token = ChooseToken(endpoint, options);
    const auto certificate = BytesOf(endpoint.serverCertificate);
    serverCertificate.assign(certificate.begin(), certificate.end());
    if (!serverCertificate.empty())
        fingerprint = MakeFingerprint(serverCertificate);
    // The owner of the certificate's key can read what is encrypted for it.
    isEncrypting = !IsPlain(endpoint) || (options.login && IsTokenEncrypted(token));
    if (isEncrypting)
        RequireTrust(options, server, serverCertificate, fingerprint);
    MakeClient(endpoint);
    SetIdentity(endpoint, token);
    LogIn(deadline, cancellation);
}

void Connector::ConnectAgain(Waiter::Deadline deadline)
{
    UA_Client_getConfig(client.get())->timeout =
        static_cast<UA_UInt32>(options.connectTime.count());
    UA_Client_disconnectSecureChannel(client.get()); // what may be left of it
    LogIn(std::min(deadline, steady_clock::now() + options.connectTime), nullptr);
}

void Connector::LogIn(Waiter::Deadline deadline, const Cancellation* cancellation)
{
    lastFailure.clear();
    const UA_StatusCode begun = UA_Client_connectAsync(client.get(), options.url.c_str());
    if (begun != UA_STATUSCODE_GOOD)
        ThrowNotConnected(begun);
    AwaitSession(deadline, cancellation);
    facts.Read(*client, options.url);
    UA_Client_getConfig(client.get())->timeout = static_cast<UA_UInt32>(options.answerTime.count());
}

void Connector::Disconnect() noexcept
{
    UA_Client_disconnect(client.get());
    client.reset();
}

void Connector::Break(std::string_view reason) noexcept
{
    try {
        breakReason = reason;
    } catch (const std::exception&) {
        breakReason.clear(); // no memory to say why
    }
    loop.Break();
}

std::string Connector::TakeLossReason()
{
    std::string reason = std::exchange(breakReason, {});
    return reason.empty() ? "the connection broke" : reason;
}

/// Gives the client a configuration that fits the endpoint.
void Connector::MakeClient(const UA_EndpointDescription& endpoint)
{
    UA_ClientConfig configuration{};
    configuration.logging = &logger;
    configuration.eventLoop = loop.GetHandle();
    configuration.externalEventLoop = true;
    if (isEncrypting)
        SetEncryption(configuration, options.stateFolder);
    else
        RequireGood(UA_ClientConfig_setDefault(&configuration), "configuring the client");
    Pin(configuration.certificateVerification, serverCertificate, &logger);
    configuration.securityMode = endpoint.securityMode;
    UA_String_copy(&endpoint.securityPolicyUri, &configuration.securityPolicyUri);
    configuration.timeout = static_cast<UA_UInt32>(options.connectTime.count());
    configuration.noReconnect = true; // the engine does it
    configuration.requestedSessionTimeout = sessionTimeout;
    configuration.sessionName = UA_STRING_ALLOC(MakeSessionName().c_str());
    configuration.localConnectionConfig.localMaxMessageSize = largestMessage;
    configuration.localConnectionConfig.localMaxChunkCount = largestMessage / smallestChunk;
    client.reset(UA_Client_newWithConfig(&configuration));
    if (!client)
        throw ClientException("there is no memory for a client");
    KeepFacts(endpoint);
}

/// Keeps what the endpoint says of itself, for `AskInfo`.
void Connector::KeepFacts(const UA_EndpointDescription& endpoint)
{
    securityMode = IsPlain(endpoint) ? "None" : "SignAndEncrypt";
    const std::string uri(BytesOf(endpoint.securityPolicyUri));
    securityPolicy = uri.substr(uri.find('#') + 1);
    applicationName = BytesOf(endpoint.server.applicationName.text);
    applicationUri = BytesOf(endpoint.server.applicationUri);
}

/// Sets the endpoint, so that the library does not ask for it again, and the login.
void Connector::SetIdentity(const UA_EndpointDescription& endpoint, const UA_UserTokenPolicy& token)
{
    UA_ClientConfig& configuration = *UA_Client_getConfig(client.get());
    UA_EndpointDescription_copy(&endpoint, &configuration.endpoint);
    // Servers name themselves as they are seen from where they run.
    UA_String_clear(&configuration.endpoint.endpointUrl);
    configuration.endpoint.endpointUrl = UA_STRING_ALLOC(options.url.c_str());
    UA_UserTokenPolicy_copy(&token, &configuration.userTokenPolicy);
    if (options.login)
        RequireGood(UA_ClientConfig_setAuthenticationUsername(&configuration,
                                                              options.login->user.c_str(),
                                                              options.login->password.c_str()),
                    "setting the user's name");
}

void Connector::ThrowNotConnected(UA_StatusCode status) const
{
    const std::string& url = options.url;
    const std::string text = DescribeNoConnection(url, status, lastFailure);
    switch (status) {
    case UA_STATUSCODE_BADUSERACCESSDENIED:
    case UA_STATUSCODE_BADIDENTITYTOKENREJECTED:
    case UA_STATUSCODE_BADIDENTITYTOKENINVALID:
        throw RefusedException(Refusal::Login,
                               "cannot log in to " + url + ": the user or the password is refused");
    case UA_STATUSCODE_BADTOOMANYSESSIONS:
        throw RefusedException(Refusal::Limit,
                               "cannot log in to " + url + ": it has too many sessions");
    case UA_STATUSCODE_BADCERTIFICATEUNTRUSTED:
    case UA_STATUSCODE_BADSECURITYCHECKSFAILED:
    case UA_STATUSCODE_BADCERTIFICATEINVALID:
    case UA_STATUSCODE_BADCERTIFICATETIMEINVALID:
    case UA_STATUSCODE_BADCERTIFICATEUSENOTALLOWED:
    case UA_STATUSCODE_BADCERTIFICATEURIINVALID:
    case UA_STATUSCODE_BADCERTIFICATECHAININCOMPLETE:
        if (isEncrypting)
            throw RefusedException(Refusal::ClientCertificate, DescribeDistrust(options, status));
        throw RefusedException(Refusal::Security, text);
    case UA_STATUSCODE_BADSECURITYMODEREJECTED:
    case UA_STATUSCODE_BADSECURITYPOLICYREJECTED:
        throw RefusedException(Refusal::Security, text);
    default:
        throw NoConnectionException(text);
    }
}

bool Connector::IsConnected(UA_StatusCode& status) const
{
    UA_SecureChannelState channel{};
    UA_SessionState session{};
    UA_Client_getState(client.get(), &channel, &session, &status);
    return session == UA_SESSIONSTATE_ACTIVATED && channel == UA_SECURECHANNELSTATE_OPEN;
}

void Connector::AwaitSession(Waiter::Deadline deadline, const Cancellation* cancellation)
{
    for (UA_StatusCode status = UA_STATUSCODE_GOOD; !IsConnected(status);) {
        if (status != UA_STATUSCODE_GOOD)
            ThrowNotConnected(status);
        if ((cancellation != nullptr && cancellation->IsCancelled()) || ending.IsStopping() ||
            ending.HasEnded())
            throw CancelledException();
        if (steady_clock::now() >= deadline)
            ThrowNotConnected(UA_STATUSCODE_BADTIMEOUT);
        UA_Client_run_iterate(client.get(), cancellationWait);
    }
}

ServerInfo Connector::AskInfo() const
{
    ServerInfo info;
    info.url = options.url;
    info.applicationName = applicationName;
    info.applicationUri = applicationUri;
    info.securityPolicy = securityPolicy;
    info.securityMode = securityMode;
    info.fingerprint = fingerprint;
    info.user = options.login ? options.login->user : "";
    info.sessionId = MakeSessionName();
    info.sessionTimeout = std::chrono::milliseconds(sessionTimeout);
    AskServer(*client, facts.GetNamespaces(), info);
    return info;
}

} // namespace Client
