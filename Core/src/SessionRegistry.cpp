#include "SessionRegistry.h"

#include "Core/Embedding/InformationModel.h"
#include "Core/Exception.h"

#include <utility>
#include <vector>

namespace Core {

namespace {

/// Returns the session for which this thread works.
std::shared_ptr<Embedding::Session>& CurrentSession()
{
    static thread_local std::shared_ptr<Embedding::Session> session;
    return session;
}

} // namespace

SessionImplementation::SessionImplementation(std::weak_ptr<SessionRegistry> registry,
                                             std::shared_ptr<IObject> object, std::string name)
    : registry(std::move(registry))
    , id(object->GetNodeId())
    , name(std::move(name))
    , object(std::move(object))
{}

std::shared_ptr<IObject> SessionImplementation::GetSessionObject()
{
    const Support::Lock lock(mutex);
    return object;
}

void SessionImplementation::Close()
{
    {
        const Support::Lock lock(mutex);
        refusesCalls = true;
        if (std::exchange(isClosed, true) || callsInFlight > 0)
            return;
    }
    Announce();
}

void SessionImplementation::RefuseCalls() noexcept
{
    const Support::Lock lock(mutex);
    refusesCalls = true;
}

bool SessionImplementation::IsClosed() const noexcept
{
    const Support::Lock lock(mutex);
    return refusesCalls;
}

bool SessionImplementation::BelongsTo(const SessionRegistry& candidate) const noexcept
{
    const auto other = candidate.weak_from_this();
    return !registry.owner_before(other) && !other.owner_before(registry);
}

void SessionImplementation::BeginCall()
{
    const Support::Lock lock(mutex);
    if (refusesCalls)
        throw SessionClosedException("Session '" + name + "' (" + id.ToString() +
                                     ") takes no calls: it has been closed");
    ++callsInFlight;
}

void SessionImplementation::EndCall()
{
    {
        const Support::Lock lock(mutex);
        if (--callsInFlight > 0 || !isClosed)
            return;
    }
    Announce();
}

void SessionImplementation::Announce()
{
    if (const auto owner = registry.lock())
        owner->Announce(*this);
}

void SessionImplementation::ForgetObject()
{
    std::shared_ptr<IObject> forgotten; // released after the lock
    const Support::Lock lock(mutex);
    forgotten.swap(object);
}

SessionCall::SessionCall(std::shared_ptr<SessionImplementation> session)
    : session(std::move(session))
{
    this->session->BeginCall();
}

SessionRegistry::SessionRegistry(std::shared_ptr<AddressSpace> addressSpace)
    : addressSpace(std::move(addressSpace))
{}

std::shared_ptr<SessionHandler> SessionRegistry::GetCurrentSession() const
{
    auto session = std::dynamic_pointer_cast<SessionImplementation>(CurrentSession());
    return session && session->BelongsTo(*this) ? session : nullptr;
}

std::shared_ptr<Embedding::Session> SessionRegistry::Open(const std::string& name,
                                                          const NodeEnvironment& environment)
{
    auto node = std::make_shared<ObjectNode>(
        NodeIdentity{NodeId(1, Guid::Random()), QualifiedName(1, name)}, environment,
        ObjectRole::Session, false);
    const auto& id = node->GetNodeId();
    auto session = std::make_shared<SessionImplementation>(weak_from_this(), node, name);
    AddressSpace::Changes changes;
    {
        const Support::Lock lock(mutex);
        if (isEnding)
            throw InvalidStateException("Session '" + name +
                                        "' cannot be opened: the runtime is ending");
        changes = addressSpace->Add(
            {node}, {{References::organizes, Objects::SessionsFolder(), id},
                     {References::hasTypeDefinition, id, Embedding::BaseTypes::baseObjectType}});
        sessions.emplace(id, session);
    }
    AddressSpace::NotifyAdded(changes);
    return session;
}

std::shared_ptr<SessionImplementation>
SessionRegistry::Require(const std::shared_ptr<Embedding::Session>& session) const
{
    auto own = std::dynamic_pointer_cast<SessionImplementation>(session);
    if (!own)
        throw InvalidArgumentException("A call needs a session that the runtime has opened");
    if (!own->BelongsTo(*this))
        throw InvalidArgumentException("Session '" + own->GetName() + "' (" +
                                       own->GetNodeId().ToString() + ") is of another runtime");
    return own;
}

void SessionRegistry::Announce(SessionImplementation& session)
{
    const auto removal = addressSpace->Remove(session.GetNodeId());
    session.ForgetObject();
    AddressSpace::NotifyRemoved(removal.changes);
    removal.node->EndNotifications();

    OpenSessions::node_type extracted; // released after the lock
    const Support::Lock lock(mutex);
    extracted = sessions.extract(session.GetNodeId());
    if (sessions.empty())
        isEmpty.NotifyAll();
}

void SessionRegistry::CloseAll()
{
    std::vector<std::shared_ptr<SessionImplementation>> open;
    {
        const Support::Lock lock(mutex);
        isEnding = true;
        for (const auto& [id, session] : sessions)
            open.push_back(session);
    }
    for (const auto& session : open)
        session->Close();
    Support::Lock lock(mutex);
    while (!sessions.empty())
        isEmpty.Wait(lock);
}

} // namespace Core

namespace Core::Embedding {

Session::~Session() = default;

SessionScope::SessionScope(std::shared_ptr<Session> session)
    : previous(std::exchange(CurrentSession(), std::move(session)))
{}

SessionScope::~SessionScope()
{
    CurrentSession() = std::move(previous);
}

} // namespace Core::Embedding
