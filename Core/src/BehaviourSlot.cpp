#include "BehaviourSlot.h"

#include "Core/Exception.h"
#include "CoreLog.h"
#include "ModuleLoader.h"

#include <utility>
#include <vector>

namespace Core {

namespace {

/// Keeps the nodes and the code of behaviours that outlive their removal until those end, and
/// behaviours that could not be stopped for good.
class Leftovers
{
public:
    static Leftovers& Instance()
    {
        // Never destroyed, since code in use must not be unloaded when the process ends.
        static auto& instance = *new Leftovers;
        return instance;
    }

    void Keep(std::weak_ptr<IBehaviour> behaviour, std::shared_ptr<ObjectNode> node,
              std::shared_ptr<const Module> module) EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        entries.push_back({std::move(module), std::move(node), std::move(behaviour)});
    }

    /// Allocates nothing.
    void KeepForGood(const std::shared_ptr<const HeldBehaviour>& behaviour) noexcept EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        behaviour->nextKept = std::exchange(firstKept, behaviour);
    }

    /// Releases the entries of behaviours that have ended.
    void Sweep() EXCLUDES(mutex)
    {
        std::vector<Entry> unused; // released after the lock
        const Support::Lock lock(mutex);
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
        // The order matters: destroyed from the last to the first.
        std::shared_ptr<const Module> module;
        std::shared_ptr<ObjectNode> node;
        std::weak_ptr<IBehaviour> behaviour;
    };

    Support::Mutex mutex;
    std::vector<Entry> entries GUARDED_BY(mutex);
    std::shared_ptr<const HeldBehaviour> firstKept GUARDED_BY(mutex);
};

} // namespace

HeldBehaviour::HeldBehaviour(std::shared_ptr<ObjectNode> node, std::shared_ptr<const Module> module,
                             std::shared_ptr<IBehaviour> behaviour)
    : module(std::move(module))
    , node(std::move(node))
    , behaviour(std::move(behaviour))
    , executable(dynamic_cast<IExecutableBehaviour*>(this->behaviour.get()))
    , provider(dynamic_cast<INodeProvider*>(this->behaviour.get()))
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
        if (std::exchange(isStarted, false))
            Leftovers::Instance().KeepForGood(held);
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
        isStarted = true; // at least in part
    }
}

void BehaviourSlot::Stop()
{
    if (!isStarted)
        return;
    held->GetBehaviour().OnStop();
    isStarted = false;
}

void BehaviourSlot::Clear()
{
    SetPublished({});
    try {
        Stop();
    } catch (...) {
        LogCurrentException("Cannot stop object " + held->GetNode()->GetNodeId().ToString() +
                            " before its removal; it is kept as it is");
        isStarted = false;
        Leftovers::Instance().KeepForGood(held);
    }
    held.reset();
}

BehaviourSlot::Published BehaviourSlot::Get() const
{
    const Support::Lock lock(mutex);
    return published;
}

void BehaviourSlot::SetPublished(Published value)
{
    const Support::Lock lock(mutex);
    std::swap(published, value); // the old one is released after the lock
}

} // namespace Core
