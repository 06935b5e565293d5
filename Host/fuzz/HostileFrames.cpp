#include "Hostile.h"

#include "Identity.h"

#include <OpcUa/UaException.h>

#include <utility>

namespace Fuzz {

using OpcUa::BytesOf;
using OpcUa::RequireGood;

namespace {

constexpr int longestAnswer = 20'000; // ms; for one that must come unless the connection ends
constexpr int shortWait = 50;         // for one that need not come
constexpr std::size_t largestChunk = 60'000;
constexpr std::size_t mostUnanswered = 30;
constexpr const char* policyUri = "http://opcfoundation.org/UA/SecurityPolicy#";

bool IsSessionRefused(UA_StatusCode status)
{
    return status == UA_STATUSCODE_BADSESSIONIDINVALID ||
           status == UA_STATUSCODE_BADSESSIONCLOSED ||
           status == UA_STATUSCODE_BADSESSIONNOTACTIVATED;
}

} // namespace

void HostileFrames::Step()
{
    if (!connection || !connection->IsOpen()) {
        Connect();
        return;
    }
    std::optional<Value> ignored;
    while (TakeAnswer(0, ignored))
        continue;
    const std::size_t draw = field.random.Below(1000);
    if (draw < 6)
        Leave();
    else if (draw < 10)
        Send(field.random.Bytes(field.random.Length()));
    else if (draw < 15)
        OpenStrangely();
    else if (draw < 20)
        OpenChannel(true, shortWait);
    else if (draw < 35)
        DisturbSession();
    else if (!hasSession && draw < 900)
        StartSession();
    else
        SendRequest();
}

/// Mostly says hello and opens a channel.
void HostileFrames::Connect()
{
    connection.emplace(field.port);
    ++field.figures.connections;
    channel = {};
    unfinished.clear();
    hasSession = false;
    unanswered = 0;
    std::vector<std::string> frames{MakeHello()};
    const bool isMutated = field.random.Chance(8);
    if (isMutated)
        MutateFrames(field.random, frames);
    for (const std::string& frame : frames)
        Send(frame);
    if (field.random.Chance(3))
        return; // everything else comes too early
    static_cast<void>(connection->Receive(isMutated ? shortWait : longestAnswer));
    OpenChannel(false, isMutated ? shortWait : longestAnswer);
}

void HostileFrames::Leave()
{
    if (field.random.Chance(50)) {
        connection->Break();
    } else {
        if (field.random.Chance(50)) {
            Value request(UA_TYPES[UA_TYPES_CLOSESECURECHANNELREQUEST]);
            const auto body = EncodeMessage(request);
            for (const std::string& frame :
                 MakeChunks(channel, "CLO", body.value_or(""), largestChunk))
                Send(frame);
        }
        connection->Close();
    }
}

void HostileFrames::OpenChannel(bool isRenewal, int limit)
{
    Value value(UA_TYPES[UA_TYPES_OPENSECURECHANNELREQUEST]);
    auto& request = value.As<UA_OpenSecureChannelRequest>();
    request.requestType =
        isRenewal ? UA_SECURITYTOKENREQUESTTYPE_RENEW : UA_SECURITYTOKENREQUESTTYPE_ISSUE;
    request.securityMode = UA_MESSAGESECURITYMODE_NONE;
    request.requestedLifetime = 600'000;
    Send(MakeOpening(channel, EncodeMessage(value).value_or(""), std::string(policyUri) + "None"));
    auto answer = Await(UA_TYPES[UA_TYPES_OPENSECURECHANNELRESPONSE], limit);
    if (!answer)
        return;
    ++field.figures.channels;
    const auto& response = answer->As<UA_OpenSecureChannelResponse>();
    channel.id = response.securityToken.channelId;
    channel.token = response.securityToken.tokenId;
}

/// Asks for a channel with impossible modes, policies and certificates.
void HostileFrames::OpenStrangely()
{
    static const std::vector<std::string> policies{
        "None", "Basic256Sha256", "Aes128_Sha256_RsaOaep", "Aes256_Sha256_RsaPss", "Basic128Rsa15",
        "?"};
    Value value(UA_TYPES[UA_TYPES_OPENSECURECHANNELREQUEST]);
    field.mutator.Fill(value.Get(), value.GetType());
    std::string body = EncodeMessage(value).value_or("");
    if (field.random.Chance(30))
        body = field.random.Bytes(256 * (1 + field.random.Below(4)));
    std::optional<std::string> certificate;
    if (field.random.Chance(60))
        certificate = BytesOf(OpcUa::GetIdentity().certificate);
    if (certificate && field.random.Chance(50))
        MutateBytes(field.random, *certificate);
    std::vector<std::string> frames{
        MakeOpening(channel, body, policyUri + field.random.Pick(policies), certificate)};
    if (field.random.Chance(50))
        MutateFrames(field.random, frames);
    for (const std::string& frame : frames)
        Send(frame);
}

void HostileFrames::StartSession()
{
    const bool isMutated = field.random.Chance(10);
    Post(field.requests.MakeCreateSession(), isMutated);
    auto made =
        Await(UA_TYPES[UA_TYPES_CREATESESSIONRESPONSE], isMutated ? shortWait : longestAnswer);
    if (!made || made->As<UA_ResponseHeader>().serviceResult != UA_STATUSCODE_GOOD)
        return;
    auto& response = made->As<UA_CreateSessionResponse>();
    token = OpcUa::Ua<UA_NodeId>(std::exchange(response.authenticationToken, UA_NODEID_NULL));
    hasSession = true;
    refusals = 0;
    if (field.random.Chance(5))
        return; // never activated
    Post(field.requests.MakeActivateSession(field.random.Chance(90)), isMutated);
    const auto answer =
        Await(UA_TYPES[UA_TYPES_ACTIVATESESSIONRESPONSE], isMutated ? shortWait : longestAnswer);
    if (answer)
        ++field.figures.sessions;
}

/// Takes over others' sessions, logs in again, or ends the session.
void HostileFrames::DisturbSession()
{
    const std::size_t draw = field.random.Below(4);
    if (draw == 0) {
        Post(field.requests.MakeCloseSession(), field.random.Chance(30));
        return;
    }
    if (draw == 1)
        token = OpcUa::Ua<UA_NodeId>(field.pool.DrawNode(field.random));
    Post(field.requests.MakeActivateSession(field.random.Chance(50)), field.random.Chance(50));
}

void HostileFrames::SendRequest()
{
    Value request = field.requests.Make(subscription);
    const std::size_t times = field.random.Below(4);
    for (std::size_t i = 0; i < times; ++i)
        field.mutator.Mutate(request.Get(), request.GetType());
    Post(std::move(request), field.random.Chance(15));
}

void HostileFrames::Post(Value request, bool isMutated)
{
    auto& header = request.As<UA_RequestHeader>();
    if (UA_NodeId_isNull(&header.authenticationToken) && !field.random.Chance(1))
        RequireGood(UA_NodeId_copy(&*token, &header.authenticationToken), "copying a token");
    header.timestamp = UA_DateTime_now(); // another is refused at once
    header.requestHandle = static_cast<UA_UInt32>(field.random.Below(10));
    if (header.timeoutHint == 0 && field.random.Chance(10))
        header.timeoutHint = static_cast<UA_UInt32>(field.random.Below(100));
    auto body = EncodeMessage(request);
    if (!body)
        return;
    ++field.figures.requests[request.GetType().typeName];
    if (isMutated && field.random.Chance(60))
        MutateBytes(field.random, *body);
    const std::size_t size = field.random.Chance(90) ? largestChunk : 1 + field.random.Below(9000);
    if (body->size() / size > 300)
        return; // more chunks than are taken
    auto frames = MakeChunks(channel, "MSG", *body, size);
    if (isMutated) {
        ++field.figures.mutatedFrames;
        if (field.random.Chance(40))
            MutateFrames(field.random, frames);
    }
    for (const std::string& frame : frames)
        Send(frame);
    if (&request.GetType() != &UA_TYPES[UA_TYPES_PUBLISHREQUEST] && ++unanswered > mostUnanswered) {
        std::optional<Value> ignored;
        if (!TakeAnswer(shortWait, ignored))
            unanswered = 0; // there will be none
    }
}

void HostileFrames::Send(const std::string& frame)
{
    field.journal.Add(number, frame);
    connection->Send(frame);
    ++field.figures.frames;
    field.figures.bytes += frame.size();
}

std::optional<Value> HostileFrames::Await(const UA_DataType& type, int limit)
{
    std::optional<Value> value;
    while (TakeAnswer(limit, value)) {
        if (!value)
            continue;
        if (&value->GetType() == &type)
            return value;
        if (&value->GetType() == &UA_TYPES[UA_TYPES_SERVICEFAULT])
            return std::nullopt; // this was the answer, or there never will be one
    }
    return std::nullopt;
}

bool HostileFrames::TakeAnswer(int limit, std::optional<Value>& value)
{
    value.reset();
    const auto frame = connection->Receive(limit);
    if (!frame)
        return false;
    value = Understand(*frame);
    if (value)
        Note(*value);
    return true;
}

std::optional<Value> HostileFrames::Understand(const std::string& frame)
{
    const std::string type = frame.substr(0, 3);
    if (type == "OPN")
        return DecodeOpening(frame);
    if (type == "ERR" && frame.size() >= frameHeader + 4) {
        ++field.figures.answers[std::string("error message ") +
                                UA_StatusCode_name(ReadNumber(frame, frameHeader))];
        return std::nullopt;
    }
    if (type != "MSG" || frame.size() < messageHeader)
        return std::nullopt;
    unfinished += frame.substr(messageHeader);
    if (frame[3] == 'C')
        return std::nullopt;
    const std::string whole = std::exchange(unfinished, {});
    return frame[3] == 'F' ? DecodeMessage(whole) : std::nullopt;
}

void HostileFrames::Note(Value& response)
{
    if (unanswered > 0)
        --unanswered;
    Learn(field, response);
    if (&response.GetType() == &UA_TYPES[UA_TYPES_CREATESUBSCRIPTIONRESPONSE])
        subscription = response.As<UA_CreateSubscriptionResponse>().subscriptionId;
    refusals = IsSessionRefused(response.As<UA_ResponseHeader>().serviceResult) ? refusals + 1 : 0;
    if (refusals > 5)
        hasSession = false;
}

} // namespace Fuzz
