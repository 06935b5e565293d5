#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Endpoint/Namespaces.h"

#include <open62541/server.h>

namespace Host {

/// Puts the types of an information model into a server's address space, where clients browse and
/// decode by them: data types with their fields and texts, object types with their methods, event
/// types with their fields. Knows no particular type. Types of namespace 0 are there already; calls
/// of their methods become asynchronous operations, too.
class TypeProjection
{
public:
    TypeProjection(UA_Server& server, const Core::Embedding::InformationModel& model,
                   const Namespaces& namespaces) noexcept;

    /// Adds the types. Calls of their methods become asynchronous operations of the server. Loop
    /// thread, before the server runs. Throws UaException naming the node that the server refused.
    void Project();

    /// Adds a method to an object, as it does to types. Throws UaException.
    void AddMethod(const Core::NodeId& owner, const Core::Embedding::MethodDescription& method);

private:
    void Add(const Core::Embedding::DataTypeDescription& type);
    void AddTexts(const Core::Embedding::DataTypeDescription& type);
    void AddEncoding(const Core::Embedding::DataTypeDescription& type);
    void Add(const Core::Embedding::ObjectTypeDescription& type);
    void MakeAsynchronous(const Core::Embedding::ObjectTypeDescription& type);
    void CompleteArguments(const Core::NodeId& property);
    void AddEventField(const Core::NodeId& type,
                       const Core::Embedding::EventFieldDescription& field);
    void AddReference(const Core::NodeId& from, UA_UInt32 referenceType, const UA_NodeId& to);
    void AddProperty(const Core::NodeId& id, const Core::NodeId& owner,
                     const UA_QualifiedName& browseName, const UA_VariableAttributes& attributes);
    [[nodiscard]] UA_Argument
    MakeArgumentView(const Core::Embedding::ArgumentDescription& argument) const;

    UA_Server& server;
    const Core::Embedding::InformationModel& model;
    const Namespaces& namespaces;
};

} // namespace Host
