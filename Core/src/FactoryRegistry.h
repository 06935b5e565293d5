#pragma once

#include "Core/Guid.h"
#include "Core/NodeFactory.h"

#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Core {

class Module;

/// A factory with the code it lives in. The order matters: the factory goes before its code.
struct RegisteredFactory
{
    std::shared_ptr<const Module> module; ///< null for a factory that is not a module's
    std::shared_ptr<IBehaviourFactory> factory;
};

/// The behaviour factories of a host. Those of a module that is still registering are taken, but
/// not found. Factories that leave are handed out, so that they are released without a lock.
class FactoryRegistry final : public NodeFactory
{
public:
    using Factories = std::unordered_map<Guid, RegisteredFactory, HashGuid>;

    void RegisterBehaviourFactory(const Guid& identifier,
                                  std::shared_ptr<IBehaviourFactory> factory) override;
    void Register(const Guid& identifier, const RegisteredFactory& factory);

    /// Throws NotFoundException.
    [[nodiscard]] RegisteredFactory Get(const Guid& identifier) const;

    /// What a module registers from now on is found after `Commit` only.
    void BeginLoading(const Module& module);
    void Commit(const Module& module) noexcept;
    /// Takes out what the module has registered.
    [[nodiscard]] std::vector<RegisteredFactory> Discard(const Module& module);

    [[nodiscard]] Factories Clear();

private:
    mutable std::mutex mutex;
    Factories factories;                       // guarded by mutex
    std::unordered_set<const Module*> loading; // guarded by mutex
};

} // namespace Core
