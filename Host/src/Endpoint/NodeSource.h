#pragma once

#include "Core/NodeId.h"
#include "Core/NodeProvider.h"
#include "Endpoint/Ua.h"

#include <cstddef>
#include <memory>

namespace Host {

/// A behaviour that provides nodes, and the namespace of their identifiers.
struct NodeSource
{
    std::size_t number = 0; ///< its place among all
    Core::NodeId object;
    Ua<UA_NodeId> uaObject;
    UA_UInt32 browseNameHash = 0; ///< of the object
    int namespaceIndex = 0;       ///< Core's
    UA_UInt16 uaNamespace = 0;
    std::shared_ptr<Core::INodeProvider> provider;
};

} // namespace Host
