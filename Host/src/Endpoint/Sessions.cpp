#include "Endpoint/Sessions.h"

#include "Endpoint/LibraryAssumptions.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <map>
#include <system_error>
#include <utility>

namespace Host {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

constexpr UA_Byte readOnly = UA_ACCESSLEVELMASK_READ;

/// Reads a token: credentials, an empty optional for an anonymous one, nothing for any other kind,
/// since certificates of users are never accepted.
std::optional<std::optional<UserCredentials>> ReadToken(const UA_ExtensionObject& token)
{
    const bool isDecoded = token.encoding == UA_EXTENSIONOBJECT_DECODED ||
                           token.encoding == UA_EXTENSIONOBJECT_DECODED_NODELETE;
    if (token.encoding == UA_EXTENSIONOBJECT_ENCODED_NOBODY)
        return std::optional<UserCredentials>(); // an empty token is an anonymous one
    if (!isDecoded)
        return std::nullopt;
    const auto& content = token.content.decoded;
    if (content.type == &UA_TYPES[UA_TYPES_ANONYMOUSIDENTITYTOKEN])
        return std::optional<UserCredentials>();
    if (content.type != &UA_TYPES[UA_TYPES_USERNAMEIDENTITYTOKEN])
        return std::nullopt;
    const auto& login = *static_cast<const UA_UserNameIdentityToken*>(content.data);
    return UserCredentials{std::string(BytesOf(login.userName)),
                           std::string(BytesOf(login.password))};
}

std::string NameOf(const std::string& user)
{
    return user.empty() ? "anonymous" : "'" + user + "'";
}

/// The library brings the methods of the whole base model. Of these clients may call the two that
/// concern their own subscriptions; some of the others change the address space.
bool IsCallable(const UA_NodeId& method)
{
    constexpr UA_UInt16 firstOfOurs = 2; // after the base model and the server itself
    if (method.namespaceIndex >= firstOfOurs)
        return true;
    return method.namespaceIndex == 0 && method.identifierType == UA_NODEIDTYPE_NUMERIC &&
           (method.identifier.numeric == UA_NS0ID_SERVER_GETMONITOREDITEMS ||
            method.identifier.numeric == UA_NS0ID_SERVER_RESENDDATA);
}

void Close(UA_Server& server, const std::vector<UA_Guid>& ids)
{
    for (const UA_Guid& id : ids) {
        const UA_NodeId node = UA_NODEID_GUID(1, id);
        static_cast<void>(UA_Server_closeSession(&server, &node));
    }
}

UA_UserTokenPolicy MakePolicy(const char* id, UA_UserTokenType type)
{
    UA_UserTokenPolicy policy;
    UA_UserTokenPolicy_init(&policy);
    policy.policyId = ViewOf(id);
    policy.tokenType = type;
    return policy;
}

} // namespace

/// The library's callbacks. No exception passes them.
struct Sessions::Callbacks
{
    static Sessions& Self(UA_AccessControl* control)
    {
        return *static_cast<Sessions*>(control->context);
    }

    static UA_StatusCode Activate(UA_Server* server, UA_AccessControl* control,
                                  const UA_EndpointDescription* /*endpoint*/,
                                  const UA_ByteString* /*certificate*/, const UA_NodeId* id,
                                  const UA_ExtensionObject* token, void** context) noexcept
    {
        try {
            return Self(control).Activate(*server, *id, *token, context);
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot activate a session: {}", exception.what()));
            return UA_STATUSCODE_BADINTERNALERROR;
        }
    }

    /// The library tells of a created session by the object that it makes for it alone: names this
    /// session, and refuses the object, which others could browse. It asks this before it makes
    /// the object's first child.
    static UA_StatusCode OnChild(UA_Server* server, const UA_NodeId* /*sessionId*/,
                                 void* /*context*/, const UA_NodeId* /*source*/,
                                 const UA_NodeId* parent, const UA_NodeId* /*referenceType*/,
                                 UA_NodeId* /*child*/) noexcept
    {
        if (!IsSessionId(*parent))
            return UA_STATUSCODE_GOOD;
        try {
            Self(&UA_Server_getConfig(server)->accessControl)
                .OnCreated(*server, parent->identifier.guid);
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot follow a session: {}", exception.what()));
        }
        return UA_STATUSCODE_BADNOTSUPPORTED;
    }

    static void Close(UA_Server* /*server*/, UA_AccessControl* control, const UA_NodeId* id,
                      void* context) noexcept
    {
        if (context == nullptr) { // was never let in
            if (IsSessionId(*id))
                Self(control).unclaimed.Remove(id->identifier.guid);
            return;
        }
        try {
            Self(control).End(*static_cast<ClientSession*>(context));
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot end a session: {}", exception.what()));
        }
    }

    static UA_Boolean MayCall(UA_Server* /*server*/, UA_AccessControl* /*control*/,
                              const UA_NodeId* /*sessionId*/, void* /*context*/,
                              const UA_NodeId* method, void* /*methodContext*/) noexcept
    {
        return IsCallable(*method);
    }

    static UA_Boolean MayCallOnObject(UA_Server* /*server*/, UA_AccessControl* /*control*/,
                                      const UA_NodeId* /*sessionId*/, void* /*context*/,
                                      const UA_NodeId* method, void* /*methodContext*/,
                                      const UA_NodeId* object, void* /*objectContext*/) noexcept
    {
        const UA_NodeId serverObject = UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER);
        return IsCallable(*method) &&
               (method->namespaceIndex != 0 || UA_NodeId_equal(object, &serverObject));
    }

    static UA_Byte GetAccessLevel(UA_Server* /*server*/, UA_AccessControl* control,
                                  const UA_NodeId* /*sessionId*/, void* context,
                                  const UA_NodeId* node, void* /*nodeContext*/) noexcept
    {
        try {
            const auto* session = static_cast<const ClientSession*>(context);
            return Self(control).isReadable(*node, session) ? readOnly : 0;
        } catch (const std::exception&) {
            return 0;
        }
    }
};

Sessions::Sessions(EventLoop& loop, Core::Embedding::Runtime& runtime, SessionRules rules,
                   Authenticate authenticate)
    : loop(loop)
    , runtime(runtime)
    , rules(rules)
    , authenticate(std::move(authenticate))
    , isReadable([](const UA_NodeId&, const ClientSession*) { return true; })
    , ended([](ClientSession&) {})
    , unclaimed(rules.maximum)
{
    if (rules.anonymousAllowed)
        tokenPolicies.push_back(MakePolicy("anonymous", UA_USERTOKENTYPE_ANONYMOUS));
    if (rules.usersAllowed)
        tokenPolicies.push_back(MakePolicy("username", UA_USERTOKENTYPE_USERNAME));
}

Sessions::~Sessions() = default;

void Sessions::Install(UA_ServerConfig& configuration)
{
    UA_AccessControl& control = configuration.accessControl;
    if (control.clear != nullptr)
        control.clear(&control);
    control = UA_AccessControl{};
    control.context = this;
    control.clear = [](UA_AccessControl*) {
    };
    control.userTokenPolicies = tokenPolicies.data();
    control.userTokenPoliciesSize = tokenPolicies.size();
    control.activateSession = Callbacks::Activate;
    control.closeSession = Callbacks::Close;
    configuration.nodeLifecycle.generateChildNodeId = Callbacks::OnChild;
    control.allowBrowseNode = [](auto...) -> UA_Boolean {
        return true; // what a session may not know is not in the node store for it
    };

    // Clients read, browse and call; nothing else.
    control.getUserRightsMask = [](auto...) -> UA_UInt32 {
        return 0;
    };
    control.getUserAccessLevel = Callbacks::GetAccessLevel;
    control.getUserExecutable = Callbacks::MayCall;
    control.getUserExecutableOnObject = Callbacks::MayCallOnObject;
    control.allowAddNode = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowAddReference = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowDeleteNode = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowDeleteReference = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowTransferSubscription = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowHistoryUpdateUpdateData = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowHistoryUpdateDeleteRawModified = [](auto...) -> UA_Boolean {
        return false;
    };
}

UA_StatusCode Sessions::Activate(UA_Server& server, const UA_NodeId& id,
                                 const UA_ExtensionObject& token, void** context)
{
    const auto login = ReadToken(token);
    if (!login)
        return UA_STATUSCODE_BADIDENTITYTOKENINVALID;
    const auto& credentials = *login;
    if (credentials ? !rules.usersAllowed : !rules.anonymousAllowed)
        return UA_STATUSCODE_BADIDENTITYTOKENREJECTED;
    const auto connection = loop.GetConnection(loop.GetCurrentConnection());
    if (!connection)
        return UA_STATUSCODE_BADCONNECTIONCLOSED;
    if (!IsSessionId(id))
        throw OpcUa::LibraryException("identifiers of sessions",
                                      "sessions are expected to have Guids");
    if (*context != nullptr)
        return Readmit(*static_cast<ClientSession*>(*context), credentials, *connection);
    // Calls are tied to their session by the connection: one session each.
    if (Find(connection->id) != nullptr)
        return UA_STATUSCODE_BADTOOMANYSESSIONS;
    const UA_StatusCode status = Authorise(credentials, *connection, false);
    if (status != UA_STATUSCODE_GOOD)
        return status;
    if (!HasPlace(server))
        return UA_STATUSCODE_BADTOOMANYSESSIONS;
    const std::string user = credentials ? credentials->user : std::string();
    try {
        Admit(server, id, user, context);
    } catch (const std::system_error& error) {
        Log(Core::LogLevel::Error, "Session",
            fmt::format("Session of {} from {} refused: {}", NameOf(user),
                        connection->remoteAddress, error.what()));
        return UA_STATUSCODE_BADRESOURCEUNAVAILABLE;
    }
    unclaimed.Remove(id.identifier.guid);
    return UA_STATUSCODE_GOOD;
}

/// A session that is already active on the connection forbids another one, which would wait in vain
/// and could be large.
void Sessions::OnCreated(UA_Server& server, const UA_Guid& id)
{
    const auto connection = loop.GetConnection(loop.GetCurrentConnection());
    const bool isInVain = !connection || Find(connection->id) != nullptr;
    if (isInVain)
        loop.Post([&server, id] { Close(server, {id}); });
    else
        Close(server, unclaimed.Add({id, connection->id, connection->remoteAddress,
                                     UnclaimedSessions::Clock::now()}));
    if (!isInVain && pauseTimer != 0)
        Hold(connection->id);
}

UA_StatusCode Sessions::Authorise(std::optional<UserCredentials> credentials,
                                  const ConnectionInfo& connection, bool isReturn)
{
    const auto [status, pause] =
        authenticate({std::move(credentials), connection.remoteAddress, isReturn});
    const bool isIn = status == UA_STATUSCODE_GOOD;
    if (!isIn)
        unclaimed.NoteFailure(connection.id, UnclaimedSessions::Clock::now());
    if (pause > milliseconds(0))
        PauseLogins(pause, isIn ? connection.id : 0);
    return status;
}

/// Holds all connections that may log in next, but one that just has.
void Sessions::PauseLogins(milliseconds pause, ConnectionId except)
{
    const auto resume = [](void* /*application*/, void* context) {
        static_cast<Sessions*>(context)->ResumeLogins();
    };
    UA_EventLoop* handle = loop.GetHandle();
    const UA_DateTime end = handle->dateTime_nowMonotonic(handle) +
                            static_cast<UA_DateTime>(pause.count()) * UA_DATETIME_MSEC;
    if (pauseTimer == 0 && handle->addTimedCallback(handle, resume, nullptr, this, end,
                                                    &pauseTimer) != UA_STATUSCODE_GOOD)
        return;
    for (const ConnectionId connection : unclaimed.GetConnections())
        if (connection != except)
            Hold(connection);
}

void Sessions::Hold(ConnectionId connection)
{
    if (std::find(held.begin(), held.end(), connection) != held.end())
        return;
    held.push_back(connection);
    loop.HoldConnection(connection, true);
}

/// All are read again in their order; the first login that takes time holds the others again. Those
/// whose session had to go meanwhile come last.
void Sessions::ResumeLogins()
{
    pauseTimer = 0;
    auto waiting = unclaimed.GetConnections();
    waiting.insert(waiting.end(), held.begin(), held.end());
    held.clear();
    for (const ConnectionId connection : waiting)
        loop.HoldConnection(connection, false);
}

UA_StatusCode Sessions::Readmit(ClientSession& session,
                                const std::optional<UserCredentials>& credentials,
                                const ConnectionInfo& connection)
{
    if (session.user != (credentials ? credentials->user : std::string()))
        return UA_STATUSCODE_BADUSERACCESSDENIED;
    const ClientSession* other = Find(connection.id);
    if (other != nullptr && other != &session)
        return UA_STATUSCODE_BADTOOMANYSESSIONS;
    const UA_StatusCode status = Authorise(credentials, connection, true);
    if (status != UA_STATUSCODE_GOOD)
        return status;
    StopGrace(session);
    loop.MarkAdmitted(session.connection, false);
    session.connection = connection.id;
    loop.MarkAdmitted(connection.id, true);
    // Too much of it in flight holds its new connection like the one before.
    if (session.heldConnection != 0) {
        loop.HoldConnection(std::exchange(session.heldConnection, connection.id), false);
        loop.HoldConnection(connection.id, true);
    }
    return UA_STATUSCODE_GOOD;
}

/// True if there is a place, or one was made by a session that waits for its client to come back.
bool Sessions::HasPlace(UA_Server& server)
{
    if (sessions.size() < rules.maximum)
        return true;
    // Those that end for others may take their time, and a thread each.
    const std::size_t mostEnding = rules.maximum / 4 + 1;
    ClientSession* leaving = FindFirstToLeave();
    if (leaving == nullptr || sessions.size() >= rules.maximum + mostEnding)
        return false;
    Log(Core::LogLevel::Notice, "Session",
        fmt::format("Session of {} from {}, which lost its connection, ends early: its place is "
                    "needed",
                    NameOf(leaving->user), leaving->address));
    return UA_Server_closeSession(&server, &*leaving->id) == UA_STATUSCODE_GOOD;
}

/// The session without a connection that lost it first, of the user and address that have most of
/// them: nobody pushes out the sessions of others by connecting and leaving. Null if there is none.
ClientSession* Sessions::FindFirstToLeave() const
{
    std::map<std::pair<std::string, std::string>, std::vector<ClientSession*>> detached;
    for (const auto& session : sessions)
        if (!session->ended && session->connection == 0)
            detached[{session->user, session->address}].push_back(session.get());
    const auto most =
        std::max_element(detached.begin(), detached.end(), [](const auto& left, const auto& right) {
            return left.second.size() < right.second.size();
        });
    if (most == detached.end())
        return nullptr;
    return *std::min_element(most->second.begin(), most->second.end(),
                             [](const ClientSession* left, const ClientSession* right) {
                                 return left->detachedAt < right->detachedAt;
                             });
}

/// Every step that can fail comes before the session counts, and gives back what it took.
void Sessions::Admit(UA_Server& server, const UA_NodeId& id, const std::string& user,
                     void** context)
{
    const auto connection = loop.GetConnection(loop.GetCurrentConnection());
    auto session = std::make_unique<ClientSession>();
    UA_NodeId copy;
    if (UA_NodeId_copy(&id, &copy) != UA_STATUSCODE_GOOD)
        throw std::bad_alloc();
    session->id = Ua<UA_NodeId>(copy);
    session->user = user;
    session->address = connection->remoteAddress;
    session->connection = connection->id;
    sessions.reserve(sessions.size() + 1);
    session->worker.Start("for its work");
    // Off the loop: opening is announced to behaviours.
    session->worker.Post([this, &server, &opened = *session] { Open(server, opened); });
    Log(Core::LogLevel::Information, "Session",
        fmt::format("Session of {} from {} opened", NameOf(user), session->address));
    *context = session.get();
    loop.MarkAdmitted(session->connection, true);
    sessions.push_back(std::move(session));
}

/// On the session's worker thread. A session that cannot be opened ends.
void Sessions::Open(UA_Server& server, ClientSession& session)
{
    try {
        session.session = runtime.OpenSession(fmt::format("{}@{}", session.user, session.address));
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Session",
            fmt::format("Session of {} from {} cannot be opened: {}", NameOf(session.user),
                        session.address, exception.what()));
        session.ended = true; // its calls are refused from now on
        loop.Post([&server, &session] {
            static_cast<void>(UA_Server_closeSession(&server, &*session.id));
        });
    }
}

ClientSession* Sessions::Find(ConnectionId connection) const
{
    const auto found =
        std::find_if(sessions.begin(), sessions.end(), [connection](const auto& session) {
            return session->connection == connection && !session->ended;
        });
    return found == sessions.end() || connection == 0 ? nullptr : found->get();
}

void Sessions::OnConnectionClosed(UA_Server& server, ConnectionId connection)
{
    Close(server, unclaimed.TakeOf(connection));
    std::erase(held, connection);
    ClientSession* session = Find(connection);
    if (session == nullptr)
        return;
    session->connection = 0;
    session->detachedAt = std::chrono::steady_clock::now();
    UA_EventLoop* handle = loop.GetHandle();
    const UA_DateTime end =
        handle->dateTime_nowMonotonic(handle) +
        static_cast<UA_DateTime>(duration_cast<milliseconds>(rules.grace).count()) *
            UA_DATETIME_MSEC;
    const auto close = [](void* application, void* context) {
        auto& ending = *static_cast<ClientSession*>(context);
        ending.graceTimer = 0;
        static_cast<void>(
            UA_Server_closeSession(static_cast<UA_Server*>(application), &*ending.id));
    };
    if (handle->addTimedCallback(handle, close, &server, session, end, &session->graceTimer) !=
        UA_STATUSCODE_GOOD)
        close(&server, session);
}

void Sessions::StopGrace(ClientSession& session)
{
    if (session.graceTimer == 0)
        return;
    UA_EventLoop* handle = loop.GetHandle();
    handle->removeCyclicCallback(handle, session.graceTimer);
    session.graceTimer = 0;
}

void Sessions::End(ClientSession& session)
{
    StopGrace(session);
    session.ended = true;
    session.endedAt = std::chrono::steady_clock::now();
    loop.MarkAdmitted(session.connection, false);
    session.connection = 0;
    ended(session);
    // Behind its calls in flight; they end early, since no further call is made for it.
    session.worker.Post([this, &session] {
        if (session.session)
            session.session->Close();
        loop.Post([this, &session] { Forget(session); });
    });
}

void Sessions::Forget(const ClientSession& session)
{
    const auto duration =
        duration_cast<milliseconds>(std::chrono::steady_clock::now() - session.since);
    Log(Core::LogLevel::Information, "Session",
        fmt::format("Session of {} from {} ended after {:.3f} s, {} calls, {} bytes",
                    NameOf(session.user), session.address,
                    static_cast<double>(duration.count()) / 1000.0, session.calls.load(),
                    session.bytes.load()));
    std::erase_if(sessions, [&session](const auto& each) { return each.get() == &session; });
}

void Sessions::ReportUndrained(milliseconds limit)
{
    const auto longAgo = std::chrono::steady_clock::now() - limit;
    for (const auto& session : sessions) {
        if (!session->ended || session->isReported || session->endedAt > longAgo)
            continue;
        session->isReported = true;
        Log(Core::LogLevel::Warning, "Session",
            fmt::format("Session of {} from {} has ended, but its work has not after {} ms",
                        NameOf(session->user), session->address, limit.count()));
    }
}

void Sessions::CloseUnclaimed(UA_Server& server)
{
    constexpr std::chrono::seconds limit{30}; // logins may have to wait for each other
    Close(server, unclaimed.TakeOlderThan(UnclaimedSessions::Clock::now() - limit));
}

bool Sessions::WaitIdle(milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    return std::all_of(sessions.begin(), sessions.end(), [end](const auto& session) {
        const auto left = end - std::chrono::steady_clock::now();
        return session->worker.WaitIdle(
            std::max(duration_cast<milliseconds>(left), milliseconds(0)));
    });
}

} // namespace Host
