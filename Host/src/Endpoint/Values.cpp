#include "Endpoint/Values.h"

#include "Core/Exception.h"
#include "Endpoint/Ua.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Host {
namespace {

std::string NameOf(const UA_DataType& type)
{
    return type.typeName;
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

/// Sends no bytes as an empty string and not as a null one, which would mean "no answer".
UA_String CopyOf(std::string_view bytes)
{
    UA_String copy = UA_STRING_NULL;
    const UA_String view = ViewOf(bytes.empty() ? std::string_view("") : bytes);
    RequireGood(UA_String_copy(&view, &copy), "copying " + std::to_string(bytes.size()) + " bytes");
    return copy;
}

/// Returns the dimensions of an array, which the library leaves out for a plain list.
Core::Value::Dimensions DimensionsOf(const UA_Variant& variant)
{
    if (variant.arrayDimensionsSize == 0)
        return {static_cast<unsigned int>(variant.arrayLength)};
    return {variant.arrayDimensions, variant.arrayDimensions + variant.arrayDimensionsSize};
}

/// Numbers, which both sides hold in the same way.
template <typename T>
struct Number
{
    using Held = T;
    static Held Read(const void* data, const Namespaces& /*namespaces*/) { return At<T>(data); }
    static void Write(void* target, const Core::Value& value, const Namespaces& /*namespaces*/)
    {
        At<T>(target) = value.Get<T>();
    }
};

/// Texts in the member `text` of a wire type.
template <typename Wire, UA_String Wire::*text>
struct TextIn
{
    using Held = std::string;
    static Held Read(const void* data, const Namespaces& /*namespaces*/)
    {
        return UnescapeFromUtf8(BytesOf(At<Wire>(data).*text));
    }
    static void Write(void* target, const Core::Value& value, const Namespaces& /*namespaces*/)
    {
        At<Wire>(target).*text = CopyOf(EscapeToUtf8(value.GetText()));
    }
};

struct Text
{
    using Held = std::string;
    static Held Read(const void* data, const Namespaces& /*namespaces*/)
    {
        return UnescapeFromUtf8(BytesOf(At<UA_String>(data)));
    }
    static void Write(void* target, const Core::Value& value, const Namespaces& /*namespaces*/)
    {
        At<UA_String>(target) = CopyOf(EscapeToUtf8(value.GetText()));
    }
};

struct ByteString
{
    using Held = std::vector<unsigned char>;
    static Held Read(const void* data, const Namespaces& /*namespaces*/)
    {
        const auto& bytes = At<UA_ByteString>(data);
        return {bytes.data, bytes.data + bytes.length};
    }
    static void Write(void* target, const Core::Value& value, const Namespaces& /*namespaces*/)
    {
        const auto& bytes = value.GetByteString();
        At<UA_ByteString>(target) =
            CopyOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
};

struct Time
{
    using Held = Core::DateTime;
    static Held Read(const void* data, const Namespaces& /*namespaces*/)
    {
        return Core::DateTime::FromTicks(At<UA_DateTime>(data));
    }
    static void Write(void* target, const Core::Value& value, const Namespaces& /*namespaces*/)
    {
        At<UA_DateTime>(target) = value.Get<Core::DateTime>().GetTicks();
    }
};

struct Identifier
{
    using Held = Core::NodeId;
    static Held Read(const void* data, const Namespaces& namespaces)
    {
        return namespaces.ToCore(At<UA_NodeId>(data));
    }
    static void Write(void* target, const Core::Value& value, const Namespaces& namespaces)
    {
        At<UA_NodeId>(target) = namespaces.ToUa(value.Get<Core::NodeId>()).Release();
    }
};

Core::Value MakeValue(std::vector<unsigned char> bytes)
{
    return {std::move(bytes), true};
}

template <typename T>
Core::Value MakeValue(T element)
{
    return Core::Value(std::move(element));
}

template <typename Traits>
Core::Value ReadScalar(const void* data, const Namespaces& namespaces)
{
    return MakeValue(Traits::Read(data, namespaces));
}

template <typename Traits>
Core::Value ReadArray(const UA_Variant& variant, const Namespaces& namespaces)
{
    std::vector<typename Traits::Held> elements;
    elements.reserve(variant.arrayLength);
    for (std::size_t i = 0; i < variant.arrayLength; ++i)
        elements.push_back(
            Traits::Read(Advance(variant.data, i * variant.type->memSize), namespaces));
    return Core::Value::MakeArray(std::move(elements), DimensionsOf(variant));
}

using UseElement = std::function<void(const Core::Value& element)>;

template <typename Traits>
void ForEachElement(const Core::Value& array, const UseElement& use)
{
    using Held = typename Traits::Held;
    for (const auto& element : array.GetElements<Held>())
        use(MakeValue(Held(element)));
}

/// A type on the wire beside the kind of the host's values that it becomes.
struct Conversion
{
    UA_UInt32 wire;       ///< UA_DataTypeKind
    Core::ValueKind held; ///< and the kind of elements of an array
    std::size_t builtIn;  ///< index of the type that values of this kind travel as by nature
    Core::Value (*readScalar)(const void* data, const Namespaces& namespaces);
    Core::Value (*readArray)(const UA_Variant& variant, const Namespaces& namespaces);
    /// Converts numbers. Throws Core::TypeMismatchException, Core::OutOfRangeException.
    void (*write)(void* target, const Core::Value& scalar, const Namespaces& namespaces);
    /// For an array of this kind of elements, whatever type it is sent as.
    void (*forEachElement)(const Core::Value& array, const UseElement& use);
};

template <typename Traits>
constexpr Conversion Convert(UA_UInt32 wire, Core::ValueKind held, std::size_t builtIn)
{
    return {wire,
            held,
            builtIn,
            &ReadScalar<Traits>,
            &ReadArray<Traits>,
            &Traits::Write,
            &ForEachElement<Traits>};
}

using Core::ValueKind;

/// All but structures and variants. The natural type of a kind comes before the others.
constexpr std::array conversions{
    Convert<Number<bool>>(UA_DATATYPEKIND_BOOLEAN, ValueKind::Boolean, UA_TYPES_BOOLEAN),
    Convert<Number<signed char>>(UA_DATATYPEKIND_SBYTE, ValueKind::SByte, UA_TYPES_SBYTE),
    Convert<Number<unsigned char>>(UA_DATATYPEKIND_BYTE, ValueKind::Byte, UA_TYPES_BYTE),
    Convert<Number<short>>(UA_DATATYPEKIND_INT16, ValueKind::Int16, UA_TYPES_INT16),
    Convert<Number<unsigned short>>(UA_DATATYPEKIND_UINT16, ValueKind::UInt16, UA_TYPES_UINT16),
    Convert<Number<int>>(UA_DATATYPEKIND_INT32, ValueKind::Int32, UA_TYPES_INT32),
    Convert<Number<int>>(UA_DATATYPEKIND_ENUM, ValueKind::Int32, UA_TYPES_INT32),
    Convert<Number<unsigned int>>(UA_DATATYPEKIND_UINT32, ValueKind::UInt32, UA_TYPES_UINT32),
    Convert<Number<unsigned int>>(UA_DATATYPEKIND_STATUSCODE, ValueKind::UInt32, UA_TYPES_UINT32),
    Convert<Number<long>>(UA_DATATYPEKIND_INT64, ValueKind::Int64, UA_TYPES_INT64),
    Convert<Number<unsigned long>>(UA_DATATYPEKIND_UINT64, ValueKind::UInt64, UA_TYPES_UINT64),
    Convert<Number<float>>(UA_DATATYPEKIND_FLOAT, ValueKind::Float, UA_TYPES_FLOAT),
    Convert<Number<double>>(UA_DATATYPEKIND_DOUBLE, ValueKind::Double, UA_TYPES_DOUBLE),
    Convert<Text>(UA_DATATYPEKIND_STRING, ValueKind::Text, UA_TYPES_STRING),
    Convert<TextIn<UA_LocalizedText, &UA_LocalizedText::text>>(UA_DATATYPEKIND_LOCALIZEDTEXT,
                                                               ValueKind::Text, UA_TYPES_STRING),
    Convert<TextIn<UA_QualifiedName, &UA_QualifiedName::name>>(UA_DATATYPEKIND_QUALIFIEDNAME,
                                                               ValueKind::Text, UA_TYPES_STRING),
    Convert<ByteString>(UA_DATATYPEKIND_BYTESTRING, ValueKind::ByteString, UA_TYPES_BYTESTRING),
    Convert<Time>(UA_DATATYPEKIND_DATETIME, ValueKind::DateTime, UA_TYPES_DATETIME),
    Convert<Identifier>(UA_DATATYPEKIND_NODEID, ValueKind::NodeId, UA_TYPES_NODEID),
};

/// The rows of the table by their types on the wire; null for those that it does not have.
constexpr auto conversionsByWire = [] {
    std::array<const Conversion*, UA_DATATYPEKINDS> rows{};
    for (const Conversion& conversion : conversions)
        rows.at(conversion.wire) = &conversion;
    return rows;
}();

/// Throws Core::TypeMismatchException for a type that is not in the table.
const Conversion& ConversionOf(const UA_DataType& type)
{
    const Conversion* found = conversionsByWire.at(type.typeKind);
    if (found == nullptr)
        throw Core::TypeMismatchException("the host cannot take a value of type " + NameOf(type));
    return *found;
}

/// Throws Core::TypeMismatchException for a kind that is not in the table.
const Conversion& NaturalConversionOf(ValueKind kind)
{
    const auto* found =
        std::find_if(conversions.begin(), conversions.end(),
                     [kind](const Conversion& conversion) { return conversion.held == kind; });
    if (found == conversions.end())
        throw Core::TypeMismatchException("a structure or nothing has no built-in type");
    return *found;
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
    if (type.typeKind == UA_DATATYPEKIND_STRUCTURE)
        return ToCoreStruct(data, type);
    if (type.typeKind == UA_DATATYPEKIND_VARIANT)
        return ToCore(At<UA_Variant>(data));
    return ConversionOf(type).readScalar(data, namespaces);
}

Core::Value Values::ToCoreArray(const UA_Variant& variant) const
{
    if (variant.type->typeKind != UA_DATATYPEKIND_STRUCTURE)
        return ConversionOf(*variant.type).readArray(variant, namespaces);
    std::vector<Core::Struct> structures;
    structures.reserve(variant.arrayLength);
    for (std::size_t i = 0; i < variant.arrayLength; ++i)
        structures.push_back(
            ToCoreStruct(Advance(variant.data, i * variant.type->memSize), *variant.type));
    return Core::Value::MakeArray(std::move(structures), DimensionsOf(variant));
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

/// Returns the declared layout, or the value's natural type if the declared one allows anything.
const UA_DataType& Values::ChooseLayout(const Core::Value& value, const UA_DataType& declared) const
{
    if (declared.typeKind != UA_DATATYPEKIND_VARIANT &&
        declared.typeKind != UA_DATATYPEKIND_EXTENSIONOBJECT)
        return declared;
    if (value.GetKind() != ValueKind::Struct)
        return UA_TYPES[NaturalConversionOf(value.GetKind()).builtIn];
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
    if (value.GetKind() == ValueKind::Struct) {
        for (const auto& structure : value.GetElements<Core::Struct>()) {
            FillStruct(position, type, structure);
            position += type.memSize;
        }
    } else {
        NaturalConversionOf(value.GetKind()).forEachElement(value, [&](const Core::Value& element) {
            Fill(position, type, element);
            position += type.memSize;
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
    if (type.typeKind == UA_DATATYPEKIND_STRUCTURE)
        FillStruct(target, type, value.GetStruct());
    else
        ConversionOf(type).write(target, value, namespaces);
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

/// Fills a member, which an empty value leaves at zero.
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
