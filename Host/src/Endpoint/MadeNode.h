#pragma once

#include "Endpoint/EntrySnapshot.h"

#include <open62541/plugin/nodestore.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// A node that is made for the library when it asks for it. The library may read all of it, and
/// change nothing but the list of monitored items: the memory is not that of its allocator.
class MadeNode
{
public:
    MadeNode() = default;
    MadeNode(const MadeNode&) = delete;
    MadeNode& operator=(const MadeNode&) = delete;

    /// Begins a node. `context` marks it as made.
    void Begin(UA_NodeClass nodeClass, const UA_NodeId& id, UA_UInt16 nameNamespace,
               std::string name, void* context);

    /// Adds a reference. A text in the identifier must live as long as the node, see `HoldText`.
    void AddReference(UA_Byte type, bool isInverse, const UA_NodeId& target,
                      UA_UInt32 browseNameHash = 0);
    void AddReferences(UA_Byte type, bool isInverse,
                       const std::vector<UA_ReferenceTarget>& targets);

    /// Adds references forward to the entries, which it keeps.
    void ShareEntries(std::shared_ptr<const EntrySnapshot> shared);

    /// Lets each Browse of the node end with a bad status, and each further page of one that has
    /// begun, whichever reference it has come to. No references may be added after it.
    void Fail(UA_UInt16 namespaceIndex, UA_StatusCode status);

    /// Keeps a text and returns its identifier.
    [[nodiscard]] const UA_NodeId& HoldText(UA_UInt16 namespaceIndex, std::string text);

    /// Ends the making.
    void Finish();

    /// Gives back the references, which take most of the memory. The rest can still be read.
    void DropReferences();

    [[nodiscard]] const EntrySnapshot* GetEntries() const noexcept { return entries.get(); }

    [[nodiscard]] UA_Node& Get() noexcept { return node; }
    [[nodiscard]] UA_NodeHead& GetHead() noexcept { return node.head; }

private:
    struct Targets
    {
        UA_Byte type = 0;
        bool isInverse = false;
        std::vector<UA_ReferenceTarget> list;
    };

    [[nodiscard]] Targets& Find(UA_Byte type, bool isInverse);
    void FinishKind(UA_Byte type, bool isInverse, const std::vector<UA_ReferenceTarget>& targets);
    void FailKind(UA_NodeReferenceKind& kind);

    UA_Node node{};
    std::string id;
    std::string name;
    UA_LocalizedTextListEntry displayName{};
    std::vector<Targets> references;
    std::size_t used = 0; // of `references`: the others keep their memory for the next node
    std::vector<UA_NodeReferenceKind> kinds;
    std::shared_ptr<const EntrySnapshot> entries;
    std::deque<std::string> texts; // what is in here stays where it is
    std::deque<UA_NodeId> ids;
    std::optional<UA_NodeId> failing; // instead of all targets
    std::deque<UA_ReferenceTargetTreeElem> failures;
};

} // namespace Host
