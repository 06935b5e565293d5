#include "Endpoint/Values.h"

#include "Core/Exception.h"
#include "Endpoint/Ua.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace Host {
namespace {

std::string NameOf(const UA_DataType& type)
{
    return type.typeName;
}

[[noreturn]] void ThrowUnsupported(const UA_DataType& type)
{
    throw Core::TypeMismatchException("the host cannot take a value of type " + NameOf(type));
}

template <typename T>
const T& At(const void* data)
{
    return *static_cast<const T*>(data);
}

template <typename T>
T& At(void* target)
{
    return *static_cast<T*>(target);
}

const std::byte* Advance(const void* data, std::size_t bytes)
{
    return static_cast<const std::byte*>(data) + bytes;
}

std::byte* Advance(void* data, std::size_t bytes)
{
    return static_cast<std::byte*>(data) + bytes;
}

/// No bytes are sent as an empty string, never as a null one, which would mean "no answer".
UA_String CopyOf(std::string_view bytes)
{
    UA_String copy = UA_STRING_NULL;
    const UA_String view = ViewOf(bytes.empty() ? std::string_view("") : bytes);
    RequireGood(UA_String_copy(&view, &copy), "copying " + std::to_string(bytes.size()) + " bytes");
    return copy;
}

std::vector<unsigned char> ToBytes(const UA_ByteString& bytes)
{
    return {bytes.data, bytes.data + bytes.length};
}

/// The dimensions of an array; the library leaves those of a plain list out.
Core::Value::Dimensions DimensionsOf(const UA_Variant& variant)
{
    if (variant.arrayDimensionsSize == 0)
        return {static_cast<unsigned int>(variant.arrayLength)};
    return {variant.arrayDimensions, variant.arrayDimensions + variant.arrayDimensionsSize};
}

/// Calls `use` with a vector of each element type; the one the kind stands for is chosen.
template <typename Use>
void WithElements(const Core::Value& value, Use&& use)
{
    using Core::ValueKind;
    switch (value.GetKind()) {
    case ValueKind::Boolean:
        return use(value.GetElements<bool>());
    case ValueKind::SByte:
        return use(value.GetElements<signed char>());
    case ValueKind::Byte:
        return use(value.GetElements<unsigned char>());
    case ValueKind::Int16:
        return use(value.GetElements<short>());
    case ValueKind::UInt16:
        return use(value.GetElements<unsigned short>());
    case ValueKind::Int32:
        return use(value.GetElements<int>());
    case ValueKind::UInt32:
        return use(value.GetElements<unsigned int>());
    case ValueKind::Int64:
        return use(value.GetElements<long>());
    case ValueKind::UInt64:
        return use(value.GetElements<unsigned long>());
    case ValueKind::Float:
        return use(value.GetElements<float>());
    case ValueKind::Double:
        return use(value.GetElements<double>());
    case ValueKind::Text:
        return use(value.GetElements<std::string>());
    case ValueKind::ByteString:
        return use(value.GetElements<std::vector<unsigned char>>());
    case ValueKind::DateTime:
        return use(value.GetElements<Core::DateTime>());
    case ValueKind::NodeId:
        return use(value.GetElements<Core::NodeId>());
    case ValueKind::Struct:
    case ValueKind::Empty:
        return;
    }
}

Core::Value MakeValue(std::vector<unsigned char> bytes)
{
    return {std::move(bytes), true};
}

template <typename T>
Core::Value MakeValue(T element)
{
    return Core::Value(std::move(element));
}

/// The built-in type that a kind of value is by nature.
std::size_t NaturalType(Core::ValueKind kind)
{
    using Core::ValueKind;
    switch (kind) {
    case ValueKind::Boolean:
        return UA_TYPES_BOOLEAN;
    case ValueKind::SByte:
        return UA_TYPES_SBYTE;
    case ValueKind::Byte:
        return UA_TYPES_BYTE;
    case ValueKind::Int16:
        return UA_TYPES_INT16;
    case ValueKind::UInt16:
        return UA_TYPES_UINT16;
    case ValueKind::Int32:
        return UA_TYPES_INT32;
    case ValueKind::UInt32:
        return UA_TYPES_UINT32;
    case ValueKind::Int64:
        return UA_TYPES_INT64;
    case ValueKind::UInt64:
        return UA_TYPES_UINT64;
    case ValueKind::Float:
        return UA_TYPES_FLOAT;
    case ValueKind::Double:
        return UA_TYPES_DOUBLE;
    case ValueKind::Text:
        return UA_TYPES_STRING;
    case ValueKind::ByteString:
        return UA_TYPES_BYTESTRING;
    case ValueKind::DateTime:
        return UA_TYPES_DATETIME;
    case ValueKind::NodeId:
        return UA_TYPES_NODEID;
    case ValueKind::Struct:
    case ValueKind::Empty:
        break;
    }
    throw Core::TypeMismatchException("a structure or nothing has no built-in type");
}

} // namespace

Values::Values(const Namespaces& namespaces, const StructureTypes& types) noexcept
    : namespaces(namespaces)
    , types(types)
{}

Core::Value Values::ToCore(const UA_Variant& variant) const
{
    if (variant.type == nullptr)
        return {};
    return UA_Variant_isScalar(&variant) ? ToCoreScalar(variant.data, *variant.type)
                                         : ToCoreArray(variant);
}

Core::Value Values::ToCoreScalar(const void* data, const UA_DataType& type) const
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_BOOLEAN:
        return At<bool>(data);
    case UA_DATATYPEKIND_SBYTE:
        return At<signed char>(data);
    case UA_DATATYPEKIND_BYTE:
        return At<unsigned char>(data);
    case UA_DATATYPEKIND_INT16:
        return At<short>(data);
    case UA_DATATYPEKIND_UINT16:
        return At<unsigned short>(data);
    case UA_DATATYPEKIND_INT32:
    case UA_DATATYPEKIND_ENUM:
        return At<int>(data);
    case UA_DATATYPEKIND_UINT32:
    case UA_DATATYPEKIND_STATUSCODE:
        return At<unsigned int>(data);
    case UA_DATATYPEKIND_INT64:
        return At<long>(data);
    case UA_DATATYPEKIND_UINT64:
        return At<unsigned long>(data);
    case UA_DATATYPEKIND_FLOAT:
        return At<float>(data);
    case UA_DATATYPEKIND_DOUBLE:
        return At<double>(data);
    case UA_DATATYPEKIND_STRING:
        return UnescapeFromUtf8(BytesOf(At<UA_String>(data)));
    case UA_DATATYPEKIND_BYTESTRING:
        return {ToBytes(At<UA_ByteString>(data)), true};
    case UA_DATATYPEKIND_DATETIME:
        return Core::DateTime::FromTicks(At<UA_DateTime>(data));
    case UA_DATATYPEKIND_NODEID:
        return namespaces.ToCore(At<UA_NodeId>(data));
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
        return UnescapeFromUtf8(BytesOf(At<UA_LocalizedText>(data).text));
    case UA_DATATYPEKIND_QUALIFIEDNAME:
        return UnescapeFromUtf8(BytesOf(At<UA_QualifiedName>(data).name));
    case UA_DATATYPEKIND_VARIANT:
        return ToCore(At<UA_Variant>(data));
    case UA_DATATYPEKIND_STRUCTURE:
        return ToCoreStruct(data, type);
    default:
        ThrowUnsupported(type);
    }
}

Core::Value Values::ToCoreArray(const UA_Variant& variant) const
{
    const auto collect = [&]<typename T>(std::vector<T> elements) {
        elements.reserve(variant.arrayLength);
        for (std::size_t i = 0; i < variant.arrayLength; ++i)
            elements.push_back(
                ToCoreScalar(Advance(variant.data, i * variant.type->memSize), *variant.type)
                    .template Get<T>());
        return Core::Value::MakeArray(std::move(elements), DimensionsOf(variant));
    };
    switch (variant.type->typeKind) {
    case UA_DATATYPEKIND_BOOLEAN:
        return collect(std::vector<bool>());
    case UA_DATATYPEKIND_SBYTE:
        return collect(std::vector<signed char>());
    case UA_DATATYPEKIND_BYTE:
        return collect(std::vector<unsigned char>());
    case UA_DATATYPEKIND_INT16:
        return collect(std::vector<short>());
    case UA_DATATYPEKIND_UINT16:
        return collect(std::vector<unsigned short>());
    case UA_DATATYPEKIND_INT32:
    case UA_DATATYPEKIND_ENUM:
        return collect(std::vector<int>());
    case UA_DATATYPEKIND_UINT32:
    case UA_DATATYPEKIND_STATUSCODE:
        return collect(std::vector<unsigned int>());
    case UA_DATATYPEKIND_INT64:
        return collect(std::vector<long>());
    case UA_DATATYPEKIND_UINT64:
        return collect(std::vector<unsigned long>());
    case UA_DATATYPEKIND_FLOAT:
        return collect(std::vector<float>());
    case UA_DATATYPEKIND_DOUBLE:
        return collect(std::vector<double>());
    case UA_DATATYPEKIND_STRING:
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
    case UA_DATATYPEKIND_QUALIFIEDNAME:
        return collect(std::vector<std::string>());
    case UA_DATATYPEKIND_BYTESTRING:
        return collect(std::vector<std::vector<unsigned char>>());
    case UA_DATATYPEKIND_DATETIME:
        return collect(std::vector<Core::DateTime>());
    case UA_DATATYPEKIND_NODEID:
        return collect(std::vector<Core::NodeId>());
    case UA_DATATYPEKIND_STRUCTURE:
        return collect(std::vector<Core::Struct>());
    default:
        ThrowUnsupported(*variant.type);
    }
}

Core::Struct Values::ToCoreStruct(const void* data, const UA_DataType& type) const
{
    const auto& description = types.GetDescription(type);
    std::vector<Core::Value> fields;
    const std::byte* position = Advance(data, 0);
    for (std::size_t i = 0; i < type.membersSize; ++i) {
        const UA_DataTypeMember& member = type.members[i];
        position += member.padding;
        if (member.isArray) {
            UA_Variant view{};
            UA_Variant_setArray(&view, At<void* const>(position + sizeof(std::size_t)),
                                At<std::size_t>(position), member.memberType);
            fields.push_back(ToCoreArray(view));
            position += sizeof(std::size_t) + sizeof(void*);
        } else {
            fields.push_back(ToCoreScalar(position, *member.memberType));
            position += member.memberType->memSize;
        }
    }
    Core::Struct structure(std::move(fields));
    structure.SetDataTypeId(description.id);
    return structure;
}

Ua<UA_Variant> Values::ToUa(const Core::Value& value, const Core::NodeId& dataType) const
{
    Ua<UA_Variant> variant;
    if (value.IsEmpty())
        return variant;
    const UA_DataType& type = ChooseLayout(value, types.Get(dataType));
    if (value.IsArray()) {
        FillArray(*variant, type, value);
        return variant;
    }
    variant->data = UA_new(&type);
    if (variant->data == nullptr)
        throw UaException("making a value of type " + NameOf(type), UA_STATUSCODE_BADOUTOFMEMORY);
    variant->type = &type;
    Fill(variant->data, type, value);
    return variant;
}

/// Where anything is allowed, a value travels as what it is.
const UA_DataType& Values::ChooseLayout(const Core::Value& value, const UA_DataType& declared) const
{
    if (declared.typeKind != UA_DATATYPEKIND_VARIANT &&
        declared.typeKind != UA_DATATYPEKIND_EXTENSIONOBJECT)
        return declared;
    if (value.GetKind() != Core::ValueKind::Struct)
        return UA_TYPES[NaturalType(value.GetKind())];
    if (!value.IsArray())
        return types.Get(value.GetStruct().GetDataTypeId());
    const auto& elements = value.GetElements<Core::Struct>();
    return elements.empty() ? declared : types.Get(elements.front().GetDataTypeId());
}

void Values::FillArray(UA_Variant& variant, const UA_DataType& type, const Core::Value& value) const
{
    const auto dimensions = value.GetArrayDimensions();
    std::size_t count = 1;
    for (const unsigned int length : dimensions)
        count *= length;
    variant.data = UA_Array_new(count, &type);
    if (variant.data == nullptr)
        throw UaException("making an array of " + std::to_string(count) + " elements of type " +
                              NameOf(type),
                          UA_STATUSCODE_BADOUTOFMEMORY);
    variant.type = &type;
    variant.arrayLength = count;

    std::byte* position = count == 0 ? nullptr : Advance(variant.data, 0);
    if (value.GetKind() == Core::ValueKind::Struct) {
        for (const auto& structure : value.GetElements<Core::Struct>()) {
            FillStruct(position, type, structure);
            position += type.memSize;
        }
    } else {
        WithElements(value, [&](const auto& elements) {
            using Element = typename std::remove_cvref_t<decltype(elements)>::value_type;
            for (std::size_t i = 0; i < elements.size(); ++i) {
                Fill(position, type, MakeValue(Element(elements[i])));
                position += type.memSize;
            }
        });
    }
    if (dimensions.size() < 2)
        return;
    RequireGood(UA_Array_copy(dimensions.data(), dimensions.size(),
                              reinterpret_cast<void**>(&variant.arrayDimensions),
                              &UA_TYPES[UA_TYPES_UINT32]),
                "copying the dimensions of an array");
    variant.arrayDimensionsSize = dimensions.size();
}

void Values::Fill(void* target, const UA_DataType& type, const Core::Value& value) const
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_BOOLEAN:
        At<bool>(target) = value.Get<bool>();
        return;
    case UA_DATATYPEKIND_SBYTE:
        At<signed char>(target) = value.Get<signed char>();
        return;
    case UA_DATATYPEKIND_BYTE:
        At<unsigned char>(target) = value.Get<unsigned char>();
        return;
    case UA_DATATYPEKIND_INT16:
        At<short>(target) = value.Get<short>();
        return;
    case UA_DATATYPEKIND_UINT16:
        At<unsigned short>(target) = value.Get<unsigned short>();
        return;
    case UA_DATATYPEKIND_INT32:
    case UA_DATATYPEKIND_ENUM:
        At<int>(target) = value.Get<int>();
        return;
    case UA_DATATYPEKIND_UINT32:
    case UA_DATATYPEKIND_STATUSCODE:
        At<unsigned int>(target) = value.Get<unsigned int>();
        return;
    case UA_DATATYPEKIND_INT64:
        At<long>(target) = value.Get<long>();
        return;
    case UA_DATATYPEKIND_UINT64:
        At<unsigned long>(target) = value.Get<unsigned long>();
        return;
    case UA_DATATYPEKIND_FLOAT:
        At<float>(target) = value.Get<float>();
        return;
    case UA_DATATYPEKIND_DOUBLE:
        At<double>(target) = value.Get<double>();
        return;
    case UA_DATATYPEKIND_STRING:
        At<UA_String>(target) = CopyOf(EscapeToUtf8(value.GetText()));
        return;
    case UA_DATATYPEKIND_BYTESTRING: {
        const auto& bytes = value.GetByteString();
        At<UA_ByteString>(target) =
            CopyOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        return;
    }
    case UA_DATATYPEKIND_DATETIME:
        At<UA_DateTime>(target) = value.Get<Core::DateTime>().GetTicks();
        return;
    case UA_DATATYPEKIND_NODEID:
        At<UA_NodeId>(target) = namespaces.ToUa(value.Get<Core::NodeId>()).Release();
        return;
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
        At<UA_LocalizedText>(target).text = CopyOf(EscapeToUtf8(value.GetText()));
        return;
    case UA_DATATYPEKIND_QUALIFIEDNAME:
        At<UA_QualifiedName>(target).name = CopyOf(EscapeToUtf8(value.GetText()));
        return;
    case UA_DATATYPEKIND_STRUCTURE:
        FillStruct(target, type, value.GetStruct());
        return;
    default:
        ThrowUnsupported(type);
    }
}

void Values::FillStruct(void* target, const UA_DataType& type, const Core::Struct& structure) const
{
    const auto& fields = structure.GetFields();
    if (fields.size() != type.membersSize)
        throw Core::TypeMismatchException("a structure of " + std::to_string(fields.size()) +
                                          " fields cannot be sent as " + NameOf(type) +
                                          ", which has " + std::to_string(type.membersSize));
    std::byte* position = Advance(target, 0);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const UA_DataTypeMember& member = type.members[i];
        position += member.padding;
        FillMember(position, member, fields[i]);
        position += member.isArray ? sizeof(std::size_t) + sizeof(void*)
                                   : std::size_t{member.memberType->memSize};
    }
}

/// An empty value leaves the member at the zero that it was made with.
void Values::FillMember(void* target, const UA_DataTypeMember& member,
                        const Core::Value& value) const
{
    if (value.IsEmpty())
        return;
    if (!member.isArray) {
        Fill(target, *member.memberType, value);
        return;
    }
    Ua<UA_Variant> elements;
    FillArray(*elements, *member.memberType, value);
    At<std::size_t>(target) = elements->arrayLength;
    At<void*>(Advance(target, sizeof(std::size_t))) = std::exchange(elements->data, nullptr);
    elements->arrayLength = 0;
}

} // namespace Host
