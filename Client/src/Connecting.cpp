#include "Endpoints.h"
#include "Engine.h"
#include "StatusWords.h"

#include <OpcUa/SymmetricCiphers.h>
#include <OpcUa/Text.h>
#include <OpcUa/Ua.h>

#include <open62541/client_config_default.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace Client {

namespace {

using OpcUa::BytesOf;
using OpcUa::ViewOf;
using std::chrono::steady_clock;

constexpr UA_UInt32 cancellationWait = 50; // ms
/// The largest message that this client announces: a listing with 61440 names of 255 bytes that are
/// all escaped has 64 MB.
constexpr UA_UInt32 largestMessage = UA_UInt32{128} << 20U;
constexpr UA_UInt32 smallestChunk = 8192; // that the standard allows

/// "host:port" of a URL. Throws InvalidArgumentException.
std::string ParseServer(const std::string& url)
{
    UA_String host = UA_STRING_NULL;
    UA_UInt16 port = 0;
    UA_String path = UA_STRING_NULL;
    const UA_String view = ViewOf(url);
    if (!url.starts_with("opc.tcp://") ||
        UA_parseEndpointUrl(&view, &host, &port, &path) != UA_STATUSCODE_GOOD || host.length == 0)
        throw InvalidArgumentException("'" + url + "' is no URL of the form opc.tcp://HOST:PORT");
    constexpr UA_UInt16 standardPort = 4840;
    return std::string(BytesOf(host)) + ":" + std::to_string(port == 0 ? standardPort : port);
}

UA_StatusCode VerifyPinned(const UA_CertificateVerification* verification,
                           const UA_ByteString* certificate)
{
    const auto& pinned = *static_cast<const std::vector<unsigned char>*>(verification->context);
    const auto shown = BytesOf(*certificate);
    return std::equal(shown.begin(), shown.end(), pinned.begin(), pinned.end(),
                      [](char left, unsigned char right) {
                          return static_cast<unsigned char>(left) == right;
                      })
               ? UA_STATUSCODE_GOOD
               : UA_STATUSCODE_BADCERTIFICATEUNTRUSTED;
}

/// Accepts the certificate that the caller has accepted, and no other. The context outlives it.
void Pin(UA_CertificateVerification& verification, std::vector<unsigned char>& certificate,
         const UA_Logger* logger)
{
    if (verification.clear != nullptr)
        verification.clear(&verification);
    verification = {};
    verification.context = &certificate;
    verification.logging = logger;
    verification.verifyCertificate = &VerifyPinned;
    verification.verifyApplicationURI = [](const UA_CertificateVerification*, const UA_ByteString*,
                                           const UA_String*) -> UA_StatusCode {
        return UA_STATUSCODE_GOOD;
    };
}

/// `reason`: the system's words, where it has some.
std::string DescribeNoConnection(const std::string& url, UA_StatusCode status,
                                 const std::string& reason)
{
    const std::string name = UA_StatusCode_name(status);
    return "cannot connect to " + url + ": " +
           (reason.empty() ? DescribeStatus(status) : reason + " (" + name + ")");
}

/// Has the messages of encrypted connections done several times faster.
void UseOpenSsl(UA_ClientConfig& configuration)
{
    try {
        for (std::size_t i = 0; i < configuration.securityPoliciesSize; ++i)
            OpcUa::UseOpenSsl(configuration.securityPolicies[i]);
    } catch (const OpcUa::CipherException& exception) {
        throw ClientException(exception.what());
    }
}

} // namespace

void Engine::Connect(const Cancellation* cancellation)
{
    const std::string server = ParseServer(options.url);
    const auto deadline = steady_clock::now() + options.connectTime;
    EndpointList endpoints;
    const UA_StatusCode status = endpoints.Ask(options, logger, cancellation);
    if (status != UA_STATUSCODE_GOOD)
        throw NoConnectionException(DescribeNoConnection(options.url, status, lastLog));
    const UA_EndpointDescription& endpoint = Choose(endpoints, server);
    const UA_UserTokenPolicy& token = ChooseToken(endpoint);
    const auto certificate = BytesOf(endpoint.serverCertificate);
    serverCertificate.assign(certificate.begin(), certificate.end());
    if (!serverCertificate.empty())
        fingerprint = MakeFingerprint(serverCertificate);
    // Whoever holds the certificate's key can read what is encrypted for it.
    isEncrypting = !IsPlain(endpoint) || (options.login && IsTokenEncrypted(token));
    if (isEncrypting)
        RequireTrust(server);
    SetSecurity(endpoint);
    SetIdentity(endpoint, token);
    lastLog.clear();
    const UA_StatusCode begun = UA_Client_connectAsync(client.get(), options.url.c_str());
    if (begun != UA_STATUSCODE_GOOD)
        ThrowNotConnected(begun);
    AwaitSession(deadline, cancellation);
}

/// Returns the endpoint that fits the options. Throws RefusedException.
const UA_EndpointDescription& Engine::Choose(const EndpointList& endpoints,
                                             const std::string& server) const
{
    const auto* const plain = endpoints.FindPlain();
    const auto* const encrypted = endpoints.FindEncrypted();
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
                                   options.url + " offers no encryption, so the password would be "
                                                 "readable on the way; ask for a plain connection "
                                                 "if that is all right");
        RequireUnknown(server);
        if (plain != nullptr)
            return *plain;
        break;
    }
    if (encrypted == nullptr)
        throw RefusedException(Refusal::Security,
                               options.url + " offers no encryption that is good enough");
    return *encrypted;
}

/// Returns how to log in. Throws RefusedException.
const UA_UserTokenPolicy& Engine::ChooseToken(const UA_EndpointDescription& endpoint) const
{
    const auto type = options.login ? UA_USERTOKENTYPE_USERNAME : UA_USERTOKENTYPE_ANONYMOUS;
    if (const auto* const found = FindTokenPolicy(endpoint, type))
        return *found;
    if (!options.login)
        throw RefusedException(Refusal::Login,
                               options.url + " asks for a user name and a password");
    throw RefusedException(Refusal::Login,
                           options.url + " takes no user names and passwords" +
                               (IsPlain(endpoint) ? " over a plain connection" : ""));
}

/// Asks the caller about the server's certificate, and remembers it. Throws RefusedException.
void Engine::RequireTrust(const std::string& server) const
{
    const KnownServers known(options.stateFolder);
    const std::string previous = known.Find(server);
    ServerCertificate shown;
    shown.acquaintance = previous.empty()          ? Acquaintance::FirstSeen
                         : previous == fingerprint ? Acquaintance::Known
                                                   : Acquaintance::Changed;
    shown.server = server;
    shown.fingerprint = fingerprint;
    shown.previousFingerprint = previous;
    shown.knownServers = known.GetFile();
    shown.der = serverCertificate;
    const bool isKnown = shown.acquaintance == Acquaintance::Known;
    if (options.trustServer ? !options.trustServer(shown) : !isKnown)
        throw RefusedException(Refusal::ServerCertificate,
                               "the certificate of " + server + " with the fingerprint " +
                                   fingerprint +
                                   (previous.empty() ? " is not known"
                                    : isKnown        ? " was not accepted"
                                                     : " is not the one that was accepted before"));
    if (!isKnown)
        known.Remember(server, fingerprint);
}

/// Throws RefusedException when the server's certificate was accepted before: it encrypts then,
/// and somebody on the way could hide what it offers.
void Engine::RequireUnknown(const std::string& server) const
{
    const KnownServers known(options.stateFolder);
    if (!known.Find(server).empty())
        throw RefusedException(Refusal::Security,
                               options.url + " offers no encryption any more, although " + server +
                                   " did before, as " + known.GetFile().string() +
                                   " says; ask for a plain connection if that is all right");
}

/// Gives the client the policies that encrypt, with our own key and certificate.
void Engine::SetEncryption(UA_ClientConfig& configuration) const
{
    Identity identity = LoadIdentity(options.stateFolder);
    const UA_ByteString certificate{identity.certificate.size(), identity.certificate.data()};
    const UA_ByteString key{identity.key.size(), identity.key.data()};
    RequireGood(UA_ClientConfig_setDefaultEncryption(&configuration, certificate, key, nullptr, 0,
                                                     nullptr, 0),
                "configuring the client's encryption");
    UseOpenSsl(configuration);
    UA_String_clear(&configuration.clientDescription.applicationUri);
    configuration.clientDescription.applicationUri =
        UA_STRING_ALLOC(identity.applicationUri.c_str());
    explicit_bzero(identity.key.data(), identity.key.size());
}

void Engine::SetSecurity(const UA_EndpointDescription& endpoint)
{
    UA_ClientConfig configuration{};
    configuration.logging = &logger;
    configuration.eventLoop = loop.GetHandle();
    configuration.externalEventLoop = true;
    if (isEncrypting)
        SetEncryption(configuration);
    else
        RequireGood(UA_ClientConfig_setDefault(&configuration), "configuring the client");
    securityMode = IsPlain(endpoint) ? "None" : "SignAndEncrypt";
    Pin(configuration.certificateVerification, serverCertificate, &logger);
    const std::string uri(BytesOf(endpoint.securityPolicyUri));
    securityPolicy = uri.substr(uri.find('#') + 1);
    applicationName = BytesOf(endpoint.server.applicationName.text);
    applicationUri = BytesOf(endpoint.server.applicationUri);
    configuration.securityMode = endpoint.securityMode;
    UA_String_copy(&endpoint.securityPolicyUri, &configuration.securityPolicyUri);
    configuration.timeout = static_cast<UA_UInt32>(options.connectTime.count());
    configuration.noReconnect = true; // this does it
    configuration.requestedSessionTimeout = sessionTimeout;
    const std::string name = "talvensor-client " + std::to_string(getpid());
    configuration.sessionName = UA_STRING_ALLOC(name.c_str());
    configuration.clientContext = this;
    configuration.localConnectionConfig.localMaxMessageSize = largestMessage;
    configuration.localConnectionConfig.localMaxChunkCount = largestMessage / smallestChunk;
    client.reset(UA_Client_newWithConfig(&configuration));
    if (!client)
        throw ClientException("there is no memory for a client");
}

/// Sets the endpoint, so that the library does not ask for it again, and the login.
void Engine::SetIdentity(const UA_EndpointDescription& endpoint, const UA_UserTokenPolicy& token)
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

void Engine::ThrowNotConnected(UA_StatusCode status) const
{
    const std::string& url = options.url;
    const std::string text = DescribeNoConnection(url, status, lastLog);
    switch (status) {
    case UA_STATUSCODE_BADUSERACCESSDENIED:
    case UA_STATUSCODE_BADIDENTITYTOKENREJECTED:
    case UA_STATUSCODE_BADIDENTITYTOKENINVALID:
        throw RefusedException(Refusal::Login,
                               "cannot log in to " + url + ": the user or the password is refused");
    case UA_STATUSCODE_BADTOOMANYSESSIONS:
        throw RefusedException(Refusal::Limit, "cannot log in to " + url +
                                                   ": it has as many sessions as it allows");
    case UA_STATUSCODE_BADCERTIFICATEUNTRUSTED:
    case UA_STATUSCODE_BADSECURITYCHECKSFAILED:
    case UA_STATUSCODE_BADCERTIFICATEINVALID:
    case UA_STATUSCODE_BADCERTIFICATETIMEINVALID:
    case UA_STATUSCODE_BADCERTIFICATEUSENOTALLOWED:
    case UA_STATUSCODE_BADCERTIFICATEURIINVALID:
    case UA_STATUSCODE_BADCERTIFICATECHAININCOMPLETE:
        if (isEncrypting)
            throw RefusedException(Refusal::ClientCertificate,
                                   "cannot connect to " + url +
                                       ": it does not trust the certificate of this client (" +
                                       UA_StatusCode_name(status) + ")");
        throw RefusedException(Refusal::Security, text);
    case UA_STATUSCODE_BADSECURITYMODEREJECTED:
    case UA_STATUSCODE_BADSECURITYPOLICYREJECTED:
        throw RefusedException(Refusal::Security, text);
    default:
        throw NoConnectionException(text);
    }
}

bool Engine::IsActivated(UA_StatusCode& status) const
{
    UA_SecureChannelState channel{};
    UA_SessionState session{};
    UA_Client_getState(client.get(), &channel, &session, &status);
    return session == UA_SESSIONSTATE_ACTIVATED && channel == UA_SECURECHANNELSTATE_OPEN;
}

void Engine::AwaitSession(Waiter::Deadline deadline, const Cancellation* cancellation)
{
    for (UA_StatusCode status = UA_STATUSCODE_GOOD; !IsActivated(status);) {
        if (status != UA_STATUSCODE_GOOD)
            ThrowNotConnected(status);
        if ((cancellation != nullptr && cancellation->IsCancelled()) || isStopping || HasEnded())
            throw CancelledException();
        if (steady_clock::now() >= deadline)
            ThrowNotConnected(UA_STATUSCODE_BADTIMEOUT);
        UA_Client_run_iterate(client.get(), cancellationWait);
    }
}

} // namespace Client
