#include "Endpoint/Objects.h"

#include "Core/Exception.h"
#include "Endpoint/Ua.h"

#include <string>

namespace Host {

Objects::Objects(UA_Server& server, NodeStore& store, const Namespaces& namespaces) noexcept
    : server(server)
    , store(store)
    , namespaces(namespaces)
{}

void Objects::Add(const Core::Embedding::NewObject& object, const ClientSession* owner,
                  UA_UInt32 reference)
{
    const std::string displayName = EscapeToUtf8(object.browseName.GetName());
    UA_ObjectAttributes attributes = UA_ObjectAttributes_default;
    attributes.displayName = LocalizedViewOf(displayName);
    attributes.eventNotifier = UA_EVENTNOTIFIER_SUBSCRIBE_TO_EVENT;
    RequireGood(UA_Server_addObjectNode(
                    &server, *namespaces.ToUa(object.id), *namespaces.ToUa(object.parent),
                    UA_NODEID_NUMERIC(0, reference),
                    {namespaces.ToUa(object.browseName.GetNamespaceIndex()), ViewOf(displayName)},
                    *namespaces.ToUa(object.type), attributes, nullptr, nullptr),
                "adding the object " + object.browseName.ToString() + " (" + object.id.ToString() +
                    ")");
    if (owner != nullptr)
        privateNamespace = namespaces.ToUa(object.id.GetNamespaceIndex());
    objects.insert_or_assign(object.id,
                             ProjectedObject{object.id, object.type, object.parent, owner});
}

void Objects::AddComponent(const Core::NodeId& parent, const Core::NodeId& object)
{
    UA_ExpandedNodeId target;
    UA_ExpandedNodeId_init(&target);
    const auto id = namespaces.ToUa(object);
    target.nodeId = *id;
    RequireGood(UA_Server_addReference(&server, *namespaces.ToUa(parent),
                                       UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT), target, true),
                "adding " + object.ToString() + " to " + parent.ToString());
}

void Objects::RemoveBrought(const Core::NodeId& node)
{
    const auto id = namespaces.ToUa(node);
    const UA_StatusCode status = UA_Server_deleteNode(&server, *id, true);
    if (status != UA_STATUSCODE_BADNODEIDUNKNOWN)
        RequireGood(status, "removing the library's " + node.ToString());
}

void Objects::RemoveOwned(const ClientSession& owner)
{
    // The message that ends a session may be of another one, or the session is gone already.
    const NodeStore::Opening everything(store);
    std::erase_if(objects, [this, &owner](const auto& entry) {
        const ProjectedObject& object = entry.second;
        if (object.owner != &owner)
            return false;
        UA_Server_deleteNode(&server, *namespaces.ToUa(object.id), true);
        return true;
    });
}

const ProjectedObject* Objects::Find(const Core::NodeId& object) const
{
    const auto found = objects.find(object);
    return found == objects.end() ? nullptr : &found->second;
}

bool Objects::IsVisible(const UA_NodeId& node, const ClientSession* session) const
{
    if (node.identifierType != UA_NODEIDTYPE_GUID || node.namespaceIndex != privateNamespace)
        return true; // only private objects have such identifiers
    const ProjectedObject* object = Find(namespaces.ToCore(node));
    return object == nullptr || object->owner == nullptr || object->owner == session;
}

} // namespace Host
