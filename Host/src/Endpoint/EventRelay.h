#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/Embedding/Runtime.h"
#include "Endpoint/EventBacklog.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/Objects.h"
#include "Endpoint/Ua.h"
#include "Endpoint/Values.h"
#include "EventLoop.h"

#include <open62541/server.h>

#include <memory>
#include <optional>
#include <unordered_map>
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
               EventBacklog& backlog);

    /// Hears the events of an object of the runtime for as long as the subscription lives. Any
    /// thread. Throws Core::NotFoundException.
    [[nodiscard]] Core::Embedding::EventSubscription Follow(const Core::NodeId& object);

    /// True while the library reads the fields of an event for its hearers, and the session may
    /// hear it. Loop thread.
    [[nodiscard]] bool IsRaisingFor(const ClientSession* session) const noexcept
    {
        return raising != nullptr && (raising->owner == nullptr || raising->owner == session);
    }

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
        std::shared_ptr<const Core::Embedding::Event> event; ///< keeps type and identifiers alive
        std::vector<Ua<UA_Variant>> values;                  ///< by position
        std::size_t bytes = 0;                               ///< of the values, as encoded
    };

    void Convert(const std::shared_ptr<const Core::Embedding::Event>& event);
    void Raise(Message& message);
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
    /// The fields of each event type, inherited ones first; constant.
    const std::unordered_map<Core::NodeId, FieldList, Core::HashNodeId> fields;
    std::unordered_map<Core::NodeId, EventNode, Core::HashNodeId> nodes; // loop thread
    const ProjectedObject* raising = nullptr;                            // loop thread
};

} // namespace Host
