#include "Endpoint/Endpoint.h"

#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "Endpoint/AccessControl.h"
#include "Endpoint/CallAudit.h"
#include "Endpoint/ClientTrust.h"
#include "Endpoint/DataTypeDefinitions.h"
#include "Endpoint/EventBacklog.h"
#include "Endpoint/EventFilters.h"
#include "Endpoint/EventPacing.h"
#include "Endpoint/EventRelay.h"
#include "Endpoint/Housekeeping.h"
#include "Endpoint/LibraryAssumptions.h"
#include "Endpoint/MethodCalls.h"
#include "Endpoint/NamespaceMetadata.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/NodeStore.h"
#include "Endpoint/Objects.h"
#include "Endpoint/OwnObjects.h"
#include "Endpoint/ProvidedNodes.h"
#include "Endpoint/ServerConfiguration.h"
#include "Endpoint/ServerFacts.h"
#include "Endpoint/SharedNodes.h"
#include "Endpoint/StructureTypes.h"
#include "Endpoint/TypeProjection.h"
#include "Endpoint/Ua.h"
#include "Endpoint/Values.h"
#include "Log/Log.h"
#include "Log/UaLogger.h"
#include "Network/EventLoop.h"
#include "Users/RandomNumbers.h"

#include <open62541/server.h>
#include <open62541/types_generated.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Host {
namespace {

using Core::Embedding::NewObject;
using Core::Embedding::ObjectTypeDescription;

/// In the namespace of the host. Published: the number of the first folder for sessions' objects,
/// and those of a folder, its method, and the method's outputs, which follow each other.
constexpr unsigned int firstFolder = 1;
constexpr unsigned int numbersPerFolder = 3;

using TimePoint = std::chrono::steady_clock::time_point;

std::chrono::milliseconds TimeUntil(TimePoint end)
{
    const auto left = end - std::chrono::steady_clock::now();
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(left),
                    std::chrono::milliseconds(0));
}

struct ServerDeleter
{
    void operator()(UA_Server* server) const noexcept
    {
        if (UA_Server_getLifecycleState(server) == UA_LIFECYCLESTATE_STARTED)
            UA_Server_run_shutdown(server); // something after its start has failed
        UA_Server_delete(server);
    }
};
using ServerPointer = std::unique_ptr<UA_Server, ServerDeleter>;

ConnectionLimits MakeConnectionLimits(const EndpointSettings& settings)
{
    ConnectionLimits limits;
    limits.outputPause = settings.queuedOutputPause;
    limits.outputLimit = settings.queuedOutput;
    limits.incoming = {settings.maximumMessage, settings.maximumChunks};
    limits.arrays = GetArrayLimits();
    // Allows the output that may wait already and the largest answer behind it.
    limits.outgoing.size =
        std::min(limits.outgoing.size, settings.queuedOutput - settings.queuedOutputPause);
    return limits;
}

/// Returns the types whose objects have a behaviour. Throws Core::NotFoundException if there is
/// none.
std::vector<ObjectTypeDescription> FindServedTypes(const Core::Embedding::InformationModel& model)
{
    std::vector<ObjectTypeDescription> served;
    for (const auto& type : model.GetObjectTypes())
        if (!type.isAbstract && model.GetBehaviourFactory(type.id))
            served.push_back(type);
    if (served.empty())
        throw Core::NotFoundException("the loaded models have no object type with a behaviour");
    return served;
}

using BaseMethods = std::unordered_set<UA_UInt32>;

/// Returns the methods of the base model that the models' types inherit.
BaseMethods CollectBaseMethods(const Core::Embedding::InformationModel& model)
{
    BaseMethods methods;
    for (const auto& type : model.GetObjectTypes())
        for (const auto& method : type.methods)
            if (method.id.GetNamespaceIndex() == 0 && method.id.GetNumeric() != nullptr)
                methods.insert(*method.id.GetNumeric());
    return methods;
}

/// True for the nodes that the library makes by itself at run time: those of events, which keep the
/// fields of the last one, and the diagnostics of sessions.
bool TellsOfOthers(const UA_NodeId& node)
{
    constexpr UA_UInt16 serversOwn = 1;
    constexpr std::array<UA_UInt32, 3> diagnostics{
        UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SUBSCRIPTIONDIAGNOSTICSARRAY,
        UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SESSIONSDIAGNOSTICSSUMMARY_SESSIONDIAGNOSTICSARRAY,
        UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SESSIONSDIAGNOSTICSSUMMARY_SESSIONSECURITYDIAGNOSTICSARRAY};
    if (node.namespaceIndex == serversOwn || NodeStore::IsNumberedHere(node))
        return true;
    if (node.namespaceIndex != 0 || node.identifierType != UA_NODEIDTYPE_NUMERIC)
        return false;
    return std::find(diagnostics.begin(), diagnostics.end(), node.identifier.numeric) !=
           diagnostics.end();
}

/// Removes the base model's descriptions of its own types, which no client needs: 300 KB each,
/// copied for each read and for each item that monitors them. No other value is as large.
void RemoveBaseDictionaries(UA_Server& server)
{
    for (const UA_UInt32 dictionary :
         {UA_UInt32{UA_NS0ID_OPCUA_BINARYSCHEMA}, UA_UInt32{UA_NS0ID_OPCUA_XMLSCHEMA}})
        RequireGood(UA_Server_deleteNode(&server, UA_NODEID_NUMERIC(0, dictionary), true),
                    "removing a dictionary of the base model");
}

} // namespace

class Endpoint::Implementation
{
public:
    /// Call Start next.
    Implementation(Core::Embedding::Runtime& runtime, EndpointSettings settings,
                   Authenticate authenticate);
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    /// Ends the server first, whose nodes still hold values of the types in `structures`, and then
    /// the sessions, whose jobs use everything else.
    ~Implementation()
    {
        server.reset();
        sessions.Clear();
    }

    /// Makes the nodes and listens. Not a part of the constructor: when something fails here, the
    /// destructor ends the server before what its nodes use.
    void Start();
    [[nodiscard]] std::vector<std::string> GetUrls() const;
    bool Run();
    void Stop();
    void SetTrust(const Trust& trust);
    void CloseSessionsUnless(std::function<bool(const std::string& user)> mayStay);
    void ReadMetrics(std::function<void(const EndpointMetrics&)> take);
    void Post(std::function<void()> function) { loop.Post(std::move(function)); }

private:
    [[nodiscard]] ServerPointer MakeServer();
    void SetCallbacks(UA_ServerConfig& configuration);
    void TakeCalls() noexcept;
    void OnMonitoredItem(const ClientSession& session, const UA_NodeId& node,
                         bool removed) noexcept;
    void SetRules();
    void SetObservers();
    void OnSessionEnded(ClientSession& session);
    [[nodiscard]] bool IsCallable(const UA_NodeId& method, const UA_NodeId* object) const;
    [[nodiscard]] Core::NodeId MakeFolder(const std::string& name);
    void MakeSessionObjects(TypeProjection& types, const ObjectTypeDescription& type);
    void MakeObjects(TypeProjection& types);

    Core::Embedding::Runtime& runtime;
    EndpointSettings settings;
    const int hostNamespace = Core::NamespaceMap::Register(hostUri);
    const std::shared_ptr<const Core::Embedding::InformationModel> model;
    const BaseMethods baseMethods;
    unsigned int nextFolder = firstFolder;
    UaLogger libraryLog{UaLogger::Source::Library};
    UaLogger transportLog{UaLogger::Source::Transport};
    EventLoop loop;              // after its log
    Sessions sessions;           // after the loop
    AccessControl accessControl; // the server's
    NodeStore nodeStore;         // the server's
    ServerPointer server;
    EventFilters filters;        // after the server
    const Namespaces namespaces; // after the server
    const StructureTypes structures;
    const DataTypeDefinitions definitions;
    const Values values;
    Objects objects;
    ProvidedNodes provided;
    EventBacklog backlog;
    EventPacing pacing;
    EventRelay events;
    CallAudit audit;
    MethodCalls calls;
    OwnObjects ownObjects;
    SharedNodes sharedNodes;
    std::optional<Housekeeping> housekeeping; // from the start on
    std::atomic<bool> stopping{false};
};

Endpoint::Implementation::Implementation(Core::Embedding::Runtime& runtime,
                                         EndpointSettings givenSettings, Authenticate authenticate)
    : runtime(runtime)
    , settings(std::move(givenSettings))
    , model(runtime.GetInformationModel())
    , baseMethods(CollectBaseMethods(*model))
    , loop(transportLog.Get(), MakeConnectionLimits(settings))
    , sessions(loop, runtime, settings.sessions, std::move(authenticate))
    , accessControl(sessions, settings.sessions)
    , server(MakeServer())
    , filters(*server, loop, sessions)
    , namespaces(*server)
    , structures(*model, namespaces)
    , definitions(*server, *model, namespaces, structures)
    , values(namespaces, structures)
    , objects(*server, nodeStore, namespaces)
    , provided(nodeStore.GetInner(), *model, namespaces, values)
    , backlog(namespaces, settings.waitingEvents)
    , pacing(*server, loop, settings.waitingEvents)
    , events(*server, loop, runtime, namespaces, values, objects, backlog, pacing)
    , audit(*model, provided, settings.audit)
    , calls(*server, loop, runtime, namespaces, values, structures, objects, provided, sessions,
            audit)
    , ownObjects(runtime, loop, objects, events, settings.ownObjectsPerSession)
    , sharedNodes(runtime, objects, provided, events)
{}

void Endpoint::Implementation::Start()
{
    RequireServerAssumptions(*server, nodeStore);
    provided.SetValueAttributes(FindValueAttributes(*server, nodeStore));
    nodeStore.SetProvided(&provided);
    TypeProjection types(*server, *model, namespaces);
    types.Project();
    definitions.RequireServed(*server);
    AddNamespaceMetadata(*server, *model, namespaces);
    SetRules();
    SetObservers();
    RemoveBaseDictionaries(*server);
    MakeObjects(types);
    RequireGood(UA_Server_run_startup(server.get()), "starting the server");
    PublishFacts(*server, settings, loop.GetListenAddresses());
    housekeeping.emplace(*server, loop, sessions, provided, settings);
}

ServerPointer Endpoint::Implementation::MakeServer()
{
    OpcUa::RequireTypes(UA_TYPES);
    RoomyConfiguration filled;
    FillConfiguration(filled, settings, loop, libraryLog.Get());
    RequireUnpredictableSessions();
    UA_ServerConfig& configuration = filled.configuration;
    accessControl.Install(configuration);
    nodeStore.Install(configuration);
    SetCallbacks(configuration);
    const CyclicCallbackCount count(*loop.GetHandle());
    ServerPointer made(UA_Server_newWithConfig(&configuration));
    if (made == nullptr)
        throw UaException("making the server", UA_STATUSCODE_BADINTERNALERROR);
    RequireAnsweringCallback(count.Get());
    return made;
}

void Endpoint::Implementation::SetCallbacks(UA_ServerConfig& configuration)
{
    configuration.context = this;
    configuration.asyncOperationNotifyCallback = [](UA_Server* notifying) noexcept {
        static_cast<Implementation*>(UA_Server_getConfig(notifying)->context)->TakeCalls();
    };
    configuration.monitoredItemRegisterCallback =
        [](UA_Server* registering, const UA_NodeId* /*sessionId*/, void* session,
           const UA_NodeId* node, void* /*nodeContext*/, UA_UInt32 attribute,
           UA_Boolean removed) noexcept {
            if (session == nullptr || attribute != UA_ATTRIBUTEID_EVENTNOTIFIER)
                return;
            static_cast<Implementation*>(UA_Server_getConfig(registering)->context)
                ->OnMonitoredItem(*static_cast<const ClientSession*>(session), *node, removed);
        };
}

void Endpoint::Implementation::TakeCalls() noexcept
{
    try {
        calls.TakeAll();
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Call", fmt::format("Cannot take a call: {}", exception.what()));
    }
}

void Endpoint::Implementation::OnMonitoredItem(const ClientSession& session, const UA_NodeId& node,
                                               bool removed) noexcept
{
    try {
        backlog.OnMonitoredItem(session, node, removed);
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Session",
            fmt::format("Cannot follow a monitored item: {}", exception.what()));
    }
}

/// Sets the rules by which nodes and values are hidden from clients.
void Endpoint::Implementation::SetRules()
{
    // Outside of messages the host works for itself, or for a session with its own nodes.
    nodeStore.SetRule([this](const UA_NodeId& node) {
        const ConnectionId connection = loop.GetCurrentConnection();
        return connection != 0 && !objects.IsVisible(node, sessions.Find(connection));
    });
    accessControl.SetReadability([this](const UA_NodeId& node, const ClientSession* session) {
        return !TellsOfOthers(node) || events.MayRead(node, session);
    });
    accessControl.SetCallability([this](const UA_NodeId& method, const UA_NodeId* object) {
        return IsCallable(method, object);
    });
}

/// Lets the methods of the base model be called on objects of the models' types alone.
/// `MethodCalls` checks that the type has the method.
bool Endpoint::Implementation::IsCallable(const UA_NodeId& method, const UA_NodeId* object) const
{
    if (method.namespaceIndex != 0 || method.identifierType != UA_NODEIDTYPE_NUMERIC ||
        !baseMethods.contains(method.identifier.numeric))
        return false;
    return object == nullptr || provided.FindType(*object) ||
           objects.Find(namespaces.ToCore(*object)) != nullptr;
}

void Endpoint::Implementation::SetObservers()
{
    sessions.SetEndedObserver([this](ClientSession& session) { OnSessionEnded(session); });
    loop.SetClosedObserver(
        [this](ConnectionId connection) { sessions.OnConnectionClosed(*server, connection); });
    loop.SetSubscriptionOwners(
        [this](ConnectionId connection) { return sessions.Find(connection); });
    if (settings.isMemoryShort)
        loop.SetMemoryBrake(settings.isMemoryShort);
    events.SetObserver([this](const Core::Embedding::Event& event) { audit.OnEvent(event); });
}

void Endpoint::Implementation::OnSessionEnded(ClientSession& session)
{
    session.eventGate->Open();
    backlog.Forget(session);
    pacing.Forget(session);
    objects.RemoveOwned(session);
    session.worker.Post([this, &session] {
        ownObjects.RemoveAll(session);
        audit.EndSession(session);
    });
    loop.Post([this, owner = &session] { loop.EndSubscriptions(owner); });
}

Core::NodeId Endpoint::Implementation::MakeFolder(const std::string& name)
{
    const Core::NodeId folder(hostNamespace, nextFolder);
    nextFolder += numbersPerFolder;
    const NewObject object{Core::Embedding::BaseTypes::folderType,
                           Core::QualifiedName(hostNamespace, name), Core::Objects::ObjectsFolder(),
                           folder};
    runtime.CreateObject(object);
    objects.Add(object, nullptr);
    return folder;
}

/// Makes the folder for the objects of sessions, with those that all of them share, and its method.
void Endpoint::Implementation::MakeSessionObjects(TypeProjection& types,
                                                  const ObjectTypeDescription& type)
{
    const Core::NodeId folder = MakeFolder(type.sessionObjects->folder);
    for (const std::string& name : settings.sharedNodes)
        sharedNodes.Add({type.id, Core::QualifiedName(hostNamespace, name), folder,
                         Core::NodeId(hostNamespace, name)});
    HostMethod create = ownObjects.MakeMethod(type, folder);
    types.AddMethod(folder, create.description);
    calls.Add(std::move(create));
}

/// Makes the objects of each type as its model says; one in the Objects folder if it says nothing.
void Endpoint::Implementation::MakeObjects(TypeProjection& types)
{
    for (const ObjectTypeDescription& type : FindServedTypes(*model)) {
        if (type.sessionObjects)
            MakeSessionObjects(types, type);
        if (type.instance)
            sharedNodes.AddInstance(type.id, *type.instance);
        if (type.sessionObjects || type.instance)
            continue;
        const int moduleNamespace = type.browseName.GetNamespaceIndex();
        sharedNodes.Add({type.id, type.browseName, Core::Objects::ObjectsFolder(),
                         Core::NodeId(moduleNamespace, type.browseName.GetName())});
    }
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
    const bool areNodesDone = sharedNodes.RemoveAll(settings.drain);
    const bool areLookUpsDone = provided.WaitIdle(TimeUntil(end));
    return sessions.WaitIdle(TimeUntil(end)) && areNodesDone && areLookUpsDone;
}

void Endpoint::Implementation::Stop()
{
    stopping = true;
    loop.Wake();
}

void Endpoint::Implementation::SetTrust(const Trust& trust)
{
    if (settings.trustsAnyClient)
        return;
    // Read twice here, so that nothing can fail where they are exchanged.
    loop.Post([this, connections = MakeClientTrust(trust, settings, loop),
               inSessions = MakeClientTrust(trust, settings, loop)] {
        UA_ServerConfig& configuration = *UA_Server_getConfig(server.get());
        connections->Swap(configuration.secureChannelPKI);
        inSessions->Swap(configuration.sessionPKI);
        sessions.CloseIf(
            *server,
            [&configuration](const ClientSession& session) {
                return !Accepts(configuration.secureChannelPKI, ViewOf(session.certificate));
            },
            "its client's certificate is no longer trusted");
    });
}

void Endpoint::Implementation::CloseSessionsUnless(
    std::function<bool(const std::string& user)> mayStay)
{
    loop.Post([this, mayStay = std::move(mayStay)] {
        sessions.CloseIf(
            *server,
            [&mayStay](const ClientSession& session) {
                return !session.user.empty() && !mayStay(session.user);
            },
            "its user was removed");
    });
}

void Endpoint::Implementation::ReadMetrics(std::function<void(const EndpointMetrics&)> take)
{
    loop.Post([this, take = std::move(take)] {
        EndpointMetrics metrics;
        const auto traffic = loop.GetTraffic();
        metrics.connections = loop.CountConnections();
        metrics.connectionsSoFar = traffic.connections;
        metrics.received = traffic.received;
        metrics.sent = traffic.sent;
        metrics.isMemoryBrakeOn = loop.IsMemoryBrakeOn();
        sessions.Describe(metrics);
        calls.Describe(metrics);
        events.Describe(metrics);
        take(metrics);
    });
}

Endpoint::Endpoint(Core::Embedding::Runtime& runtime, EndpointSettings settings,
                   Authenticate authenticate)
    : implementation(
          std::make_unique<Implementation>(runtime, std::move(settings), std::move(authenticate)))
{
    implementation->Start();
}

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

void Endpoint::SetTrust(const Trust& trust)
{
    implementation->SetTrust(trust);
}

void Endpoint::CloseSessionsUnless(std::function<bool(const std::string& user)> mayStay)
{
    implementation->CloseSessionsUnless(std::move(mayStay));
}

void Endpoint::ReadMetrics(std::function<void(const EndpointMetrics&)> take)
{
    implementation->ReadMetrics(std::move(take));
}

void Endpoint::Post(std::function<void()> function)
{
    implementation->Post(std::move(function));
}

} // namespace Host
