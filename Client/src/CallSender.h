#pragma once

#include "Connector.h"
#include "PostedCall.h"

#include <chrono>
#include <deque>
#include <string>
#include <vector>

namespace Client {

/// Returns in words that a call had no answer for that time.
[[nodiscard]] std::string DescribeOverdue(const PostedCall& call, std::chrono::milliseconds time);

/// Encodes and sends calls in their order, and hands over their answers. Of the engine's thread.
class CallSender
{
public:
    /// `answerTime`: the time that calls have. Must outlive the connector's client, which calls it.
    CallSender(Connector& connector, std::chrono::milliseconds answerTime) noexcept
        : connector(connector)
        , answerTime(answerTime)
    {}
    CallSender(const CallSender&) = delete;
    CallSender& operator=(const CallSender&) = delete;
    ~CallSender() = default;

    /// Appends the calls and leaves the vector empty.
    void Add(std::vector<PostedCallPointer>& calls);
    /// Sends as many as the network takes soon.
    void SendReady();
    /// Loses the calls that are not sent.
    void LoseReady();

private:
    struct Sent;

    void Send(const PostedCallPointer& call);
    void Send(const PostedCallPointer& call, const UA_CallMethodRequest& method);
    static void OnAnswer(UA_Client* client, void* sent, UA_UInt32 request, void* response) noexcept;
    void TakeAnswer(PostedCall& call, const UA_CallResponse& response);

    Connector& connector;
    const std::chrono::milliseconds answerTime;
    std::deque<PostedCallPointer> ready;
};

} // namespace Client
