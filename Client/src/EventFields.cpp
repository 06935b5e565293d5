#include "EventFields.h"

#include <OpcUa/Ua.h>

namespace Client {

namespace {

struct Field
{
    UA_UInt16 typeNamespace;
    UA_UInt32 type;
    UA_UInt16 nameNamespace;
    const char* name;
};

} // namespace

EventFilter::EventFilter(UA_UInt16 files)
{
    std::array<Field, eventFields> fields{};
    fields[typeField] = {0, UA_NS0ID_BASEEVENTTYPE, 0, "EventType"};
    fields[timeField] = {0, UA_NS0ID_BASEEVENTTYPE, 0, "Time"};
    fields[handleField] = {files, ackEventType, files, "FileHandle"};
    fields[resultField] = {files, ackEventType, files, "Result"};
    fields[existField] = {files, existsEventType, files, "Exist"};
    fields[contentField] = {files, listEventType, files, "Content"};
    fields[limitField] = {files, listEventType, files, "LimitExceeded"};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        names[i] = {fields[i].nameNamespace, OpcUa::ViewOf(fields[i].name)};
        operands[i].typeDefinitionId = UA_NODEID_NUMERIC(fields[i].typeNamespace, fields[i].type);
        operands[i].attributeId = UA_ATTRIBUTEID_VALUE;
        operands[i].browsePath = &names[i];
        operands[i].browsePathSize = 1;
    }
    filter.selectClauses = operands.data();
    filter.selectClausesSize = operands.size();
}

UA_UInt32 GetEventType(const UA_Variant& type, UA_UInt16 files)
{
    if (!UA_Variant_hasScalarType(&type, &UA_TYPES[UA_TYPES_NODEID]))
        return 0;
    const auto& id = *static_cast<const UA_NodeId*>(type.data);
    return id.namespaceIndex == files && id.identifierType == UA_NODEIDTYPE_NUMERIC
               ? id.identifier.numeric
               : 0;
}

bool IsOverflow(const UA_Variant& type)
{
    if (!UA_Variant_hasScalarType(&type, &UA_TYPES[UA_TYPES_NODEID]))
        return false;
    const UA_NodeId overflow = UA_NODEID_NUMERIC(0, UA_NS0ID_EVENTQUEUEOVERFLOWEVENTTYPE);
    return UA_NodeId_equal(static_cast<const UA_NodeId*>(type.data), &overflow);
}

} // namespace Client
