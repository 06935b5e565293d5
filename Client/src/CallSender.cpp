#include "CallSender.h"

#include "Status.h"

#include <array>
#include <cstdio>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>

namespace Client {

namespace {

/// More is not encoded ahead of what the network takes, so that the time in which a call has to be
/// answered does not begin while it waits here.
constexpr std::size_t outputAhead = std::size_t{1} << 20U;
/// The time that work has for which the server answers only when it is done, such as copying a
/// tree: a day, in ms. A host that is gone is noticed by the connection.
constexpr UA_UInt32 longestWork = 24U * 60U * 60U * 1'000U;

} // namespace

/// Belongs to the OPC UA library from the request to the answer.
struct CallSender::Sent
{
    Sent(CallSender& sender, PostedCallPointer call) noexcept
        : sender(sender)
        , call(std::move(call))
    {}

    CallSender& sender;
    PostedCallPointer call;
};

std::string DescribeOverdue(const PostedCall& call, std::chrono::milliseconds time)
{
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "%g", std::chrono::duration<double>(time).count());
    return "no answer to " + call.Describe() + " for " + number.data() + " s";
}

void CallSender::Add(std::vector<PostedCallPointer>& calls)
{
    ready.insert(ready.end(), std::make_move_iterator(calls.begin()),
                 std::make_move_iterator(calls.end()));
    calls.clear();
}

void CallSender::SendReady()
{
    while (!ready.empty() && connector.GetLoop().GetQueuedOutput() < outputAhead) {
        const PostedCallPointer call = std::move(ready.front());
        ready.pop_front();
        try {
            Send(call);
        } catch (const std::exception& failure) {
            call->Lose(false);
            connector.Break(failure.what());
        }
    }
}

void CallSender::LoseReady()
{
    for (const auto& call : std::exchange(ready, {}))
        call->Lose(false);
}

void CallSender::Send(const PostedCallPointer& call)
{
    const auto encode = [&](const UA_CallMethodRequest& method) {
        Send(call, method);
    };
    if (!call->Send(connector.GetFacts().GetNamespaces(), encode))
        call->Lose(false);
}

void CallSender::Send(const PostedCallPointer& call, const UA_CallMethodRequest& method)
{
    UA_CallRequest request{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): encoding only reads it
    request.methodsToCall = const_cast<UA_CallMethodRequest*>(&method);
    request.methodsToCallSize = 1;
    if (call->MayTakeLong())
        request.requestHeader.timeoutHint = longestWork;
    auto sent = std::make_unique<Sent>(*this, call);
    const UA_StatusCode status = __UA_Client_AsyncService(
        &connector.GetClient(), &request, &UA_TYPES[UA_TYPES_CALLREQUEST], &CallSender::OnAnswer,
        &UA_TYPES[UA_TYPES_CALLRESPONSE], sent.get(), nullptr);
    if (status == UA_STATUSCODE_GOOD) {
        static_cast<void>(sent.release()); // belongs to OnAnswer
        return;
    }
    UA_CallResponse failed{};
    failed.responseHeader.serviceResult = status;
    TakeAnswer(*call, failed);
}

void CallSender::OnAnswer(UA_Client* /*client*/, void* context, UA_UInt32 /*request*/,
                          void* response) noexcept
{
    const std::unique_ptr<Sent> sent(static_cast<Sent*>(context));
    try {
        sent->sender.TakeAnswer(*sent->call, *static_cast<const UA_CallResponse*>(response));
    } catch (const std::exception& failure) {
        sent->call->Lose(false);
        sent->sender.connector.Break(failure.what());
    }
}

void CallSender::TakeAnswer(PostedCall& call, const UA_CallResponse& response)
{
    const UA_StatusCode status = response.responseHeader.serviceResult;
    if (IsLoss(status)) {
        const bool isOverdue = status == UA_STATUSCODE_BADTIMEOUT;
        if (isOverdue)
            connector.Break(DescribeOverdue(call, answerTime));
        call.Lose(isOverdue);
    } else if (status != UA_STATUSCODE_GOOD) {
        call.TakeAnswer(status, nullptr);
    } else if (response.resultsSize != 1) {
        call.TakeAnswer(UA_STATUSCODE_BADUNEXPECTEDERROR, nullptr);
    } else {
        call.TakeAnswer(response.results[0].statusCode, &response.results[0]);
    }
}

} // namespace Client
