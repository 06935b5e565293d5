#pragma once

#include "Core/Embedding/Runtime.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/LoginPause.h"
#include "Endpoint/UnclaimedSessions.h"
#include "Metrics/EndpointMetrics.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Host {

/// A client's user name and password.
struct UserCredentials
{
    std::string user;
    std::string password;
};

struct LoginAttempt
{
    std::optional<UserCredentials> credentials; ///< nothing: an anonymous one
    std::string address;                        ///< the client's
    bool isReturn = false;                      ///< to a session of the same user
};

struct LoginAnswer
{
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    std::chrono::milliseconds pause{0}; ///< before the next attempt that is no return
};

/// Decides about a login. Called on the loop thread.
using Authenticate = std::function<LoginAnswer(const LoginAttempt&)>;

struct SessionRules
{
    bool anonymousAllowed = false;
    bool usersAllowed = false;
    /// The number of sessions, including those that have ended and are still at work. As many more
    /// may be created and not activated, and a quarter more while others that lost their connection
    /// end for them.
    std::size_t maximum = 100;
    /// The time for which a session outlives its connection.
    std::chrono::milliseconds grace{5'000};
};

/// The sessions of clients: lets clients in and follows their sessions to the end.
///
/// A session of the host's runtime is opened for each client session, and closed after its last
/// call in flight. A session whose connection is gone is closed after the grace, or when its place
/// is needed, unless the client activates it on another connection before. Loop thread.
class Sessions
{
public:
    /// Called on the loop thread when a session ends, before its jobs do.
    using Ended = std::function<void(ClientSession&)>;

    Sessions(EventLoop& loop, Core::Embedding::Runtime& runtime, SessionRules rules,
             Authenticate authenticate);
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;
    /// Waits for the jobs of all sessions.
    ~Sessions();

    void SetEndedObserver(Ended observer) { ended = std::move(observer); }

    /// Activates a session that a client has created, or moves it to the connection of the current
    /// message. `certificate` is the client's, empty on a connection without encryption. `context`:
    /// the session, null before; set if it is let in. Returns the answer to the client. Throws
    /// OpcUa::LibraryException for an identifier as sessions do not have them.
    UA_StatusCode Activate(UA_Server& server, const UA_NodeId& id, const UA_ByteString& certificate,
                           const std::optional<UserCredentials>& credentials, void** context);

    /// Closes the sessions for which `mustEnd` returns true, with their connections, and logs the
    /// reason.
    void CloseIf(UA_Server& server, const std::function<bool(const ClientSession&)>& mustEnd,
                 const std::string& reason);

    /// Follows a session that a client has created. One on a connection with an active session is
    /// closed: it would wait in vain and could be large.
    void OnCreated(UA_Server& server, const UA_Guid& id);

    /// Ends a session that the server has closed; null: it was never activated.
    void OnClosed(const UA_NodeId& id, ClientSession* session);

    /// Returns null when no session is active on the connection.
    [[nodiscard]] ClientSession* Find(ConnectionId connection) const;

    /// Starts the grace of the session on a connection that has closed.
    void OnConnectionClosed(UA_Server& server, ConnectionId connection);

    /// Logs each session once that has ended longer ago than the limit and is still at work.
    void ReportUndrained(std::chrono::milliseconds limit);

    /// Enters the sessions and their calls in flight.
    void Describe(EndpointMetrics& metrics) const;

    /// Closes the sessions that clients created and have not activated within half a minute. Call
    /// it now and then.
    void CloseUnclaimed(UA_Server& server);

    /// Waits for the jobs of all sessions, without a limit, and forgets the sessions. REQUIRES: the
    /// server is gone.
    void Clear() { sessions.clear(); }

    /// Waits for the jobs of all sessions. Returns false if some have not ended within the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit);

private:
    using SessionList = std::vector<std::unique_ptr<ClientSession>>;

    [[nodiscard]] UA_StatusCode Authorise(std::optional<UserCredentials> credentials,
                                          const ConnectionInfo& connection, bool isReturn);
    [[nodiscard]] UA_StatusCode Readmit(ClientSession& session,
                                        const std::optional<UserCredentials>& credentials,
                                        const ConnectionInfo& connection);
    [[nodiscard]] bool HasPlace(UA_Server& server);
    [[nodiscard]] ClientSession* FindFirstToLeave() const;
    void Admit(UA_Server& server, const UA_NodeId& id, const std::string& user,
               const UA_ByteString& certificate, void** context);
    void Open(UA_Server& server, ClientSession& session);
    void End(ClientSession& session);
    void StopGrace(ClientSession& session);
    void Forget(const ClientSession& session);

    EventLoop& loop;
    Core::Embedding::Runtime& runtime;
    SessionRules rules;
    Authenticate authenticate;
    Ended ended;
    SessionList sessions; // active and ending ones
    std::uint64_t lastNumber = 0;
    UnclaimedSessions unclaimed;
    LoginPause loginPause; // after `unclaimed`, to which it refers
};

} // namespace Host
