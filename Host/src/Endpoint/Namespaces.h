#pragma once

#include "Core/NodeId.h"
#include "Core/QualifiedName.h"
#include "Endpoint/Ua.h"

#include <open62541/server.h>

#include <vector>

namespace Host {

/// Translates namespace indexes between the address space of the host and the one that clients see.
/// They differ, since a server's namespace 1 is its own application. Immutable: made once all
/// models are loaded; any thread.
class Namespaces
{
public:
    /// Registers every namespace of this process with the server. Throws UaException.
    explicit Namespaces(UA_Server& server);

    /// Throws Core::NotFoundException for an index that the other side does not have.
    [[nodiscard]] UA_UInt16 ToUa(int coreIndex) const;
    [[nodiscard]] int ToCore(UA_UInt16 uaIndex) const;

    [[nodiscard]] Ua<UA_NodeId> ToUa(const Core::NodeId& nodeId) const;
    [[nodiscard]] Core::NodeId ToCore(const UA_NodeId& nodeId) const;

    /// A view, valid as long as the name.
    [[nodiscard]] UA_QualifiedName ToUaView(const Core::QualifiedName& name) const;

private:
    std::vector<UA_UInt16> uaIndexes; // by the host's index
};

} // namespace Host
