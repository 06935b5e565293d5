#include "Endpoint/NodeStore.h"

#include "Endpoint/ProvidedNodes.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace Host {
namespace {

/// Returns the result, null if there was an exception.
template <typename Operation>
const UA_Node* TryToGet(Operation&& operation) noexcept
{
    try {
        return operation();
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Host",
            fmt::format("Cannot make a provided node: {}", exception.what()));
        return nullptr;
    }
}

/// Returns true for a provided node, which is taken back, or lost if there is no memory for that.
bool IsTaken(ProvidedNodes* provided, const UA_Node* node) noexcept
{
    try {
        return provided != nullptr && provided->Release(node);
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Host",
            fmt::format("Cannot release a provided node: {}", exception.what()));
        return true;
    }
}

} // namespace

/// The library's callbacks: each passes to the store behind, or to the provided nodes.
struct NodeStore::Callbacks
{
    static NodeStore& Self(void* context) { return *static_cast<NodeStore*>(context); }

    static void Clear(void* context)
    {
        UA_Nodestore& inner = Self(context).inner;
        inner.clear(inner.context);
    }

    static UA_Node* New(void* context, UA_NodeClass nodeClass)
    {
        const UA_Nodestore& inner = Self(context).inner;
        return inner.newNode(inner.context, nodeClass);
    }

    static void Delete(void* context, UA_Node* node)
    {
        const UA_Nodestore& inner = Self(context).inner;
        inner.deleteNode(inner.context, node);
    }

    static const UA_Node* Get(void* context, const UA_NodeId* id, UA_UInt32 attributes,
                              UA_ReferenceTypeSet references, UA_BrowseDirection directions)
    {
        NodeStore& self = Self(context);
        const UA_UInt32 before = std::exchange(self.lastAttributes, attributes);
        if (self.IsProvided(*id))
            return TryToGet([&] {
                return self.provided->Get(*id, {attributes, references, directions, before});
            });
        return self.ShowOrRelease(
            self.inner.getNode(self.inner.context, id, attributes, references, directions));
    }

    static const UA_Node* GetFromPointer(void* context, UA_NodePointer pointer,
                                         UA_UInt32 attributes, UA_ReferenceTypeSet references,
                                         UA_BrowseDirection directions)
    {
        const NodeStore& self = Self(context);
        if (self.provided != nullptr && UA_NodePointer_isLocal(pointer)) {
            const UA_NodeId id = UA_NodePointer_toNodeId(pointer);
            if (id.identifierType == UA_NODEIDTYPE_STRING && self.IsProvided(id))
                return TryToGet([&] {
                    return self.provided->GetTarget(pointer, id,
                                                    {attributes, references, directions, 0});
                });
        }
        return self.ShowOrRelease(self.inner.getNodeFromPtr(self.inner.context, pointer, attributes,
                                                            references, directions));
    }

    static void Release(void* context, const UA_Node* node)
    {
        const NodeStore& self = Self(context);
        if (!IsTaken(self.provided, node))
            self.inner.releaseNode(self.inner.context, node);
    }

    static UA_StatusCode GetCopy(void* context, const UA_NodeId* id, UA_Node** node)
    {
        const UA_Nodestore& inner = Self(context).inner;
        return inner.getNodeCopy(inner.context, id, node);
    }

    static UA_StatusCode Insert(void* context, UA_Node* node, UA_NodeId* id)
    {
        NodeStore& self = Self(context);
        self.Number(node->head.nodeId);
        return self.inner.insertNode(self.inner.context, node, id);
    }

    static UA_StatusCode Replace(void* context, UA_Node* node)
    {
        const UA_Nodestore& inner = Self(context).inner;
        return inner.replaceNode(inner.context, node);
    }

    static UA_StatusCode Remove(void* context, const UA_NodeId* id)
    {
        const UA_Nodestore& inner = Self(context).inner;
        return inner.removeNode(inner.context, id);
    }

    static const UA_NodeId* GetReferenceType(void* context, UA_Byte index)
    {
        const UA_Nodestore& inner = Self(context).inner;
        return inner.getReferenceTypeId(inner.context, index);
    }

    static void Iterate(void* context, UA_NodestoreVisitor visitor, void* visitorContext)
    {
        const UA_Nodestore& inner = Self(context).inner;
        inner.iterate(inner.context, visitor, visitorContext);
    }
};

void NodeStore::Install(UA_ServerConfig& configuration)
{
    inner = configuration.nodestore;
    UA_Nodestore& store = configuration.nodestore;
    store.context = this;
    store.clear = Callbacks::Clear;
    store.newNode = Callbacks::New;
    store.deleteNode = Callbacks::Delete;
    store.getNode = Callbacks::Get;
    store.getNodeFromPtr = Callbacks::GetFromPointer;
    store.releaseNode = Callbacks::Release;
    store.getNodeCopy = Callbacks::GetCopy;
    store.insertNode = Callbacks::Insert;
    store.replaceNode = Callbacks::Replace;
    store.removeNode = Callbacks::Remove;
    store.getReferenceTypeId = Callbacks::GetReferenceType;
    store.iterate = Callbacks::Iterate;
}

bool NodeStore::IsProvided(const UA_NodeId& id) const
{
    return provided != nullptr && provided->Concerns(id);
}

const UA_Node* NodeStore::ShowOrRelease(const UA_Node* node) const
{
    if (node == nullptr || node->head.nodeId.identifierType != UA_NODEIDTYPE_GUID || openings > 0 ||
        !isHidden(node->head.nodeId))
        return node;
    inner.releaseNode(inner.context, node);
    return nullptr;
}

/// Replaces the number 0 in the base namespace, which asks for any, by the next one.
void NodeStore::Number(UA_NodeId& id) noexcept
{
    if (id.namespaceIndex != 0 || id.identifierType != UA_NODEIDTYPE_NUMERIC ||
        id.identifier.numeric != 0)
        return;
    id.identifier.numeric = nextNumber;
    nextNumber = std::max(firstNumber, nextNumber + 1);
}

} // namespace Host
