#include "CallSender.h"

#include "CallInputs.h"
#include "Node.h"
#include "Status.h"

#include <OpcUa/Text.h>

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

} // namespace

/// Belongs to the OPC UA library from the request to the answer.
struct CallSender::Sent
{
    Sent(CallSender& sender, CallPointer call) noexcept
        : sender(sender)
        , call(std::move(call))
    {}

    CallSender& sender;
    CallPointer call;
};

std::string DescribeOverdue(const Request& request, std::chrono::milliseconds time)
{
    std::string text = Describe(request.method).name;
    const std::string& path = request.paths.empty() ? request.path : request.paths.front();
    if (!path.empty())
        text += " of '" + OpcUa::UnescapeFromUtf8(path) + "'";
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "%g", std::chrono::duration<double>(time).count());
    return text + " had no answer for " + number.data() + " s";
}

void CallSender::Add(std::vector<CallPointer>& calls)
{
    ready.insert(ready.end(), std::make_move_iterator(calls.begin()),
                 std::make_move_iterator(calls.end()));
    calls.clear();
}

void CallSender::SendReady()
{
    while (!ready.empty() && connector.GetLoop().GetQueuedOutput() < outputAhead) {
        const CallPointer call = std::move(ready.front());
        ready.pop_front();
        try {
            Send(call);
        } catch (const std::exception& failure) {
            call->Lose();
            connector.Break(failure.what());
        }
    }
}

void CallSender::LoseReady()
{
    for (const auto& call : std::exchange(ready, {}))
        call->Lose();
}

void CallSender::Send(const CallPointer& call)
{
    if (!call->node->TakeForSending(call)) {
        call->Lose();
        return;
    }
    CallInputs inputs(call->request);
    UA_CallMethodRequest method{};
    method.objectId = call->node->GetId();
    method.methodId = UA_NODEID_NUMERIC(connector.GetFacts().GetNamespaces().files,
                                        static_cast<UA_UInt32>(call->request.method));
    method.inputArguments = inputs.Get().data();
    method.inputArgumentsSize = inputs.Get().size();
    UA_CallRequest request{};
    request.methodsToCall = &method;
    request.methodsToCallSize = 1;
    auto sent = std::make_unique<Sent>(*this, call);
    const UA_StatusCode status = __UA_Client_AsyncService(
        &connector.GetClient(), &request, &UA_TYPES[UA_TYPES_CALLREQUEST], &CallSender::OnAnswer,
        &UA_TYPES[UA_TYPES_CALLRESPONSE], sent.get(), nullptr);
    call->request.bytesOwner.reset(); // encoded
    if (status == UA_STATUSCODE_GOOD) {
        static_cast<void>(sent.release()); // belongs to OnAnswer
        return;
    }
    UA_CallResponse failed{};
    failed.responseHeader.serviceResult = status;
    TakeAnswer(call, failed);
}

void CallSender::OnAnswer(UA_Client* /*client*/, void* context, UA_UInt32 /*request*/,
                          void* response) noexcept
{
    const std::unique_ptr<Sent> sent(static_cast<Sent*>(context));
    try {
        sent->sender.TakeAnswer(sent->call, *static_cast<const UA_CallResponse*>(response));
    } catch (const std::exception& failure) {
        sent->call->Lose();
        sent->sender.connector.Break(failure.what());
    }
}

void CallSender::TakeAnswer(const CallPointer& call, const UA_CallResponse& response)
{
    UA_StatusCode status = response.responseHeader.serviceResult;
    if (IsLoss(status)) {
        if (status == UA_STATUSCODE_BADTIMEOUT) {
            call->outcome.isOverdue = true;
            connector.Break(DescribeOverdue(call->request, answerTime));
        }
        call->Lose();
        return;
    }
    if (status == UA_STATUSCODE_GOOD)
        status = response.resultsSize == 1 ? response.results[0].statusCode
                                           : UA_STATUSCODE_BADUNEXPECTEDERROR;
    // The library only reads what is left of it after this.
    UA_Variant* const output =
        status == UA_STATUSCODE_GOOD && response.results[0].outputArgumentsSize > 0
            ? &response.results[0].outputArguments[0]
            : nullptr;
    call->node->TakeAnswer(call, status, output);
}

} // namespace Client
