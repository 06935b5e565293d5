#pragma once

#include "Core/Embedding/Runtime.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/EventRelay.h"
#include "Endpoint/MethodCalls.h"
#include "Endpoint/Objects.h"
#include "Network/EventLoop.h"

#include <cstddef>
#include <vector>

namespace Host {

/// The objects of sessions' own, which a method of their folder makes: a method of the host, since
/// no module knows of sessions' objects.
class OwnObjects
{
public:
    /// All must outlive it. `most`: that one session may have.
    OwnObjects(Core::Embedding::Runtime& runtime, EventLoop& loop, Objects& objects,
               EventRelay& events, std::size_t most) noexcept;

    /// Returns the method, which makes objects of the type in the folder. It has the number behind
    /// that of the folder, and its outputs have the one after.
    [[nodiscard]] HostMethod MakeMethod(const Core::Embedding::ObjectTypeDescription& type,
                                        const Core::NodeId& folder);

    /// Removes the objects of a session. Called on its thread, after its last call.
    void RemoveAll(ClientSession& session);

private:
    std::vector<Core::Value> Create(ClientSession& session, Core::Embedding::NewObject object);
    void Show(const Core::Embedding::NewObject& object, const ClientSession& session);

    Core::Embedding::Runtime& runtime;
    EventLoop& loop;
    Objects& objects;
    EventRelay& events;
    const std::size_t most;
};

} // namespace Host
