#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/Embedding/Runtime.h"
#include "Endpoint/EventBacklog.h"
#include "Endpoint/EventGate.h"
#include "Endpoint/EventPacing.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/Objects.h"
#include "Endpoint/Ua.h"
#include "Endpoint/Values.h"
#include "Metrics/EndpointMetrics.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Host {

/// Brings the events of the runtime's objects to the clients, in their order and at once.
///
/// The values are converted on the thread that raises the event; the loop's thread then writes them
/// into a node of the event's type, kept for the next one, and triggers it.
class EventRelay
{
public:
    EventRelay(UA_Server& server, EventLoop& loop, Core::Embedding::Runtime& runtime,
               const Namespaces& namespaces, const Values& values, const Objects& objects,
               EventBacklog& backlog, EventPacing& pacing);
    EventRelay(const EventRelay&) = delete;
    EventRelay& operator=(const EventRelay&) = delete;
    ~EventRelay();

    /// Hears the events of an object of the runtime as long as the subscription lives. With a gate,
    /// the thread that raises an event waits at it. Any thread. Throws Core::NotFoundException.
    [[nodiscard]] Core::Embedding::EventSubscription
    Follow(const Core::NodeId& object, std::shared_ptr<EventGate> gate = nullptr);

    /// Sets a function that hears all events first, on the threads that raise them. REQUIRES: no
    /// object is followed yet.
    void SetObserver(std::function<void(const Core::Embedding::Event&)> heard)
    {
        observer = std::move(heard);
    }

    /// Returns true while the library reads the fields of an event for its hearers, if the session
    /// may hear it: another one that knows the identifier of a private object gets empty fields,
    /// and so does a hearer for the fields that it has no room for. Loop thread.
    [[nodiscard]] bool MayRead(const UA_NodeId& property, const ClientSession* session) const;

    /// Enters the events that wait. Loop thread.
    void Describe(EndpointMetrics& metrics) const;

private:
    using FieldList = std::vector<Core::Embedding::EventFieldDescription>;

    /// A node of one event type, used for all its events. Loop thread.
    struct EventNode
    {
        Ua<UA_NodeId> id;
        std::vector<Ua<UA_NodeId>> properties; ///< by position; null: the library's to fill
    };

    /// An event on its way to the loop.
    struct Message
    {
        Message() = default;
        Message(const Message&) = delete;
        Message& operator=(const Message&) = delete;
        ~Message();

        std::shared_ptr<EventGate> gate;                     ///< that it has entered; or null
        std::shared_ptr<const Core::Embedding::Event> event; ///< keeps type and identifiers alive
        std::vector<Ua<UA_Variant>> values;                  ///< by position
        std::vector<std::size_t> sizes;                      ///< of the values, as encoded
        std::size_t bytes = 0;                               ///< of all of them
    };

    void Convert(const std::shared_ptr<const Core::Embedding::Event>& event,
                 const std::shared_ptr<EventGate>& gate);
    void RaiseOrKeep(const std::shared_ptr<Message>& message);
    void Raise(Message& message, const ProjectedObject& source, std::vector<EventHearer>& hearers);
    void RaiseWaiting();
    [[nodiscard]] bool RaiseFirst(std::deque<std::shared_ptr<Message>>& queue);
    void LookLater();
    EventNode& GetNode(const Core::NodeId& type);
    [[nodiscard]] Ua<UA_NodeId> FindProperty(const UA_NodeId& node,
                                             const Core::QualifiedName& name) const;
    void Trigger(const EventNode& node, const ProjectedObject& source);

    UA_Server& server;
    EventLoop& loop;
    Core::Embedding::Runtime& runtime;
    const Namespaces& namespaces;
    const Values& values;
    const Objects& objects;
    EventBacklog& backlog;
    EventPacing& pacing;
    /// The fields of each event type, inherited ones first; constant.
    const std::unordered_map<Core::NodeId, FieldList, Core::HashNodeId> fields;
    std::function<void(const Core::Embedding::Event&)> observer = [](const auto&) {
    };
    std::unordered_map<Core::NodeId, EventNode, Core::HashNodeId> nodes; // loop thread

    // Loop thread.
    const ProjectedObject* raising = nullptr;
    const EventNode* raisedNode = nullptr;
    const Message* raised = nullptr;
    /// Events that wait to be raised, by their objects; never an empty queue.
    std::unordered_map<Core::NodeId, std::deque<std::shared_ptr<Message>>, Core::HashNodeId>
        waiting;
    std::uint64_t lookTimer = 0; ///< 0: none
    std::chrono::steady_clock::time_point looked;
};

} // namespace Host
