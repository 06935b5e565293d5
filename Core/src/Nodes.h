#pragma once

#include "BaseEventFields.h"
#include "Core/Embedding/Runtime.h"
#include "Core/Node.h"
#include "DispatcherImplementation.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Core {

/// The state that all nodes of a host share. Each node keeps the context alive.
struct NodeEnvironment
{
    std::shared_ptr<CoreContext> context;
    std::shared_ptr<DispatcherImplementation> dispatcher;
};

/// The identifier and the name of a node.
struct NodeIdentity
{
    NodeId id;
    QualifiedName browseName;
};

/// The base of all nodes; by itself a node of a data type or a method.
class BasicNode : public virtual INode, public std::enable_shared_from_this<BasicNode>
{
public:
    BasicNode(NodeIdentity identity, NodeEnvironment environment);
    ~BasicNode() override;

    [[nodiscard]] const NodeId& GetNodeId() const noexcept final { return identity.id; }
    [[nodiscard]] const QualifiedName& GetBrowseName() const noexcept final
    {
        return identity.browseName;
    }
    [[nodiscard]] CoreContext& GetCoreContext() const noexcept final
    {
        return *environment.context;
    }
    [[nodiscard]] EventRegistrationHandler
    RegisterEventObserver(std::shared_ptr<IEventObserver> observer, std::uint64_t filter,
                          unsigned int affinityId, std::shared_ptr<SessionHandler> session,
                          int options) final;
    [[nodiscard]] std::shared_ptr<INode> GetSharedPointer() final { return shared_from_this(); }

    /// Calls the observers of this node.
    void NotifyReferenceAdded(const ReferenceData& reference) const;
    void NotifyReferenceRemoved(const ReferenceData& reference) const;

    /// Ends all observers and waits for their running notifications.
    virtual void EndNotifications();

protected:
    [[nodiscard]] DispatcherImplementation& GetDispatcher() const noexcept
    {
        return *environment.dispatcher;
    }
    [[nodiscard]] const NodeEnvironment& GetEnvironment() const noexcept { return environment; }

private:
    using Observers = RecipientList<IReferenceObserver>;

    const NodeIdentity identity;
    const NodeEnvironment environment;
    const std::shared_ptr<Observers> observers;
};

/// An object type or event type.
class ObjectTypeNode final : public BasicNode, public IObjectType
{
public:
    ObjectTypeNode(NodeIdentity identity, NodeEnvironment environment, std::string displayName,
                   EventArguments arguments, BaseEventFields::Outcomes outcomes);

    [[nodiscard]] const EventArguments& GetEventArguments() const noexcept override
    {
        return arguments;
    }

    /// Fills in the empty base fields of an event of this type.
    void FillBaseFields(std::vector<Value>& fields, const INode& source) const
    {
        baseFields.Fill(fields, source, GetNodeId(), displayName);
    }

private:
    const std::string displayName;
    const EventArguments arguments;
    const BaseEventFields baseFields;
};

/// The purpose of an object.
enum class ObjectRole
{
    Root,     ///< one of the host's own folders
    Session,  ///< stands for a session
    Created,  ///< made by the embedder
    Provided, ///< stands for a node that a behaviour provides, during a call
};

class ObjectNode final : public BasicNode, public IObject
{
public:
    ObjectNode(NodeIdentity identity, NodeEnvironment environment, ObjectRole role, bool isFolder);

    void RaiseEvent(const std::shared_ptr<IObjectType>& eventType,
                    const std::vector<Value>& fields) override;
    void EndNotifications() override;

    /// Calls the callback for the events raised from now on.
    [[nodiscard]] Embedding::EventSubscription Subscribe(Embedding::EventCallback callback);

    [[nodiscard]] ObjectRole GetRole() const noexcept { return role; }
    [[nodiscard]] bool IsFolder() const noexcept { return isFolder; }

private:
    using Subscribers = RecipientList<const Embedding::EventCallback>;

    [[nodiscard]] std::shared_ptr<const Embedding::Event>
    MakeEvent(const std::shared_ptr<IObjectType>& eventType,
              const std::vector<Value>& fields) const;

    const ObjectRole role;
    const bool isFolder;
    const std::shared_ptr<Subscribers> subscribers;
};

} // namespace Core
