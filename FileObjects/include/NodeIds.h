#pragma once

#include "Core/NodeId.h"
#include "Keys.h"

#include <optional>

namespace FileObjects {

/// Turns nodes into identifiers and back: texts in the namespace of the module, except that of the
/// object of the behaviour. Any thread.
class NodeIds
{
public:
    /// `keys` outlives this object.
    NodeIds(const Keys& keys, Core::NodeId object, int namespaceIndex);

    /// Throws Core::StatusException for a node whose key is too long.
    [[nodiscard]] Core::NodeId ToNodeId(const Key& node) const;
    [[nodiscard]] std::optional<Key> FromNodeId(const Core::NodeId& id) const;

private:
    const Keys& keys;
    const Core::NodeId object;
    const int namespaceIndex;
};

} // namespace FileObjects
