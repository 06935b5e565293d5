#include "Endpoint/LibraryAssumptions.h"

#include "Endpoint/Ua.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace Host {
namespace {

using OpcUa::LibraryException;

constexpr UA_NodeId objectsFolder{0, UA_NODEIDTYPE_NUMERIC, {UA_NS0ID_OBJECTSFOLDER}};
constexpr UA_NodeId serverObject{0, UA_NODEIDTYPE_NUMERIC, {UA_NS0ID_SERVER}};

/// An object below the Objects folder that is there for a check, and removed after it.
class ProbeObject
{
public:
    ProbeObject(UA_Server& server, const UA_NodeId& wanted)
        : server(server)
    {
        RequireGood(UA_Server_addObjectNode(
                        &server, wanted, objectsFolder, UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                        {1, ViewOf("Probe")}, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE),
                        UA_ObjectAttributes_default, nullptr, &*id),
                    "adding a node to check the library");
    }
    ProbeObject(const ProbeObject&) = delete;
    ProbeObject& operator=(const ProbeObject&) = delete;
    ~ProbeObject() { UA_Server_deleteNode(&server, *id, true); }

    [[nodiscard]] const UA_NodeId& GetId() const noexcept { return *id; }

private:
    UA_Server& server;
    Ua<UA_NodeId> id;
};

/// A monitored item of the server's own for the name of a node, which is sampled when it is
/// written.
class ProbeItem
{
public:
    ProbeItem(UA_Server& server, const UA_NodeId& node)
        : server(server)
    {
        UA_MonitoredItemCreateRequest request;
        UA_MonitoredItemCreateRequest_init(&request);
        request.itemToMonitor.nodeId = node;
        request.itemToMonitor.attributeId = UA_ATTRIBUTEID_DISPLAYNAME;
        request.monitoringMode = UA_MONITORINGMODE_REPORTING;
        const auto ignore = [](UA_Server*, UA_UInt32, void*, const UA_NodeId*, void*, UA_UInt32,
                               const UA_DataValue*) {
        };
        UA_MonitoredItemCreateResult item = UA_Server_createDataChangeMonitoredItem(
            &server, UA_TIMESTAMPSTORETURN_NEITHER, request, nullptr, ignore);
        number = item.monitoredItemId;
        const UA_StatusCode status = item.statusCode;
        UA_MonitoredItemCreateResult_clear(&item);
        RequireGood(status, "making a monitored item to check the library");
    }
    ProbeItem(const ProbeItem&) = delete;
    ProbeItem& operator=(const ProbeItem&) = delete;
    ~ProbeItem() { UA_Server_deleteMonitoredItem(&server, number); }

private:
    UA_Server& server;
    UA_UInt32 number = 0;
};

bool HasItems(UA_Server& server, const UA_NodeId& id)
{
    const UA_Nodestore& store = UA_Server_getConfig(&server)->nodestore;
    const UA_Node* node =
        store.getNode(store.context, &id, 0, UA_REFERENCETYPESET_NONE, UA_BROWSEDIRECTION_INVALID);
    if (node == nullptr)
        return false;
    const bool hasItems = node->head.monitoredItems != nullptr;
    store.releaseNode(store.context, node);
    return hasItems;
}

bool HasValue(UA_Server& server, const UA_NodeId& event, std::string_view field)
{
    const UA_QualifiedName name{0, ViewOf(field)};
    Ua<UA_Variant> value;
    return UA_Server_readObjectProperty(&server, event, name, &*value) == UA_STATUSCODE_GOOD &&
           !UA_Variant_isEmpty(&*value);
}

/// Returns the version in a configuration with the library's defaults; empty if there is none.
std::string ReadVersion(const UA_ServerConfig& configuration)
{
    // If the library has another layout, this is no text at all.
    constexpr std::size_t longest = 100;
    const UA_String& version = configuration.buildInfo.softwareVersion;
    if (version.data == nullptr || version.length > longest)
        return {};
    return std::string(BytesOf(version));
}

// For CyclicCallbackCount, whose stand-in is a function without a context.
std::size_t cyclicCallbacks = 0;
decltype(UA_EventLoop::addCyclicCallback) addBehind = nullptr;

UA_StatusCode AddCounted(UA_EventLoop* loop, UA_Callback function, void* application, void* data,
                         UA_Double interval, UA_DateTime* base, UA_TimerPolicy policy,
                         UA_UInt64* id)
{
    ++cyclicCallbacks;
    return addBehind(loop, function, application, data, interval, base, policy, id);
}

} // namespace

void RequireConfiguration(const RoomyConfiguration& filled, const UA_EventLoop* loop)
{
    const UA_ServerConfig& configuration = filled.configuration;
    const bool hasRoom = std::all_of(filled.room.begin(), filled.room.end(),
                                     [](std::byte each) { return each == std::byte{0}; });
    // Defaults from the structure's middle to its end, which are the same in all versions of 1.4.
    const bool isAsHere =
        hasRoom && configuration.eventLoop == loop && configuration.nodestore.getNode != nullptr &&
        configuration.maxSecurityTokenLifetime == 600'000 &&
        configuration.queueSizeLimits.max == 100 && configuration.maxPublishReqPerSession == 512 &&
        configuration.pubSubConfig.enableInformationModelMethods;
    OpcUa::NoteLibraryVersion(ReadVersion(configuration));
    if (isAsHere || !OpcUa::GetLibraryVersion().empty())
        OpcUa::RequireVersion(OpcUa::GetLibraryVersion());
    if (!isAsHere)
        throw LibraryException("its configuration",
                               "the structure or its defaults differ from those that this program "
                               "was compiled for");
}

CyclicCallbackCount::CyclicCallbackCount(UA_EventLoop& loop) noexcept
    : loop(loop)
    , behind(loop.addCyclicCallback)
    , before(cyclicCallbacks)
{
    addBehind = behind;
    loop.addCyclicCallback = AddCounted;
}

CyclicCallbackCount::~CyclicCallbackCount()
{
    loop.addCyclicCallback = behind;
}

std::size_t CyclicCallbackCount::Get() const noexcept
{
    return cyclicCallbacks - before;
}

void RequireAnsweringCallback(std::size_t count)
{
    if (count != 1)
        throw LibraryException(
            "its cyclic callbacks",
            "one is expected when a server is made, the one that answers calls, and there "
            "were " +
                std::to_string(count) + "; calls would be answered late or never");
}

void RequireItemsOnNodes(UA_Server& server)
{
    const auto before = HasItems(server, objectsFolder);
    bool during = false;
    {
        const ProbeItem item(server, objectsFolder);
        during = HasItems(server, objectsFolder);
    }
    if (before || !during || HasItems(server, objectsFolder))
        throw LibraryException(
            "items on nodes",
            "the monitored items of a node are not found on it; the events of a session would "
            "reach others");
}

void RequireParameterCopies(UA_Server& server, std::uint64_t (*count)() noexcept)
{
    const auto before = count();
    const ProbeItem item(server, objectsFolder);
    if (count() == before)
        throw LibraryException("copies of parameters",
                               "it does not call this program's UA_copy; event filters could end "
                               "the host");
}

void RequireNodesFromStore(UA_Server& server, NodeStore& store)
{
    const ProbeObject object(server, UA_NODEID_GUID(1, UA_Guid{1, 2, 3, {4}}));
    const NodeStore::Rule rule = store.GetRule();
    store.SetRule([](const UA_NodeId&) { return true; });
    UA_NodeClass nodeClass{};
    const UA_StatusCode status = UA_Server_readNodeClass(&server, object.GetId(), &nodeClass);
    store.SetRule(rule);
    if (status != UA_STATUSCODE_BADNODEIDUNKNOWN)
        throw LibraryException(
            "nodes from the store",
            "a node that its store hides can be read; clients would find the nodes of others");
}

UA_UInt32 FindValueAttributes(UA_Server& server, const NodeStore& store)
{
    constexpr UA_NodeId variable{
        0, UA_NODEIDTYPE_NUMERIC, {UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBROWSECONTINUATIONPOINTS}};
    Ua<UA_Variant> value;
    RequireGood(UA_Server_readValue(&server, variable, &*value),
                "reading a value to check the library");
    const UA_UInt32 mask = store.GetLastAttributes();
    Ua<UA_NodeId> dataType;
    RequireGood(UA_Server_readDataType(&server, variable, &*dataType),
                "reading a data type to check the library");
    if (mask == store.GetLastAttributes())
        throw LibraryException("masks of attributes",
                               "it asks for a value as for a data type; values of nodes that are "
                               "not there would seem to be");
    return mask;
}

void RequireNumbersFromStore(UA_Server& server)
{
    const ProbeObject object(server, UA_NODEID_NULL);
    if (!NodeStore::IsNumberedHere(object.GetId()))
        throw LibraryException(
            "numbers of new nodes",
            "it does not leave them to the node store; clients could read the events of others");
}

void RequireFilledFields(UA_Server& server)
{
    Ua<UA_NodeId> event;
    RequireGood(
        UA_Server_createEvent(&server, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE), &*event),
        "making an event to check the library");
    const UA_StatusCode raised =
        UA_Server_triggerEvent(&server, *event, serverObject, nullptr, false);
    const bool areFilled =
        raised == UA_STATUSCODE_GOOD &&
        std::all_of(filledFields.begin(), filledFields.end(),
                    [&](std::string_view field) { return HasValue(server, *event, field); });
    UA_Server_deleteNode(&server, *event, true);
    if (!areFilled)
        throw LibraryException(
            "fields of events",
            "it does not fill in EventId, EventType, SourceNode and ReceiveTime; clients would "
            "get events without them");
}

void RequireServedDefinitions(bool areServed)
{
    if (!areServed)
        throw LibraryException(
            "definitions of data types",
            "it does not call this program's UA_Variant_setScalarCopy; clients could not "
            "decode structures");
}

bool IsSessionId(const UA_NodeId& id) noexcept
{
    return id.namespaceIndex == 1 && id.identifierType == UA_NODEIDTYPE_GUID;
}

void RequireServerAssumptions(UA_Server& server, NodeStore& store)
{
    RequireItemsOnNodes(server);
    RequireParameterCopies(server);
    RequireNodesFromStore(server, store);
    RequireNumbersFromStore(server);
    RequireFilledFields(server);
}

} // namespace Host
