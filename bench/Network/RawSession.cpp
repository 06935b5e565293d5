#include "RawSession.h"

#include <OpcUa/UaException.h>

#include <stdexcept>
#include <utility>

namespace Bench {

using Fuzz::Value;

namespace {

constexpr int longestAnswer = 60'000; // ms
constexpr std::size_t largestChunk = 60'000;

} // namespace

RawSession::RawSession(std::uint16_t port)
    : connection(port)
{
    connection.Send(Fuzz::MakeHello());
    if (!connection.Receive(longestAnswer))
        throw std::runtime_error("the host does not greet");
    Value value(UA_TYPES[UA_TYPES_OPENSECURECHANNELREQUEST]);
    auto& request = value.As<UA_OpenSecureChannelRequest>();
    request.securityMode = UA_MESSAGESECURITYMODE_NONE;
    request.requestedLifetime = 600'000;
    connection.Send(Fuzz::MakeOpening(channel, Fuzz::EncodeMessage(value).value(),
                                      "http://opcfoundation.org/UA/SecurityPolicy#None"));
    const auto answer = connection.Receive(longestAnswer);
    auto opened = answer ? Fuzz::DecodeOpening(*answer) : std::nullopt;
    if (!opened)
        throw std::runtime_error("the host opens no channel");
    const auto& response = opened->As<UA_OpenSecureChannelResponse>();
    channel.id = response.securityToken.channelId;
    channel.token = response.securityToken.tokenId;
}

bool RawSession::LogIn()
{
    Value creating(UA_TYPES[UA_TYPES_CREATESESSIONREQUEST]);
    creating.As<UA_CreateSessionRequest>().requestedSessionTimeout = 60'000;
    auto created = Ask(creating);
    if (!created || &created->GetType() != &UA_TYPES[UA_TYPES_CREATESESSIONRESPONSE])
        return false;
    token = OpcUa::Ua<UA_NodeId>(
        std::exchange(created->As<UA_CreateSessionResponse>().authenticationToken, UA_NODEID_NULL));
    Value activating(UA_TYPES[UA_TYPES_ACTIVATESESSIONREQUEST]);
    auto activated = Ask(activating);
    return activated && activated->As<UA_ResponseHeader>().serviceResult == UA_STATUSCODE_GOOD;
}

std::optional<Value> RawSession::Ask(Value& request)
{
    auto& header = request.As<UA_RequestHeader>();
    header.timestamp = UA_DateTime_now();
    OpcUa::RequireGood(UA_NodeId_copy(&*token, &header.authenticationToken), "copying a token");
    const std::string body = Fuzz::EncodeMessage(request).value();
    for (const std::string& frame : Fuzz::MakeChunks(channel, "MSG", body, largestChunk))
        connection.Send(frame);
    return Receive();
}

void RawSession::SendUnfinished(const std::string& content)
{
    connection.Send(Fuzz::MakeChunks(channel, "MSG", content + "-", content.size()).front());
    --channel.sequence; // of the chunk that would end it
    --channel.request;  // the message goes on
}

std::optional<Value> RawSession::Receive()
{
    std::string body;
    while (const auto frame = connection.Receive(longestAnswer)) {
        if (frame->compare(0, 3, "MSG") != 0 || frame->size() < Fuzz::messageHeader)
            return std::nullopt;
        body += frame->substr(Fuzz::messageHeader);
        if ((*frame)[3] == 'F')
            return Fuzz::DecodeMessage(body);
        if ((*frame)[3] == 'A')
            return std::nullopt;
    }
    return std::nullopt;
}

} // namespace Bench
