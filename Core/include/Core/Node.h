#pragma once

#include "Core/Events.h"
#include "Core/Export.h"
#include "Core/NodeId.h"
#include "Core/QualifiedName.h"
#include "Core/Value.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Core {

class CoreContext;
class SessionHandler;

/// A node of the address space. All operations may be called from any thread.
class CORE_API INode
{
public:
    INode() = default;
    INode(const INode&) = delete;
    INode& operator=(const INode&) = delete;
    virtual ~INode();

    /// Valid as long as the node lives.
    [[nodiscard]] virtual const NodeId& GetNodeId() const noexcept = 0;
    [[nodiscard]] virtual const QualifiedName& GetBrowseName() const noexcept = 0;
    [[nodiscard]] virtual CoreContext& GetCoreContext() const noexcept = 0;

    /// Registers an observer of this node; the registration holds the observer. `filter` is a mask
    /// of `EventFilter`; `affinityId` names the group in which the dispatcher can silence it (0:
    /// none); `session` is the session that asks for it, for logs only (the registration outlives
    /// it); `options` is reserved and 0. Throws InvalidArgumentException for a null observer, an
    /// unknown filter bit, a filter that the observer's interfaces cannot serve, or other options.
    [[nodiscard]] virtual EventRegistrationHandler
    RegisterEventObserver(std::shared_ptr<IEventObserver> observer, std::uint64_t filter,
                          unsigned int affinityId, std::shared_ptr<SessionHandler> session,
                          int options) = 0;

    /// Returns an owning pointer to this node.
    [[nodiscard]] virtual std::shared_ptr<INode> GetSharedPointer() = 0;
};

/// An object type; event types are object types too.
class CORE_API IObjectType : public virtual INode
{
public:
    ~IObjectType() override;

    /// Returns the fields of an event type; no fields for other types. Valid as long as the type
    /// lives.
    [[nodiscard]] virtual const EventArguments& GetEventArguments() const noexcept = 0;
};

/// An object node.
class CORE_API IObject : public virtual INode
{
public:
    ~IObject() override;

    /// Raises an event on this object. `fields` follows the type's `EventArguments`; the host fills
    /// in base fields that are empty. Calls the subscribers on the calling thread, with no lock of
    /// the host held, before it returns. Throws InvalidArgumentException for a null type, a type
    /// without fields, or a vector of another length.
    virtual void RaiseEvent(const std::shared_ptr<IObjectType>& eventType,
                            const std::vector<Value>& fields) = 0;
};

} // namespace Core
