#include "ServerTrust.h"

#include "TrustStore.h"

#include <OpcUa/Ua.h>

#include <open62541/util.h>

namespace Client {

std::string ParseServer(const std::string& url)
{
    UA_String host = UA_STRING_NULL;
    UA_UInt16 port = 0;
    UA_String path = UA_STRING_NULL;
    const UA_String view = OpcUa::ViewOf(url);
    if (!url.starts_with("opc.tcp://") ||
        UA_parseEndpointUrl(&view, &host, &port, &path) != UA_STATUSCODE_GOOD || host.length == 0)
        throw InvalidArgumentException("'" + url + "' is no URL of the form opc.tcp://HOST:PORT");
    constexpr UA_UInt16 standardPort = 4840;
    return std::string(OpcUa::BytesOf(host)) + ":" +
           std::to_string(port == 0 ? standardPort : port);
}

void RequireTrust(const ConnectionOptions& options, const std::string& server,
                  const std::vector<unsigned char>& certificate, const std::string& fingerprint)
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
    shown.der = certificate;
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

void RequireUnknown(const ConnectionOptions& options, const std::string& server)
{
    const KnownServers known(options.stateFolder);
    if (!known.Find(server).empty())
        throw RefusedException(Refusal::Security,
                               options.url + " offers no encryption any more, although " + server +
                                   " did before, as " + known.GetFile().string() +
                                   " says (use --security plain to accept that)");
}

} // namespace Client
