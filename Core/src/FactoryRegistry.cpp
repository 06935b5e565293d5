#include "FactoryRegistry.h"

#include "Core/Exception.h"

#include <utility>

namespace Core {

void FactoryRegistry::RegisterBehaviourFactory(const Guid& identifier,
                                               std::shared_ptr<IBehaviourFactory> factory)
{
    Register(identifier, {nullptr, std::move(factory)});
}

void FactoryRegistry::Register(const Guid& identifier, const RegisteredFactory& factory)
{
    if (!factory.factory)
        throw InvalidArgumentException("Cannot register behaviour factory " +
                                       identifier.ToString() + ": there is none");
    const Support::Lock lock(mutex);
    if (!factories.try_emplace(identifier, factory).second)
        throw AlreadyExistsException("Behaviour factory " + identifier.ToString() +
                                     " is registered already");
}

RegisteredFactory FactoryRegistry::Get(const Guid& identifier) const
{
    const Support::Lock lock(mutex);
    const auto found = factories.find(identifier);
    if (found == factories.end() || loading.contains(found->second.module.get()))
        throw NotFoundException("No module has registered behaviour factory " +
                                identifier.ToString());
    return found->second;
}

void FactoryRegistry::BeginLoading(const Module& module)
{
    const Support::Lock lock(mutex);
    loading.insert(&module);
}

void FactoryRegistry::Commit(const Module& module) noexcept
{
    const Support::Lock lock(mutex);
    loading.erase(&module);
}

std::vector<RegisteredFactory> FactoryRegistry::Discard(const Module& module)
{
    std::vector<RegisteredFactory> discarded;
    const Support::Lock lock(mutex);
    std::erase_if(factories, [&](auto& entry) {
        if (entry.second.module.get() != &module)
            return false;
        discarded.push_back(std::move(entry.second));
        return true;
    });
    loading.erase(&module);
    return discarded;
}

FactoryRegistry::Factories FactoryRegistry::Clear()
{
    const Support::Lock lock(mutex);
    return std::exchange(factories, {});
}

} // namespace Core
