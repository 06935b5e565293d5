#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/Events.h"
#include "Core/NodeId.h"
#include "Nodes.h"
#include "Support/Mutex.h"

#include <memory>
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

/// Holds the nodes and the references between them. All operations may be called from any thread;
/// only the two notifications call foreign code. Operations that take nodes out return them, so
/// that the caller releases them without a lock.
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

    /// Returns null for an identifier that no node has.
    [[nodiscard]] std::shared_ptr<BasicNode> Find(const NodeId& id) const EXCLUDES(mutex);

    /// Throw NotFoundException.
    [[nodiscard]] std::shared_ptr<BasicNode> Get(const NodeId& id) const EXCLUDES(mutex);
    [[nodiscard]] std::vector<Embedding::ReferenceDescription> Browse(const NodeId& id) const
        EXCLUDES(mutex);

    /// Adds all nodes and references or none. Throws AlreadyExistsException for an identifier that
    /// a node has already, NotFoundException for a reference to a node that is neither here nor
    /// among the added ones.
    [[nodiscard]] Changes Add(const Nodes& nodes, const std::vector<Reference>& references)
        EXCLUDES(mutex);

    /// Takes a node out, with its references. Throws NotFoundException, and
    /// InvalidArgumentException for a node that has others below it.
    [[nodiscard]] Removal Remove(const NodeId& id) EXCLUDES(mutex);

    [[nodiscard]] bool HasOthersBelow(const NodeId& id) const EXCLUDES(mutex);

    /// Takes everything out.
    [[nodiscard]] Nodes Clear() EXCLUDES(mutex);

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
    [[nodiscard]] const Entry& Require(const NodeId& id) const REQUIRES_SHARED(mutex);
    void CheckAddition(const Nodes& nodes, const std::vector<Reference>& references) const
        REQUIRES_SHARED(mutex);
    ReferenceData Connect(const Reference& reference) REQUIRES(mutex);

    mutable Support::SharedMutex mutex;
    Entries entries GUARDED_BY(mutex);
};

} // namespace Core
