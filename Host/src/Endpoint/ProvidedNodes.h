#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/NodeProvider.h"
#include "Endpoint/EntryListings.h"
#include "Endpoint/LookUps.h"
#include "Endpoint/MadeNode.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/NodeSource.h"
#include "Endpoint/Ua.h"
#include "Endpoint/Values.h"

#include <open62541/plugin/nodestore.h>
#include <open62541/server.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

/// The parts of a node that the library asks its store for.
struct NodeRequest
{
    UA_UInt32 attributes = 0;
    UA_ReferenceTypeSet references{};
    UA_BrowseDirection directions = UA_BROWSEDIRECTION_INVALID;
    UA_UInt32 attributesBefore = 0; ///< of the request before, for another node
};

/// The nodes that behaviours provide (Core::INodeProvider): makes each one when the library asks
/// for it, and forgets it when the library is done with it. `NodeStore` passes the requests on.
///
/// See docs/architecture.md, "Provided nodes", for the ways in which the library uses a store.
/// Loop thread.
class ProvidedNodes
{
public:
    /// All must outlive it. `inner` holds all other nodes.
    ProvidedNodes(const UA_Nodestore& inner, const Core::Embedding::InformationModel& model,
                  const Namespaces& namespaces, const Values& values);
    ProvidedNodes(const ProvidedNodes&) = delete;
    ProvidedNodes& operator=(const ProvidedNodes&) = delete;
    /// Waits for the look-ups that run.
    ~ProvidedNodes();

    /// Adds the nodes of an object, which is in the inner store. Throws
    /// Core::AlreadyExistsException if another one has the namespace of its type.
    void Add(const Core::NodeId& object, const Core::NodeId& type,
             std::shared_ptr<Core::INodeProvider> provider);

    /// Returns the type of a provided object, whether it exists or not; nothing for any other node.
    [[nodiscard]] std::optional<Core::NodeId> FindType(const UA_NodeId& id) const;

    /// A provided node for people: its object's browse names below the object that provides it.
    struct Name
    {
        std::string path;
        Core::NodeId provider;
    };

    /// Returns nothing for a node that is not provided. Any thread, once all are added.
    [[nodiscard]] std::optional<Name> FindName(const Core::NodeId& id) const;

    /// True for nodes that may be provided ones, and for the objects that provide them.
    [[nodiscard]] bool Concerns(const UA_NodeId& id) const;

    /// Sets the mask with which the library asks for a node whose value it reads.
    void SetValueAttributes(UA_UInt32 mask) noexcept { valueAttributes = mask; }

    // The callbacks of the store, for nodes that concern it.
    [[nodiscard]] const UA_Node* Get(const UA_NodeId& id, const NodeRequest& request);
    [[nodiscard]] const UA_Node* GetTarget(UA_NodePointer pointer, const UA_NodeId& id,
                                           const NodeRequest& request);
    /// Returns false for nodes that are not made here.
    [[nodiscard]] bool Release(const UA_Node* node);

    /// Gives back memory that nobody has used for long. Call it now and then.
    void DropOld() { listings.DropOld(); }

    /// Returns true once no look-up runs, false if some still do after the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit) { return lookUps.WaitIdle(limit); }

private:
    struct Type;
    struct Found;
    struct Lent;
    struct Kept;
    class Reading;

    [[nodiscard]] const NodeSource* FindSource(const UA_NodeId& id) const;
    [[nodiscard]] const NodeSource* FindByObject(const UA_NodeId& id) const;
    [[nodiscard]] std::optional<Found> Find(const UA_NodeId& id) const;
    [[nodiscard]] const Type& GetType(const Core::NodeId& id) const;
    [[nodiscard]] const UA_Node* GetInner(const UA_NodeId& id, const NodeRequest& request) const;

    [[nodiscard]] const UA_Node* GetRoot(const NodeSource& source, const NodeRequest& request);
    [[nodiscard]] const UA_Node* GetWhole(const Found& found);
    [[nodiscard]] const UA_Node* Browse(const Found& found, const NodeRequest& request);
    [[nodiscard]] const UA_Node* LendFailingTarget(const UA_NodeId& id);
    [[nodiscard]] bool Exists(const Found& found);

    [[nodiscard]] std::unique_ptr<MadeNode> Make(const Found& found, const NodeRequest& request);
    void SetVariable(UA_VariableNode& node, const Core::ProvidedNode& description) const;
    void AddParent(MadeNode& node, const Found& found) const;
    [[nodiscard]] UA_UInt32 GetNameHash(const Core::QualifiedName& name) const;
    void AddMembers(MadeNode& node, const NodeSource& source, const std::string& key) const;
    [[nodiscard]] std::unique_ptr<MadeNode> TakeRetired();
    [[nodiscard]] const UA_Node* Lend(std::unique_ptr<MadeNode> node,
                                      const UA_Node* innerNode = nullptr);
    void Retire(std::unique_ptr<MadeNode> node);

    [[nodiscard]] UA_StatusCode Read(const UA_NodeId& id, const UA_NumericRange* range,
                                     UA_DataValue& value);
    static UA_StatusCode ReadValue(UA_Server* server, const UA_NodeId* sessionId,
                                   void* sessionContext, const UA_NodeId* id, void* context,
                                   UA_Boolean withTime, const UA_NumericRange* range,
                                   UA_DataValue* value) noexcept;

    const UA_Nodestore& inner;
    const Core::Embedding::InformationModel& model;
    const Namespaces& namespaces;
    const Values& values;
    UA_UInt32 valueAttributes = UA_NODEATTRIBUTESMASK_VALUE;
    std::vector<std::unique_ptr<NodeSource>> sources;
    mutable std::unordered_map<Core::NodeId, std::unique_ptr<Type>, Core::HashNodeId> types;
    std::unordered_map<const UA_Node*, Lent> lent;
    std::unordered_map<std::string, Kept> kept; // by identifier
    std::deque<std::unique_ptr<MadeNode>> retired;
    const EntrySnapshot* browsed = nullptr; ///< of the node whose entries the library goes through
    LookUps lookUps;                        // after what its work uses
    EntryListings listings;
};

} // namespace Host
