#pragma once

#include <open62541/plugin/nodestore.h>
#include <open62541/server.h>

#include <cstddef>
#include <functional>
#include <utility>

namespace Host {

/// Stands before the node store of a server and answers as if some nodes were not there.
///
/// The library asks whether a session may browse a node or call a method, and little else: it would
/// read, monitor and name a node for everybody who knows its identifier. But every service gets its
/// nodes from the store, and passes over what is not there, also where another node refers to it.
/// The store is not told who asks; the rule has to know. Loop thread.
class NodeStore
{
public:
    /// True for a node that must not be there now. Only nodes whose identifier is a Guid can be
    /// hidden, so that all others cost nothing. May not throw, nor call the server.
    using Rule = std::function<bool(const UA_NodeId&)>;

    NodeStore() = default;
    NodeStore(const NodeStore&) = delete;
    NodeStore& operator=(const NodeStore&) = delete;

    /// Stands before the store of a configuration from now on; must outlive its server.
    void Install(UA_ServerConfig& configuration);

    void SetRule(Rule rule) { isHidden = std::move(rule); }

    /// Hides nothing while it lives: for what the host does itself while it handles a message.
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

    [[nodiscard]] const UA_Node* ShowOrRelease(const UA_Node* node) const;

    UA_Nodestore inner{};
    Rule isHidden = [](const UA_NodeId&) {
        return false;
    };
    std::size_t openings = 0;
};

} // namespace Host
