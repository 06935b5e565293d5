#include "Endpoint/MadeNode.h"

#include "Endpoint/Interposition.h"
#include "Endpoint/Ua.h"

#include <limits>
#include <utility>

namespace Host {

void MadeNode::Begin(UA_NodeClass nodeClass, const UA_NodeId& nodeId, UA_UInt16 nameNamespace,
                     std::string browseName, void* context)
{
    DropReferences();
    node = UA_Node{};
    name = std::move(browseName);
    UA_NodeHead& head = node.head;
    head.nodeId = nodeId;
    if (nodeId.identifierType == UA_NODEIDTYPE_STRING) {
        id = OpcUa::BytesOf(nodeId.identifier.string);
        head.nodeId.identifier.string = ViewOf(id);
    }
    head.nodeClass = nodeClass;
    head.browseName = {nameNamespace, ViewOf(name)};
    displayName = {nullptr, LocalizedViewOf(name)};
    head.displayName = &displayName;
    head.context = context;
    head.constructed = true;
}

MadeNode::Targets& MadeNode::Find(UA_Byte type, bool isInverse)
{
    for (std::size_t i = 0; i < used; ++i)
        if (references[i].type == type && references[i].isInverse == isInverse)
            return references[i];
    if (used == references.size())
        references.emplace_back();
    Targets& targets = references[used];
    ++used;
    targets.type = type;
    targets.isInverse = isInverse;
    targets.list.clear();
    return targets;
}

void MadeNode::AddReference(UA_Byte type, bool isInverse, const UA_NodeId& target,
                            UA_UInt32 browseNameHash)
{
    Find(type, isInverse).list.push_back({UA_NodePointer_fromNodeId(&target), browseNameHash});
}

void MadeNode::AddReferences(UA_Byte type, bool isInverse,
                             const std::vector<UA_ReferenceTarget>& targets)
{
    if (targets.empty())
        return;
    auto& list = Find(type, isInverse).list;
    list.insert(list.end(), targets.begin(), targets.end());
}

void MadeNode::ShareEntries(std::shared_ptr<const EntrySnapshot> shared)
{
    entries = std::move(shared);
}

void MadeNode::Fail(UA_UInt16 namespaceIndex, UA_StatusCode status)
{
    failing = MakeUncopyable(namespaceIndex, status);
    static_cast<void>(Find(UA_REFERENCETYPEINDEX_ORGANIZES, false)); // if there are no others
}

const UA_NodeId& MadeNode::HoldText(UA_UInt16 namespaceIndex, std::string text)
{
    const std::string& held = texts.emplace_back(std::move(text));
    UA_NodeId& made = ids.emplace_back(UA_NodeId{namespaceIndex, UA_NODEIDTYPE_STRING, {}});
    made.identifier.string = ViewOf(held);
    return made;
}

void MadeNode::FinishKind(UA_Byte type, bool isInverse,
                          const std::vector<UA_ReferenceTarget>& targets)
{
    UA_NodeReferenceKind kind{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads them
    kind.targets.array = const_cast<UA_ReferenceTarget*>(targets.data());
    kind.targetsSize = targets.size();
    kind.referenceTypeIndex = type;
    kind.isInverse = isInverse;
    if (failing)
        FailKind(kind);
    kinds.push_back(kind);
}

/// Puts one target in the place of all. It is in a tree, behind all others by its hash: in an array
/// the library would look for the last target of the page before in vain, and take that for the
/// end.
void MadeNode::FailKind(UA_NodeReferenceKind& kind)
{
    auto& failure = failures.emplace_back();
    failure.target.targetId = UA_NodePointer_fromNodeId(&*failing);
    failure.targetIdHash = std::numeric_limits<UA_UInt32>::max();
    kind.targets.tree = {&failure, nullptr};
    kind.targetsSize = 1;
    kind.hasRefTree = true;
}

/// The kinds are in the same order each time: a client that browses page by page is in one of them.
void MadeNode::Finish()
{
    const bool hasEntries = entries != nullptr && !entries->GetTargets().empty();
    for (std::size_t i = 0; i < used; ++i)
        FinishKind(references[i].type, references[i].isInverse, references[i].list);
    if (hasEntries)
        FinishKind(UA_REFERENCETYPEINDEX_ORGANIZES, false, entries->GetTargets());
    node.head.references = kinds.data();
    node.head.referencesSize = kinds.size();
}

void MadeNode::DropReferences()
{
    node.head.references = nullptr;
    node.head.referencesSize = 0;
    kinds.clear();
    used = 0;
    entries = nullptr;
    texts.clear();
    ids.clear();
    failing.reset();
    failures.clear();
}

} // namespace Host
