#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/StructureTypes.h"
#include "Endpoint/Ua.h"

#include <open62541/server.h>

#include <optional>
#include <vector>

namespace Host {

/// Serves the attribute DataTypeDefinition of a model's types as the model has it.
///
/// The library makes it from the layouts in its configuration: without descriptions, and of
/// structures alone. So enumerations and option sets are in the configuration too, as structures
/// without members, and the library's definition is replaced where the library copies it, see
/// Interposition.h.
///
/// One for a process at a time.
class DataTypeDefinitions
{
public:
    /// Adds the layouts to the server's configuration. The model, the namespaces and the types must
    /// outlive it; the server may not read definitions after it. Throws UaException.
    DataTypeDefinitions(UA_Server& server, const Core::Embedding::InformationModel& model,
                        const Namespaces& namespaces, const StructureTypes& structures);
    DataTypeDefinitions(const DataTypeDefinitions&) = delete;
    DataTypeDefinitions& operator=(const DataTypeDefinitions&) = delete;
    ~DataTypeDefinitions();

    /// Returns the definition to serve instead of one that the library has made; null for others.
    [[nodiscard]] const UA_Variant* Find(const UA_StructureDefinition& made) const noexcept;

    /// Throws OpcUa::LibraryException when a definition is not served. Once the types are in the
    /// address space.
    void RequireServed(UA_Server& server) const;

private:
    /// A definition by the encoding that the library's own names.
    struct Entry
    {
        Ua<UA_NodeId> encoding;
        Ua<UA_NodeId> type;
        Ua<UA_Variant> definition;
    };

    [[nodiscard]] static const UA_Variant*
    FindInCurrent(const UA_StructureDefinition& made) noexcept;
    [[nodiscard]] static bool IsServed(UA_Server& server, const Entry& entry);
    void AddStructure(const Core::Embedding::DataTypeDescription& type,
                      const Namespaces& namespaces);
    void AddEnumeration(const Core::Embedding::DataTypeDescription& type,
                        const Namespaces& namespaces);

    std::vector<Entry> entries;
    std::vector<UA_DataType> layouts;      // views of what `entries` holds
    std::optional<UA_DataTypeArray> array; // set once, its members are constant
};

} // namespace Host
