#include "Mutator.h"

#include <OpcUa/UaException.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace Fuzz {

using OpcUa::RequireGood;

namespace {

constexpr unsigned deepest = 6;
constexpr std::size_t simpleTypes = 25; // come first among the types, in the order of their kinds

/// The types that services expect in extension objects.
constexpr std::array<std::size_t, 16> expectedExtensions{UA_TYPES_EVENTFILTER,
                                                         UA_TYPES_DATACHANGEFILTER,
                                                         UA_TYPES_AGGREGATEFILTER,
                                                         UA_TYPES_LITERALOPERAND,
                                                         UA_TYPES_ELEMENTOPERAND,
                                                         UA_TYPES_ATTRIBUTEOPERAND,
                                                         UA_TYPES_ANONYMOUSIDENTITYTOKEN,
                                                         UA_TYPES_USERNAMEIDENTITYTOKEN,
                                                         UA_TYPES_X509IDENTITYTOKEN,
                                                         UA_TYPES_ISSUEDIDENTITYTOKEN,
                                                         UA_TYPES_SIMPLEATTRIBUTEOPERAND,
                                                         UA_TYPES_OBJECTATTRIBUTES,
                                                         UA_TYPES_VARIABLEATTRIBUTES,
                                                         UA_TYPES_METHODATTRIBUTES,
                                                         UA_TYPES_READRAWMODIFIEDDETAILS,
                                                         UA_TYPES_UPDATEDATADETAILS};

/// Goes through the members of a structure in memory: calls `visit(member, address)`.
template <typename Visit>
void ForEachMember(void* value, const UA_DataType& type, const Visit& visit)
{
    auto* at = static_cast<std::uint8_t*>(value);
    for (std::size_t i = 0; i < type.membersSize; ++i) {
        const UA_DataTypeMember& member = type.members[i];
        at += member.padding;
        visit(member, at);
        at += member.isArray ? sizeof(std::size_t) + sizeof(void*) : member.memberType->memSize;
    }
}

std::size_t& SizeOf(void* array)
{
    return *static_cast<std::size_t*>(array);
}

void*& ElementsOf(void* array)
{
    return *reinterpret_cast<void**>(static_cast<std::uint8_t*>(array) + sizeof(std::size_t));
}

void* ElementOf(void* elements, std::size_t i, const UA_DataType& type)
{
    return static_cast<std::uint8_t*>(elements) + i * type.memSize;
}

template <typename T>
T& As(void* value)
{
    return *static_cast<T*>(value);
}

} // namespace

void Mutator::Fill(void* value, const UA_DataType& type, unsigned depth)
{
    if (type.typeKind == UA_DATATYPEKIND_STRUCTURE)
        FillMembers(value, type, depth);
    else if (!FillPlain(value, type) && !FillText(value, type))
        FillNested(value, type, depth);
}

void Mutator::FillMembers(void* value, const UA_DataType& type, unsigned depth)
{
    if (depth > deepest)
        return;
    ForEachMember(value, type, [&](const UA_DataTypeMember& member, void* at) {
        if (member.isArray)
            FillArray(SizeOf(at), ElementsOf(at), *member.memberType, random.Below(3), depth + 1);
        else
            Fill(at, *member.memberType, depth + 1);
    });
}

/// True for kinds that own no memory.
bool Mutator::FillPlain(void* value, const UA_DataType& type)
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_BOOLEAN:
        As<bool>(value) = random.Chance(50);
        return true;
    case UA_DATATYPEKIND_SBYTE:
    case UA_DATATYPEKIND_BYTE:
        As<std::uint8_t>(value) = static_cast<std::uint8_t>(random.Number());
        return true;
    case UA_DATATYPEKIND_INT16:
    case UA_DATATYPEKIND_UINT16:
        As<std::uint16_t>(value) = static_cast<std::uint16_t>(random.Number());
        return true;
    case UA_DATATYPEKIND_INT32:
    case UA_DATATYPEKIND_UINT32:
    case UA_DATATYPEKIND_STATUSCODE:
        As<std::uint32_t>(value) = pool.DrawNumber(random);
        return true;
    case UA_DATATYPEKIND_ENUM:
        As<std::uint32_t>(value) = random.Chance(90) ? static_cast<std::uint32_t>(random.Below(8))
                                                     : static_cast<std::uint32_t>(random.Number());
        return true;
    case UA_DATATYPEKIND_INT64:
    case UA_DATATYPEKIND_UINT64:
    case UA_DATATYPEKIND_DATETIME:
        As<std::uint64_t>(value) = random.Number();
        return true;
    case UA_DATATYPEKIND_FLOAT:
        As<float>(value) = static_cast<float>(random.Real());
        return true;
    case UA_DATATYPEKIND_DOUBLE:
        As<double>(value) = random.Real();
        return true;
    case UA_DATATYPEKIND_GUID:
        As<UA_Guid>(value).data1 = static_cast<std::uint32_t>(random.Bits());
        return true;
    default:
        return false;
    }
}

/// True for kinds of texts and names.
bool Mutator::FillText(void* value, const UA_DataType& type)
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_STRING:
    case UA_DATATYPEKIND_XMLELEMENT:
    case UA_DATATYPEKIND_BYTESTRING:
        if (!random.Chance(10)) // otherwise none
            As<UA_String>(value) = pool.DrawText(random);
        return true;
    case UA_DATATYPEKIND_NODEID:
        As<UA_NodeId>(value) = pool.DrawNode(random);
        return true;
    case UA_DATATYPEKIND_EXPANDEDNODEID:
        As<UA_ExpandedNodeId>(value).nodeId = pool.DrawNode(random);
        if (random.Chance(10))
            As<UA_ExpandedNodeId>(value).serverIndex = static_cast<UA_UInt32>(random.Number());
        if (random.Chance(10))
            As<UA_ExpandedNodeId>(value).namespaceUri = pool.DrawText(random);
        return true;
    case UA_DATATYPEKIND_QUALIFIEDNAME:
        As<UA_QualifiedName>(value) = {static_cast<UA_UInt16>(random.Below(5)),
                                       pool.DrawText(random)};
        return true;
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
        As<UA_LocalizedText>(value) = {UA_STRING_NULL, pool.DrawText(random)};
        return true;
    default:
        return false;
    }
}

void Mutator::FillNested(void* value, const UA_DataType& type, unsigned depth)
{
    if (depth > deepest)
        return;
    switch (type.typeKind) {
    case UA_DATATYPEKIND_VARIANT:
        FillVariant(As<UA_Variant>(value),
                    UA_TYPES[random.Below(random.Chance(90) ? simpleTypes : UA_TYPES_COUNT)],
                    depth + 1);
        break;
    case UA_DATATYPEKIND_EXTENSIONOBJECT:
        FillAnyExtension(As<UA_ExtensionObject>(value), depth + 1);
        break;
    case UA_DATATYPEKIND_DATAVALUE:
        FillDataValue(As<UA_DataValue>(value), depth + 1);
        break;
    case UA_DATATYPEKIND_DIAGNOSTICINFO:
        FillDiagnostics(As<UA_DiagnosticInfo>(value), depth + 1);
        break;
    default: // unions and structures with optional fields stay as they are
        break;
    }
}

void Mutator::FillVariant(UA_Variant& variant, const UA_DataType& type, unsigned depth)
{
    if (random.Chance(5))
        return;
    variant.type = &type;
    if (random.Chance(60)) {
        variant.data = UA_new(&type);
        Fill(variant.data, type, depth + 1);
        return;
    }
    FillArray(variant.arrayLength, variant.data, type, random.Below(6), depth + 1);
    if (variant.data == nullptr)
        variant.data = UA_EMPTY_ARRAY_SENTINEL;
    if (random.Chance(20) && variant.arrayLength > 0) {
        void* sizes = nullptr;
        FillArray(variant.arrayDimensionsSize, sizes, UA_TYPES[UA_TYPES_UINT32], 2, depth + 1);
        variant.arrayDimensions = static_cast<UA_UInt32*>(sizes);
        variant.arrayDimensions[0] = static_cast<UA_UInt32>(variant.arrayLength);
        variant.arrayDimensions[1] = 1;
    }
}

void Mutator::FillExtension(UA_ExtensionObject& object, const UA_DataType& type, unsigned depth)
{
    object.encoding = UA_EXTENSIONOBJECT_DECODED;
    object.content.decoded.type = &type;
    object.content.decoded.data = UA_new(&type);
    Fill(object.content.decoded.data, type, depth + 1);
}

void Mutator::FillAnyExtension(UA_ExtensionObject& object, unsigned depth)
{
    const std::size_t draw = random.Below(100);
    if (draw < 60) {
        const std::size_t number = random.Pick(expectedExtensions);
        FillExtension(object, UA_TYPES[number], depth);
    } else if (draw < 75) {
        FillExtension(object, UA_TYPES[random.Below(UA_TYPES_COUNT)], depth);
    } else if (draw < 90) {
        object.encoding = UA_EXTENSIONOBJECT_ENCODED_BYTESTRING;
        const UA_DataType& type = UA_TYPES[random.Below(UA_TYPES_COUNT)];
        RequireGood(UA_NodeId_copy(&type.binaryEncodingId, &object.content.encoded.typeId),
                    "copying an encoding's id");
        object.content.encoded.body = pool.DrawText(random);
    }
}

void Mutator::FillDataValue(UA_DataValue& value, unsigned depth)
{
    value.hasValue = random.Chance(90);
    if (value.hasValue)
        Fill(&value.value, UA_TYPES[UA_TYPES_VARIANT], depth);
    value.hasStatus = random.Chance(10);
    value.status = static_cast<UA_StatusCode>(random.Number());
    value.hasSourceTimestamp = random.Chance(10);
    value.sourceTimestamp = static_cast<UA_DateTime>(random.Number());
    value.hasServerPicoseconds = random.Chance(10);
}

void Mutator::FillDiagnostics(UA_DiagnosticInfo& information, unsigned depth)
{
    information.hasSymbolicId = random.Chance(50);
    information.symbolicId = static_cast<UA_Int32>(random.Number());
    information.hasInnerDiagnosticInfo = depth <= deepest && random.Chance(50);
    if (!information.hasInnerDiagnosticInfo)
        return;
    information.innerDiagnosticInfo = UA_DiagnosticInfo_new();
    FillDiagnostics(*information.innerDiagnosticInfo, depth + 1);
}

void Mutator::FillArray(std::size_t& size, void*& elements, const UA_DataType& type,
                        std::size_t wanted, unsigned depth)
{
    if (depth > deepest || wanted == 0)
        return;
    RequireGood(UA_Array_resize(&elements, &size, wanted, &type), "making an array");
    for (std::size_t i = 0; i < size; ++i)
        Fill(ElementOf(elements, i, type), type, depth + 1);
}

void Mutator::Mutate(void* value, const UA_DataType& type)
{
    std::vector<Place> places;
    CollectMembers(value, type, places, 0);
    if (!random.Chance(5)) {
        std::vector<Place> header;
        Collect(value, *type.members[0].memberType, header, 1);
        if (header.size() < places.size())
            places.erase(places.begin(),
                         places.begin() + static_cast<std::ptrdiff_t>(header.size()));
    }
    const Place& place = random.Pick(places);
    if (place.isArray) {
        MutateArray(SizeOf(place.at), ElementsOf(place.at), *place.type);
    } else {
        UA_clear(place.at, place.type);
        if (!random.Chance(10))
            Fill(place.at, *place.type, 2);
    }
}

/// Chooses among some of the elements: changing the hundredth is like changing the first.
void Mutator::CollectElements(void* elements, std::size_t count, const UA_DataType& type,
                              std::vector<Place>& places, unsigned depth)
{
    for (std::size_t i = 0; i < std::min<std::size_t>(count, 8); ++i)
        Collect(ElementOf(elements, i, type), type, places, depth + 1);
}

void Mutator::Collect(void* value, const UA_DataType& type, std::vector<Place>& places,
                      unsigned depth)
{
    places.push_back({value, &type, false});
    if (depth > 2 * deepest)
        return;
    if (type.typeKind == UA_DATATYPEKIND_STRUCTURE) {
        CollectMembers(value, type, places, depth);
    } else if (type.typeKind == UA_DATATYPEKIND_DATAVALUE) {
        if (As<UA_DataValue>(value).hasValue)
            Collect(&As<UA_DataValue>(value).value, UA_TYPES[UA_TYPES_VARIANT], places, depth + 1);
    } else if (type.typeKind == UA_DATATYPEKIND_EXTENSIONOBJECT) {
        const auto& object = As<UA_ExtensionObject>(value);
        if (object.encoding == UA_EXTENSIONOBJECT_DECODED)
            Collect(object.content.decoded.data, *object.content.decoded.type, places, depth + 1);
    } else if (type.typeKind == UA_DATATYPEKIND_VARIANT) {
        const auto& variant = As<UA_Variant>(value);
        if (variant.type != nullptr)
            CollectElements(variant.data, UA_Variant_isScalar(&variant) ? 1 : variant.arrayLength,
                            *variant.type, places, depth);
    }
}

void Mutator::CollectMembers(void* value, const UA_DataType& type, std::vector<Place>& places,
                             unsigned depth)
{
    ForEachMember(value, type, [&](const UA_DataTypeMember& member, void* at) {
        if (!member.isArray) {
            Collect(at, *member.memberType, places, depth + 1);
            return;
        }
        places.push_back({at, member.memberType, true});
        CollectElements(ElementsOf(at), SizeOf(at), *member.memberType, places, depth);
    });
}

void Mutator::MutateArray(std::size_t& size, void*& elements, const UA_DataType& type)
{
    const std::size_t draw = random.Below(100);
    if (draw < 20 || size == 0) {
        const std::size_t added = random.Below(3) + 1;
        const std::size_t before = size;
        RequireGood(UA_Array_resize(&elements, &size, before + added, &type), "growing an array");
        for (std::size_t i = before; i < size; ++i)
            Fill(ElementOf(elements, i, type), type, 2);
    } else if (draw < 40) {
        UA_Array_delete(elements, size, &type);
        size = 0;
        elements = random.Chance(50) ? nullptr : UA_EMPTY_ARRAY_SENTINEL;
    } else if (draw < 60) {
        RequireGood(UA_Array_resize(&elements, &size, size - 1, &type), "shrinking an array");
    } else {
        static constexpr std::array<std::size_t, 5> counts{1, 2, 10, 100, 1000};
        const bool isLarge = UA_calcSizeBinary(ElementOf(elements, 0, type), &type) > 500;
        const std::size_t copies = counts[random.Below(isLarge ? 3 : counts.size())];
        for (std::size_t i = 0; i < copies; ++i)
            RequireGood(UA_Array_appendCopy(&elements, &size, ElementOf(elements, 0, type), &type),
                        "growing an array");
    }
}

} // namespace Fuzz
