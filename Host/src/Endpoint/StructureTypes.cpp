#include "Endpoint/StructureTypes.h"

#include "Core/Exception.h"

#include <algorithm>

namespace Host {
namespace {

using Core::Embedding::DataTypeDescription;
using Core::Embedding::DataTypeKind;

constexpr unsigned int lastBuiltInType = 25; // the built-in types are i=1 to i=25
constexpr unsigned int baseDataType = 24;
constexpr unsigned int enumeration = 29;

bool IsConcreteStructure(const DataTypeDescription& type)
{
    return type.kind == DataTypeKind::Structure && !type.isAbstract &&
           type.id.GetNamespaceIndex() != 0;
}

/// Returns null for an identifier of any other type.
const UA_DataType* FindBuiltIn(const Core::NodeId& dataType)
{
    const unsigned int* number = dataType.GetNumeric();
    if (dataType.GetNamespaceIndex() != 0 || number == nullptr || *number == 0)
        return nullptr;
    if (*number == enumeration)
        return &UA_TYPES[UA_TYPES_INT32];
    if (*number == baseDataType)
        return &UA_TYPES[UA_TYPES_VARIANT];
    return *number <= lastBuiltInType ? &UA_TYPES[*number - 1] : nullptr;
}

/// Returns the identifier of a type that is laid out like the given one, such as UtcTime: clients
/// learn more from it than from the layout alone.
const UA_DataType& NameToClients(const UA_DataType& layout, const UA_NodeId& dataType)
{
    const UA_DataType* named = UA_findDataType(&dataType);
    const bool isSameLayout = named != nullptr && named->typeKind == layout.typeKind;
    return isSameLayout ? *named : layout;
}

std::size_t AlignmentOf(const UA_DataType& type)
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_BOOLEAN:
    case UA_DATATYPEKIND_SBYTE:
    case UA_DATATYPEKIND_BYTE:
        return alignof(UA_Byte);
    case UA_DATATYPEKIND_INT16:
    case UA_DATATYPEKIND_UINT16:
        return alignof(UA_UInt16);
    case UA_DATATYPEKIND_INT32:
    case UA_DATATYPEKIND_UINT32:
    case UA_DATATYPEKIND_FLOAT:
    case UA_DATATYPEKIND_STATUSCODE:
    case UA_DATATYPEKIND_ENUM:
    case UA_DATATYPEKIND_GUID:
        return alignof(UA_UInt32);
    default:
        return alignof(void*); // also structures: laid out on pointer boundaries throughout
    }
}

std::size_t RoundUp(std::size_t offset, std::size_t alignment)
{
    return (offset + alignment - 1) / alignment * alignment;
}

/// Sets the member's padding and returns the offset behind it.
std::size_t Place(UA_DataTypeMember& member, std::size_t offset)
{
    const bool isArray = member.isArray;
    const std::size_t alignment = isArray ? alignof(void*) : AlignmentOf(*member.memberType);
    const std::size_t size =
        isArray ? sizeof(std::size_t) + sizeof(void*) : std::size_t{member.memberType->memSize};
    const std::size_t start = RoundUp(offset, alignment);
    member.padding = (start - offset) & 0x3FU;
    return start + size;
}

} // namespace

StructureTypes::StructureTypes(const Core::Embedding::InformationModel& model,
                               const Namespaces& namespaces)
    : model(model)
    , namespaces(namespaces)
{
    for (const DataTypeDescription& type : model.GetDataTypes())
        if (IsConcreteStructure(type))
            Reserve(type.id);
    types.resize(descriptions.size());
    members.resize(descriptions.size());
    for (std::size_t index = 0; index < types.size(); ++index)
        Describe(index);
    array.emplace(UA_DataTypeArray{nullptr, types.size(), types.data(), false});
}

StructureTypes::~StructureTypes()
{
    for (UA_DataType& type : types) {
        UA_NodeId_clear(&type.typeId);
        UA_NodeId_clear(&type.binaryEncodingId);
    }
}

/// Gives a structure its place; members come first, so that their sizes are known.
void StructureTypes::Reserve(const Core::NodeId& dataType)
{
    if (indexes.contains(dataType))
        return;
    const DataTypeDescription& type = model.GetDataType(dataType);
    if (!IsConcreteStructure(type))
        return;
    for (const auto& field : type.fields)
        if (!(field.dataType == dataType))
            Reserve(field.dataType);
    indexes.emplace(dataType, descriptions.size());
    descriptions.push_back(&type);
}

void StructureTypes::Describe(std::size_t index)
{
    const DataTypeDescription& description = *descriptions[index];
    std::size_t offset = 0;
    for (const auto& field : description.fields) {
        UA_DataTypeMember member = MakeMember(field);
        offset = Place(member, offset);
        members[index].push_back(member);
    }
    UA_DataType& type = types[index];
    type.typeName = names.emplace_back(description.browseName.GetName()).c_str();
    type.typeId = namespaces.ToUa(description.id).Release();
    type.binaryEncodingId = namespaces.ToUa(description.binaryEncodingId).Release();
    type.memSize = RoundUp(offset, alignof(void*)) & 0xFFFFU;
    type.typeKind = UA_DATATYPEKIND_STRUCTURE;
    type.pointerFree = false;
    type.overlayable = false;
    type.membersSize = members[index].size() & 0xFFU;
    type.members = members[index].data();
}

UA_DataTypeMember StructureTypes::MakeMember(const Core::Embedding::DataTypeField& field)
{
    UA_DataTypeMember member{};
    member.memberName = names.emplace_back(field.name).c_str();
    member.memberType = &NameToClients(Get(field.dataType), *namespaces.ToUa(field.dataType));
    member.isArray = field.valueRank > 0;
    return member;
}

const UA_DataType& StructureTypes::Get(const Core::NodeId& dataType) const
{
    for (Core::NodeId type = dataType;; type = model.GetDataType(type).superType) {
        const auto found = indexes.find(type);
        if (found != indexes.end())
            return types[found->second];
        if (const UA_DataType* builtIn = FindBuiltIn(type))
            return *builtIn;
    }
}

const DataTypeDescription& StructureTypes::GetDescription(const UA_DataType& layout) const
{
    const auto isLayout = [&layout](const UA_DataType& type) {
        return &type == &layout;
    };
    const auto found = std::find_if(types.begin(), types.end(), isLayout);
    if (found == types.end())
        throw Core::NotFoundException("the model has no structure of the type that was sent");
    return *descriptions[static_cast<std::size_t>(found - types.begin())];
}

} // namespace Host
