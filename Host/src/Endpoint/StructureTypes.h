#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/NodeId.h"
#include "Endpoint/Namespaces.h"

#include <open62541/types.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

/// The layouts in memory by which the library encodes and decodes the structures of a model, and
/// the built-in types that everything else travels as. Immutable once made; the server's
/// configuration refers to it (`GetArray`) and must not outlive it.
class StructureTypes
{
public:
    /// Throws Core::NotFoundException for a member whose type the model does not have.
    StructureTypes(const Core::Embedding::InformationModel& model, const Namespaces& namespaces);
    StructureTypes(const StructureTypes&) = delete;
    StructureTypes& operator=(const StructureTypes&) = delete;
    ~StructureTypes();

    /// Returns the layout of a data type: of the structure itself, or of the built-in type that the
    /// type is derived from (an enumeration: Int32). Types that can hold anything give a Variant.
    [[nodiscard]] const UA_DataType& Get(const Core::NodeId& dataType) const;

    /// Returns the data type of a structure's layout. Throws Core::NotFoundException for any other
    /// layout.
    [[nodiscard]] const Core::Embedding::DataTypeDescription&
    GetDescription(const UA_DataType& layout) const;

    /// Returns the value for `UA_ServerConfig::customDataTypes`.
    [[nodiscard]] const UA_DataTypeArray& GetArray() const noexcept { return *array; }

private:
    void Reserve(const Core::NodeId& dataType);
    void Describe(std::size_t index);
    [[nodiscard]] UA_DataTypeMember MakeMember(const Core::Embedding::DataTypeField& field);

    const Core::Embedding::InformationModel& model;
    const Namespaces& namespaces;
    std::deque<std::string> names; // the layouts point to them
    std::vector<std::vector<UA_DataTypeMember>> members;
    std::vector<UA_DataType> types; // never grows beyond its reserve: others point into it
    std::unordered_map<Core::NodeId, std::size_t, Core::HashNodeId> indexes;
    std::vector<const Core::Embedding::DataTypeDescription*> descriptions; // beside types
    std::optional<UA_DataTypeArray> array; // set once, its members are constant
};

} // namespace Host
