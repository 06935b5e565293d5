#pragma once

#include "Core/Behaviour.h"
#include "Core/NodeProvider.h"
#include "FactoryRegistry.h"
#include "Nodes.h"
#include "Support/Mutex.h"
#include "WaitGraph.h"

#include <memory>

namespace Core {

/// Owns a behaviour together with the node and the module's code that it needs.
class HeldBehaviour
{
public:
    HeldBehaviour(std::shared_ptr<ObjectNode> node, std::shared_ptr<const Module> module,
                  std::shared_ptr<IBehaviour> behaviour);
    HeldBehaviour(const HeldBehaviour&) = delete;
    HeldBehaviour& operator=(const HeldBehaviour&) = delete;
    /// Releases the behaviour, then its node, then its code. When others still hold the behaviour,
    /// node and code are kept as long as it lives.
    ~HeldBehaviour();

    /// Releases the nodes and the code kept for behaviours that have ended since.
    static void ReleaseLeftovers();

    [[nodiscard]] IBehaviour& GetBehaviour() const noexcept { return *behaviour; }
    [[nodiscard]] const std::shared_ptr<ObjectNode>& GetNode() const noexcept { return node; }
    /// Returns null for a behaviour that takes no calls.
    [[nodiscard]] IExecutableBehaviour* GetExecutable() const noexcept { return executable; }
    /// Returns null for a behaviour that provides no nodes.
    [[nodiscard]] INodeProvider* GetProvider() const noexcept { return provider; }

    /// Links the behaviours that are kept for good; their keeper writes it once.
    mutable std::shared_ptr<const HeldBehaviour> nextKept;

private:
    // The order matters: destroyed from the last to the first.
    std::shared_ptr<const Module> module;
    std::shared_ptr<ObjectNode> node;
    std::shared_ptr<IBehaviour> behaviour;
    IExecutableBehaviour* executable;
    INodeProvider* provider;
};

/// The life of one object's behaviour, if it has one. Every operation but `Get` needs the turn at
/// the slot's turnstile.
class BehaviourSlot
{
public:
    enum class Stage
    {
        Empty, ///< the object is being created
        Live,
        Gone, ///< the object has been removed, or could not be created
    };

    [[nodiscard]] Turnstile& GetTurnstile() noexcept { return turnstile; }

    [[nodiscard]] Stage GetStage() const noexcept { return stage; }
    void SetStage(Stage value) noexcept { stage = value; }

    /// Makes the behaviour of a node and starts it. Passes the exceptions of both; then it keeps
    /// nothing.
    void Fill(const RegisteredFactory& factory, const std::shared_ptr<ObjectNode>& node);
    /// Shows the behaviour to calls.
    void Publish();

    /// Do nothing without a behaviour. Pass its exceptions. A failed start is followed by a stop; a
    /// behaviour that cannot be stopped counts as started.
    void Start();
    void Stop();

    /// Hides the behaviour from new calls, stops and releases it. Logs an exception of the stop;
    /// the behaviour, which may still be at work, is then never destroyed.
    void Clear();

    /// Returns the node of the behaviour; null without one.
    [[nodiscard]] const ObjectNode* GetNode() const noexcept
    {
        return held ? held->GetNode().get() : nullptr;
    }

    /// True if there is a behaviour that provides nodes.
    [[nodiscard]] bool ProvidesNodes() const noexcept
    {
        return held && held->GetProvider() != nullptr;
    }

    /// The state that calls see.
    struct Published
    {
        bool isThere = false;                      ///< from the object's publication to its removal
        std::shared_ptr<const HeldBehaviour> held; ///< null for an object without a behaviour
    };
    /// Any thread.
    [[nodiscard]] Published Get() const EXCLUDES(mutex);

private:
    void StopAfterFailure() noexcept;
    void SetPublished(Published value) EXCLUDES(mutex);

    Turnstile turnstile;

    // Used by the thread that has the turn.
    Stage stage = Stage::Empty;
    bool isStarted = false;
    std::shared_ptr<const HeldBehaviour> held;

    mutable Support::Mutex mutex;
    Published published GUARDED_BY(mutex);
};

} // namespace Core
