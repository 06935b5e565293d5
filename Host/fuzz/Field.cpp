#include "Field.h"

namespace Fuzz {

namespace {

bool Is(const Value& value, std::size_t type)
{
    return &value.GetType() == &UA_TYPES[type];
}

void LearnFromCalls(Field& field, const UA_CallResponse& response)
{
    for (std::size_t i = 0; i < response.resultsSize; ++i) {
        const UA_CallMethodResult& result = response.results[i];
        ++field.figures.calls[UA_StatusCode_name(result.statusCode)];
        for (std::size_t j = 0; j < result.outputArgumentsSize; ++j) {
            const UA_Variant& output = result.outputArguments[j];
            if (UA_Variant_hasScalarType(&output, &UA_TYPES[UA_TYPES_UINT32]))
                field.pool.AddNumber(*static_cast<const UA_UInt32*>(output.data));
            else if (UA_Variant_hasScalarType(&output, &UA_TYPES[UA_TYPES_NODEID]))
                field.pool.AddOutput(*static_cast<const UA_NodeId*>(output.data));
        }
    }
}

} // namespace

void Learn(Field& field, Value& response)
{
    ++field.figures.answers[UA_StatusCode_name(response.As<UA_ResponseHeader>().serviceResult)];
    if (Is(response, UA_TYPES_CREATESESSIONRESPONSE)) {
        field.pool.AddMade(response.As<UA_CreateSessionResponse>().sessionId);
        field.pool.AddMade(response.As<UA_CreateSessionResponse>().authenticationToken);
    } else if (Is(response, UA_TYPES_CREATESUBSCRIPTIONRESPONSE)) {
        field.pool.AddNumber(response.As<UA_CreateSubscriptionResponse>().subscriptionId);
    } else if (Is(response, UA_TYPES_CREATEMONITOREDITEMSRESPONSE)) {
        const auto& made = response.As<UA_CreateMonitoredItemsResponse>();
        for (std::size_t i = 0; i < made.resultsSize; ++i)
            field.pool.AddNumber(made.results[i].monitoredItemId);
    } else if (Is(response, UA_TYPES_BROWSERESPONSE)) {
        const auto& browsed = response.As<UA_BrowseResponse>();
        for (std::size_t i = 0; i < browsed.resultsSize; ++i)
            if (browsed.results[i].continuationPoint.length > 0)
                field.pool.AddContinuation(browsed.results[i].continuationPoint);
    } else if (Is(response, UA_TYPES_CALLRESPONSE)) {
        LearnFromCalls(field, response.As<UA_CallResponse>());
    }
}

} // namespace Fuzz
