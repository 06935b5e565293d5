#pragma once

#include "Core/Events.h"
#include "Core/Export.h"
#include "Core/Guid.h"
#include "Core/NodeId.h"
#include "Core/QualifiedName.h"

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Core::Embedding {

/// The common part of all described nodes.
struct NodeDescription
{
    NodeId id;
    QualifiedName browseName;
    std::string displayName;
    std::string description;
};

/// One argument of a method (OPC 10000-3, 8.6).
struct ArgumentDescription
{
    std::string name;
    NodeId dataType;
    int valueRank = -1; ///< -1 scalar, 1 or more: that many dimensions
    std::vector<unsigned int> arrayDimensions;
    std::string description;
};

/// The way in which a method changes something, for records of its calls. Names are those of
/// arguments, empty without such an argument.
struct ChangeDescription
{
    /// The inputs, texts or identifiers of nodes, that name the things that are changed. Without
    /// one it is the object.
    std::vector<std::string> subjects;
    std::string child; ///< an input: a name below the last subject; an empty text: none
    /// An input or output: the handle of work that takes several calls. An output other than 0
    /// begins the work, an input goes on with it.
    std::string handle;
    bool isLast = false;   ///< the last call with its handle; the work ends with an event
    bool endsWork = false; ///< the last call with its handle; the work ends with the answer
    /// An output, a status for each thing that was to be changed; 0 is good.
    std::string statuses;
    /// An input and its number with which a call changes nothing.
    std::string exceptArgument;
    long exceptValue = 0;
};

struct MethodDescription : NodeDescription
{
    NodeId inputArgumentsId; ///< the property node; empty without inputs
    std::vector<ArgumentDescription> inputs;
    NodeId outputArgumentsId; ///< the property node; empty without outputs
    std::vector<ArgumentDescription> outputs;
    std::optional<ChangeDescription> change; ///< of a method that changes something
};

/// The meaning of the number in a field of an event. Every number but `success` reports a failure.
struct OutcomeDescription
{
    long success = 0;
    std::unordered_map<long, std::string> texts; ///< readable texts by number; some have none
};

/// A field of an event type: a property of the type.
struct EventFieldDescription : NodeDescription
{
    NodeId dataType;
    int valueRank = -1;
    std::optional<OutcomeDescription> outcome; ///< of a field that has one
    bool isHandle = false; ///< the handle of the work that the event tells the end of
};

/// The one object that a host has of a type.
struct InstanceDescription
{
    NodeId id;
    QualifiedName browseName;
    std::vector<NodeId> parents; ///< at least one; the object is a component of each
};

/// The objects of a type that sessions make for themselves.
struct SessionObjectsDescription
{
    std::string folder; ///< the name of the folder that holds all objects of the type
    std::string method; ///< the name of the folder's method that makes one
    std::string object; ///< the name of such an object
};

/// An object type or event type. The lists hold the type's own additions without the inherited
/// members.
struct ObjectTypeDescription : NodeDescription
{
    NodeId superType; ///< empty for the root of the types
    bool isAbstract = false;
    std::vector<MethodDescription> methods;
    std::vector<EventFieldDescription> eventFields;
    std::vector<NodeId> generatedEvents;
    /// The factory that makes the behaviours of this type's objects.
    std::optional<Guid> behaviourFactory;
    std::optional<InstanceDescription> instance;
    std::optional<SessionObjectsDescription> sessionObjects;
};

enum class DataTypeKind
{
    Simple,      ///< built-in types and plain subtypes of them
    Enumeration, ///< fields are its values; an Int32 on the wire
    OptionSet,   ///< fields are the bits of an unsigned integer; `value` is the bit number
    Structure,   ///< fields are its members in order
};

struct DataTypeField
{
    std::string name;
    std::string description;
    NodeId dataType;    ///< of a structure's member
    int valueRank = -1; ///< of a structure's member
    long value = 0;     ///< of an enumeration's value or a bit
};

struct DataTypeDescription : NodeDescription
{
    NodeId superType;
    bool isAbstract = false;
    DataTypeKind kind = DataTypeKind::Simple;
    std::vector<DataTypeField> fields; ///< of a structure: all its members, inherited ones first
    NodeId binaryEncodingId;           ///< the "Default Binary" object of a structure
    NodeId textsPropertyId; ///< EnumStrings, EnumValues or OptionSetValues, where the model has it
    std::string textsPropertyName;
};

/// A model that a file declares, in the file's own texts.
struct ModelDescription
{
    std::string uri;
    std::string version;         ///< empty where the file has none
    std::string publicationDate; ///< "2026-11-21T00:00:00Z"; empty where the file has none
};

/// The types of an address space: the base types that the host needs, and those read from NodeSet2
/// files (OPC 10000-6, annex F). A value without locks: copy it, extend the copy, publish it whole.
class CORE_API InformationModel
{
public:
    /// Holds the base types of namespace 0.
    InformationModel();

    /// Adds the types of a NodeSet2 file and registers its namespaces. A file may describe object
    /// types, data types and methods, with their properties and encodings, and nothing else. Its
    /// nodes belong to the models that it declares; a model is loaded once, after those that it
    /// requires. Methods and fields keep the order of the file.
    ///
    /// The extensions of a type name the factory of its behaviours, in an element
    /// `BehaviourFactory` of the XML namespace "urn:Talvensor:Core:Model" whose attribute `Guid`
    /// has the 32 digits; where its one object belongs, in an element `Instance` with the
    /// attributes `Id`, `Name` (a browse name) and `Parents` (identifiers, separated by spaces);
    /// and that sessions may have objects of their own, in an element `SessionObjects` with the
    /// attributes `Folder`, `Method` and `Object`, which are names. The extensions of a method that
    /// changes something say so, in an element `Change` with the attributes of ChangeDescription:
    /// `Subject` (names separated by
    /// spaces), `Handle`, `Last` ("true"), `Statuses`, `Except` ("ARGUMENT=NUMBER"). The extensions
    /// of an event field describe its outcome, in an element `Outcome` with the attribute `Success`
    /// and an element `Text` with the attribute `Value` for each number that has a text, or mark it
    /// as a handle, with an element `Handle`.
    ///
    /// Throws SystemException when the file cannot be read, and InvalidModelException naming the
    /// file, the line, the node and the fault; then the model is unchanged, but a namespace that
    /// was registered stays.
    void LoadNodeSet(const std::filesystem::path& file);

    /// Return a described type. Throw NotFoundException for an identifier that no such type has.
    [[nodiscard]] const ObjectTypeDescription& GetObjectType(const NodeId& id) const;
    [[nodiscard]] const DataTypeDescription& GetDataType(const NodeId& id) const;

    /// Return the types in the order in which they were added: base types first, supertypes before
    /// their subtypes.
    [[nodiscard]] const std::vector<ObjectTypeDescription>& GetObjectTypes() const noexcept
    {
        return objectTypes;
    }
    [[nodiscard]] const std::vector<DataTypeDescription>& GetDataTypes() const noexcept
    {
        return dataTypes;
    }

    /// Returns the models of the files in the order in which they were loaded.
    [[nodiscard]] const std::vector<ModelDescription>& GetModels() const noexcept { return models; }

    /// True for the type itself too; false for identifiers that name no type.
    [[nodiscard]] bool IsSubtypeOf(const NodeId& descendant, const NodeId& ancestor) const;

    /// Returns the fields of an event type, the inherited ones first; empty for other types.
    [[nodiscard]] EventArguments GetEventArguments(const NodeId& eventType) const;

    /// Returns the methods of a type, the inherited ones first.
    [[nodiscard]] std::vector<MethodDescription> GetMethods(const NodeId& objectType) const;

    /// Returns the factory of the type or of its nearest ancestor that has one.
    [[nodiscard]] std::optional<Guid> GetBehaviourFactory(const NodeId& objectType) const;

private:
    friend class NodeSetReader;
    using Index = std::unordered_map<NodeId, std::size_t, HashNodeId>;

    void Add(ObjectTypeDescription type);
    void Add(DataTypeDescription type);
    [[nodiscard]] std::vector<const ObjectTypeDescription*> GetLineage(const NodeId& type) const;

    std::vector<ModelDescription> models;
    std::vector<ObjectTypeDescription> objectTypes;
    std::vector<DataTypeDescription> dataTypes;
    Index objectTypeIndex;
    Index dataTypeIndex;
};

/// Identifiers of the base types (namespace 0) that the host and embedders refer to.
namespace BaseTypes {
inline const NodeId baseObjectType{0, 58};
inline const NodeId folderType{0, 61};
inline const NodeId baseEventType{0, 2041};
inline const NodeId organizes{0, 35};
inline const NodeId hasComponent{0, 47};
} // namespace BaseTypes

} // namespace Core::Embedding
