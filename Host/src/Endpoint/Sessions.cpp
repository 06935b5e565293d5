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

std::string NameOf(const std::string& user)
{
    return user.empty() ? "anonymous" : "'" + user + "'";
}

void Close(UA_Server& server, const std::vector<UA_Guid>& ids)
{
    for (const UA_Guid& id : ids) {
        const UA_NodeId node = UA_NODEID_GUID(1, id);
        static_cast<void>(UA_Server_closeSession(&server, &node));
    }
}

} // namespace

Sessions::Sessions(EventLoop& loop, Core::Embedding::Runtime& runtime, SessionRules rules,
                   Authenticate authenticate)
    : loop(loop)
    , runtime(runtime)
    , rules(rules)
    , authenticate(std::move(authenticate))
    , ended([](ClientSession&) {})
    , unclaimed(rules.maximum)
    , loginPause(loop, unclaimed)
{}

Sessions::~Sessions() = default;

UA_StatusCode Sessions::Activate(UA_Server& server, const UA_NodeId& id,
                                 const UA_ByteString& certificate,
                                 const std::optional<UserCredentials>& credentials, void** context)
{
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
        Admit(server, id, user, certificate, context);
    } catch (const std::system_error& error) {
        Log(Core::LogLevel::Error, "Session",
            fmt::format("Session of {} from {} refused: {}", NameOf(user),
                        connection->remoteAddress, error.what()));
        return UA_STATUSCODE_BADRESOURCEUNAVAILABLE;
    }
    unclaimed.Remove(id.identifier.guid);
    return UA_STATUSCODE_GOOD;
}

void Sessions::OnCreated(UA_Server& server, const UA_Guid& id)
{
    const auto connection = loop.GetConnection(loop.GetCurrentConnection());
    const bool isInVain = !connection || Find(connection->id) != nullptr;
    if (isInVain)
        loop.Post([&server, id] { Close(server, {id}); });
    else
        Close(server, unclaimed.Add({id, connection->id, connection->remoteAddress,
                                     UnclaimedSessions::Clock::now()}));
    if (!isInVain && loginPause.IsOn())
        loginPause.Hold(connection->id);
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
        loginPause.Begin(pause, isIn ? connection.id : 0);
    return status;
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
    // With too much in flight, the new connection is held like the one before.
    if (session.heldConnection != 0) {
        loop.HoldConnection(std::exchange(session.heldConnection, connection.id), false);
        loop.HoldConnection(connection.id, true);
    }
    return UA_STATUSCODE_GOOD;
}

/// Returns true if there is a place; closes a session that waits for its client to make one.
bool Sessions::HasPlace(UA_Server& server)
{
    if (sessions.size() < rules.maximum)
        return true;
    // Sessions that end for others may take their time, and a thread each.
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

/// Returns the session that has been without a connection longest, of the user and address with
/// most such sessions: nobody pushes out the sessions of others by connecting and leaving. Null if
/// there is none.
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

/// Does every step that can fail before the session counts; each gives back its resources.
void Sessions::Admit(UA_Server& server, const UA_NodeId& id, const std::string& user,
                     const UA_ByteString& certificate, void** context)
{
    const auto connection = loop.GetConnection(loop.GetCurrentConnection());
    auto session = std::make_unique<ClientSession>();
    UA_NodeId copy;
    if (UA_NodeId_copy(&id, &copy) != UA_STATUSCODE_GOOD)
        throw std::bad_alloc();
    session->id = Ua<UA_NodeId>(copy);
    session->number = ++lastNumber;
    session->user = user;
    session->address = connection->remoteAddress;
    session->certificate = BytesOf(certificate);
    session->connection = connection->id;
    sessions.reserve(sessions.size() + 1);
    session->worker.Start("for its work");
    // Off the loop: opening is announced to behaviours.
    session->worker.Post([this, &server, &opened = *session] { Open(server, opened); });
    Log(Core::LogLevel::Information, "Session",
        fmt::format("Session of {} from {} opened, session={}", NameOf(user), session->address,
                    session->number));
    *context = session.get();
    loop.MarkAdmitted(session->connection, true);
    sessions.push_back(std::move(session));
}

/// Opens a session on its worker thread, or ends it.
void Sessions::Open(UA_Server& server, ClientSession& session)
{
    try {
        session.session = runtime.OpenSession(fmt::format("{}@{}", session.user, session.address));
        loop.Post([&session, opened = session.session] {
            session.opened = opened;
            if (session.ended)
                opened->RefuseCalls();
        });
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
    loginPause.Forget(connection);
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

void Sessions::CloseIf(UA_Server& server, const std::function<bool(const ClientSession&)>& mustEnd,
                       const std::string& reason)
{
    for (const auto& session : sessions) {
        if (session->ended || !mustEnd(*session))
            continue;
        Log(Core::LogLevel::Notice, "Session",
            fmt::format("Session of {} from {} is closed: {}", NameOf(session->user),
                        session->address, reason));
        const ConnectionId connection = session->connection;
        static_cast<void>(UA_Server_closeSession(&server, &*session->id));
        loop.CloseConnection(connection);
    }
}

void Sessions::OnClosed(const UA_NodeId& id, ClientSession* session)
{
    if (session != nullptr)
        End(*session);
    else if (IsSessionId(id))
        unclaimed.Remove(id.identifier.guid);
}

void Sessions::End(ClientSession& session)
{
    StopGrace(session);
    session.ended = true;
    session.endedAt = std::chrono::steady_clock::now();
    loop.MarkAdmitted(session.connection, false);
    session.connection = 0;
    ended(session);
    if (session.opened)
        session.opened->RefuseCalls(); // the call in flight need not go on
    // Posted behind its calls in flight, which end early: no further call is made for it.
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
        fmt::format("Session of {} from {} ended after {:.3f} s, {} calls, {} bytes, "
                    "session={}",
                    NameOf(session.user), session.address,
                    static_cast<double>(duration.count()) / 1000.0, session.calls.load(),
                    session.bytes.load(), session.number));
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
            fmt::format("Session of {} from {} ended, but its work has not drained after {} ms",
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

void Sessions::Describe(EndpointMetrics& metrics) const
{
    for (const auto& session : sessions) {
        ++(session->ended ? metrics.endingSessions : metrics.sessions);
        metrics.callsInFlight += session->callsInFlight;
        metrics.inputsInFlight += session->weightInFlight;
    }
}

} // namespace Host
