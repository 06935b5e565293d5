#pragma once

#include "Core/Embedding/Runtime.h"
#include "Endpoint/EventRelay.h"
#include "Endpoint/Objects.h"
#include "Endpoint/ProvidedNodes.h"
#include "Endpoint/WorkerThread.h"

#include <chrono>
#include <memory>
#include <vector>

namespace Host {

/// The nodes that every session uses. Made before the server runs and removed after it.
class SharedNodes
{
public:
    /// All must outlive it.
    SharedNodes(Core::Embedding::Runtime& runtime, Objects& objects, ProvidedNodes& provided,
                EventRelay& events) noexcept;

    /// Makes a node and follows its events. Throws what the runtime throws, UaException and
    /// std::system_error.
    void Add(const Core::Embedding::NewObject& object);

    /// Makes the one object of a type, which is a component of each of its parents.
    void AddInstance(const Core::NodeId& type,
                     const Core::Embedding::InstanceDescription& instance);

    /// Removes all of them once they have done what is queued. Returns false if some have not
    /// within the limit.
    [[nodiscard]] bool RemoveAll(std::chrono::milliseconds limit);

private:
    void Follow(const Core::Embedding::NewObject& object);

    struct Node
    {
        Core::NodeId id;
        Core::Embedding::EventSubscription subscription;
        WorkerThread closing; // removes the node; started with it, since that must not fail later
    };

    Core::Embedding::Runtime& runtime;
    Objects& objects;
    ProvidedNodes& provided;
    EventRelay& events;
    std::vector<std::unique_ptr<Node>> nodes;
};

} // namespace Host
