#pragma once

#include "AddressSpace.h"
#include "Core/Embedding/Session.h"
#include "Support/Mutex.h"

#include <memory>
#include <string>
#include <unordered_map>

namespace Core {

class SessionRegistry;

class SessionImplementation final : public Embedding::Session,
                                    public std::enable_shared_from_this<SessionImplementation>
{
public:
    SessionImplementation(std::weak_ptr<SessionRegistry> registry, std::shared_ptr<IObject> object,
                          std::string name);

    [[nodiscard]] std::shared_ptr<IObject> GetSessionObject() override EXCLUDES(mutex);
    [[nodiscard]] const NodeId& GetNodeId() const noexcept override { return id; }
    [[nodiscard]] const std::string& GetName() const noexcept override { return name; }
    void Close() override EXCLUDES(mutex);
    void RefuseCalls() noexcept override EXCLUDES(mutex);
    [[nodiscard]] bool IsClosed() const noexcept override EXCLUDES(mutex);

    [[nodiscard]] bool BelongsTo(const SessionRegistry& candidate) const noexcept;

    /// Count the calls in flight. `BeginCall` throws SessionClosedException; each successful one is
    /// followed by one `EndCall`. The last call of a closed session announces the session's
    /// removal.
    void BeginCall() EXCLUDES(mutex);
    void EndCall() EXCLUDES(mutex);

    /// Releases the session object; `GetSessionObject` returns null from then on.
    void ForgetObject() EXCLUDES(mutex);

private:
    void Announce() EXCLUDES(mutex);

    const std::weak_ptr<SessionRegistry> registry;
    const NodeId id;
    const std::string name;

    mutable Support::Mutex mutex;
    std::shared_ptr<IObject> object GUARDED_BY(mutex); // null once the removal is announced
    bool refusesCalls GUARDED_BY(mutex) = false;
    bool isClosed GUARDED_BY(mutex) = false;          // and refuses calls
    unsigned int callsInFlight GUARDED_BY(mutex) = 0; // never rises once calls are refused
};

/// A call of a session, from its beginning to its end.
class SessionCall
{
public:
    /// Throws SessionClosedException.
    explicit SessionCall(std::shared_ptr<SessionImplementation> session);
    SessionCall(const SessionCall&) = delete;
    SessionCall& operator=(const SessionCall&) = delete;
    ~SessionCall() { session->EndCall(); }

private:
    const std::shared_ptr<SessionImplementation> session;
};

/// The sessions of one host, and their objects in the sessions folder.
class SessionRegistry final : public Sessions, public std::enable_shared_from_this<SessionRegistry>
{
public:
    explicit SessionRegistry(std::shared_ptr<AddressSpace> addressSpace);

    [[nodiscard]] std::shared_ptr<SessionHandler> GetCurrentSession() const override;

    /// Throws InvalidStateException once the sessions are being closed.
    [[nodiscard]] std::shared_ptr<Embedding::Session> Open(const std::string& name,
                                                           const NodeEnvironment& environment)
        EXCLUDES(mutex);

    /// Throws InvalidArgumentException for a session of another host.
    [[nodiscard]] std::shared_ptr<SessionImplementation>
    Require(const std::shared_ptr<Embedding::Session>& session) const;

    /// Takes the session's object out of the sessions folder and tells the observers.
    void Announce(SessionImplementation& session) EXCLUDES(mutex);

    /// Closes all sessions and waits until their removals are announced. Sessions are refused from
    /// then on.
    void CloseAll() EXCLUDES(mutex);

private:
    using OpenSessions =
        std::unordered_map<NodeId, std::shared_ptr<SessionImplementation>, HashNodeId>;

    const std::shared_ptr<AddressSpace> addressSpace;
    Support::Mutex mutex;
    Support::Condition isEmpty; // with mutex: `sessions` is empty
    bool isEnding GUARDED_BY(mutex) = false;
    OpenSessions sessions GUARDED_BY(mutex); // each one until its removal is announced
};

} // namespace Core
