#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/NodeId.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/Namespaces.h"
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
    Objects(UA_Server& server, const Namespaces& namespaces) noexcept;

    /// Adds an object of the runtime below another one that clients see (or below the server's
    /// Objects folder). One that belongs to a session is found by those alone who know its
    /// identifier. Throws UaException.
    void Add(const Core::Embedding::NewObject& object, const ClientSession* owner);

    /// Takes the objects of a session out of the clients' sight.
    void RemoveOwned(const ClientSession& owner);

    /// Null for an object that is none of these.
    [[nodiscard]] const ProjectedObject* Find(const Core::NodeId& object) const;

    /// True unless the node is an object that belongs to another session.
    [[nodiscard]] bool IsVisible(const UA_NodeId& node, const ClientSession* session) const;

private:
    void Unlink(const UA_NodeId& node);

    UA_Server& server;
    const Namespaces& namespaces;
    std::unordered_map<Core::NodeId, ProjectedObject, Core::HashNodeId> objects;
};

} // namespace Host
