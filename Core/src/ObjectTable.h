#pragma once

#include "BehaviourSlot.h"
#include "Core/NodeId.h"
#include "Support/Mutex.h"

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

namespace Core {

/// The slots of the created objects, from the beginning of the creation to the end of the removal.
/// Any thread.
class ObjectTable
{
public:
    /// Returns the slot of an object; adds one for an object without.
    [[nodiscard]] std::shared_ptr<BehaviourSlot> FindOrAdd(const NodeId& id) EXCLUDES(mutex);
    /// Returns null for an object without a slot.
    [[nodiscard]] std::shared_ptr<BehaviourSlot> Find(const NodeId& id) const EXCLUDES(mutex);
    void Erase(const NodeId& id) EXCLUDES(mutex);
    /// Returns the objects' identifiers, the newest first.
    [[nodiscard]] std::vector<NodeId> GetIds() const EXCLUDES(mutex);

private:
    struct Entry
    {
        std::size_t number;
        std::shared_ptr<BehaviourSlot> slot;
    };
    using Entries = std::unordered_map<NodeId, Entry, HashNodeId>;

    mutable Support::Mutex mutex;
    Entries entries GUARDED_BY(mutex);
    std::size_t lastNumber GUARDED_BY(mutex) = 0;
};

} // namespace Core
