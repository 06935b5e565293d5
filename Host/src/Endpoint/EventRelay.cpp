#include "Endpoint/EventRelay.h"

#include "Endpoint/HiddenSubscribers.h"
#include "Endpoint/LibraryAssumptions.h"
#include "Endpoint/Ua.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>
#include <string_view>
#include <utility>

namespace Host {
namespace {

using namespace Core::Embedding;

std::vector<EventFieldDescription> CollectFields(const InformationModel& model,
                                                 const Core::NodeId& eventType)
{
    const ObjectTypeDescription& type = model.GetObjectType(eventType);
    std::vector<EventFieldDescription> fields;
    if (!type.superType.IsEmpty())
        fields = CollectFields(model, type.superType);
    fields.insert(fields.end(), type.eventFields.begin(), type.eventFields.end());
    return fields;
}

auto CollectAllFields(const InformationModel& model)
{
    std::unordered_map<Core::NodeId, std::vector<EventFieldDescription>, Core::HashNodeId> fields;
    for (const auto& type : model.GetObjectTypes())
        if (model.IsSubtypeOf(type.id, BaseTypes::baseEventType))
            fields.emplace(type.id, CollectFields(model, type.id));
    return fields;
}

bool IsFilledByServer(const Core::QualifiedName& field)
{
    return field.GetNamespaceIndex() == 0 && std::find(filledFields.begin(), filledFields.end(),
                                                       field.GetName()) != filledFields.end();
}

} // namespace

EventRelay::EventRelay(UA_Server& server, EventLoop& loop, Runtime& runtime,
                       const Namespaces& namespaces, const Values& values, const Objects& objects,
                       EventBacklog& backlog, EventPacing& pacing)
    : server(server)
    , loop(loop)
    , runtime(runtime)
    , namespaces(namespaces)
    , values(values)
    , objects(objects)
    , backlog(backlog)
    , pacing(pacing)
    , fields(CollectAllFields(*runtime.GetInformationModel()))
{}

EventRelay::~EventRelay()
{
    loop.SetTurnObserver({});
}

EventRelay::Message::~Message()
{
    if (gate != nullptr)
        gate->Leave(bytes);
}

EventSubscription EventRelay::Follow(const Core::NodeId& object, std::shared_ptr<EventGate> gate)
{
    return runtime.Subscribe(object, [this, gate = std::move(gate)](const auto& event) {
        observer(*event); // before the gate, where it may have to wait
        Convert(event, gate);
    });
}

/// Runs on the thread that raises the event: a listing of many entries takes its time.
void EventRelay::Convert(const std::shared_ptr<const Event>& event,
                         const std::shared_ptr<EventGate>& gate)
{
    const FieldList& descriptions = fields.at(event->type->GetNodeId());
    auto message = std::make_shared<Message>();
    message->event = event;
    for (std::size_t i = 0; i < descriptions.size(); ++i)
        message->values.push_back(IsFilledByServer(descriptions[i].browseName)
                                      ? Ua<UA_Variant>()
                                      : values.ToUa(event->fields.at(i), descriptions[i].dataType));
    for (const auto& value : message->values)
        message->sizes.push_back(UA_calcSizeBinary(&*value, &UA_TYPES[UA_TYPES_VARIANT]));
    message->bytes = std::accumulate(message->sizes.begin(), message->sizes.end(), std::size_t{0});
    if (gate != nullptr) {
        gate->Enter(message->bytes, pacing.GetWaitingLimit());
        message->gate = gate;
    }
    loop.Post([this, message] { RaiseOrKeep(message); });
}

/// Keeps the event behind the earlier ones of its object.
void EventRelay::RaiseOrKeep(const std::shared_ptr<Message>& message)
{
    const ProjectedObject* source = objects.Find(message->event->source);
    if (source == nullptr)
        return; // the object has gone, and with it everybody who may hear this
    std::vector<EventHearer> hearers = backlog.FindHearers(*source);
    const bool isBehindOthers = !waiting.empty() && waiting.count(source->id) > 0;
    if (!isBehindOthers && pacing.MayRaise(hearers, source->owner != nullptr, message->bytes))
        return Raise(*message, *source, hearers);
    if (waiting.empty()) {
        loop.SetTurnObserver([this] { RaiseWaiting(); });
        LookLater();
    }
    waiting[source->id].push_back(message);
}

/// Runs at the end of a turn, in which something may have been sent.
void EventRelay::RaiseWaiting()
{
    constexpr std::chrono::milliseconds often{1};
    const auto now = std::chrono::steady_clock::now();
    if (now - looked < often)
        return;
    looked = now;
    for (auto& [object, queue] : waiting)
        while (!queue.empty() && RaiseFirst(queue)) {
        }
    std::erase_if(waiting, [](const auto& entry) { return entry.second.empty(); });
    if (waiting.empty())
        loop.SetTurnObserver({});
}

/// Returns false if the event still has to wait.
bool EventRelay::RaiseFirst(std::deque<std::shared_ptr<Message>>& queue)
{
    const std::shared_ptr<Message> message = queue.front();
    const ProjectedObject* source = objects.Find(message->event->source);
    if (source == nullptr) {
        queue.clear();
        return true;
    }
    std::vector<EventHearer> hearers = backlog.FindHearers(*source);
    if (!pacing.MayRaise(hearers, source->owner != nullptr, message->bytes))
        return false;
    queue.pop_front();
    Raise(*message, *source, hearers);
    return true;
}

/// Makes the loop turn even if nothing else does.
void EventRelay::LookLater()
{
    if (lookTimer != 0)
        return;
    UA_EventLoop* handle = loop.GetHandle();
    const auto look = [](void* relay, void* /*context*/) noexcept {
        auto& self = *static_cast<EventRelay*>(relay);
        self.lookTimer = 0;
        self.pacing.WriteOffStuck();
        if (!self.waiting.empty())
            self.LookLater();
    };
    const UA_DateTime next = handle->dateTime_nowMonotonic(handle) +
                             EventPacing::lookInterval.count() * UA_DATETIME_MSEC;
    static_cast<void>(handle->addTimedCallback(handle, look, this, nullptr, next, &lookTimer));
}

void EventRelay::Raise(Message& message, const ProjectedObject& source,
                       std::vector<EventHearer>& hearers)
{
    const EventNode& node = GetNode(message.event->type->GetNodeId());
    for (std::size_t i = 0; i < message.values.size(); ++i)
        if (!UA_NodeId_isNull(&*node.properties[i])) // an empty value too: the node had another
            RequireGood(UA_Server_writeValue(&server, *node.properties[i], *message.values[i]),
                        "writing a field of an event");
    pacing.Begin(hearers, message.bytes);
    raised = &message;
    Trigger(node, source);
    raised = nullptr;
    pacing.End(hearers);
    backlog.Add(server, hearers);
    // For its hearers alone: others must not learn that something happened.
    for (const EventHearer& hearer : hearers)
        loop.DeliverEvents(hearer.session);
}

bool EventRelay::MayRead(const UA_NodeId& property, const ClientSession* session) const
{
    if (raising == nullptr || (raising->owner != nullptr && raising->owner != session))
        return false;
    if (!pacing.IsBounded() || session == nullptr)
        return true;
    const auto& properties = raisedNode->properties;
    const auto found = std::find_if(properties.begin(), properties.end(), [&](const auto& each) {
        return UA_NodeId_equal(&*each, &property);
    });
    return found == properties.end() ||
           pacing.MayRead(*session, raised->sizes.at(static_cast<std::size_t>(
                                        std::distance(properties.begin(), found))));
}

EventRelay::EventNode& EventRelay::GetNode(const Core::NodeId& type)
{
    const auto found = nodes.find(type);
    if (found != nodes.end())
        return found->second;
    EventNode node;
    RequireGood(UA_Server_createEvent(&server, *namespaces.ToUa(type), &*node.id),
                "making an event of type " + type.ToString());
    for (const auto& field : fields.at(type))
        node.properties.push_back(IsFilledByServer(field.browseName)
                                      ? Ua<UA_NodeId>()
                                      : FindProperty(*node.id, field.browseName));
    return nodes.emplace(type, std::move(node)).first->second;
}

Ua<UA_NodeId> EventRelay::FindProperty(const UA_NodeId& node, const Core::QualifiedName& name) const
{
    const UA_QualifiedName view = namespaces.ToUaView(name);
    UA_BrowsePathResult result = UA_Server_browseSimplifiedBrowsePath(&server, node, 1, &view);
    Ua<UA_NodeId> property;
    if (result.targetsSize > 0)
        std::swap(*property, result.targets[0].targetId.nodeId);
    const UA_StatusCode status =
        result.targetsSize > 0 ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADNOTFOUND;
    UA_BrowsePathResult_clear(&result);
    RequireGood(status, "finding the field " + name.ToString() + " of an event");
    return property;
}

void EventRelay::Trigger(const EventNode& node, const ProjectedObject& source)
{
    // The events of a private object are for subscriptions to the object itself, which is there for
    // its owner alone, and not for those above it.
    std::optional<HiddenSubscribers> hidden;
    if (source.owner != nullptr)
        hidden.emplace(server, *namespaces.ToUa(source.id));
    raising = &source;
    raisedNode = &node;
    const UA_StatusCode status =
        UA_Server_triggerEvent(&server, *node.id, *namespaces.ToUa(source.id), nullptr, false);
    raising = nullptr;
    RequireGood(status, "raising an event of " + source.id.ToString());
}

void EventRelay::Describe(EndpointMetrics& metrics) const
{
    for (const auto& [object, queue] : waiting) {
        metrics.waitingEvents += queue.size();
        for (const auto& message : queue)
            metrics.waitingEventBytes += message->bytes;
    }
}

} // namespace Host
