#include "Endpoint/DataTypeDefinitions.h"

#include "Endpoint/Interposition.h"
#include "Endpoint/LibraryAssumptions.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace Host {
namespace {

using Core::Embedding::DataTypeDescription;
using Core::Embedding::DataTypeKind;

std::atomic<const DataTypeDefinitions*> currentDefinitions{nullptr};

template <typename T>
Ua<UA_Variant> CopyOf(const T& value, const UA_DataType& type)
{
    Ua<UA_Variant> copy;
    RequireGood(UA_Variant_setScalarCopy(&*copy, &value, &type), "describing a data type");
    return copy;
}

} // namespace

DataTypeDefinitions::DataTypeDefinitions(UA_Server& server,
                                         const Core::Embedding::InformationModel& model,
                                         const Namespaces& namespaces,
                                         const StructureTypes& structures)
{
    for (const auto& type : model.GetDataTypes()) {
        if (type.id.GetNamespaceIndex() == 0)
            continue;
        if (type.kind == DataTypeKind::Structure && !type.isAbstract)
            AddStructure(type, namespaces);
        else if (type.kind == DataTypeKind::Enumeration || type.kind == DataTypeKind::OptionSet)
            AddEnumeration(type, namespaces);
    }
    array.emplace(UA_DataTypeArray{&structures.GetArray(), layouts.size(), layouts.data(), false});
    UA_Server_getConfig(&server)->customDataTypes = &*array;
    currentDefinitions = this;
    Interpose(&FindInCurrent);
}

DataTypeDefinitions::~DataTypeDefinitions()
{
    Interpose(FindDefinition{});
    currentDefinitions = nullptr;
}

const UA_Variant* DataTypeDefinitions::FindInCurrent(const UA_StructureDefinition& made) noexcept
{
    const DataTypeDefinitions* const definitions = currentDefinitions;
    return definitions == nullptr ? nullptr : definitions->Find(made);
}

const UA_Variant* DataTypeDefinitions::Find(const UA_StructureDefinition& made) const noexcept
{
    const auto found = std::find_if(entries.begin(), entries.end(), [&made](const Entry& entry) {
        return UA_NodeId_equal(&*entry.encoding, &made.defaultEncodingId);
    });
    return found == entries.end() ? nullptr : &*found->definition;
}

void DataTypeDefinitions::RequireServed(UA_Server& server) const
{
    const bool areServed = std::all_of(entries.begin(), entries.end(),
                                       [&](const Entry& entry) { return IsServed(server, entry); });
    RequireServedDefinitions(areServed);
}

bool DataTypeDefinitions::IsServed(UA_Server& server, const Entry& entry)
{
    UA_ReadValueId request;
    UA_ReadValueId_init(&request);
    request.nodeId = *entry.type;
    request.attributeId = UA_ATTRIBUTEID_DATATYPEDEFINITION;
    UA_DataValue read = UA_Server_read(&server, &request, UA_TIMESTAMPSTORETURN_NEITHER);
    const bool isServed = UA_Variant_equal(&read.value, &*entry.definition);
    UA_DataValue_clear(&read);
    return isServed;
}

void DataTypeDefinitions::AddStructure(const DataTypeDescription& type,
                                       const Namespaces& namespaces)
{
    std::vector<UA_StructureField> fields;
    std::vector<Ua<UA_NodeId>> types;
    for (const auto& field : type.fields) {
        UA_StructureField view;
        UA_StructureField_init(&view);
        view.name = ViewOf(field.name);
        view.description = LocalizedViewOf(field.description);
        view.dataType = *types.emplace_back(namespaces.ToUa(field.dataType));
        view.valueRank = field.valueRank;
        fields.push_back(view);
    }
    Entry entry{namespaces.ToUa(type.binaryEncodingId), namespaces.ToUa(type.id), {}};
    const auto superType = namespaces.ToUa(type.superType);
    const UA_StructureDefinition definition{*entry.encoding, *superType, UA_STRUCTURETYPE_STRUCTURE,
                                            fields.size(), fields.data()};
    entry.definition = CopyOf(definition, UA_TYPES[UA_TYPES_STRUCTUREDEFINITION]);
    entries.push_back(std::move(entry));
}

/// Gives the layout the type itself for an encoding, which no structure has.
void DataTypeDefinitions::AddEnumeration(const DataTypeDescription& type,
                                         const Namespaces& namespaces)
{
    std::vector<UA_EnumField> fields;
    for (const auto& field : type.fields)
        fields.push_back({field.value, LocalizedViewOf(field.name),
                          LocalizedViewOf(field.description), ViewOf(field.name)});
    Entry entry{namespaces.ToUa(type.id), namespaces.ToUa(type.id), {}};
    const UA_EnumDefinition definition{fields.size(), fields.data()};
    entry.definition = CopyOf(definition, UA_TYPES[UA_TYPES_ENUMDEFINITION]);
    UA_DataType layout{};
    layout.typeName = "Enumeration";
    layout.typeId = *entry.type;
    layout.binaryEncodingId = *entry.encoding;
    layout.memSize = sizeof(void*);
    layout.typeKind = UA_DATATYPEKIND_STRUCTURE;
    layouts.push_back(layout);
    entries.push_back(std::move(entry));
}

} // namespace Host
