#include "Endpoint/Endpoint.h"

#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "Endpoint/DataTypeDefinitions.h"
#include "Endpoint/EventBacklog.h"
#include "Endpoint/EventFilters.h"
#include "Endpoint/EventPacing.h"
#include "Endpoint/EventRelay.h"
#include "Endpoint/MemoryTrim.h"
#include "Endpoint/MethodCalls.h"
#include "Endpoint/NamespaceMetadata.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/NodeStore.h"
#include "Endpoint/Objects.h"
#include "Endpoint/ServerFacts.h"
#include "Endpoint/StructureTypes.h"
#include "Endpoint/TypeProjection.h"
#include "Endpoint/Ua.h"
#include "Endpoint/Values.h"
#include "Log/Log.h"
#include "Log/UaLogger.h"
#include "Network/EventLoop.h"
#include "OpcUa/SymmetricCiphers.h"
#include "Users/RandomNumbers.h"

#include <open62541/plugin/pki_default.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <limits>
#include <optional>
#include <utility>

#include <malloc.h>

namespace Host {
namespace {

using Core::Embedding::NewObject;

/// In the namespace of the host. The numbers are published.
constexpr unsigned int fileSystemsFolder = 1;
constexpr unsigned int createFileSystemMethod = 2;
constexpr unsigned int createFileSystemOutputs = 3;

constexpr double neverInMilliseconds = 1e12;

using TimePoint = std::chrono::steady_clock::time_point;

std::chrono::milliseconds TimeUntil(TimePoint end)
{
    const auto left = end - std::chrono::steady_clock::now();
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(left),
                    std::chrono::milliseconds(0));
}

/// A node that every session uses.
struct SharedNode
{
    Core::NodeId id;
    Core::Embedding::EventSubscription subscription;
    WorkerThread closing; // removes it at the end; started with it, since that must not fail then
};

struct ServerDeleter
{
    void operator()(UA_Server* server) const noexcept
    {
        if (UA_Server_getLifecycleState(server) == UA_LIFECYCLESTATE_STARTED)
            UA_Server_run_shutdown(server); // what came after its start has failed
        UA_Server_delete(server);
    }
};
using ServerPointer = std::unique_ptr<UA_Server, ServerDeleter>;

UA_ByteString ViewOf(const std::vector<unsigned char>& bytes)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
    return {bytes.size(), const_cast<UA_Byte*>(bytes.data())};
}

std::vector<UA_ByteString> ViewsOf(const std::vector<std::vector<unsigned char>>& files)
{
    std::vector<UA_ByteString> views;
    views.reserve(files.size());
    for (const auto& file : files)
        views.push_back(ViewOf(file));
    return views;
}

ConnectionLimits MakeConnectionLimits(const EndpointSettings& settings)
{
    ConnectionLimits limits;
    limits.outputPause = settings.queuedOutputPause;
    limits.outputLimit = settings.queuedOutput;
    limits.incoming = {settings.maximumMessage, settings.maximumChunks};
    // The output that may wait already and the largest answer behind it are not too much yet.
    limits.outgoing.size =
        std::min(limits.outgoing.size, settings.queuedOutput - settings.queuedOutputPause);
    return limits;
}

/// The one type whose objects have a behaviour.
Core::NodeId FindServedType(const Core::Embedding::InformationModel& model)
{
    std::vector<Core::NodeId> served;
    for (const auto& type : model.GetObjectTypes())
        if (!type.isAbstract && model.GetBehaviourFactory(type.id))
            served.push_back(type.id);
    if (served.size() != 1)
        throw Core::NotFoundException(
            fmt::format("the loaded models have {} object types with a behaviour; one is needed",
                        served.size()));
    return served.front();
}

/// What the library makes by itself at run time: the nodes of events, which keep the fields of the
/// last one, and the diagnostics of sessions. The numbers that it gives them start above those of
/// the standard.
bool TellsOfOthers(const UA_NodeId& node)
{
    constexpr UA_UInt16 serversOwn = 1;
    constexpr UA_UInt32 firstGivenNumber = 50'000;
    constexpr std::array<UA_UInt32, 3> diagnostics{
        UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SUBSCRIPTIONDIAGNOSTICSARRAY,
        UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SESSIONSDIAGNOSTICSSUMMARY_SESSIONDIAGNOSTICSARRAY,
        UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SESSIONSDIAGNOSTICSSUMMARY_SESSIONSECURITYDIAGNOSTICSARRAY};
    if (node.namespaceIndex == serversOwn)
        return true;
    if (node.namespaceIndex != 0 || node.identifierType != UA_NODEIDTYPE_NUMERIC)
        return false;
    const UA_UInt32 number = node.identifier.numeric;
    return number >= firstGivenNumber ||
           std::find(diagnostics.begin(), diagnostics.end(), number) != diagnostics.end();
}

} // namespace

class Endpoint::Implementation
{
public:
    Implementation(Core::Embedding::Runtime& runtime, EndpointSettings settings,
                   Authenticate authenticate);
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    /// The server goes first: what is left of events in its nodes is of the types in `structures`.
    ~Implementation() { server.reset(); }

    [[nodiscard]] std::vector<std::string> GetUrls() const;
    bool Run();
    void Stop();

private:
    [[nodiscard]] ServerPointer MakeServer();
    void SetTransport(UA_ServerConfig& configuration);
    void SetSecurity(UA_ServerConfig& configuration);
    void SetTrust(UA_CertificateVerification& verification) const;
    void SetLimits(UA_ServerConfig& configuration) const;
    void RemoveBaseDictionaries();
    void MakeFolder();
    void MakeSharedNodes();
    void AddCreateFileSystem();
    std::vector<Core::Value> CreateFileSystem(ClientSession& session);
    void ShowOwnObject(const NewObject& object, const ClientSession& session);
    void RemoveOwnObjects(ClientSession& session);
    void GiveMemoryBack();
    void AddHousekeeping();
    [[nodiscard]] bool RemoveSharedNodes(TimePoint end);

    Core::Embedding::Runtime& runtime;
    EndpointSettings settings;
    const int hostNamespace = Core::NamespaceMap::Register(hostUri);
    const std::shared_ptr<const Core::Embedding::InformationModel> model;
    const Core::NodeId servedType;
    const Core::NodeId folder{hostNamespace, fileSystemsFolder};
    UaLogger libraryLog{UaLogger::Source::Library};
    UaLogger transportLog{UaLogger::Source::Transport};
    EventLoop loop;      // after its log
    Sessions sessions;   // after the loop; the server's access control refers to it
    NodeStore nodeStore; // the server's
    ServerPointer server;
    EventFilters filters;        // after the server
    const Namespaces namespaces; // after the server
    const StructureTypes structures;
    const DataTypeDefinitions definitions;
    const Values values;
    Objects objects;
    EventBacklog backlog;
    EventPacing pacing;
    EventRelay events;
    MethodCalls calls;
    std::optional<MemoryTrim> memoryTrim; // empty where memory cannot be read
    std::vector<std::unique_ptr<SharedNode>> sharedNodes;
    std::atomic<bool> stopping{false};
};

Endpoint::Implementation::Implementation(Core::Embedding::Runtime& runtime,
                                         EndpointSettings givenSettings, Authenticate authenticate)
    : runtime(runtime)
    , settings(std::move(givenSettings))
    , model(runtime.GetInformationModel())
    , servedType(FindServedType(*model))
    , loop(transportLog.Get(), MakeConnectionLimits(settings))
    , sessions(loop, runtime, settings.sessions, std::move(authenticate))
    , server(MakeServer())
    , filters(*server, loop, sessions)
    , namespaces(*server)
    , structures(*model, namespaces)
    , definitions(*server, *model, namespaces, structures)
    , values(namespaces, structures)
    , objects(*server, nodeStore, namespaces)
    , backlog(namespaces, settings.waitingEvents)
    , pacing(*server, loop, settings.waitingEvents)
    , events(*server, loop, runtime, namespaces, values, objects, backlog, pacing)
    , calls(*server, loop, runtime, namespaces, values, structures, objects, sessions)
{
    TypeProjection(*server, *model, namespaces).Project();
    definitions.RequireServed(*server);
    AddNamespaceMetadata(*server, *model, namespaces);
    // Work outside of messages is the host's own, or a session's with its own nodes.
    nodeStore.SetRule([this](const UA_NodeId& node) {
        const ConnectionId connection = loop.GetCurrentConnection();
        return connection != 0 && !objects.IsVisible(node, sessions.Find(connection));
    });
    sessions.SetReadability([this](const UA_NodeId& node, const ClientSession* session) {
        return !TellsOfOthers(node) || events.MayRead(node, session);
    });
    sessions.SetEndedObserver([this](ClientSession& session) {
        session.eventGate->Open();
        backlog.Forget(session);
        pacing.Forget(session);
        objects.RemoveOwned(session);
        session.worker.Post([this, &session] { RemoveOwnObjects(session); });
        loop.Post([this, owner = &session] { loop.EndSubscriptions(owner); });
    });
    loop.SetClosedObserver(
        [this](ConnectionId connection) { sessions.OnConnectionClosed(*server, connection); });
    loop.SetSubscriptionOwners(
        [this](ConnectionId connection) { return sessions.Find(connection); });
    if (settings.isMemoryShort)
        loop.SetMemoryBrake(settings.isMemoryShort);
    RemoveBaseDictionaries();
    MakeFolder();
    MakeSharedNodes();
    AddCreateFileSystem();
    RequireGood(UA_Server_run_startup(server.get()), "starting the server");
    PublishFacts(*server, settings, loop.GetListenAddresses());
    if (settings.readMemory)
        memoryTrim.emplace(settings.readMemory());
    AddHousekeeping();
}

ServerPointer Endpoint::Implementation::MakeServer()
{
    RequireUnpredictableSessions();
    UA_ServerConfig configuration{};
    configuration.logging = &libraryLog.Get();
    configuration.eventLoop = loop.GetHandle();
    RequireGood(UA_ServerConfig_setBasics_withPort(&configuration, settings.port),
                "configuring the server");
    SetTransport(configuration);
    SetSecurity(configuration);
    SetLimits(configuration);
    sessions.Install(configuration);
    nodeStore.Install(configuration);
    configuration.context = this;
    configuration.asyncOperationNotifyCallback = [](UA_Server* notifying) noexcept {
        auto& self = *static_cast<Implementation*>(UA_Server_getConfig(notifying)->context);
        try {
            self.calls.TakeAll();
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Call",
                fmt::format("Cannot take a call: {}", exception.what()));
        }
    };
    configuration.monitoredItemRegisterCallback =
        [](UA_Server* registering, const UA_NodeId* /*sessionId*/, void* session,
           const UA_NodeId* node, void* /*nodeContext*/, UA_UInt32 attribute,
           UA_Boolean removed) noexcept {
            if (session == nullptr || attribute != UA_ATTRIBUTEID_EVENTNOTIFIER)
                return;
            auto& self = *static_cast<Implementation*>(UA_Server_getConfig(registering)->context);
            try {
                self.backlog.OnMonitoredItem(*static_cast<const ClientSession*>(session), *node,
                                             removed);
            } catch (const std::exception& exception) {
                Log(Core::LogLevel::Error, "Session",
                    fmt::format("Cannot follow a monitored item: {}", exception.what()));
            }
        };
    // Without a limit the library does not look at the answers at all.
    configuration.asyncOperationTimeout = neverInMilliseconds;
    ServerPointer made(UA_Server_newWithConfig(&configuration));
    if (made == nullptr)
        throw UaException("making the server", UA_STATUSCODE_BADINTERNALERROR);
    return made;
}

void Endpoint::Implementation::SetTransport(UA_ServerConfig& configuration)
{
    UA_Array_delete(configuration.serverUrls, configuration.serverUrlsSize,
                    &UA_TYPES[UA_TYPES_STRING]);
    const std::size_t count = settings.addresses.size();
    configuration.serverUrls =
        static_cast<UA_String*>(UA_Array_new(count, &UA_TYPES[UA_TYPES_STRING]));
    configuration.serverUrlsSize = count;
    for (std::size_t i = 0; i < count; ++i)
        configuration.serverUrls[i] =
            UA_STRING_ALLOC(MakeUrl(settings.addresses[i], settings.port).c_str());

    DescribeApplication(configuration, settings);
}

void Endpoint::Implementation::SetSecurity(UA_ServerConfig& configuration)
{
    const UA_ByteString certificate = ViewOf(settings.certificate);
    const UA_ByteString key = ViewOf(settings.key);
    RequireGood(UA_ServerConfig_addSecurityPolicyNone(&configuration, &certificate),
                "adding the security policy None");
    RequireGood(UA_ServerConfig_addSecurityPolicyBasic256Sha256(&configuration, &certificate, &key),
                "adding the security policy Basic256Sha256");
    RequireGood(
        UA_ServerConfig_addSecurityPolicyAes128Sha256RsaOaep(&configuration, &certificate, &key),
        "adding the security policy Aes128_Sha256_RsaOaep");
    RequireGood(
        UA_ServerConfig_addSecurityPolicyAes256Sha256RsaPss(&configuration, &certificate, &key),
        "adding the security policy Aes256_Sha256_RsaPss");
    for (std::size_t i = 0; i < configuration.securityPoliciesSize; ++i) {
        OpcUa::UseOpenSsl(configuration.securityPolicies[i], &loop.GetMessageObserver());
        const UA_String uri = configuration.securityPolicies[i].policyUri;
        if (i > 0)
            RequireGood(UA_ServerConfig_addEndpoint(&configuration, uri,
                                                    UA_MESSAGESECURITYMODE_SIGNANDENCRYPT),
                        "adding an encrypted endpoint");
        else if (settings.allowsUnencrypted)
            RequireGood(
                UA_ServerConfig_addEndpoint(&configuration, uri, UA_MESSAGESECURITYMODE_NONE),
                "adding the unencrypted endpoint");
    }
    RankEndpoints(configuration);
    // The policy None stays for asking what endpoints there are.
    configuration.securityPolicyNoneDiscoveryOnly = !settings.allowsUnencrypted;
    // Passwords are encrypted on connections that are not, with the server's certificate.
    configuration.allowNonePolicyPassword = false;
    SetTrust(configuration.secureChannelPKI);
    SetTrust(configuration.sessionPKI);
}

void Endpoint::Implementation::SetTrust(UA_CertificateVerification& verification) const
{
    if (verification.clear != nullptr)
        verification.clear(&verification);
    if (settings.trustsAnyClient) {
        UA_CertificateVerification_AcceptAll(&verification);
        return;
    }
    auto trusted = ViewsOf(settings.trusted);
    auto issuers = ViewsOf(settings.issuers);
    auto revoked = ViewsOf(settings.revocationLists);
    RequireGood(UA_CertificateVerification_Trustlist(&verification, trusted.data(), trusted.size(),
                                                     issuers.data(), issuers.size(), revoked.data(),
                                                     revoked.size()),
                "reading the trusted certificates");
}

void Endpoint::Implementation::SetLimits(UA_ServerConfig& configuration) const
{
    // The connections bound what comes in and what goes out; the library's bounds are for both, and
    // break an answer off in its middle.
    constexpr UA_UInt32 unreached = 1U << 30U;
    configuration.tcpMaxMsgSize = unreached;
    configuration.tcpMaxChunks = unreached;
    // The bound of sessions is that of active ones, which `Sessions` keeps. As many more may be
    // about to be activated, and one more that makes an older one leave.
    constexpr std::size_t most = std::numeric_limits<UA_UInt16>::max();
    constexpr std::size_t channelsWithoutSession = 20;
    const auto created = std::min(2 * settings.maximumSessions + 1, most - channelsWithoutSession);
    configuration.maxSessions = static_cast<UA_UInt16>(created);
    configuration.maxSecureChannels = static_cast<UA_UInt16>(created + channelsWithoutSession);
    configuration.maxSubscriptionsPerSession =
        static_cast<UA_UInt32>(settings.subscriptionsPerSession);
    configuration.publishingIntervalLimits = {10, 10'000};
    // Events are delivered ahead of the interval; each vain look counts as one, see EventLoop. A
    // subscription does not outlive its session, however long this is.
    configuration.lifeTimeCountLimits = {12'000, 12'000};
    configuration.keepAliveCountLimits = {1, 100};
    configuration.queueSizeLimits.max = 200'000;
    configuration.maxRetransmissionQueueSize = 8; // one listing's event can have 6 MB
    // A method belongs to its session by the connection that calls: one call after another.
    configuration.maxNodesPerMethodCall = 1'000;
    configuration.pubSubConfig.enableInformationModelMethods = false;
    // The library makes the answer as a whole: each of these can have some kilobytes there, a
    // browsed node some dozens.
    configuration.maxNodesPerRead = 5'000;
    configuration.maxNodesPerWrite = 1'000;
    configuration.maxNodesPerRegisterNodes = 1'000;
    configuration.maxNodesPerNodeManagement = 1'000;
    configuration.maxNodesPerTranslateBrowsePathsToNodeIds = 1'000;
    configuration.maxNodesPerBrowse = 200;
    configuration.maxReferencesPerNode = 1'000;
    configuration.maxMonitoredItemsPerCall = 100; // their filters take the loop's time
    configuration.maxMonitoredItemsPerSubscription = 1'000;
    configuration.maxPublishReqPerSession = 100;
    configuration.maxSubscriptions =
        static_cast<UA_UInt32>(settings.subscriptionsPerSession * settings.maximumSessions);
}

/// The description that the base model has of its own types for clients that have not got them
/// built in: 300 KB each, copied for each read and for each item that monitors them. No client
/// needs them, and nothing else in the address space is as large.
void Endpoint::Implementation::RemoveBaseDictionaries()
{
    for (const UA_UInt32 dictionary :
         {UA_UInt32{UA_NS0ID_OPCUA_BINARYSCHEMA}, UA_UInt32{UA_NS0ID_OPCUA_XMLSCHEMA}})
        RequireGood(UA_Server_deleteNode(server.get(), UA_NODEID_NUMERIC(0, dictionary), true),
                    "removing a dictionary of the base model");
}

void Endpoint::Implementation::MakeFolder()
{
    NewObject object{Core::Embedding::BaseTypes::folderType,
                     Core::QualifiedName(hostNamespace, "FileSystems"),
                     Core::Objects::ObjectsFolder(), folder};
    runtime.CreateObject(object);
    objects.Add(object, nullptr);
}

void Endpoint::Implementation::MakeSharedNodes()
{
    for (const std::string& name : settings.sharedNodes) {
        NewObject object{servedType, Core::QualifiedName(hostNamespace, name), folder,
                         Core::NodeId(hostNamespace, name)};
        runtime.CreateObject(object);
        objects.Add(object, nullptr);
        sharedNodes.push_back(std::make_unique<SharedNode>());
        sharedNodes.back()->closing.Start("that removes the shared nodes");
        sharedNodes.back()->id = object.id;
        sharedNodes.back()->subscription = events.Follow(object.id);
    }
}

/// A node of a session's own: a method of the host, since no module knows of sessions' objects.
void Endpoint::Implementation::AddCreateFileSystem()
{
    HostMethod method;
    method.object = folder;
    method.method = Core::NodeId(hostNamespace, createFileSystemMethod);
    method.run = [this](ClientSession& session) {
        return CreateFileSystem(session);
    };
    method.description.id = method.method;
    method.description.browseName = Core::QualifiedName(hostNamespace, "CreateFileSystem");
    method.description.displayName = "CreateFileSystem";
    method.description.description =
        "Makes a file system that only this session can use, browse and hear; it goes with the "
        "session. Subscribe to the events of the node itself.";
    method.description.outputArgumentsId = Core::NodeId(hostNamespace, createFileSystemOutputs);
    method.description.outputs.push_back({"nodeId", Core::NodeId(0, 17), -1, {}, "The new node."});
    TypeProjection(*server, *model, namespaces).AddMethod(folder, method.description);
    calls.Add(std::move(method));
}

std::vector<Core::Value> Endpoint::Implementation::CreateFileSystem(ClientSession& session)
{
    if (session.ownObjectCount >= settings.ownObjectsPerSession)
        throw UaException(fmt::format("the session has its {} file systems already",
                                      settings.ownObjectsPerSession),
                          UA_STATUSCODE_BADRESOURCEUNAVAILABLE);
    NewObject object{servedType, Core::QualifiedName(hostNamespace, "PrivateFileSystem"), folder};
    object.id = runtime.CreateObject(object);
    try {
        session.ownObjects.emplace(object.id, events.Follow(object.id, session.eventGate));
    } catch (...) {
        runtime.RemoveObject(object.id); // nobody else would
        throw;
    }
    ++session.ownObjectCount;
    // Before the answer, which is posted after this.
    loop.Post([this, object, &session] { ShowOwnObject(object, session); });
    return {Core::Value(object.id)};
}

void Endpoint::Implementation::ShowOwnObject(const NewObject& object, const ClientSession& session)
{
    if (!session.ended)
        objects.Add(object, &session);
}

/// On the session's worker thread, after its last call.
void Endpoint::Implementation::RemoveOwnObjects(ClientSession& session)
{
    while (!session.ownObjects.empty()) {
        const Core::NodeId object = session.ownObjects.begin()->first;
        session.ownObjects.erase(session.ownObjects.begin());
        try {
            runtime.RemoveObject(object);
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot remove {}: {}", object.ToString(), exception.what()));
        }
        --session.ownObjectCount;
    }
}

void Endpoint::Implementation::GiveMemoryBack()
{
    if (!memoryTrim || !memoryTrim->IsDue(settings.readMemory(), loop.CountBytes()))
        return;
    malloc_trim(0);
    memoryTrim->NoteTrimmed(settings.readMemory());
}

void Endpoint::Implementation::AddHousekeeping()
{
    constexpr double interval = 1'000;
    const auto keepHouse = [](UA_Server* /*server*/, void* context) noexcept {
        auto& self = *static_cast<Implementation*>(context);
        try {
            LogLeftOut();
            self.sessions.ReportUndrained(self.settings.drain);
            self.loop.CloseAbandonedConnections();
            self.loop.CloseOverdueConnections();
            self.sessions.CloseUnclaimed(*self.server);
            self.GiveMemoryBack();
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot look after the sessions: {}", exception.what()));
        }
    };
    RequireGood(UA_Server_addRepeatedCallback(server.get(), keepHouse, this, interval, nullptr),
                "adding a timer");
}

std::vector<std::string> Endpoint::Implementation::GetUrls() const
{
    return FindReachableUrls(loop.GetListenAddresses());
}

bool Endpoint::Implementation::Run()
{
    while (!stopping)
        UA_Server_run_iterate(server.get(), true);
    UA_Server_run_shutdown(server.get());
    const auto end = std::chrono::steady_clock::now() + settings.drain;
    const bool areNodesDone = RemoveSharedNodes(end);
    return sessions.WaitIdle(TimeUntil(end)) && areNodesDone;
}

/// Behind what is queued at them, each by itself: one that is stuck keeps no other.
bool Endpoint::Implementation::RemoveSharedNodes(TimePoint end)
{
    for (const auto& node : sharedNodes)
        node->closing.Post([this, &node = *node] {
            runtime.RemoveObject(node.id);
            node.subscription.Reset();
        });
    bool areAllDone = true;
    for (const auto& node : sharedNodes) {
        if (node->closing.WaitIdle(TimeUntil(end)))
            continue;
        areAllDone = false;
        Log(Core::LogLevel::Warning, "Host",
            fmt::format("The shared node {} has not come to its end after {} ms",
                        node->id.ToString(), settings.drain.count()));
    }
    return areAllDone;
}

void Endpoint::Implementation::Stop()
{
    stopping = true;
    loop.Wake();
}

Endpoint::Endpoint(Core::Embedding::Runtime& runtime, EndpointSettings settings,
                   Authenticate authenticate)
    : implementation(
          std::make_unique<Implementation>(runtime, std::move(settings), std::move(authenticate)))
{}

Endpoint::~Endpoint() = default;

std::vector<std::string> Endpoint::GetUrls() const
{
    return implementation->GetUrls();
}

bool Endpoint::Run()
{
    return implementation->Run();
}

void Endpoint::Stop()
{
    implementation->Stop();
}

} // namespace Host
