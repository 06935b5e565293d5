#include "AddressSpace.h"

#include "Core/Exception.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <utility>

namespace Core {

std::shared_ptr<BasicNode> AddressSpace::Find(const NodeId& id) const
{
    const Support::ReadLock lock(mutex);
    const auto found = entries.find(id);
    return found == entries.end() ? nullptr : found->second.node;
}

std::shared_ptr<BasicNode> AddressSpace::Get(const NodeId& id) const
{
    const Support::ReadLock lock(mutex);
    return Require(id).node;
}

const AddressSpace::Entry& AddressSpace::Require(const NodeId& id) const
{
    const auto found = entries.find(id);
    if (found == entries.end())
        throw NotFoundException("There is no node " + id.ToString());
    return found->second;
}

std::vector<Embedding::ReferenceDescription> AddressSpace::Browse(const NodeId& id) const
{
    const Support::ReadLock lock(mutex);
    const auto& links = Require(id).links;
    std::vector<Embedding::ReferenceDescription> descriptions;
    descriptions.reserve(links.size());
    for (const auto& link : links)
        descriptions.push_back({link.typeId, link.isForward, link.other});
    return descriptions;
}

AddressSpace::Changes AddressSpace::Add(const Nodes& nodes,
                                        const std::vector<Reference>& references)
{
    const Support::Lock lock(mutex);
    CheckAddition(nodes, references);
    for (const auto& node : nodes)
        entries.emplace(node->GetNodeId(), Entry{node, {}});
    Changes changes;
    changes.reserve(references.size());
    for (const auto& reference : references)
        changes.push_back(Connect(reference));
    return changes;
}

void AddressSpace::CheckAddition(const Nodes& nodes, const std::vector<Reference>& references) const
{
    std::unordered_set<NodeId, HashNodeId> added;
    for (const auto& node : nodes) {
        const auto& id = node->GetNodeId();
        if (entries.contains(id) || !added.insert(id).second)
            throw AlreadyExistsException("There is already a node " + id.ToString());
    }
    for (const auto& reference : references) {
        for (const auto* end : {&reference.source, &reference.target}) {
            if (!added.contains(*end))
                static_cast<void>(Require(*end));
        }
    }
}

ReferenceData AddressSpace::Connect(const Reference& reference)
{
    auto& source = entries.at(reference.source);
    auto& target = entries.at(reference.target);
    source.links.push_back({reference.typeId, true, target.node});
    target.links.push_back({reference.typeId, false, source.node});
    return {reference.typeId, source.node, target.node};
}

bool AddressSpace::LeadsDown(const Link& link)
{
    return link.isForward &&
           (link.typeId == References::organizes || link.typeId == References::hasComponent);
}

bool AddressSpace::HasOthersBelow(const NodeId& id) const
{
    const Support::ReadLock lock(mutex);
    const auto& links = Require(id).links;
    return std::any_of(links.begin(), links.end(), LeadsDown);
}

AddressSpace::Removal AddressSpace::Remove(const NodeId& id)
{
    const Support::Lock lock(mutex);
    const auto& [node, links] = Require(id);
    if (std::any_of(links.begin(), links.end(), LeadsDown))
        throw InvalidArgumentException("Cannot remove node " + id.ToString() +
                                       ": there are others below it");
    Removal removal{node, {}};
    removal.changes.reserve(links.size());
    for (const auto& link : links) {
        std::erase_if(entries.at(link.other->GetNodeId()).links,
                      [&removal](const Link& back) { return back.other == removal.node; });
        removal.changes.push_back(link.isForward
                                      ? ReferenceData{link.typeId, removal.node, link.other}
                                      : ReferenceData{link.typeId, link.other, removal.node});
    }
    entries.erase(entries.find(id));
    return removal;
}

AddressSpace::Nodes AddressSpace::Clear()
{
    Entries removed; // released after the lock, with the last references to its nodes
    {
        const Support::Lock lock(mutex);
        removed.swap(entries);
    }
    Nodes nodes;
    nodes.reserve(removed.size());
    for (auto& [id, entry] : removed)
        nodes.push_back(std::move(entry.node));
    return nodes;
}

void AddressSpace::NotifyAdded(const Changes& changes)
{
    for (const auto& change : changes) {
        for (const auto& end : {change.source, change.target})
            dynamic_cast<const BasicNode&>(*end).NotifyReferenceAdded(change);
    }
}

void AddressSpace::NotifyRemoved(const Changes& changes)
{
    for (const auto& change : changes) {
        for (const auto& end : {change.source, change.target})
            dynamic_cast<const BasicNode&>(*end).NotifyReferenceRemoved(change);
    }
}

} // namespace Core
