#include "Endpoint/SharedNodes.h"

#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>

namespace Host {
namespace {

using std::chrono::milliseconds;

} // namespace

SharedNodes::SharedNodes(Core::Embedding::Runtime& runtime, Objects& objects,
                         EventRelay& events) noexcept
    : runtime(runtime)
    , objects(objects)
    , events(events)
{}

void SharedNodes::Add(const Core::Embedding::NewObject& object)
{
    runtime.CreateObject(object);
    objects.Add(object, nullptr);
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
