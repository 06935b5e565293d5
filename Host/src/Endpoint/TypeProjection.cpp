#include "Endpoint/TypeProjection.h"

#include "Endpoint/Ua.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Host {
namespace {

using namespace Core::Embedding;

UA_NodeId BaseId(UA_UInt32 number)
{
    return UA_NODEID_NUMERIC(0, number);
}

bool IsBaseType(const NodeDescription& node)
{
    return node.id.GetNamespaceIndex() == 0;
}

std::string Adding(const NodeDescription& node)
{
    return "adding " + node.browseName.ToString() + " (" + node.id.ToString() + ")";
}

template <typename Attributes>
Attributes Describe(Attributes attributes, const NodeDescription& node)
{
    attributes.displayName = LocalizedViewOf(node.displayName);
    attributes.description = LocalizedViewOf(node.description);
    return attributes;
}

/// Never runs: the methods are asynchronous, and their calls are taken from the server's queue.
UA_StatusCode RefuseDirectCall(UA_Server* /*server*/, const UA_NodeId* /*sessionId*/,
                               void* /*sessionContext*/, const UA_NodeId* /*methodId*/,
                               void* /*methodContext*/, const UA_NodeId* /*objectId*/,
                               void* /*objectContext*/, size_t /*inputSize*/,
                               const UA_Variant* /*input*/, size_t /*outputSize*/,
                               UA_Variant* /*output*/)
{
    return UA_STATUSCODE_BADINTERNALERROR;
}

/// Returns the texts by position, as in EnumStrings and OptionSetValues: a gap has an empty text.
std::vector<UA_LocalizedText> TextsByPosition(const std::vector<DataTypeField>& fields)
{
    std::vector<UA_LocalizedText> texts;
    for (const auto& field : fields) {
        const auto position = static_cast<std::size_t>(std::max(field.value, 0L));
        if (texts.size() <= position)
            texts.resize(position + 1, LocalizedViewOf(""));
        texts[position] = LocalizedViewOf(field.name);
    }
    return texts;
}

/// Returns the texts with their numbers, as in EnumValues.
std::vector<UA_EnumValueType> TextsWithValues(const std::vector<DataTypeField>& fields)
{
    std::vector<UA_EnumValueType> values;
    values.reserve(fields.size());
    for (const auto& field : fields)
        values.push_back(
            {field.value, LocalizedViewOf(field.name), LocalizedViewOf(field.description)});
    return values;
}

/// Returns the attributes of a variable as the models' files declare it: for reading.
UA_VariableAttributes ReadOnlyAttributes()
{
    UA_VariableAttributes attributes = UA_VariableAttributes_default;
    attributes.accessLevel = UA_ACCESSLEVELMASK_READ;
    return attributes;
}

/// `length` must live until the attributes are used; 0: any length.
void SetListDimensions(UA_VariableAttributes& attributes, UA_UInt32& length)
{
    attributes.valueRank = UA_VALUERANK_ONE_DIMENSION;
    attributes.arrayDimensions = &length;
    attributes.arrayDimensionsSize = 1;
}

template <typename T>
UA_VariableAttributes ListAttributes(std::vector<T>& elements, const UA_DataType& type,
                                     UA_UInt32& length)
{
    UA_VariableAttributes attributes = ReadOnlyAttributes();
    attributes.dataType = type.typeId;
    length = static_cast<UA_UInt32>(elements.size());
    SetListDimensions(attributes, length);
    UA_Variant_setArray(&attributes.value, elements.data(), elements.size(), &type);
    return attributes;
}

} // namespace

TypeProjection::TypeProjection(UA_Server& server, const InformationModel& model,
                               const Namespaces& namespaces) noexcept
    : server(server)
    , model(model)
    , namespaces(namespaces)
{}

void TypeProjection::Project()
{
    for (const auto& type : model.GetDataTypes())
        if (!IsBaseType(type))
            Add(type);
    for (const auto& type : model.GetObjectTypes()) {
        if (!IsBaseType(type))
            Add(type);
        else
            MakeAsynchronous(type);
    }
    // Every event type is there now.
    for (const auto& type : model.GetObjectTypes())
        for (const auto& event : type.generatedEvents)
            if (!IsBaseType(type))
                AddReference(type.id, UA_NS0ID_GENERATESEVENT, *namespaces.ToUa(event));
}

void TypeProjection::Add(const DataTypeDescription& type)
{
    UA_DataTypeAttributes attributes = Describe(UA_DataTypeAttributes_default, type);
    attributes.isAbstract = type.isAbstract;
    RequireGood(UA_Server_addDataTypeNode(
                    &server, *namespaces.ToUa(type.id), *namespaces.ToUa(type.superType),
                    BaseId(UA_NS0ID_HASSUBTYPE), namespaces.ToUaView(type.browseName), attributes,
                    nullptr, nullptr),
                Adding(type));
    if (!type.textsPropertyId.IsEmpty())
        AddTexts(type);
    if (!type.binaryEncodingId.IsEmpty())
        AddEncoding(type);
}

void TypeProjection::AddTexts(const DataTypeDescription& type)
{
    std::string name = type.textsPropertyName;
    const UA_QualifiedName browseName{0, ViewOf(name)};
    auto texts = TextsByPosition(type.fields);
    auto values = TextsWithValues(type.fields);
    UA_UInt32 length = 0;
    UA_VariableAttributes attributes =
        name == "EnumValues" ? ListAttributes(values, UA_TYPES[UA_TYPES_ENUMVALUETYPE], length)
                             : ListAttributes(texts, UA_TYPES[UA_TYPES_LOCALIZEDTEXT], length);
    attributes.displayName = LocalizedViewOf(name);
    AddProperty(type.textsPropertyId, type.id, browseName, attributes);
}

void TypeProjection::AddEncoding(const DataTypeDescription& type)
{
    UA_ObjectAttributes attributes = UA_ObjectAttributes_default;
    attributes.displayName = LocalizedViewOf("Default Binary");
    // Without a parent: an encoding hangs on its data type by a reference that is no hierarchy.
    RequireGood(UA_Server_addNode_begin(&server, UA_NODECLASS_OBJECT,
                                        *namespaces.ToUa(type.binaryEncodingId), UA_NODEID_NULL,
                                        UA_NODEID_NULL, {0, ViewOf("Default Binary")},
                                        BaseId(UA_NS0ID_DATATYPEENCODINGTYPE), &attributes,
                                        &UA_TYPES[UA_TYPES_OBJECTATTRIBUTES], nullptr, nullptr),
                Adding(type) + ", its encoding");
    AddReference(type.id, UA_NS0ID_HASENCODING, *namespaces.ToUa(type.binaryEncodingId));
    RequireGood(UA_Server_addNode_finish(&server, *namespaces.ToUa(type.binaryEncodingId)),
                Adding(type) + ", its encoding");
}

void TypeProjection::Add(const ObjectTypeDescription& type)
{
    UA_ObjectTypeAttributes attributes = Describe(UA_ObjectTypeAttributes_default, type);
    attributes.isAbstract = type.isAbstract;
    RequireGood(UA_Server_addObjectTypeNode(
                    &server, *namespaces.ToUa(type.id), *namespaces.ToUa(type.superType),
                    BaseId(UA_NS0ID_HASSUBTYPE), namespaces.ToUaView(type.browseName), attributes,
                    nullptr, nullptr),
                Adding(type));
    for (const auto& field : type.eventFields)
        AddEventField(type.id, field);
    for (const auto& method : type.methods)
        AddMethod(type.id, method);
}

UA_Argument TypeProjection::MakeArgumentView(const ArgumentDescription& argument) const
{
    UA_Argument view;
    UA_Argument_init(&view);
    view.name = ViewOf(argument.name);
    view.description = LocalizedViewOf(argument.description);
    view.dataType = namespaces.ToUa(argument.dataType).Release(); // data types have numbers
    view.valueRank = argument.valueRank;
    view.arrayDimensionsSize = argument.arrayDimensions.size();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the server copies it
    view.arrayDimensions = const_cast<UA_UInt32*>(argument.arrayDimensions.data());
    return view;
}

void TypeProjection::AddMethod(const Core::NodeId& owner, const MethodDescription& method)
{
    std::vector<UA_Argument> inputs;
    for (const auto& argument : method.inputs)
        inputs.push_back(MakeArgumentView(argument));
    std::vector<UA_Argument> outputs;
    for (const auto& argument : method.outputs)
        outputs.push_back(MakeArgumentView(argument));
    UA_MethodAttributes attributes = Describe(UA_MethodAttributes_default, method);
    attributes.executable = true;
    attributes.userExecutable = true;
    const auto id = namespaces.ToUa(method.id);
    RequireGood(UA_Server_addMethodNodeEx(
                    &server, *id, *namespaces.ToUa(owner), BaseId(UA_NS0ID_HASCOMPONENT),
                    namespaces.ToUaView(method.browseName), attributes, RefuseDirectCall,
                    inputs.size(), inputs.data(), *namespaces.ToUa(method.inputArgumentsId),
                    nullptr, outputs.size(), outputs.data(),
                    *namespaces.ToUa(method.outputArgumentsId), nullptr, nullptr, nullptr),
                Adding(method));
    RequireGood(UA_Server_setMethodNodeAsync(&server, *id, true), Adding(method));
    AddReference(method.id, UA_NS0ID_HASMODELLINGRULE, BaseId(UA_NS0ID_MODELLINGRULE_MANDATORY));
    if (!method.inputs.empty())
        CompleteArguments(method.inputArgumentsId);
    if (!method.outputs.empty())
        CompleteArguments(method.outputArgumentsId);
}

/// The library has the methods of the base types, and nothing that runs them.
void TypeProjection::MakeAsynchronous(const ObjectTypeDescription& type)
{
    for (const auto& method : type.methods)
        RequireGood(UA_Server_setMethodNodeAsync(&server, *namespaces.ToUa(method.id), true),
                    "preparing " + method.browseName.ToString());
}

/// Takes away the rights to write status and time with which the library adds arguments, and adds a
/// rule.
void TypeProjection::CompleteArguments(const Core::NodeId& property)
{
    RequireGood(
        UA_Server_writeAccessLevel(&server, *namespaces.ToUa(property), UA_ACCESSLEVELMASK_READ),
        "limiting the access to " + property.ToString());
    AddReference(property, UA_NS0ID_HASMODELLINGRULE, BaseId(UA_NS0ID_MODELLINGRULE_MANDATORY));
}

void TypeProjection::AddEventField(const Core::NodeId& type, const EventFieldDescription& field)
{
    UA_VariableAttributes attributes = Describe(ReadOnlyAttributes(), field);
    const auto dataType = namespaces.ToUa(field.dataType);
    attributes.dataType = *dataType;
    attributes.valueRank = field.valueRank;
    UA_UInt32 anyLength = 0;
    if (field.valueRank == UA_VALUERANK_ONE_DIMENSION)
        SetListDimensions(attributes, anyLength);
    AddProperty(field.id, type, namespaces.ToUaView(field.browseName), attributes);
    AddReference(field.id, UA_NS0ID_HASMODELLINGRULE, BaseId(UA_NS0ID_MODELLINGRULE_MANDATORY));
}

void TypeProjection::AddProperty(const Core::NodeId& id, const Core::NodeId& owner,
                                 const UA_QualifiedName& browseName,
                                 const UA_VariableAttributes& attributes)
{
    RequireGood(
        UA_Server_addVariableNode(&server, *namespaces.ToUa(id), *namespaces.ToUa(owner),
                                  BaseId(UA_NS0ID_HASPROPERTY), browseName,
                                  BaseId(UA_NS0ID_PROPERTYTYPE), attributes, nullptr, nullptr),
        "adding the property " + std::string(BytesOf(browseName.name)) + " of " + owner.ToString());
}

void TypeProjection::AddReference(const Core::NodeId& from, UA_UInt32 referenceType,
                                  const UA_NodeId& to)
{
    UA_ExpandedNodeId target;
    UA_ExpandedNodeId_init(&target);
    target.nodeId = to;
    RequireGood(UA_Server_addReference(&server, *namespaces.ToUa(from), BaseId(referenceType),
                                       target, true),
                "adding a reference from " + from.ToString());
}

} // namespace Host
