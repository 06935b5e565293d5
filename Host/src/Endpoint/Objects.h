#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/NodeId.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/NodeStore.h"
#include "Endpoint/Ua.h"

#include <open62541/server.h>

#include <unordered_map>

namespace Host {

/// One of the host's objects, as clients see it.
struct ProjectedObject
{
    Core::NodeId id;
    Core::NodeId type;
    Core::NodeId parent;
    /// The session that alone may know of it; null: everybody may.
    const ClientSession* owner = nullptr;
};

/// The objects of the runtime in the server's address space. Loop thread.
class Objects
{
public:
    Objects(UA_Server& server, NodeStore& store, const Namespaces& namespaces) noexcept;

    /// Adds an object of the runtime below another one that clients see (or below the server's
    /// Objects folder), to which `reference` leads. The store's rule asks `IsVisible`, so that an
    /// object with an owner is there for this session alone. Throws UaException.
    void Add(const Core::Embedding::NewObject& object, const ClientSession* owner,
             UA_UInt32 reference = UA_NS0ID_ORGANIZES);

    /// Adds a node that the server has already, as a component, to another one.
    void AddComponent(const Core::NodeId& parent, const Core::NodeId& object);

    /// Removes a node that the library brings, with those below it. Does nothing without such a
    /// node.
    void RemoveBrought(const Core::NodeId& node);

    /// Removes the objects of a session.
    void RemoveOwned(const ClientSession& owner);

    /// Returns null for any other object.
    [[nodiscard]] const ProjectedObject* Find(const Core::NodeId& object) const;

    /// Returns false for an object that belongs to another session.
    [[nodiscard]] bool IsVisible(const UA_NodeId& node, const ClientSession* session) const;

private:
    UA_Server& server;
    NodeStore& store;
    const Namespaces& namespaces;
    std::unordered_map<Core::NodeId, ProjectedObject, Core::HashNodeId> objects;
    UA_UInt16 privateNamespace = 0; ///< of the objects that belong to sessions
};

} // namespace Host
