#pragma once

#include "Core/Embedding/Runtime.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/UnclaimedSessions.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <chrono>
#include <functional>
#include <map>
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

/// Decides about a login. Loop thread.
using Authenticate = std::function<LoginAnswer(const LoginAttempt&)>;

struct SessionRules
{
    bool anonymousAllowed = false;
    bool usersAllowed = false;
    /// Sessions that are at work, ended ones included. There may be as many more that are created
    /// and not activated, and a quarter more while others that lost their connection end for them.
    std::size_t maximum = 100;
    /// How long a session outlives its connection.
    std::chrono::milliseconds grace{5'000};
};

/// The server's access control: lets clients in, follows their sessions, and says what they may do.
///
/// A session of the host's runtime is opened for each client session, and closed after its last
/// call in flight. A session whose connection is gone is closed after the grace, or when its place
/// is needed, unless the client activates it on another connection before. Clients learn nothing
/// of the sessions of others: the library's objects that describe them are not made. Loop thread,
/// unless it says otherwise.
class Sessions
{
public:
    /// Told on the loop thread when a session ends, before its jobs do.
    using Ended = std::function<void(ClientSession&)>;

    Sessions(EventLoop& loop, Core::Embedding::Runtime& runtime, SessionRules rules,
             Authenticate authenticate);
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;
    /// Waits for the jobs of all sessions.
    ~Sessions();

    /// Says which variables a session may read the value of. Loop thread.
    using IsReadable = std::function<bool(const UA_NodeId& node, const ClientSession* session)>;
    void SetReadability(IsReadable observer) { isReadable = std::move(observer); }
    void SetEndedObserver(Ended observer) { ended = std::move(observer); }

    /// Makes this the access control of a server; what it had before is cleared.
    void Install(UA_ServerConfig& configuration);

    /// Null when no session is active on the connection.
    [[nodiscard]] ClientSession* Find(ConnectionId connection) const;

    /// For the loop's observer of closed connections.
    void OnConnectionClosed(UA_Server& server, ConnectionId connection);

    /// Logs, once each, the sessions that ended before the limit and are still at work.
    void ReportUndrained(std::chrono::milliseconds limit);

    /// Closes the sessions that clients created and have not activated within half a minute. To be
    /// called now and then.
    void CloseUnclaimed(UA_Server& server);

    /// Waits for the jobs of all sessions, without a limit, and forgets them. The server is gone.
    void Clear() { sessions.clear(); }

    /// Waits for the jobs of all sessions; false when some are still at work after the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit);

private:
    struct Callbacks;
    using SessionList = std::vector<std::unique_ptr<ClientSession>>;

    UA_StatusCode Activate(UA_Server& server, const UA_NodeId& id, const UA_ExtensionObject& token,
                           void** context);
    void OnCreated(UA_Server& server, const UA_Guid& id);
    [[nodiscard]] UA_StatusCode Authorise(std::optional<UserCredentials> credentials,
                                          const ConnectionInfo& connection, bool isReturn);
    void PauseLogins(std::chrono::milliseconds pause, ConnectionId except);
    void ResumeLogins();
    void Hold(ConnectionId connection);
    [[nodiscard]] UA_StatusCode Readmit(ClientSession& session,
                                        const std::optional<UserCredentials>& credentials,
                                        const ConnectionInfo& connection);
    [[nodiscard]] bool HasPlace(UA_Server& server);
    [[nodiscard]] ClientSession* FindFirstToLeave() const;
    void Admit(UA_Server& server, const UA_NodeId& id, const std::string& user, void** context);
    void Open(UA_Server& server, ClientSession& session);
    void End(ClientSession& session);
    void StopGrace(ClientSession& session);
    void Forget(const ClientSession& session);
    EventLoop& loop;
    Core::Embedding::Runtime& runtime;
    SessionRules rules;
    Authenticate authenticate;
    IsReadable isReadable;
    Ended ended;
    std::vector<UA_UserTokenPolicy> tokenPolicies; // views of literals
    SessionList sessions;                          // active and ending ones
    UnclaimedSessions unclaimed;
    std::vector<ConnectionId> held; // not read, since a login would come too soon; in their order
    std::uint64_t pauseTimer = 0;   // runs while logins pause; 0: they do not
};

} // namespace Host
