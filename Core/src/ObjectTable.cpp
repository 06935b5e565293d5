#include "ObjectTable.h"

#include <algorithm>
#include <utility>

namespace Core {

std::shared_ptr<BehaviourSlot> ObjectTable::FindOrAdd(const NodeId& id)
{
    const Support::Lock lock(mutex);
    if (const auto found = entries.find(id); found != entries.end())
        return found->second.slot;
    auto slot = std::make_shared<BehaviourSlot>();
    entries.emplace(id, Entry{++lastNumber, slot});
    return slot;
}

std::shared_ptr<BehaviourSlot> ObjectTable::Find(const NodeId& id) const
{
    const Support::Lock lock(mutex);
    const auto found = entries.find(id);
    return found == entries.end() ? nullptr : found->second.slot;
}

void ObjectTable::Erase(const NodeId& id)
{
    Entries::node_type erased; // released after the lock
    const Support::Lock lock(mutex);
    erased = entries.extract(id);
}

std::vector<NodeId> ObjectTable::GetIds() const
{
    std::vector<std::pair<std::size_t, NodeId>> numbered;
    {
        const Support::Lock lock(mutex);
        for (const auto& [id, entry] : entries)
            numbered.emplace_back(entry.number, id);
    }
    std::sort(numbered.begin(), numbered.end(),
              [](const auto& left, const auto& right) { return left.first > right.first; });
    std::vector<NodeId> ids;
    ids.reserve(numbered.size());
    for (auto& [number, id] : numbered)
        ids.push_back(std::move(id));
    return ids;
}

} // namespace Core
