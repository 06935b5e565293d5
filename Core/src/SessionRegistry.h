#pragma once

#include "AddressSpace.h"
#include "Core/Embedding/Session.h"

#include <condition_variable>
#include <memory>
#include <mutex>
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

    [[nodiscard]] std::shared_ptr<IObject> GetSessionObject() override;
    [[nodiscard]] const NodeId& GetNodeId() const noexcept override { return id; }
    [[nodiscard]] const std::string& GetName() const noexcept override { return name; }
    void Close() override;
    [[nodiscard]] bool IsClosed() const noexcept override;

    [[nodiscard]] bool BelongsTo(const SessionRegistry& candidate) const noexcept;

    /// Throws SessionClosedException. Every call that began has to end; the last one of a closed
    /// session announces its removal.
    void BeginCall();
    void EndCall();

    /// From here on there is no session object.
    void ForgetObject();

private:
    void Announce();

    const std::weak_ptr<SessionRegistry> registry;
    const NodeId id;
    const std::string name;

    mutable std::mutex mutex;
    std::shared_ptr<IObject> object; // guarded by mutex; null once the removal is announced
    bool isClosed = false;           // guarded by mutex
    unsigned int callsInFlight = 0;  // guarded by mutex; never rises again once isClosed
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
                                                           const NodeEnvironment& environment);

    /// Throws InvalidArgumentException for a session that is not of this host.
    [[nodiscard]] std::shared_ptr<SessionImplementation>
    Require(const std::shared_ptr<Embedding::Session>& session) const;

    /// Takes the session's object out of the sessions folder and tells the observers.
    void Announce(SessionImplementation& session);

    /// Closes all sessions and waits until their removals are announced. None is opened from then
    /// on.
    void CloseAll();

private:
    using OpenSessions =
        std::unordered_map<NodeId, std::shared_ptr<SessionImplementation>, HashNodeId>;

    const std::shared_ptr<AddressSpace> addressSpace;
    std::mutex mutex;
    std::condition_variable isEmpty;
    bool isEnding = false; // guarded by mutex
    OpenSessions sessions; // guarded by mutex; each is in it until its removal has been announced
};

} // namespace Core
