#pragma once

#include "BehaviourSlot.h"
#include "Core/NodeId.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace Core {

/// The slots of the created objects, from the beginning of the creation to the end of the removal.
/// Any thread.
class ObjectTable
{
public:
    /// The slot of an object; a new one if there is none.
    [[nodiscard]] std::shared_ptr<BehaviourSlot> FindOrAdd(const NodeId& id);
    /// Null for an object that is not there.
    [[nodiscard]] std::shared_ptr<BehaviourSlot> Find(const NodeId& id) const;
    void Erase(const NodeId& id);
    /// The newest first.
    [[nodiscard]] std::vector<NodeId> GetIds() const;

private:
    struct Entry
    {
        std::size_t number;
        std::shared_ptr<BehaviourSlot> slot;
    };
    using Entries = std::unordered_map<NodeId, Entry, HashNodeId>;

    mutable std::mutex mutex;
    Entries entries;            // guarded by mutex
    std::size_t lastNumber = 0; // guarded by mutex
};

} // namespace Core
