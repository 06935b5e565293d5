#pragma once

#include "Core/Guid.h"
#include "Core/NodeFactory.h"
#include "Support/Mutex.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Core {

class Module;

/// A factory with its code. The order matters: the factory is destroyed before its code.
struct RegisteredFactory
{
    std::shared_ptr<const Module> module; ///< null for a factory of the host itself
    std::shared_ptr<IBehaviourFactory> factory;
};

/// The behaviour factories of a host; any thread. The factories of a module that is still
/// registering take their identifiers, but are not found. Operations that take factories out return
/// them, so that the caller releases them without a lock.
class FactoryRegistry final : public NodeFactory
{
public:
    using Factories = std::unordered_map<Guid, RegisteredFactory, HashGuid>;

    void RegisterBehaviourFactory(const Guid& identifier,
                                  std::shared_ptr<IBehaviourFactory> factory) override;
    void Register(const Guid& identifier, const RegisteredFactory& factory) EXCLUDES(mutex);

    /// Throws NotFoundException.
    [[nodiscard]] RegisteredFactory Get(const Guid& identifier) const EXCLUDES(mutex);

    /// Hides the factories that the module registers from now on, until `Commit`.
    void BeginLoading(const Module& module) EXCLUDES(mutex);
    void Commit(const Module& module) noexcept EXCLUDES(mutex);
    /// Takes out the factories of a module.
    [[nodiscard]] std::vector<RegisteredFactory> Discard(const Module& module) EXCLUDES(mutex);

    /// Takes out all factories.
    [[nodiscard]] Factories Clear() EXCLUDES(mutex);

private:
    mutable Support::Mutex mutex;
    Factories factories GUARDED_BY(mutex);
    std::unordered_set<const Module*> loading GUARDED_BY(mutex);
};

} // namespace Core
