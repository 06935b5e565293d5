#include "Endpoint/SharedNodes.h"

#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Host {
namespace {

using std::chrono::milliseconds;

} // namespace

SharedNodes::SharedNodes(Core::Embedding::Runtime& runtime, Objects& objects,
                         ProvidedNodes& provided, EventRelay& events) noexcept
    : runtime(runtime)
    , objects(objects)
    , provided(provided)
    , events(events)
{}

void SharedNodes::Add(const Core::Embedding::NewObject& object)
{
    runtime.CreateObject(object);
    objects.Add(object, nullptr);
    Follow(object);
}

void SharedNodes::AddInstance(const Core::NodeId& type,
                              const Core::Embedding::InstanceDescription& instance)
{
    const Core::Embedding::NewObject object{type, instance.browseName, instance.parents.front(),
                                            instance.id};
    runtime.CreateObject(object);
    objects.RemoveBrought(object.id);
    objects.Add(object, nullptr, UA_NS0ID_HASCOMPONENT);
    for (std::size_t i = 1; i < instance.parents.size(); ++i)
        objects.AddComponent(instance.parents[i], object.id);
    Follow(object);
}

void SharedNodes::Follow(const Core::Embedding::NewObject& object)
{
    if (auto provider = runtime.GetProvider(object.id))
        provided.Add(object.id, object.type, std::move(provider));
    nodes.push_back(std::make_unique<Node>());
    Node& node = *nodes.back();
    node.closing.Start("that removes the shared nodes");
    node.id = object.id;
    node.subscription = events.Follow(object.id);
}

/// Each node has a thread of its own for that: one that is stuck keeps no other.
bool SharedNodes::RemoveAll(milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    for (const auto& node : nodes)
        node->closing.Post([this, &node = *node] {
            runtime.RemoveObject(node.id);
            node.subscription.Reset();
        });
    bool areAllDone = true;
    for (const auto& node : nodes) {
        const auto left =
            std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
        if (node->closing.WaitIdle(std::max(left, milliseconds(0))))
            continue;
        areAllDone = false;
        Log(Core::LogLevel::Warning, "Host",
            fmt::format("The shared node {} has not drained after {} ms", node->id.ToString(),
                        limit.count()));
    }
    return areAllDone;
}

} // namespace Host
