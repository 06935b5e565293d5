#include "Endpoint/EventFilters.h"

#include "Endpoint/Interposition.h"
#include "Endpoint/LibraryAssumptions.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <span>
#include <utility>
#include <vector>

namespace Host {
namespace {

/// More than any type has above it.
constexpr int mostSuperTypes = 100;

std::atomic<EventFilters*> current{nullptr};

template <typename T>
const T* Decoded(const UA_ExtensionObject& object, const UA_DataType& type)
{
    const bool isDecoded = object.encoding == UA_EXTENSIONOBJECT_DECODED ||
                           object.encoding == UA_EXTENSIONOBJECT_DECODED_NODELETE;
    if (!isDecoded || object.content.decoded.type != &type)
        return nullptr;
    return static_cast<const T*>(object.content.decoded.data);
}

bool IsElement(const UA_ExtensionObject& operand)
{
    return Decoded<UA_ElementOperand>(operand, UA_TYPES[UA_TYPES_ELEMENTOPERAND]) != nullptr;
}

bool IsLiteralType(const UA_ExtensionObject& operand)
{
    const auto* literal = Decoded<UA_LiteralOperand>(operand, UA_TYPES[UA_TYPES_LITERALOPERAND]);
    return literal != nullptr &&
           UA_Variant_hasScalarType(&literal->value, &UA_TYPES[UA_TYPES_NODEID]);
}

/// Reads the operator as it came, which need not be in the enumeration.
std::int32_t OperatorOf(const UA_ContentFilterElement& element)
{
    std::int32_t operation = 0;
    static_assert(sizeof(operation) == sizeof(element.filterOperator));
    std::memcpy(&operation, &element.filterOperator, sizeof(operation));
    return operation;
}

/// True for operators whose operands always resolve and whose result is always set; the library
/// has checked before it evaluates that elements point forwards, to ones that are evaluated then.
bool IsSupported(std::int32_t operation)
{
    return operation == UA_FILTEROPERATOR_OFTYPE || operation == UA_FILTEROPERATOR_AND ||
           operation == UA_FILTEROPERATOR_OR || operation == UA_FILTEROPERATOR_NOT;
}

bool HasSafeOperands(const UA_ContentFilterElement& element)
{
    const std::span operands(element.filterOperands, element.filterOperandsSize);
    const bool isOfType = element.filterOperator == UA_FILTEROPERATOR_OFTYPE;
    return std::all_of(operands.begin(), operands.end(), isOfType ? IsLiteralType : IsElement);
}

void RefuseOperator(UA_ContentFilterElement& element)
{
    UA_Array_delete(element.filterOperands, element.filterOperandsSize,
                    &UA_TYPES[UA_TYPES_EXTENSIONOBJECT]);
    element.filterOperands = nullptr;
    element.filterOperandsSize = 0;
    element.filterOperator = UA_FILTEROPERATOR_LIKE; // answered with Bad_FilterOperatorUnsupported
}

void RefuseOperands(UA_ContentFilterElement& element)
{
    for (auto& operand : std::span(element.filterOperands, element.filterOperandsSize))
        UA_ExtensionObject_clear(&operand); // answered with Bad_FilterOperandInvalid
}

void AdaptWhereClause(UA_ContentFilter& clause)
{
    for (auto& element : std::span(clause.elements, clause.elementsSize)) {
        if (!IsSupported(OperatorOf(element)))
            RefuseOperator(element);
        else if (!HasSafeOperands(element))
            RefuseOperands(element);
    }
}

using NodeIds = std::vector<Ua<UA_NodeId>>;

Ua<UA_NodeId> Copy(const UA_NodeId& id)
{
    Ua<UA_NodeId> copy;
    RequireGood(UA_NodeId_copy(&id, &*copy), "copying an identifier");
    return copy;
}

/// Returns the type and those above it up to BaseEventType; empty for any other kind of node.
NodeIds FindSuperTypes(UA_Server& server, const UA_NodeId& type)
{
    constexpr UA_NodeId baseEventType{0, UA_NODEIDTYPE_NUMERIC, {UA_NS0ID_BASEEVENTTYPE}};
    UA_BrowseDescription upwards;
    UA_BrowseDescription_init(&upwards);
    upwards.browseDirection = UA_BROWSEDIRECTION_INVERSE;
    upwards.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HASSUBTYPE);
    NodeIds types;
    types.push_back(Copy(type));
    while (!UA_NodeId_equal(&*types.back(), &baseEventType)) {
        upwards.nodeId = *types.back();
        UA_BrowseResult above = UA_Server_browse(&server, 0, &upwards);
        const bool isFound = above.referencesSize > 0 && types.size() < mostSuperTypes;
        if (isFound)
            types.emplace_back(std::exchange(above.references[0].nodeId.nodeId, UA_NODEID_NULL));
        UA_BrowseResult_clear(&above);
        if (!isFound)
            return {};
    }
    return types;
}

bool HasField(UA_Server& server, const UA_NodeId& type, const UA_SimpleAttributeOperand& clause)
{
    UA_BrowsePathResult result = UA_Server_browseSimplifiedBrowsePath(
        &server, type, clause.browsePathSize, clause.browsePath);
    const bool isFound = result.statusCode == UA_STATUSCODE_GOOD && result.targetsSize > 0;
    UA_BrowsePathResult_clear(&result);
    return isFound;
}

bool HasFieldBelow(UA_Server& server, const UA_NodeId& type,
                   const UA_SimpleAttributeOperand& clause)
{
    UA_BrowseDescription downwards;
    UA_BrowseDescription_init(&downwards);
    downwards.nodeId = type;
    downwards.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HASSUBTYPE);
    downwards.includeSubtypes = true;
    std::size_t count = 0;
    UA_ExpandedNodeId* below = nullptr;
    RequireGood(UA_Server_browseRecursive(&server, &downwards, &count, &below),
                "looking for the subtypes of an event type");
    const std::span types(below, count);
    const bool isFound = std::any_of(types.begin(), types.end(), [&](const auto& each) {
        return HasField(server, each.nodeId, clause);
    });
    UA_Array_delete(below, count, &UA_TYPES[UA_TYPES_EXPANDEDNODEID]);
    return isFound;
}

/// Returns false for a field that no event has. The library refuses all other mistakes.
bool NameDeclaringType(UA_Server& server, UA_SimpleAttributeOperand& clause)
{
    if (clause.browsePathSize == 0)
        return true;
    NodeIds types = FindSuperTypes(server, clause.typeDefinitionId);
    const auto declaring = std::find_if(types.begin(), types.end(), [&](const auto& type) {
        return HasField(server, *type, clause);
    });
    if (declaring == types.end())
        return types.empty() || HasFieldBelow(server, clause.typeDefinitionId, clause);
    std::swap(clause.typeDefinitionId, **declaring);
    return true;
}

/// Selects the value of the event itself, which is an object and has none.
void SelectNothing(UA_SimpleAttributeOperand& clause)
{
    UA_SimpleAttributeOperand_clear(&clause);
    clause.typeDefinitionId = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE);
    clause.attributeId = UA_ATTRIBUTEID_VALUE;
}

} // namespace

EventFilters::EventFilters(UA_Server& server, const EventLoop& loop, const Sessions& sessions)
    : server(server)
    , loop(loop)
    , sessions(sessions)
{
    current = this;
    Interpose(&AdaptForCurrent);
}

EventFilters::~EventFilters()
{
    Interpose(AdaptParameters{});
    current = nullptr;
}

UA_StatusCode EventFilters::Adapt(UA_MonitoringParameters& parameters)
{
    const auto* decoded =
        Decoded<UA_EventFilter>(parameters.filter, UA_TYPES[UA_TYPES_EVENTFILTER]);
    if (decoded == nullptr)
        return UA_STATUSCODE_GOOD;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): as changeable as the parameters
    auto& filter = const_cast<UA_EventFilter&>(*decoded);
    if (!SpendTime(filter))
        return UA_STATUSCODE_BADTOOMANYOPERATIONS;
    AdaptWhereClause(filter.whereClause);
    if (filter.selectClausesSize <= mostSelectClauses)
        AdaptSelectClauses(filter);
    return UA_STATUSCODE_GOOD;
}

/// Returns false when the session has used up its share. Not by an exception: a session that asks
/// for more and more would take the loop's time for these.
bool EventFilters::SpendTime(const UA_EventFilter& filter) const
{
    constexpr std::chrono::microseconds clauseTime{100};
    ClientSession* const session = sessions.Find(loop.GetCurrentConnection());
    if (session == nullptr)
        return true; // the host's own item
    if (session->filterTime.GetPause() > TimeShare::Clock::duration::zero())
        return false;
    session->filterTime.Count(filter.selectClausesSize * clauseTime);
    return true;
}

void EventFilters::AdaptSelectClauses(UA_EventFilter& filter) const
{
    std::vector<UA_SimpleAttributeOperand*> unknown;
    for (auto& clause : std::span(filter.selectClauses, filter.selectClausesSize))
        if (!NameDeclaringType(server, clause))
            unknown.push_back(&clause);
    if (unknown.size() == filter.selectClausesSize)
        return; // refused, with a result for each clause
    for (auto* clause : unknown)
        SelectNothing(*clause);
}

UA_StatusCode EventFilters::AdaptForCurrent(UA_MonitoringParameters& parameters) noexcept
{
    EventFilters* const filters = current;
    if (filters == nullptr)
        return UA_STATUSCODE_GOOD;
    try {
        return filters->Adapt(parameters);
    } catch (const std::bad_alloc&) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    } catch (const UaException& exception) {
        Log(Core::LogLevel::Error, "Session",
            fmt::format("Cannot check an event filter: {}", exception.what()));
        return exception.GetStatus();
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Session",
            fmt::format("Cannot check an event filter: {}", exception.what()));
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

} // namespace Host
