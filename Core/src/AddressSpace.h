#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/Events.h"
#include "Core/NodeId.h"
#include "Nodes.h"

#include <memory>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

namespace Core {

/// The types of references between nodes.
namespace References {
inline const NodeId organizes{0, 35};
inline const NodeId hasTypeDefinition{0, 40};
inline const NodeId generatesEvent{0, 41};
inline const NodeId hasSubtype{0, 45};
inline const NodeId hasComponent{0, 47};
} // namespace References

/// A reference by the identifiers of its ends.
struct Reference
{
    NodeId typeId;
    NodeId source;
    NodeId target;
};

/// Nodes and the references between them. All operations may be called from any thread; none calls
/// foreign code but the two notifications. Nodes that leave are handed out, so that they are
/// released without a lock.
class AddressSpace
{
public:
    using Nodes = std::vector<std::shared_ptr<BasicNode>>;
    using Changes = std::vector<ReferenceData>;
    struct Removal
    {
        std::shared_ptr<BasicNode> node;
        Changes changes;
    };

    /// Null for an identifier that no node has.
    [[nodiscard]] std::shared_ptr<BasicNode> Find(const NodeId& id) const;

    /// Both throw NotFoundException.
    [[nodiscard]] std::shared_ptr<BasicNode> Get(const NodeId& id) const;
    [[nodiscard]] std::vector<Embedding::ReferenceDescription> Browse(const NodeId& id) const;

    /// Adds all of them or nothing; the references must touch nodes that are there or that are
    /// being added. Throws AlreadyExistsException and NotFoundException.
    [[nodiscard]] Changes Add(const Nodes& nodes, const std::vector<Reference>& references);

    /// Takes a node out, with its references. Throws NotFoundException, and
    /// InvalidArgumentException for a node that has others below it.
    [[nodiscard]] Removal Remove(const NodeId& id);

    [[nodiscard]] bool HasOthersBelow(const NodeId& id) const;

    /// Takes everything out.
    [[nodiscard]] Nodes Clear();

    /// Tell the observers of both ends of each reference.
    static void NotifyAdded(const Changes& changes);
    static void NotifyRemoved(const Changes& changes);

private:
    struct Link
    {
        NodeId typeId;
        bool isForward;
        std::shared_ptr<BasicNode> other;
    };
    struct Entry
    {
        std::shared_ptr<BasicNode> node;
        std::vector<Link> links;
    };
    using Entries = std::unordered_map<NodeId, Entry, HashNodeId>;

    [[nodiscard]] static bool LeadsDown(const Link& link);
    [[nodiscard]] const Entry& Require(const NodeId& id) const;
    void CheckAddition(const Nodes& nodes, const std::vector<Reference>& references) const;
    ReferenceData Connect(const Reference& reference);

    mutable std::shared_mutex mutex;
    Entries entries; // guarded by mutex
};

} // namespace Core
