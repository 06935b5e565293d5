#include "Core/Embedding/InformationModel.h"

#include "BaseDescription.h"
#include "BaseNodes.h"
#include "Core/Exception.h"
#include "FileTransferTypes.h"
#include "NodeSetReader.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <utility>

namespace Core::Embedding {

namespace {

struct BaseDataType
{
    unsigned int id;
    unsigned int superType; // 0: the root
    const char* name;
    bool isAbstract;
};

constexpr bool abstract = true;
constexpr bool concrete = false;

// The data types of namespace 0 from which others derive, or which fields and arguments name,
// without its structures and enumerations (OPC 10000-5, 12).
constexpr std::array baseDataTypes{
    BaseDataType{24, 0, "BaseDataType", abstract},
    BaseDataType{26, 24, "Number", abstract},
    BaseDataType{27, 26, "Integer", abstract},
    BaseDataType{28, 26, "UInteger", abstract},
    BaseDataType{29, 24, "Enumeration", abstract},
    BaseDataType{1, 24, "Boolean", concrete},
    BaseDataType{2, 27, "SByte", concrete},
    BaseDataType{3, 28, "Byte", concrete},
    BaseDataType{4, 27, "Int16", concrete},
    BaseDataType{5, 28, "UInt16", concrete},
    BaseDataType{6, 27, "Int32", concrete},
    BaseDataType{7, 28, "UInt32", concrete},
    BaseDataType{8, 27, "Int64", concrete},
    BaseDataType{9, 28, "UInt64", concrete},
    BaseDataType{10, 26, "Float", concrete},
    BaseDataType{11, 26, "Double", concrete},
    BaseDataType{12, 24, "String", concrete},
    BaseDataType{13, 24, "DateTime", concrete},
    BaseDataType{14, 24, "Guid", concrete},
    BaseDataType{15, 24, "ByteString", concrete},
    BaseDataType{16, 24, "XmlElement", concrete},
    BaseDataType{17, 24, "NodeId", concrete},
    BaseDataType{18, 24, "ExpandedNodeId", concrete},
    BaseDataType{19, 24, "StatusCode", concrete},
    BaseDataType{20, 24, "QualifiedName", concrete},
    BaseDataType{21, 24, "LocalizedText", concrete},
    BaseDataType{22, 24, "Structure", abstract},
    BaseDataType{23, 24, "DataValue", concrete},
    BaseDataType{25, 24, "DiagnosticInfo", concrete},
    BaseDataType{30, 15, "Image", abstract},
    BaseDataType{50, 26, "Decimal", concrete},
    BaseDataType{288, 7, "IntegerId", concrete},
    BaseDataType{289, 7, "Counter", concrete},
    BaseDataType{290, 11, "Duration", concrete},
    BaseDataType{291, 12, "NumericRange", concrete},
    BaseDataType{294, 13, "UtcTime", concrete},
    BaseDataType{295, 12, "LocaleId", concrete},
    BaseDataType{12877, 12, "NormalizedString", concrete},
    BaseDataType{12878, 12, "DecimalString", concrete},
    BaseDataType{12879, 12, "DurationString", concrete},
    BaseDataType{12880, 12, "TimeString", concrete},
    BaseDataType{12881, 12, "DateString", concrete},
    BaseDataType{17588, 7, "Index", concrete},
    BaseDataType{20998, 7, "VersionTime", concrete},
    BaseDataType{23751, 12, "UriString", concrete},
    BaseDataType{24263, 12, "SemanticVersionString", concrete},
};

struct BaseEventField
{
    unsigned int id;
    const char* name;
    unsigned int dataType;
    const char* description;
};

// The fields that every event has (OPC 10000-5, 6.4.2).
constexpr std::array baseEventFields{
    BaseEventField{2042, "EventId", 15, "Identifies the event within the host."},
    BaseEventField{2043, "EventType", 17, "The type of the event."},
    BaseEventField{2044, "SourceNode", 17, "The node that the event comes from."},
    BaseEventField{2045, "SourceName", 12, "The name of that node."},
    BaseEventField{2046, "Time", 294, "When the event occurred."},
    BaseEventField{2047, "ReceiveTime", 294, "When the host took the event over."},
    BaseEventField{2050, "Message", 21, "The event in words."},
    BaseEventField{2051, "Severity", 5, "How urgent the event is, from 1 to 1000."},
};

DataTypeDescription MakeDescription(const BaseDataType& type)
{
    auto description = MakeBase<DataTypeDescription>(type.id, type.name);
    description.superType = NodeId(0, type.superType);
    description.isAbstract = type.isAbstract;
    if (description.id == BaseNodes::structure)
        description.kind = DataTypeKind::Structure;
    if (description.id == BaseNodes::enumeration)
        description.kind = DataTypeKind::Enumeration;
    return description;
}

ObjectTypeDescription MakeObjectType(const NodeId& id, const char* name, const NodeId& superType)
{
    auto description = MakeBase<ObjectTypeDescription>(*id.GetNumeric(), name);
    description.superType = superType;
    return description;
}

ObjectTypeDescription MakeBaseEventType()
{
    auto type =
        MakeObjectType(BaseTypes::baseEventType, "BaseEventType", BaseTypes::baseObjectType);
    type.isAbstract = true;
    for (const auto& field : baseEventFields) {
        auto description = MakeBase<EventFieldDescription>(field.id, field.name);
        description.description = field.description;
        description.dataType = NodeId(0, field.dataType);
        type.eventFields.push_back(std::move(description));
    }
    return type;
}

template <typename Description, typename Index>
const Description& Find(const std::vector<Description>& types, const Index& index, const NodeId& id,
                        const char* kind)
{
    const auto found = index.find(id);
    if (found == index.end())
        throw NotFoundException(
            fmt::format("The information model has no {} '{}'", kind, id.ToString()));
    return types[found->second];
}

} // namespace

InformationModel::InformationModel()
{
    for (const auto& type : baseDataTypes)
        Add(MakeDescription(type));
    Add(MakeObjectType(BaseTypes::baseObjectType, "BaseObjectType", NodeId::Empty()));
    Add(MakeObjectType(BaseTypes::folderType, "FolderType", BaseTypes::baseObjectType));
    Add(MakeBaseEventType());
    for (auto& type : MakeFileTransferTypes())
        Add(std::move(type));
}

void InformationModel::LoadNodeSet(const std::filesystem::path& file)
{
    InformationModel extended = *this;
    NodeSetReader(file, extended).Read();
    *this = std::move(extended);
}

const ObjectTypeDescription& InformationModel::GetObjectType(const NodeId& id) const
{
    return Find(objectTypes, objectTypeIndex, id, "object type");
}

const DataTypeDescription& InformationModel::GetDataType(const NodeId& id) const
{
    return Find(dataTypes, dataTypeIndex, id, "data type");
}

bool InformationModel::IsSubtypeOf(const NodeId& descendant, const NodeId& ancestor) const
{
    NodeId current = descendant;
    while (!current.IsEmpty()) {
        const bool isObjectType = objectTypeIndex.contains(current);
        if (!isObjectType && !dataTypeIndex.contains(current))
            return false;
        if (current == ancestor)
            return true;
        current = isObjectType ? GetObjectType(current).superType : GetDataType(current).superType;
    }
    return false;
}

EventArguments InformationModel::GetEventArguments(const NodeId& eventType) const
{
    std::vector<QualifiedName> fields;
    for (const auto* type : GetLineage(eventType))
        for (const auto& field : type->eventFields)
            fields.push_back(field.browseName);
    return EventArguments(std::move(fields));
}

std::vector<MethodDescription> InformationModel::GetMethods(const NodeId& objectType) const
{
    std::vector<MethodDescription> methods;
    for (const auto* type : GetLineage(objectType))
        methods.insert(methods.end(), type->methods.begin(), type->methods.end());
    return methods;
}

std::optional<Guid> InformationModel::GetBehaviourFactory(const NodeId& objectType) const
{
    const auto lineage = GetLineage(objectType);
    const auto nearest = std::find_if(lineage.rbegin(), lineage.rend(), [](const auto* type) {
        return type->behaviourFactory.has_value();
    });
    return nearest == lineage.rend() ? std::nullopt : (*nearest)->behaviourFactory;
}

void InformationModel::Add(ObjectTypeDescription type)
{
    objectTypeIndex.emplace(type.id, objectTypes.size());
    objectTypes.push_back(std::move(type));
}

void InformationModel::Add(DataTypeDescription type)
{
    dataTypeIndex.emplace(type.id, dataTypes.size());
    dataTypes.push_back(std::move(type));
}

/// Returns the types from the root down to the type itself.
std::vector<const ObjectTypeDescription*> InformationModel::GetLineage(const NodeId& type) const
{
    std::vector<const ObjectTypeDescription*> lineage;
    for (NodeId current = type; !current.IsEmpty(); current = lineage.back()->superType)
        lineage.push_back(&GetObjectType(current));
    std::reverse(lineage.begin(), lineage.end());
    return lineage;
}

} // namespace Core::Embedding
