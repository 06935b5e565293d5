#include "Endpoint/Objects.h"

#include "Core/Exception.h"
#include "Endpoint/Ua.h"

#include <string>

namespace Host {

Objects::Objects(UA_Server& server, const Namespaces& namespaces) noexcept
    : server(server)
    , namespaces(namespaces)
{}

void Objects::Add(const Core::Embedding::NewObject& object, const ClientSession* owner)
{
    const std::string displayName = EscapeToUtf8(object.browseName.GetName());
    UA_ObjectAttributes attributes = UA_ObjectAttributes_default;
    attributes.displayName = LocalizedViewOf(displayName);
    attributes.eventNotifier = UA_EVENTNOTIFIER_SUBSCRIBE_TO_EVENT;
    RequireGood(UA_Server_addObjectNode(
                    &server, *namespaces.ToUa(object.id), *namespaces.ToUa(object.parent),
                    UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                    {namespaces.ToUa(object.browseName.GetNamespaceIndex()), ViewOf(displayName)},
                    *namespaces.ToUa(object.type), attributes, nullptr, nullptr),
                "adding the object " + object.browseName.ToString() + " (" + object.id.ToString() +
                    ")");
    objects.insert_or_assign(object.id,
                             ProjectedObject{object.id, object.type, object.parent, owner});
    if (owner != nullptr)
        Unlink(*namespaces.ToUa(object.id));
}

/// The library asks who may browse a node, but not who may hear of it where another one is browsed
/// or a path is followed. So nothing leads to the node; its own references stay, for its session
/// and for the library, which looks for the way from it up to the Objects folder.
void Objects::Unlink(const UA_NodeId& node)
{
    UA_BrowseDescription all;
    UA_BrowseDescription_init(&all);
    all.nodeId = node;
    all.browseDirection = UA_BROWSEDIRECTION_BOTH;
    all.resultMask = UA_BROWSERESULTMASK_REFERENCETYPEINFO;
    UA_BrowseResult found = UA_Server_browse(&server, 0, &all);
    UA_StatusCode status = found.statusCode;
    for (std::size_t i = 0; i < found.referencesSize && status == UA_STATUSCODE_GOOD; ++i) {
        const UA_ReferenceDescription& reference = found.references[i];
        status =
            UA_Server_deleteReference(&server, reference.nodeId.nodeId, reference.referenceTypeId,
                                      !reference.isForward, {node, UA_STRING_NULL, 0}, false);
    }
    UA_BrowseResult_clear(&found);
    RequireGood(status, "hiding an object");
}

void Objects::RemoveOwned(const ClientSession& owner)
{
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
    if (node.identifierType != UA_NODEIDTYPE_GUID)
        return true; // only private objects have such identifiers
    const ProjectedObject* object = Find(namespaces.ToCore(node));
    return object == nullptr || object->owner == nullptr || object->owner == session;
}

} // namespace Host
