#include "Endpoint/Arguments.h"

#include <open62541/types.h>

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace Host {
namespace {

using Core::Embedding::ArgumentDescription;

bool IsInteger(const UA_DataType& type)
{
    return (type.typeKind >= UA_DATATYPEKIND_SBYTE && type.typeKind <= UA_DATATYPEKIND_UINT64) ||
           type.typeKind == UA_DATATYPEKIND_ENUM;
}

template <typename T>
T At(const void* position)
{
    return *static_cast<const T*>(position);
}

const void* Advance(const void* position, std::size_t bytes)
{
    return static_cast<const std::byte*>(position) + bytes;
}

/// Calls `use` with the integer at the address, in its type.
template <typename Use>
auto WithInteger(const void* position, const UA_DataType& type, Use&& use)
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_SBYTE:
        return use(At<UA_SByte>(position));
    case UA_DATATYPEKIND_BYTE:
        return use(static_cast<unsigned int>(At<UA_Byte>(position)));
    case UA_DATATYPEKIND_INT16:
        return use(At<UA_Int16>(position));
    case UA_DATATYPEKIND_UINT16:
        return use(At<UA_UInt16>(position));
    case UA_DATATYPEKIND_UINT32:
        return use(At<UA_UInt32>(position));
    case UA_DATATYPEKIND_INT64:
        return use(At<UA_Int64>(position));
    case UA_DATATYPEKIND_UINT64:
        return use(At<UA_UInt64>(position));
    default: // enumerations too
        return use(At<UA_Int32>(position));
    }
}

struct Range
{
    std::int64_t least = 0;
    std::uint64_t most = 0;
};

template <typename T>
constexpr Range RangeOf()
{
    return {static_cast<std::int64_t>(std::numeric_limits<T>::min()),
            static_cast<std::uint64_t>(std::numeric_limits<T>::max())};
}

Range RangeOf(const UA_DataType& type)
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_SBYTE:
        return RangeOf<UA_SByte>();
    case UA_DATATYPEKIND_BYTE:
        return RangeOf<UA_Byte>();
    case UA_DATATYPEKIND_INT16:
        return RangeOf<UA_Int16>();
    case UA_DATATYPEKIND_UINT16:
        return RangeOf<UA_UInt16>();
    case UA_DATATYPEKIND_UINT32:
        return RangeOf<UA_UInt32>();
    case UA_DATATYPEKIND_INT64:
        return RangeOf<UA_Int64>();
    case UA_DATATYPEKIND_UINT64:
        return RangeOf<UA_UInt64>();
    default:
        return RangeOf<UA_Int32>();
    }
}

/// Calls `holds` with each element, or with the one value, until `holds` returns false.
template <typename Holds>
bool AllOf(const UA_Variant& input, Holds&& holds)
{
    const std::size_t count = UA_Variant_isScalar(&input) ? 1 : input.arrayLength;
    for (std::size_t i = 0; i < count; ++i)
        if (!holds(Advance(input.data, i * input.type->memSize)))
            return false;
    return true;
}

bool HasNul(const UA_String& text)
{
    return BytesOf(text).find('\0') != std::string_view::npos;
}

bool HasNul(const void* value, const UA_DataType& type);

bool HasNul(const UA_Variant& value)
{
    return value.type != nullptr &&
           !AllOf(value, [&value](const void* element) { return !HasNul(element, *value.type); });
}

bool MemberHasNul(const void* position, const UA_DataTypeMember& member)
{
    if (!member.isArray)
        return HasNul(position, *member.memberType);
    UA_Variant view{};
    UA_Variant_setArray(&view, At<void*>(Advance(position, sizeof(std::size_t))),
                        At<std::size_t>(position), member.memberType);
    return HasNul(view);
}

bool StructureHasNul(const void* structure, const UA_DataType& type)
{
    const void* position = structure;
    for (std::size_t i = 0; i < type.membersSize; ++i) {
        const UA_DataTypeMember& member = type.members[i];
        position = Advance(position, member.padding);
        if (MemberHasNul(position, member))
            return true;
        position = Advance(position, member.isArray ? sizeof(std::size_t) + sizeof(void*)
                                                    : std::size_t{member.memberType->memSize});
    }
    return false;
}

bool HasNul(const void* value, const UA_DataType& type)
{
    switch (type.typeKind) {
    case UA_DATATYPEKIND_STRING:
        return HasNul(At<UA_String>(value));
    case UA_DATATYPEKIND_LOCALIZEDTEXT:
        return HasNul(At<UA_LocalizedText>(value).text);
    case UA_DATATYPEKIND_QUALIFIEDNAME:
        return HasNul(At<UA_QualifiedName>(value).name);
    case UA_DATATYPEKIND_NODEID:
        return At<UA_NodeId>(value).identifierType == UA_NODEIDTYPE_STRING &&
               HasNul(At<UA_NodeId>(value).identifier.string);
    case UA_DATATYPEKIND_VARIANT:
        return HasNul(At<UA_Variant>(value));
    case UA_DATATYPEKIND_STRUCTURE:
        return StructureHasNul(value, type);
    default:
        return false;
    }
}

} // namespace

Arguments::Arguments(const Core::Embedding::InformationModel& model, const StructureTypes& types)
    : types(types)
{
    for (const auto& type : model.GetDataTypes()) {
        if (type.kind != Core::Embedding::DataTypeKind::Enumeration)
            continue;
        std::int64_t& least = enumerations[type.id];
        for (const auto& field : type.fields)
            least = std::min<std::int64_t>(least, field.value);
    }
}

UA_StatusCode Arguments::Check(const std::vector<ArgumentDescription>& declared,
                               const UA_Variant* inputs, std::size_t count,
                               std::vector<UA_StatusCode>& results) const
{
    if (count != declared.size())
        return count < declared.size() ? UA_STATUSCODE_BADARGUMENTSMISSING
                                       : UA_STATUSCODE_BADTOOMANYARGUMENTS;
    results.clear();
    for (std::size_t i = 0; i < count; ++i)
        results.push_back(Check(declared[i], inputs[i]));
    const auto isGood = [](UA_StatusCode status) {
        return status == UA_STATUSCODE_GOOD;
    };
    return std::all_of(results.begin(), results.end(), isGood) ? UA_STATUSCODE_GOOD
                                                               : UA_STATUSCODE_BADINVALIDARGUMENT;
}

/// Lets integers of every width pass if they fit, and a scalar for a list, whose meaning the
/// behaviour decides.
UA_StatusCode Arguments::Check(const ArgumentDescription& declared, const UA_Variant& input) const
{
    if (input.type == nullptr)
        return UA_STATUSCODE_BADTYPEMISMATCH;
    const UA_DataType& type = types.Get(declared.dataType);
    if (!UA_Variant_isScalar(&input) && declared.valueRank == UA_VALUERANK_SCALAR)
        return UA_STATUSCODE_BADTYPEMISMATCH;
    const bool areIntegers = IsInteger(*input.type) && IsInteger(type);
    if (input.type->typeKind != type.typeKind && type.typeKind != UA_DATATYPEKIND_VARIANT &&
        !areIntegers)
        return UA_STATUSCODE_BADTYPEMISMATCH;
    const bool isInRange = !areIntegers || IsInRange(declared.dataType, input);
    return isInRange && !HasNul(input) ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADOUTOFRANGE;
}

bool Arguments::IsInRange(const Core::NodeId& dataType, const UA_Variant& input) const
{
    Range range = RangeOf(types.Get(dataType));
    if (const auto found = enumerations.find(dataType); found != enumerations.end())
        range.least = found->second;
    const auto fits = [&range](auto number) {
        return !std::cmp_less(number, range.least) && !std::cmp_greater(number, range.most);
    };
    return AllOf(input,
                 [&](const void* element) { return WithInteger(element, *input.type, fits); });
}

/// Adds the elements of arrays: an array of empty texts takes four times its size on the wire.
std::size_t Weigh(const UA_Variant* values, std::size_t count)
{
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const UA_Variant& value = values[i];
        bytes += UA_calcSizeBinary(&value, &UA_TYPES[UA_TYPES_VARIANT]);
        if (value.type != nullptr && !UA_Variant_isScalar(&value))
            bytes += value.arrayLength * value.type->memSize;
    }
    return bytes;
}

} // namespace Host
