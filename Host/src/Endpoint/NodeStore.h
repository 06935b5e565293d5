#pragma once

#include <open62541/plugin/nodestore.h>
#include <open62541/server.h>

#include <cstddef>
#include <functional>
#include <utility>

namespace Host {

class ProvidedNodes;

/// Stands before the node store of a server, answers as if some nodes were not there, numbers new
/// nodes, and has the nodes that behaviours provide.
///
/// The library asks whether a session may browse a node or call a method, and little else: it would
/// read, monitor and name a node for everybody who knows its identifier. But every service gets its
/// nodes from the store, and passes over references to nodes that are not there. The store is not
/// told which session asks; the rule has to know. Loop thread.
class NodeStore
{
public:
    /// Returns true for a node to hide now. Only nodes whose identifier is a Guid can be hidden, so
    /// that all others cost nothing. Must not throw, nor call the server.
    using Rule = std::function<bool(const UA_NodeId&)>;

    NodeStore() = default;
    NodeStore(const NodeStore&) = delete;
    NodeStore& operator=(const NodeStore&) = delete;

    /// Stands before the store of a configuration from now on; must outlive its server.
    void Install(UA_ServerConfig& configuration);

    void SetRule(Rule rule) { isHidden = std::move(rule); }
    [[nodiscard]] const Rule& GetRule() const noexcept { return isHidden; }

    /// Sets where provided nodes come from; null: there are none. Must outlive the server.
    void SetProvided(ProvidedNodes* nodes) noexcept { provided = nodes; }

    /// Returns the mask of attributes for which the library asked last.
    [[nodiscard]] UA_UInt32 GetLastAttributes() const noexcept { return lastAttributes; }

    /// Returns the store behind this one.
    [[nodiscard]] const UA_Nodestore& GetInner() const noexcept { return inner; }

    /// True for the numbers that this store gives to new nodes without one: those of events and
    /// their fields. The library's own store would number them from 50 000 on,
    /// but after a few collisions also below, among those of the models.
    [[nodiscard]] static bool IsNumberedHere(const UA_NodeId& id) noexcept
    {
        return id.namespaceIndex == 0 && id.identifierType == UA_NODEIDTYPE_NUMERIC &&
               id.identifier.numeric >= firstNumber;
    }

    /// Hides nothing while it lives: for the host's own calls while it handles a message.
    class Opening
    {
    public:
        explicit Opening(NodeStore& store) noexcept
            : store(store)
        {
            ++store.openings;
        }
        Opening(const Opening&) = delete;
        Opening& operator=(const Opening&) = delete;
        ~Opening() { --store.openings; }

    private:
        NodeStore& store;
    };

private:
    struct Callbacks;

    static constexpr UA_UInt32 firstNumber = UA_UInt32{1} << 31U; ///< above those of all models

    [[nodiscard]] bool IsProvided(const UA_NodeId& id) const;
    [[nodiscard]] const UA_Node* ShowOrRelease(const UA_Node* node) const;
    void Number(UA_NodeId& id) noexcept;

    UA_Nodestore inner{};
    Rule isHidden = [](const UA_NodeId&) {
        return false;
    };
    std::size_t openings = 0;
    ProvidedNodes* provided = nullptr;
    UA_UInt32 lastAttributes = 0; ///< that the library asked for
    UA_UInt32 nextNumber = firstNumber;
};

} // namespace Host
