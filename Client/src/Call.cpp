#include "Call.h"

#include "CallInputs.h"
#include "Node.h"
#include "ServerFacts.h"

#include <OpcUa/Text.h>

namespace Client {

bool Call::Send(const Namespaces& namespaces, const Encode& encode)
{
    if (!node->TakeForSending(shared_from_this()))
        return false;
    CallInputs inputs(request);
    UA_CallMethodRequest method{};
    method.objectId = node->GetId();
    method.methodId = UA_NODEID_NUMERIC(namespaces.files, static_cast<UA_UInt32>(request.method));
    method.inputArguments = inputs.Get().data();
    method.inputArgumentsSize = inputs.Get().size();
    encode(method);
    request.bytesOwner.reset();
    return true;
}

void Call::TakeAnswer(UA_StatusCode status, UA_CallMethodResult* result)
{
    // The library only reads what is left of it after this.
    UA_Variant* const output =
        status == UA_STATUSCODE_GOOD && result != nullptr && result->outputArgumentsSize > 0
            ? &result->outputArguments[0]
            : nullptr;
    node->TakeAnswer(shared_from_this(), status, output);
}

void Call::Lose(bool isOverdue) noexcept
{
    if (isOverdue)
        outcome.isOverdue = true; // stays, when it is lost once more with the connection
    outcome.isLost = true;
    outcome.isAnswered = true;
    outcome.hasEvent = true;
    waiter->Notify();
}

std::string Call::Describe() const
{
    std::string text = Client::Describe(request.method).name;
    const std::string& path = request.paths.empty() ? request.path : request.paths.front();
    if (!path.empty())
        text += " of '" + OpcUa::UnescapeFromUtf8(path) + "'";
    return text;
}

} // namespace Client
