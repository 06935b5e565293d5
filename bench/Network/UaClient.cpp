#include "UaClient.h"

#include <OpcUa/UaException.h>

#include <open62541/client_subscriptions.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace Bench {

using OpcUa::RequireGood;
using OpcUa::Ua;
using OpcUa::ViewAsVariant;
using OpcUa::ViewOf;

namespace {

constexpr UA_UInt32 roundTime = 1000;     // ms
constexpr UA_UInt32 longestCall = 60'000; // ms
constexpr UA_UInt32 createFileSystem = 2;
constexpr UA_UInt32 fileSystemsFolder = 1;

} // namespace

struct UaClient::Pending
{
    Answer answer;
};

UaClient::UaClient(const std::string& url)
{
    UA_ClientConfig configuration = OpcUa::MakeClientConfiguration(OpcUa::Encryption::None);
    Connect(url, configuration);
}

UaClient::UaClient(const std::string& url, const std::string& user, const std::string& password)
{
    UA_ClientConfig configuration =
        OpcUa::MakeClientConfiguration(OpcUa::Encryption::Basic256Sha256);
    RequireGood(
        UA_ClientConfig_setAuthenticationUsername(&configuration, user.c_str(), password.c_str()),
        "naming the user");
    Connect(url, configuration);
}

void UaClient::Connect(const std::string& url, UA_ClientConfig& configuration)
{
    configuration.timeout = longestCall;
    client = OpcUa::Connect(configuration, url);
    hostNamespace = OpcUa::FindNamespace(*client, "urn:Talvensor:Host");
    filesNamespace = OpcUa::FindNamespace(*client, "urn:Talvensor:FileSystem");
}

UaClient::~UaClient()
{
    UA_Client_disconnect(client.get());
}

UA_NodeId UaClient::GetSharedFiles(const std::string& name) const
{
    return {hostNamespace, UA_NODEIDTYPE_STRING, {.string = ViewOf(name)}};
}

Ua<UA_NodeId> UaClient::CreateFiles()
{
    std::size_t count = 0;
    UA_Variant* outputs = nullptr;
    RequireGood(UA_Client_call(client.get(), UA_NODEID_NUMERIC(hostNamespace, fileSystemsFolder),
                               UA_NODEID_NUMERIC(hostNamespace, createFileSystem), 0, nullptr,
                               &count, &outputs),
                "CreateFileSystem");
    Ua<UA_NodeId> node;
    if (count == 1 && UA_Variant_hasScalarType(outputs, &UA_TYPES[UA_TYPES_NODEID]))
        std::swap(*node, *static_cast<UA_NodeId*>(outputs->data));
    UA_Array_delete(outputs, count, &UA_TYPES[UA_TYPES_VARIANT]);
    return node;
}

void UaClient::Post(const UA_NodeId& object, Method method,
                    std::initializer_list<UA_Variant> inputs, Answer answer)
{
    UA_CallMethodRequest call{};
    call.objectId = object;
    call.methodId = UA_NODEID_NUMERIC(filesNamespace, static_cast<UA_UInt32>(method));
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
    call.inputArguments = const_cast<UA_Variant*>(inputs.begin());
    call.inputArgumentsSize = inputs.size();
    UA_CallRequest request{};
    request.methodsToCall = &call;
    request.methodsToCallSize = 1;
    auto pending = std::make_unique<Pending>(Pending{std::move(answer)});
    RequireGood(__UA_Client_AsyncService(client.get(), &request, &UA_TYPES[UA_TYPES_CALLREQUEST],
                                         OnAnswer, &UA_TYPES[UA_TYPES_CALLRESPONSE], pending.get(),
                                         nullptr),
                "sending a call");
    static_cast<void>(pending.release()); // the answer's
}

void UaClient::OnAnswer(UA_Client*, void* userdata, UA_UInt32, void* response)
{
    const std::unique_ptr<Pending> pending(static_cast<Pending*>(userdata));
    const auto& answer = *static_cast<const UA_CallResponse*>(response);
    UA_CallMethodResult failed{};
    failed.statusCode = answer.responseHeader.serviceResult;
    pending->answer(answer.resultsSize == 1 ? answer.results[0] : failed);
}

std::uint32_t UaClient::CallForNumber(const UA_NodeId& object, Method method,
                                      std::initializer_list<UA_Variant> inputs)
{
    bool isAnswered = false;
    const UA_UInt32* number = nullptr;
    UA_UInt32 copy = 0;
    Post(object, method, inputs, [&](const UA_CallMethodResult& result) {
        isAnswered = true;
        if (result.outputArgumentsSize == 1 &&
            UA_Variant_hasScalarType(result.outputArguments, &UA_TYPES[UA_TYPES_UINT32])) {
            copy = *static_cast<const UA_UInt32*>(result.outputArguments->data);
            number = &copy;
        }
    });
    Run([&] { return isAnswered; });
    if (number == nullptr)
        throw std::runtime_error("a call of method " +
                                 std::to_string(static_cast<unsigned>(method)) + " has no output");
    return copy;
}

void UaClient::Subscribe(const UA_NodeId& node, Heard given)
{
    heard = std::make_unique<Heard>(std::move(given));
    UA_CreateSubscriptionRequest wanted = UA_CreateSubscriptionRequest_default();
    wanted.requestedPublishingInterval = 10; // ms; the host delivers ahead of it
    wanted.requestedLifetimeCount = 12'000;
    wanted.requestedMaxKeepAliveCount = 1'000;
    UA_CreateSubscriptionResponse made =
        UA_Client_Subscriptions_create(client.get(), wanted, nullptr, nullptr, nullptr);
    const UA_StatusCode status = made.responseHeader.serviceResult;
    const UA_UInt32 subscription = made.subscriptionId;
    UA_CreateSubscriptionResponse_clear(&made);
    RequireGood(status, "subscribing");

    UA_QualifiedName name{0, ViewOf("Time")};
    UA_SimpleAttributeOperand operand{};
    operand.typeDefinitionId = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE);
    operand.attributeId = UA_ATTRIBUTEID_VALUE;
    operand.browsePath = &name;
    operand.browsePathSize = 1;
    UA_EventFilter filter{};
    filter.selectClauses = &operand;
    filter.selectClausesSize = 1;
    UA_MonitoredItemCreateRequest item = UA_MonitoredItemCreateRequest_default(node);
    item.itemToMonitor.attributeId = UA_ATTRIBUTEID_EVENTNOTIFIER;
    item.requestedParameters.queueSize = 200'000;
    item.requestedParameters.samplingInterval = 0;
    UA_ExtensionObject_setValueNoDelete(&item.requestedParameters.filter, &filter,
                                        &UA_TYPES[UA_TYPES_EVENTFILTER]);
    const UA_MonitoredItemCreateResult result = UA_Client_MonitoredItems_createEvent(
        client.get(), subscription, UA_TIMESTAMPSTORETURN_NEITHER, item, this,
        [](UA_Client*, UA_UInt32, void*, UA_UInt32, void* context, std::size_t count,
           UA_Variant* values) {
            auto& self = *static_cast<UaClient*>(context);
            if (count == 1 && UA_Variant_hasScalarType(values, &UA_TYPES[UA_TYPES_DATETIME]))
                (*self.heard)(*static_cast<const UA_DateTime*>(values->data));
        },
        nullptr);
    RequireGood(result.statusCode, "subscribing to events");
}

void UaClient::RunOnce()
{
    RequireGood(UA_Client_run_iterate(client.get(), roundTime), "keeping the connection");
}

UA_Variant MakeVariant(const std::uint32_t& number)
{
    return ViewAsVariant(&number, UA_TYPES_UINT32);
}

UA_Variant MakeVariant(const std::int32_t& number)
{
    return ViewAsVariant(&number, UA_TYPES_INT32);
}

UA_Variant MakeVariant(const UA_String& text)
{
    return ViewAsVariant(&text, UA_TYPES_STRING);
}

UA_Variant MakeVariant(const bool& flag)
{
    return ViewAsVariant(&flag, UA_TYPES_BOOLEAN);
}

} // namespace Bench
