#include "BehaviourSlot.h"

#include "Core/Exception.h"
#include "Failure.h"
#include "ModuleLoader.h"

#include <utility>
#include <vector>

namespace Core {

namespace {

/// What behaviours live on that outlived their removal, kept until they are gone.
class Leftovers
{
public:
    static Leftovers& Instance()
    {
        // Never destroyed: code that is still in use must not be unloaded when the process ends.
        static auto& instance = *new Leftovers;
        return instance;
    }

    void Keep(std::weak_ptr<IBehaviour> behaviour, std::shared_ptr<ObjectNode> node,
              std::shared_ptr<const Module> module)
    {
        const std::scoped_lock lock(mutex);
        entries.push_back({std::move(module), std::move(node), std::move(behaviour)});
    }

    /// Releases what is not needed any more.
    void Sweep()
    {
        std::vector<Entry> unused; // released after the lock
        const std::scoped_lock lock(mutex);
        std::erase_if(entries, [&unused](Entry& entry) {
            if (!entry.behaviour.expired())
                return false;
            unused.push_back(std::move(entry));
            return true;
        });
    }

private:
    struct Entry
    {
        // Destroyed from the last to the first.
        std::shared_ptr<const Module> module;
        std::shared_ptr<ObjectNode> node;
        std::weak_ptr<IBehaviour> behaviour;
    };

    std::mutex mutex;
    std::vector<Entry> entries; // guarded by mutex
};

} // namespace

HeldBehaviour::HeldBehaviour(std::shared_ptr<ObjectNode> node, std::shared_ptr<const Module> module,
                             std::shared_ptr<IBehaviour> behaviour)
    : module(std::move(module))
    , node(std::move(node))
    , behaviour(std::move(behaviour))
    , executable(dynamic_cast<IExecutableBehaviour*>(this->behaviour.get()))
{}

HeldBehaviour::~HeldBehaviour()
{
    std::weak_ptr<IBehaviour> rest = behaviour;
    behaviour.reset();
    if (!rest.expired()) {
        LogWarning("The behaviour of object " + node->GetNodeId().ToString() +
                   " is still held by others after its release; its node and its module stay");
        Leftovers::Instance().Keep(std::move(rest), std::move(node), std::move(module));
    }
    ReleaseLeftovers();
}

void HeldBehaviour::ReleaseLeftovers()
{
    Leftovers::Instance().Sweep();
}

void BehaviourSlot::Fill(const RegisteredFactory& factory, const std::shared_ptr<ObjectNode>& node)
{
    auto behaviour = factory.factory->MakeBehaviour(*node);
    if (!behaviour)
        throw InvalidStateException("The behaviour factory of object " +
                                    node->GetNodeId().ToString() + " made no behaviour");
    held = std::make_shared<const HeldBehaviour>(node, factory.module, std::move(behaviour));
    try {
        Start();
    } catch (...) {
        held.reset();
        throw;
    }
}

void BehaviourSlot::Publish()
{
    SetPublished({true, held});
}

void BehaviourSlot::Start()
{
    if (!held || isStarted)
        return;
    try {
        held->GetBehaviour().OnStart();
        isStarted = true;
    } catch (...) {
        StopAfterFailure();
        throw;
    }
}

void BehaviourSlot::StopAfterFailure() noexcept
{
    try {
        held->GetBehaviour().OnStop();
    } catch (...) {
        LogCurrentException("Cannot stop object " + held->GetNode()->GetNodeId().ToString() +
                            " after its start failed");
    }
}

void BehaviourSlot::Stop()
{
    if (std::exchange(isStarted, false))
        held->GetBehaviour().OnStop();
}

void BehaviourSlot::Clear()
{
    SetPublished({});
    try {
        Stop();
    } catch (...) {
        LogCurrentException("Cannot stop object " + held->GetNode()->GetNodeId().ToString() +
                            " before its removal");
    }
    held.reset();
}

BehaviourSlot::Published BehaviourSlot::Get() const
{
    const std::scoped_lock lock(mutex);
    return published;
}

void BehaviourSlot::SetPublished(Published value)
{
    const std::scoped_lock lock(mutex);
    std::swap(published, value); // the old one is released after the lock
}

} // namespace Core
