#include "Endpoint/OwnObjects.h"

#include "Endpoint/Ua.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <exception>

namespace Host {
namespace {

using Core::Embedding::NewObject;

} // namespace

OwnObjects::OwnObjects(Core::Embedding::Runtime& runtime, EventLoop& loop, Objects& objects,
                       EventRelay& events, std::size_t most) noexcept
    : runtime(runtime)
    , loop(loop)
    , objects(objects)
    , events(events)
    , most(most)
{}

HostMethod OwnObjects::MakeMethod(const Core::Embedding::ObjectTypeDescription& type,
                                  const Core::NodeId& folder)
{
    const auto& names = *type.sessionObjects;
    const int hostNamespace = folder.GetNamespaceIndex();
    const unsigned int number = *folder.GetNumeric();
    HostMethod method;
    method.object = folder;
    method.method = Core::NodeId(hostNamespace, number + 1);
    const NewObject object{type.id, Core::QualifiedName(hostNamespace, names.object), folder};
    method.run = [this, object](ClientSession& session) {
        return Create(session, object);
    };
    method.description.id = method.method;
    method.description.browseName = Core::QualifiedName(hostNamespace, names.method);
    method.description.displayName = names.method;
    method.description.description =
        "Makes an object that only this session can use, browse and hear; it goes with the "
        "session. Subscribe to the events of the node itself.";
    method.description.outputArgumentsId = Core::NodeId(hostNamespace, number + 2);
    method.description.outputs.push_back({"nodeId", Core::NodeId(0, 17), -1, {}, "The new node."});
    return method;
}

/// On the session's thread.
std::vector<Core::Value> OwnObjects::Create(ClientSession& session, NewObject object)
{
    if (session.ownObjectCount >= most)
        throw UaException(fmt::format("the session has its {} objects already", most),
                          UA_STATUSCODE_BADRESOURCEUNAVAILABLE);
    object.id = runtime.CreateObject(object);
    try {
        session.ownObjects.emplace(object.id, events.Follow(object.id, session.eventGate));
    } catch (...) {
        runtime.RemoveObject(object.id); // it is not in the session's list
        throw;
    }
    ++session.ownObjectCount;
    // Shown before the answer, which is posted after this.
    loop.Post([this, object, &session] { Show(object, session); });
    return {Core::Value(object.id)};
}

void OwnObjects::Show(const NewObject& object, const ClientSession& session)
{
    if (!session.ended)
        objects.Add(object, &session);
}

void OwnObjects::RemoveAll(ClientSession& session)
{
    while (!session.ownObjects.empty()) {
        const Core::NodeId object = session.ownObjects.begin()->first;
        session.ownObjects.erase(session.ownObjects.begin());
        try {
            runtime.RemoveObject(object);
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot remove {}: {}", object.ToString(), exception.what()));
        }
        --session.ownObjectCount;
    }
}

} // namespace Host
