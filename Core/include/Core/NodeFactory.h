#pragma once

#include "Core/Behaviour.h"
#include "Core/Export.h"
#include "Core/Guid.h"

#include <memory>

namespace Core {

/// Knows the behaviour factories of the loaded modules.
class CORE_API NodeFactory
{
public:
    NodeFactory() = default;
    NodeFactory(const NodeFactory&) = delete;
    NodeFactory& operator=(const NodeFactory&) = delete;
    virtual ~NodeFactory();

    /// Keeps a factory under its identifier, by which object types name it in the information
    /// model. Throws InvalidArgumentException for a null factory, AlreadyExistsException for an
    /// identifier that is taken. Any thread.
    virtual void RegisterBehaviourFactory(const Guid& identifier,
                                          std::shared_ptr<IBehaviourFactory> factory) = 0;
};

} // namespace Core
