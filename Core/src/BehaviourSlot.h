#pragma once

#include "Core/Behaviour.h"
#include "FactoryRegistry.h"
#include "Nodes.h"
#include "WaitGraph.h"

#include <memory>
#include <mutex>

namespace Core {

/// A behaviour with what it lives on: its node and its module's code.
class HeldBehaviour
{
public:
    HeldBehaviour(std::shared_ptr<ObjectNode> node, std::shared_ptr<const Module> module,
                  std::shared_ptr<IBehaviour> behaviour);
    HeldBehaviour(const HeldBehaviour&) = delete;
    HeldBehaviour& operator=(const HeldBehaviour&) = delete;
    /// Lets the behaviour go, then its node, then its code. Should the behaviour live on because
    /// others still hold it, so do the other two.
    ~HeldBehaviour();

    /// Releases the nodes and modules of behaviours that lived on and are gone by now.
    static void ReleaseLeftovers();

    [[nodiscard]] IBehaviour& GetBehaviour() const noexcept { return *behaviour; }
    [[nodiscard]] const std::shared_ptr<ObjectNode>& GetNode() const noexcept { return node; }
    /// Null for a behaviour that takes no calls.
    [[nodiscard]] IExecutableBehaviour* GetExecutable() const noexcept { return executable; }

    /// Links the behaviours that are kept for good; written once, by their keeper.
    mutable std::shared_ptr<const HeldBehaviour> nextKept;

private:
    // Destroyed from the last to the first.
    std::shared_ptr<const Module> module;
    std::shared_ptr<ObjectNode> node;
    std::shared_ptr<IBehaviour> behaviour;
    IExecutableBehaviour* executable;
};

/// The life of one object's behaviour, if it has one. Everything but `Get` is done by whoever has
/// the turn at the slot's turnstile.
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

    /// Makes the behaviour of a node and starts it. Throws what that throws; then nothing is kept.
    void Fill(const RegisteredFactory& factory, const std::shared_ptr<ObjectNode>& node);
    /// From here on the object can be called.
    void Publish();

    /// Do nothing where there is no behaviour. Throw what the behaviour throws; a start that failed
    /// has been followed by a stop, and one that could not be stopped counts as started.
    void Start();
    void Stop();

    /// Hides the behaviour from new calls, stops and releases it. What the stop throws is logged;
    /// the behaviour, which may still be at work, is then never destroyed.
    void Clear();

    /// The node of the behaviour; null without one.
    [[nodiscard]] const ObjectNode* GetNode() const noexcept
    {
        return held ? held->GetNode().get() : nullptr;
    }

    /// What calls find. Any thread.
    struct Published
    {
        bool isThere = false; ///< between the object's publication and its removal
        std::shared_ptr<const HeldBehaviour> held; ///< null for an object without a behaviour
    };
    [[nodiscard]] Published Get() const;

private:
    void StopAfterFailure() noexcept;
    void SetPublished(Published value);

    Turnstile turnstile;

    // For whoever has the turn.
    Stage stage = Stage::Empty;
    bool isStarted = false;
    std::shared_ptr<const HeldBehaviour> held;

    mutable std::mutex mutex;
    Published published; // guarded by mutex
};

} // namespace Core
