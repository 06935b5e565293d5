#include "Requests.h"

#include <OpcUa/UaException.h>

#include <array>
#include <string_view>
#include <vector>

namespace Fuzz {

using OpcUa::RequireGood;

namespace {

/// All services in a session. Requests of those without a maker of their own are made up.
constexpr std::array<std::size_t, 28> services{UA_TYPES_FINDSERVERSREQUEST,
                                               UA_TYPES_FINDSERVERSONNETWORKREQUEST,
                                               UA_TYPES_GETENDPOINTSREQUEST,
                                               UA_TYPES_REGISTERSERVERREQUEST,
                                               UA_TYPES_REGISTERSERVER2REQUEST,
                                               UA_TYPES_CANCELREQUEST,
                                               UA_TYPES_ADDNODESREQUEST,
                                               UA_TYPES_ADDREFERENCESREQUEST,
                                               UA_TYPES_DELETENODESREQUEST,
                                               UA_TYPES_DELETEREFERENCESREQUEST,
                                               UA_TYPES_TRANSLATEBROWSEPATHSTONODEIDSREQUEST,
                                               UA_TYPES_REGISTERNODESREQUEST,
                                               UA_TYPES_UNREGISTERNODESREQUEST,
                                               UA_TYPES_QUERYFIRSTREQUEST,
                                               UA_TYPES_QUERYNEXTREQUEST,
                                               UA_TYPES_WRITEREQUEST,
                                               UA_TYPES_HISTORYREADREQUEST,
                                               UA_TYPES_HISTORYUPDATEREQUEST,
                                               UA_TYPES_SETMONITORINGMODEREQUEST,
                                               UA_TYPES_SETTRIGGERINGREQUEST,
                                               UA_TYPES_DELETEMONITOREDITEMSREQUEST,
                                               UA_TYPES_MODIFYSUBSCRIPTIONREQUEST,
                                               UA_TYPES_SETPUBLISHINGMODEREQUEST,
                                               UA_TYPES_REPUBLISHREQUEST,
                                               UA_TYPES_TRANSFERSUBSCRIPTIONSREQUEST,
                                               UA_TYPES_DELETESUBSCRIPTIONSREQUEST,
                                               UA_TYPES_OPENSECURECHANNELREQUEST,
                                               UA_TYPES_CLOSESECURECHANNELREQUEST};

/// The inputs of the module's methods, in the order of their numbers.
struct FileMethod
{
    std::uint32_t number;
    std::vector<std::size_t> inputs;
    bool hasArray = false;
};
const std::array<FileMethod, 15> methods{{
    {1010, {UA_TYPES_STRING, UA_TYPES_INT32}},
    {1020, {UA_TYPES_UINT32}},
    {1030, {UA_TYPES_STRING, UA_TYPES_BYTESTRING, UA_TYPES_DATETIME, UA_TYPES_BYTE}},
    {1040, {UA_TYPES_STRING, UA_TYPES_BYTESTRING}},
    {1050, {UA_TYPES_UINT32, UA_TYPES_BYTESTRING}},
    {1060, {UA_TYPES_UINT32, UA_TYPES_BYTESTRING, UA_TYPES_DATETIME, UA_TYPES_BYTE}},
    {1070, {UA_TYPES_STRING}},
    {1080, {UA_TYPES_STRING}, true},
    {1090, {UA_TYPES_STRING, UA_TYPES_BOOLEAN}},
    {1100, {UA_TYPES_STRING}},
    {1110, {UA_TYPES_UINT32, UA_TYPES_UINT32}},
    {1120, {UA_TYPES_STRING}},
    {1130, {UA_TYPES_STRING, UA_TYPES_DATETIME}},
    {1140, {UA_TYPES_UINT32}},
    {1150, {UA_TYPES_UINT32, UA_TYPES_UINT64}},
}};

/// Gives an array `count` empty elements.
template <typename T>
void Resize(T*& elements, std::size_t& size, std::size_t wanted, std::size_t type)
{
    void* array = elements;
    RequireGood(UA_Array_resize(&array, &size, wanted, &UA_TYPES[type]), "making an array");
    elements = static_cast<T*>(array);
}

bool NamesSubscription(const UA_DataType& type)
{
    return type.membersSize > 1 && std::string_view(type.members[1].memberName) == "subscriptionId";
}

UA_NodeId CopyOf(const UA_NodeId& node)
{
    UA_NodeId copy;
    RequireGood(UA_NodeId_copy(&node, &copy), "copying a node's id");
    return copy;
}

} // namespace

Value Requests::Make(std::uint32_t subscription)
{
    Value value = MakeForService();
    if (NamesSubscription(value.GetType()) && !random.Chance(20))
        // It follows the header in all of them, as in this one.
        value.As<UA_RepublishRequest>().subscriptionId = subscription;
    return value;
}

Value Requests::MakeForService()
{
    const std::size_t draw = random.Below(100);
    if (draw < 25)
        return MakeCall();
    if (draw < 32)
        return MakeRead();
    if (draw < 38)
        return MakeBrowse();
    if (draw < 40)
        return MakeBrowseNext();
    if (draw < 44)
        return MakeCreateSubscription();
    if (draw < 54)
        return MakeCreateItems();
    if (draw < 58)
        return MakeModifyItems();
    return draw < 65 ? MakePublish() : MakeAny();
}

Value Requests::MakeCreateSession()
{
    Value value(UA_TYPES[UA_TYPES_CREATESESSIONREQUEST]);
    auto& request = value.As<UA_CreateSessionRequest>();
    request.clientDescription.applicationUri = pool.DrawText(random);
    request.endpointUrl = MakeString("opc.tcp://localhost");
    request.sessionName = pool.DrawText(random);
    request.requestedSessionTimeout = random.Chance(90) ? 60'000 : random.Real();
    request.maxResponseMessageSize =
        random.Chance(90) ? 0 : static_cast<UA_UInt32>(random.Number());
    return value;
}

Value Requests::MakeActivateSession(bool isPlausible)
{
    Value value(UA_TYPES[UA_TYPES_ACTIVATESESSIONREQUEST]);
    auto& request = value.As<UA_ActivateSessionRequest>();
    if (isPlausible) // without a token, the user is anonymous
        return value;
    constexpr std::array<std::size_t, 4> tokens{
        UA_TYPES_ANONYMOUSIDENTITYTOKEN, UA_TYPES_USERNAMEIDENTITYTOKEN, UA_TYPES_X509IDENTITYTOKEN,
        UA_TYPES_ISSUEDIDENTITYTOKEN};
    mutator.FillExtension(request.userIdentityToken, UA_TYPES[random.Pick(tokens)], 2);
    mutator.Fill(&request.userTokenSignature, UA_TYPES[UA_TYPES_SIGNATUREDATA], 2);
    return value;
}

Value Requests::MakeCloseSession()
{
    Value value(UA_TYPES[UA_TYPES_CLOSESESSIONREQUEST]);
    value.As<UA_CloseSessionRequest>().deleteSubscriptions = random.Chance(50);
    return value;
}

Value Requests::MakeCall()
{
    Value value(UA_TYPES[UA_TYPES_CALLREQUEST]);
    auto& request = value.As<UA_CallRequest>();
    Resize(request.methodsToCall, request.methodsToCallSize, 1 + random.Below(3),
           UA_TYPES_CALLMETHODREQUEST);
    for (std::size_t i = 0; i < request.methodsToCallSize; ++i) {
        UA_CallMethodRequest& call = request.methodsToCall[i];
        if (random.Chance(50))
            FillFileCall(call);
        else
            FillAnyCall(call);
    }
    return value;
}

/// Makes a call as in the model, but for the arguments' values.
void Requests::FillFileCall(UA_CallMethodRequest& call)
{
    const FileMethod& method = random.Pick(methods);
    call.objectId = pool.DrawFiles(random);
    call.methodId = UA_NODEID_NUMERIC(fileMethods, method.number);
    Resize(call.inputArguments, call.inputArgumentsSize, method.inputs.size(), UA_TYPES_VARIANT);
    std::size_t i = 0;
    for (const std::size_t type : method.inputs) {
        FillInput(call.inputArguments[i++], {&UA_TYPES[type], method.hasArray});
    }
}

void Requests::FillAnyCall(UA_CallMethodRequest& call)
{
    const MethodPlace& place = pool.DrawMethod(random);
    call.objectId = CopyOf(pool.GetNode(place.object));
    call.methodId = CopyOf(pool.GetNode(place.method));
    const bool isAsDeclared = random.Chance(70);
    Resize(call.inputArguments, call.inputArgumentsSize,
           isAsDeclared ? place.inputs.size() : random.Below(4), UA_TYPES_VARIANT);
    const bool fits = random.Chance(60);
    const std::size_t length = 1 + random.Below(3); // arrays of one call often belong together
    for (std::size_t i = 0; i < call.inputArgumentsSize; ++i) {
        UA_Variant& input = call.inputArguments[i];
        if (!isAsDeclared)
            mutator.Fill(&input, UA_TYPES[UA_TYPES_VARIANT], 2);
        else if (fits && place.inputs[i].IsNode())
            FillWithChild(input, place.object);
        else if (fits && place.inputs[i].isArray && place.inputs[i].type != nullptr)
            FillArray(input, *place.inputs[i].type, length);
        else
            FillInput(input, place.inputs[i]);
    }
}

void Requests::FillArray(UA_Variant& input, const UA_DataType& type, std::size_t length)
{
    input.type = &type;
    input.data = UA_Array_new(length, &type);
    input.arrayLength = length;
    for (std::size_t i = 0; i < length; ++i)
        mutator.Fill(static_cast<std::byte*>(input.data) + i * type.memSize, type, 2);
}

/// Directories take what is in them.
void Requests::FillWithChild(UA_Variant& input, std::size_t parent)
{
    input.type = &UA_TYPES[UA_TYPES_NODEID];
    input.data = UA_new(input.type);
    *static_cast<UA_NodeId*>(input.data) = pool.DrawChild(random, parent);
}

/// Makes a value that fits the input; empty where its type is not known.
void Requests::FillInput(UA_Variant& input, const InputType& declared)
{
    if (declared.type == nullptr)
        return;
    if (declared.isArray) {
        mutator.FillVariant(input, *declared.type, 2);
        return;
    }
    input.type = declared.type;
    input.data = UA_new(input.type);
    mutator.Fill(input.data, *input.type, 2);
}

Value Requests::MakeRead()
{
    Value value(UA_TYPES[UA_TYPES_READREQUEST]);
    auto& request = value.As<UA_ReadRequest>();
    request.timestampsToReturn = static_cast<UA_TimestampsToReturn>(random.Below(4));
    Resize(request.nodesToRead, request.nodesToReadSize, 1 + random.Below(5), UA_TYPES_READVALUEID);
    for (std::size_t i = 0; i < request.nodesToReadSize; ++i) {
        request.nodesToRead[i].nodeId = pool.DrawNode(random);
        request.nodesToRead[i].attributeId = static_cast<UA_UInt32>(random.Below(29));
        if (random.Chance(10))
            request.nodesToRead[i].indexRange = MakeString("1:3,0:1");
    }
    return value;
}

Value Requests::MakeBrowse()
{
    Value value(UA_TYPES[UA_TYPES_BROWSEREQUEST]);
    auto& request = value.As<UA_BrowseRequest>();
    request.requestedMaxReferencesPerNode = static_cast<UA_UInt32>(random.Below(4));
    Resize(request.nodesToBrowse, request.nodesToBrowseSize, 1 + random.Below(4),
           UA_TYPES_BROWSEDESCRIPTION);
    for (std::size_t i = 0; i < request.nodesToBrowseSize; ++i) {
        UA_BrowseDescription& node = request.nodesToBrowse[i];
        node.nodeId = pool.DrawNode(random);
        node.browseDirection = static_cast<UA_BrowseDirection>(random.Below(3));
        node.includeSubtypes = random.Chance(80);
        node.resultMask = UA_BROWSERESULTMASK_ALL;
        if (random.Chance(30))
            node.referenceTypeId = pool.DrawNode(random);
    }
    return value;
}

Value Requests::MakeBrowseNext()
{
    Value value(UA_TYPES[UA_TYPES_BROWSENEXTREQUEST]);
    auto& request = value.As<UA_BrowseNextRequest>();
    request.releaseContinuationPoints = random.Chance(30);
    Resize(request.continuationPoints, request.continuationPointsSize, 1 + random.Below(3),
           UA_TYPES_BYTESTRING);
    for (std::size_t i = 0; i < request.continuationPointsSize; ++i)
        request.continuationPoints[i] = pool.DrawContinuation(random);
    return value;
}

Value Requests::MakeCreateSubscription()
{
    Value value(UA_TYPES[UA_TYPES_CREATESUBSCRIPTIONREQUEST]);
    auto& request = value.As<UA_CreateSubscriptionRequest>();
    request.requestedPublishingInterval = random.Chance(80) ? 10 : random.Real();
    request.requestedLifetimeCount = 10'000;
    request.requestedMaxKeepAliveCount = static_cast<UA_UInt32>(random.Below(100));
    request.maxNotificationsPerPublish = static_cast<UA_UInt32>(random.Below(10));
    request.publishingEnabled = random.Chance(90);
    return value;
}

Value Requests::MakeCreateItems()
{
    Value value(UA_TYPES[UA_TYPES_CREATEMONITOREDITEMSREQUEST]);
    auto& request = value.As<UA_CreateMonitoredItemsRequest>();
    request.subscriptionId = pool.DrawNumber(random);
    request.timestampsToReturn = static_cast<UA_TimestampsToReturn>(random.Below(4));
    Resize(request.itemsToCreate, request.itemsToCreateSize, 1 + random.Below(4),
           UA_TYPES_MONITOREDITEMCREATEREQUEST);
    for (std::size_t i = 0; i < request.itemsToCreateSize; ++i) {
        UA_MonitoredItemCreateRequest& item = request.itemsToCreate[i];
        const bool isEvent = random.Chance(70);
        item.itemToMonitor.nodeId =
            isEvent && random.Chance(80) ? pool.DrawFiles(random) : pool.DrawNode(random);
        item.itemToMonitor.attributeId = isEvent ? UA_UInt32{UA_ATTRIBUTEID_EVENTNOTIFIER}
                                                 : static_cast<UA_UInt32>(random.Below(29));
        item.monitoringMode =
            static_cast<UA_MonitoringMode>(random.Chance(80) ? 2 : random.Below(4));
        FillParameters(item.requestedParameters);
        if (isEvent)
            FillFilter(item.requestedParameters.filter);
    }
    return value;
}

Value Requests::MakeModifyItems()
{
    Value value(UA_TYPES[UA_TYPES_MODIFYMONITOREDITEMSREQUEST]);
    auto& request = value.As<UA_ModifyMonitoredItemsRequest>();
    request.subscriptionId = pool.DrawNumber(random);
    Resize(request.itemsToModify, request.itemsToModifySize, 1 + random.Below(4),
           UA_TYPES_MONITOREDITEMMODIFYREQUEST);
    for (std::size_t i = 0; i < request.itemsToModifySize; ++i) {
        UA_MonitoredItemModifyRequest& item = request.itemsToModify[i];
        item.monitoredItemId = pool.DrawNumber(random);
        FillParameters(item.requestedParameters);
        if (random.Chance(70))
            FillFilter(item.requestedParameters.filter);
    }
    return value;
}

void Requests::FillParameters(UA_MonitoringParameters& parameters)
{
    parameters.clientHandle = static_cast<UA_UInt32>(random.Bits());
    parameters.samplingInterval = random.Chance(80) ? 0 : random.Real();
    parameters.queueSize = random.Chance(80) ? static_cast<UA_UInt32>(random.Below(100))
                                             : static_cast<UA_UInt32>(random.Number());
    parameters.discardOldest = random.Chance(50);
}

void Requests::FillFilter(UA_ExtensionObject& object)
{
    mutator.FillExtension(object, UA_TYPES[UA_TYPES_EVENTFILTER], 100); // empty
    auto& filter = *static_cast<UA_EventFilter*>(object.content.decoded.data);
    Resize(filter.selectClauses, filter.selectClausesSize, 1 + random.Below(4),
           UA_TYPES_SIMPLEATTRIBUTEOPERAND);
    for (std::size_t i = 0; i < filter.selectClausesSize; ++i)
        FillSelect(filter.selectClauses[i]);
    if (random.Chance(50))
        FillWhere(filter.whereClause);
}

/// Makes a select clause, mostly for a field of all events.
void Requests::FillSelect(UA_SimpleAttributeOperand& clause)
{
    static constexpr std::array names{"EventId",  "EventType",   "SourceNode", "SourceName",
                                      "Time",     "ReceiveTime", "LocalTime",  "Message",
                                      "Severity", "Exist"};
    clause.typeDefinitionId =
        random.Chance(85) ? UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE) : pool.DrawNode(random);
    clause.attributeId = random.Chance(90) ? UA_ATTRIBUTEID_VALUE : UA_ATTRIBUTEID_NODEID;
    if (random.Chance(5))
        return;
    Resize(clause.browsePath, clause.browsePathSize, 1, UA_TYPES_QUALIFIEDNAME);
    clause.browsePath[0].namespaceIndex = random.Chance(80) ? 0 : fileMethods;
    clause.browsePath[0].name = MakeString(random.Pick(names));
}

void Requests::FillWhere(UA_ContentFilter& where)
{
    constexpr std::array<std::size_t, 3> operands{UA_TYPES_LITERALOPERAND, UA_TYPES_ELEMENTOPERAND,
                                                  UA_TYPES_ATTRIBUTEOPERAND};
    Resize(where.elements, where.elementsSize, 1 + random.Below(3), UA_TYPES_CONTENTFILTERELEMENT);
    for (std::size_t i = 0; i < where.elementsSize; ++i) {
        UA_ContentFilterElement& element = where.elements[i];
        element.filterOperator = static_cast<UA_FilterOperator>(random.Below(18));
        Resize(element.filterOperands, element.filterOperandsSize, random.Below(4),
               UA_TYPES_EXTENSIONOBJECT);
        for (std::size_t j = 0; j < element.filterOperandsSize; ++j) {
            UA_ExtensionObject& operand = element.filterOperands[j];
            if (random.Chance(50)) {
                mutator.FillExtension(operand, UA_TYPES[UA_TYPES_SIMPLEATTRIBUTEOPERAND], 100);
                FillSelect(*static_cast<UA_SimpleAttributeOperand*>(operand.content.decoded.data));
            } else {
                mutator.FillExtension(operand, UA_TYPES[random.Pick(operands)], 3);
            }
        }
    }
}

Value Requests::MakePublish()
{
    Value value(UA_TYPES[UA_TYPES_PUBLISHREQUEST]);
    auto& request = value.As<UA_PublishRequest>();
    Resize(request.subscriptionAcknowledgements, request.subscriptionAcknowledgementsSize,
           random.Below(3), UA_TYPES_SUBSCRIPTIONACKNOWLEDGEMENT);
    for (std::size_t i = 0; i < request.subscriptionAcknowledgementsSize; ++i)
        request.subscriptionAcknowledgements[i] = {pool.DrawNumber(random),
                                                   static_cast<UA_UInt32>(random.Below(20))};
    return value;
}

Value Requests::MakeAny()
{
    const std::size_t service = random.Pick(services);
    Value value(UA_TYPES[service]);
    mutator.Fill(value.Get(), value.GetType());
    UA_clear(value.Get(), &UA_TYPES[UA_TYPES_REQUESTHEADER]); // stands first in it
    return value;
}

} // namespace Fuzz
