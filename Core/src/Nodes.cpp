#include "Nodes.h"

#include "Core/Embedding/Session.h"
#include "Core/Exception.h"

namespace Core {

namespace {

/// Ends a recipient for good. Releases its target on the calling thread, without a lock.
template <typename Target>
void EndRecipient(DispatcherImplementation& dispatcher, RecipientList<Target>* list,
                  const std::shared_ptr<Recipient<Target>>& recipient)
{
    const auto target = dispatcher.End(*recipient);
    if (list != nullptr)
        list->Remove(recipient);
}

template <typename Target>
void EndAll(DispatcherImplementation& dispatcher, RecipientList<Target>& list)
{
    const auto recipients = list.Get();
    if (!recipients)
        return;
    for (const auto& recipient : *recipients) {
        EndRecipient(dispatcher, &list, recipient);
        dispatcher.AwaitNotifications(*recipient);
    }
}

std::string NameOf(const std::shared_ptr<SessionHandler>& session)
{
    const auto* named = dynamic_cast<const Embedding::Session*>(session.get());
    return named != nullptr ? named->GetName() : std::string();
}

} // namespace

BasicNode::BasicNode(NodeIdentity identity, NodeEnvironment environment)
    : identity(std::move(identity))
    , environment(std::move(environment))
    , observers(std::make_shared<Observers>())
{}

BasicNode::~BasicNode() = default;

EventRegistrationHandler BasicNode::RegisterEventObserver(std::shared_ptr<IEventObserver> observer,
                                                          std::uint64_t filter,
                                                          unsigned int affinityId,
                                                          std::shared_ptr<SessionHandler> session,
                                                          int options)
{
    const auto refuse = [this](const char* reason) {
        throw InvalidArgumentException("Cannot register an observer of node " +
                                       identity.id.ToString() + ": " + reason);
    };
    if (!observer)
        refuse("there is none");
    if ((filter & ~EventFilter::references) != 0)
        refuse("its filter has unknown bits");
    if (options != 0)
        refuse("options other than 0 are reserved");
    if (filter == 0)
        return EventRegistrationHandler([held = std::move(observer)] {});

    auto target = std::dynamic_pointer_cast<IReferenceObserver>(std::move(observer));
    if (!target)
        refuse("its filter asks for references, but it is no reference observer");
    auto recipient = std::make_shared<Recipient<IReferenceObserver>>(std::move(target), affinityId,
                                                                     NameOf(session));
    EventRegistrationHandler handler(
        [list = std::weak_ptr(observers), dispatcher = environment.dispatcher, recipient] {
            EndRecipient(*dispatcher, list.lock().get(), recipient);
        });
    observers->Add(std::move(recipient));
    return handler;
}

void BasicNode::NotifyReferenceAdded(const ReferenceData& reference) const
{
    GetDispatcher().NotifyAll(*observers, [&reference](IReferenceObserver& observer) {
        observer.OnReferenceAdded(reference);
    });
}

void BasicNode::NotifyReferenceRemoved(const ReferenceData& reference) const
{
    GetDispatcher().NotifyAll(*observers, [&reference](IReferenceObserver& observer) {
        observer.OnReferenceRemoved(reference);
    });
}

void BasicNode::EndNotifications()
{
    EndAll(GetDispatcher(), *observers);
}

ObjectTypeNode::ObjectTypeNode(NodeIdentity identity, NodeEnvironment environment,
                               std::string displayName, EventArguments arguments,
                               BaseEventFields::Outcomes outcomes)
    : BasicNode(std::move(identity), std::move(environment))
    , displayName(std::move(displayName))
    , arguments(std::move(arguments))
    , baseFields(this->arguments, std::move(outcomes))
{}

ObjectNode::ObjectNode(NodeIdentity identity, NodeEnvironment environment, ObjectRole role,
                       bool isFolder)
    : BasicNode(std::move(identity), std::move(environment))
    , role(role)
    , isFolder(isFolder)
    , subscribers(std::make_shared<Subscribers>())
{}

void ObjectNode::RaiseEvent(const std::shared_ptr<IObjectType>& eventType,
                            const std::vector<Value>& fields)
{
    const auto refuse = [this](const std::string& reason) {
        throw InvalidArgumentException("Cannot raise an event on object " + GetNodeId().ToString() +
                                       ": " + reason);
    };
    if (!eventType)
        refuse("it has no type");
    const auto size = eventType->GetEventArguments().GetFieldsSize();
    if (size == 0)
        refuse("type " + eventType->GetNodeId().ToString() + " is no event type");
    if (fields.size() != size)
        refuse("type " + eventType->GetNodeId().ToString() + " has " + std::to_string(size) +
               " fields, not " + std::to_string(fields.size()));

    if (!subscribers->Get())
        return;
    const auto event = MakeEvent(eventType, fields);
    GetDispatcher().NotifyAll(
        *subscribers, [&event](const Embedding::EventCallback& callback) { callback(event); },
        this);
}

std::shared_ptr<const Embedding::Event>
ObjectNode::MakeEvent(const std::shared_ptr<IObjectType>& eventType,
                      const std::vector<Value>& fields) const
{
    auto event = std::make_shared<Embedding::Event>();
    event->type = eventType;
    event->source = GetNodeId();
    event->fields = fields;
    if (const auto* type = dynamic_cast<const ObjectTypeNode*>(eventType.get()))
        type->FillBaseFields(event->fields, *this);
    else
        BaseEventFields(eventType->GetEventArguments())
            .Fill(event->fields, *this, eventType->GetNodeId(),
                  eventType->GetBrowseName().GetName());
    return event;
}

Embedding::EventSubscription ObjectNode::Subscribe(Embedding::EventCallback callback)
{
    auto recipient = std::make_shared<Recipient<const Embedding::EventCallback>>(
        std::make_shared<const Embedding::EventCallback>(std::move(callback)), 0, std::string());
    Embedding::EventSubscription subscription(
        [list = std::weak_ptr(subscribers), dispatcher = GetEnvironment().dispatcher, recipient] {
            EndRecipient(*dispatcher, list.lock().get(), recipient);
            dispatcher->AwaitNotifications(*recipient);
        });
    subscribers->Add(std::move(recipient));
    return subscription;
}

void ObjectNode::EndNotifications()
{
    BasicNode::EndNotifications();
    EndAll(GetDispatcher(), *subscribers);
}

} // namespace Core
