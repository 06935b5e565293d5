#pragma once

#include "Core/NodeId.h"
#include "Core/Value.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/StructureTypes.h"
#include "Endpoint/Ua.h"

namespace Host {

/// Converts between the host's values and those on the wire. Texts go through the escape of
/// OpcUa/Text.h; a null time is an empty time, both ways. Immutable; any thread.
class Values
{
public:
    Values(const Namespaces& namespaces, const StructureTypes& types) noexcept;

    /// Throws Core::TypeMismatchException for a type that the host's values cannot hold.
    [[nodiscard]] Core::Value ToCore(const UA_Variant& variant) const;

    /// Returns a value of the declared data type; an empty value gives an empty variant. Throws
    /// Core::TypeMismatchException or Core::OutOfRangeException for a value that the type cannot
    /// hold.
    [[nodiscard]] Ua<UA_Variant> ToUa(const Core::Value& value, const Core::NodeId& dataType) const;

private:
    [[nodiscard]] Core::Value ToCoreScalar(const void* data, const UA_DataType& type) const;
    [[nodiscard]] Core::Value ToCoreArray(const UA_Variant& variant) const;
    [[nodiscard]] Core::Struct ToCoreStruct(const void* data, const UA_DataType& type) const;
    [[nodiscard]] const UA_DataType& ChooseLayout(const Core::Value& value,
                                                  const UA_DataType& declared) const;
    void FillArray(UA_Variant& variant, const UA_DataType& type, const Core::Value& value) const;
    void Fill(void* target, const UA_DataType& type, const Core::Value& value) const;
    void FillStruct(void* target, const UA_DataType& type, const Core::Struct& structure) const;
    void FillMember(void* target, const UA_DataTypeMember& member, const Core::Value& value) const;

    const Namespaces& namespaces;
    const StructureTypes& types;
};

} // namespace Host
