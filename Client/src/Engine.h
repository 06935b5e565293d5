#pragma once

#include "Client/Connection.h"
#include "EventLoop.h"
#include "Ticket.h"
#include "TrustStore.h"

#include <open62541/client.h>
#include <open62541/plugin/log.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Client {

class EndpointList;
class Engine;

/// What hears the events of one node. Its operations run on the engine's thread.
class EventListener
{
public:
    EventListener() = default;
    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;
    virtual ~EventListener() = default;

    /// The connection is back. Throws what the server refuses.
    virtual void OnConnected(bool isSameSession) = 0;
    /// What was asked for and not answered will not be.
    virtual void OnLost() = 0;
    /// The connection will not come back, or the listener leaves: calls that wait and what they
    /// belong to would keep each other.
    virtual void OnDead() = 0;
    virtual void OnEvent(std::size_t count, UA_Variant* fields) = 0;
};

/// Numbers of the server's namespaces that this library needs.
struct Namespaces
{
    std::vector<std::string> uris;
    UA_UInt16 host = 0;
    UA_UInt16 files = 0;
};

/// The one thread that drives the OPC UA client: connects, sends the calls that others post, and
/// tells what comes of them. Makes a lost connection again.
class Engine
{
public:
    /// Connects on the calling thread. Throws as Connection's constructor does.
    Engine(ConnectionOptions options, const Cancellation* cancellation);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine();

    /// Closes the session and ends the thread; nothing can be asked afterwards. REQUIRES: every
    /// listener has left.
    void Close() noexcept;

    /// Any thread. The ticket's flags are set in any case.
    void Post(TicketPointer ticket);

    /// Runs on the engine's thread while it is connected, and waits for it. Throws what it throws,
    /// and ConnectionLostException. Not for the engine's thread.
    void Run(const std::function<void()>& function);

    /// Lets the listener hear nothing from now on, and waits for that, also when the connection is
    /// lost. Not for the engine's thread.
    void Leave(EventListener& listener) noexcept;

    /// Has the connection made again since a call is waited for no longer: what comes for it later
    /// would be taken for the answer to another one. Any thread.
    void GiveUp(const std::string& reason);
    /// Returns in words that the call had no answer. Any thread.
    [[nodiscard]] std::string DescribeOverdue(const Ticket& ticket) const;

    /// From that time on there is no connection, and none is made. Any thread.
    void EndBy(std::chrono::steady_clock::time_point deadline) noexcept;

    /// Returns what the server is recognised by, whatever URL leads there: its certificate, or its
    /// URL where it shows none. Any thread.
    [[nodiscard]] const std::string& GetServer() const noexcept
    {
        return fingerprint.empty() ? options.url : fingerprint;
    }
    [[nodiscard]] const ConnectionOptions& GetOptions() const noexcept { return options; }

    // For the engine's thread.

    void Add(EventListener& listener);
    [[nodiscard]] UA_Client* GetClient() const noexcept { return client.get(); }
    [[nodiscard]] const Namespaces& GetNamespaces() const noexcept { return namespaces; }
    /// Subscribes to the events of a node, in place of what the listener had subscribed to. Throws
    /// CallRefusedException, ConnectionLostException.
    void Subscribe(const UA_NodeId& node, EventListener& listener);
    /// Closes the connection, to make it again: for when events are missing.
    void Break(std::string_view reason) noexcept;
    [[nodiscard]] ServerInfo AskInfo();

    /// Why there is no connection any more. Any thread.
    [[nodiscard]] std::string GetLossReason() const;
    [[nodiscard]] bool IsDead() const noexcept { return isDead; }

private:
    struct ClientDeleter
    {
        void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
    };
    using ClientPointer = std::unique_ptr<UA_Client, ClientDeleter>;
    struct Departure
    {
        EventListener* listener;
        std::promise<void>* promise;
    };
    struct Member
    {
        EventListener* listener;
        std::string session; // the token of the one that it has heard of
    };
    static constexpr UA_UInt32 sessionTimeout = 3'600'000; // ms
    using Function = std::pair<const std::function<void()>*, std::promise<void>*>;

    // In Connecting.cpp, up to IsActivated.
    void Connect(const Cancellation* cancellation);
    [[nodiscard]] const UA_EndpointDescription& Choose(const EndpointList& endpoints,
                                                       const std::string& server) const;
    [[nodiscard]] const UA_UserTokenPolicy&
    ChooseToken(const UA_EndpointDescription& endpoint) const;
    void RequireTrust(const std::string& server) const;
    void RequireUnknown(const std::string& server) const;
    void SetEncryption(UA_ClientConfig& configuration) const;
    void SetSecurity(const UA_EndpointDescription& endpoint);
    void SetIdentity(const UA_EndpointDescription& endpoint, const UA_UserTokenPolicy& token);
    [[noreturn]] void ThrowNotConnected(UA_StatusCode status) const;
    void AwaitSession(Waiter::Deadline deadline, const Cancellation* cancellation);
    [[nodiscard]] bool IsActivated(UA_StatusCode& status) const;
    void ReadNamespaces();
    void DescribeTypes();
    [[nodiscard]] std::string GetSessionToken() const;

    void RunThread();
    void TakePosted();
    void RunFunctions();
    [[nodiscard]] bool HasWork();
    void RunDepartures();
    void TakeOverdue();
    void SendPosted();
    void Send(const TicketPointer& ticket);
    static void OnAnswer(UA_Client* client, void* userdata, UA_UInt32 request,
                         void* response) noexcept;
    void TakeAnswer(const TicketPointer& ticket, const UA_CallResponse& response);
    void HandleLoss();
    bool Reconnect();
    bool TryReconnect(Waiter::Deadline deadline);
    void TellConnected(const std::string& session);
    void TellLost();
    void Unsubscribe(EventListener& listener) noexcept;
    void DeleteLeftSubscriptions() noexcept;
    static void OnEvent(UA_Client* client, UA_UInt32 subscription, void* subscriptionContext,
                        UA_UInt32 item, void* itemContext, std::size_t count,
                        UA_Variant* fields) noexcept;
    void Die(const std::string& reason);
    void Report(const std::string& text) const;
    [[nodiscard]] bool HasEnded() const noexcept;

    const ConnectionOptions options;
    std::string lastLog; // what the library said last of why it failed
    UA_Logger logger{};
    EventLoop loop; // after the logger
    std::vector<unsigned char> serverCertificate;
    bool isEncrypting = false; // the messages, or at least the password
    std::string securityPolicy;
    std::string securityMode;
    std::string applicationName;
    std::string applicationUri;
    std::string fingerprint;
    Namespaces namespaces;
    std::array<UA_DataTypeMember, 3> listItemMembers{};
    UA_DataType listItem{};
    UA_DataTypeArray types{nullptr, 1, &listItem, false};
    ClientPointer client; // after what it refers to

    // Of the engine's thread.
    std::vector<Member> members;
    // Who hears of which subscription. The library knows their numbers only, so that what arrives
    // for one who has left finds nobody.
    std::map<UA_UInt32, EventListener*> subscriptions;
    std::vector<UA_UInt32> leftSubscriptions; // to be deleted when there is a connection
    std::deque<TicketPointer> ready;
    std::string sessionToken; // of the session that the namespaces were read in
    std::string breakReason;
    bool isConnected = true;

    mutable std::mutex mutex; // guards what follows
    std::vector<TicketPointer> posted;
    std::vector<Function> functions;
    std::vector<Departure> departures;
    std::string lossReason;
    std::string overdue; // the call that is waited for no longer

    Waiter interruption; // ends waiting between two attempts to connect
    std::atomic<bool> isStopping{false};
    std::atomic<bool> isDead{false};
    std::atomic<std::chrono::steady_clock::rep> end{
        std::chrono::steady_clock::duration::max().count()};
    std::thread thread; // last
};

/// Runs a request of the library, names what failed. Throws CallRefusedException.
void RequireGood(UA_StatusCode status, const std::string& what);

/// Statuses that say that the connection or the session is gone, rather than that a request is
/// refused.
[[nodiscard]] bool IsLoss(UA_StatusCode status) noexcept;

} // namespace Client
