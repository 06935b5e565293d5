#include "Network/EventLoop.h"
#include "Network/EventDelivery.h"

#include <LoopFixtures.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/client_highlevel_async.h>
#include <open62541/client_subscriptions.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Host {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Transport::Borrow;
using Transport::Caller;
using Transport::CountDescriptors;
using Transport::Eventually;
using Transport::Log;
using Transport::megabyte;
using Transport::OnLoop;
using Transport::patience;
using Transport::RawClient;
using Transport::WaitFor;

constexpr int lifetimeCount = 500; // of the subscriptions

// Delivery, without a loop

void DoNothing(void* /*application*/, void* /*data*/) {}
void DoNothingElse(void* /*application*/, void* /*data*/) {}
class Delivery : public testing::Test
{
protected:
    [[nodiscard]] int CountVainCallsUntil(UA_DateTime end)
    {
        auto calls = 0;
        for (auto now = start; now < end; now += UA_DATETIME_MSEC) {
            delivery.RequestAll();
            for (const auto id : delivery.TakeReady(now)) {
                delivery.CountVainCall(id, now);
                ++calls;
            }
        }
        return calls;
    }

    static constexpr UA_DateTime start = 1000 * UA_DATETIME_SEC;
    EventDelivery delivery;
};

TEST_F(Delivery, IsOnlyForTheSubscriptionsOfTheOwnerThatIsNamed)
{
    const int owner = 0;
    delivery.SetOwners(
        [&owner](ConnectionId connection) { return connection == 7 ? nullptr : &owner; });
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.NoteCyclicCallback(2, &DoNothing, 8);
    delivery.NoteCyclicCallback(3, &DoNothing, 9);
    delivery.Request(&owner);
    EXPECT_EQ(delivery.GetNext(start), start);
    EXPECT_THAT(delivery.TakeReady(start), ElementsAre(2, 3));
    EXPECT_THAT(delivery.TakeReady(start), IsEmpty());
    EXPECT_FALSE(delivery.GetNext(start));
}

TEST_F(Delivery, LeavesOtherCyclicCallbacksAlone)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.NoteCyclicCallback(2, &DoNothingElse, 7);
    delivery.RequestAll();
    EXPECT_THAT(delivery.TakeReady(start), ElementsAre(1));
}

TEST_F(Delivery, ForgetsASubscriptionThatHasEnded)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.RequestAll();
    delivery.Forget(1);
    EXPECT_FALSE(delivery.GetNext(start));
    EXPECT_THAT(delivery.TakeReady(start), IsEmpty());
}

TEST_F(Delivery, RationsCallsThatHaveNothingToSend)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    EXPECT_EQ(CountVainCallsUntil(start + UA_DATETIME_SEC), 119);
}

TEST_F(Delivery, WaitsForTheNextRationAndNoLonger)
{
    delivery.NoteCyclicCallback(1, &DoNothing, 7);
    delivery.RequestAll();
    for (auto i = 0; i < 20; ++i)
        delivery.CountVainCall(1, start);
    EXPECT_THAT(delivery.TakeReady(start), IsEmpty());
    EXPECT_EQ(delivery.GetNext(start), start + 10 * UA_DATETIME_MSEC);
    EXPECT_THAT(delivery.TakeReady(start + 10 * UA_DATETIME_MSEC), ElementsAre(1));
}
// A server

const UA_NodeId objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
const UA_NodeId repeat = UA_NODEID_NUMERIC(1, 1000);      // a method: its argument comes back
const UA_NodeId repeatLater = UA_NODEID_NUMERIC(1, 1001); // the same, answered asynchronously
const UA_NodeId large = UA_NODEID_NUMERIC(1, 1002);       // a variable of a megabyte

UA_StatusCode Repeat(UA_Server* /*server*/, const UA_NodeId* /*session*/, void* /*sessionContext*/,
                     const UA_NodeId* /*method*/, void* /*methodContext*/,
                     const UA_NodeId* /*object*/, void* /*objectContext*/, size_t /*inputSize*/,
                     const UA_Variant* input, size_t /*outputSize*/, UA_Variant* output)
{
    return UA_Variant_copy(input, output);
}

/// A server that runs on the loop, on a thread of its own.
class AServer : public testing::Test
{
protected:
    AServer()
    {
        UA_ServerConfig config{};
        config.eventLoop = loop.GetHandle();
        config.logging = &logger;
        UA_ServerConfig_setMinimal(&config, 0, nullptr);
        UA_String_clear(config.serverUrls);
        *config.serverUrls = UA_String_fromChars("opc.tcp://127.0.0.1:0");
        config.asyncOperationTimeout = 60000;
        config.asyncOperationNotifyCallback = &OnAsynchronousCall;
        config.context = this;
        config.lifeTimeCountLimits.min = lifetimeCount;
        server = UA_Server_newWithConfig(&config);
        AddNodes();
    }

    void TearDown() override
    {
        Stop();
        UA_Server_delete(server);
    }

    void SetUp() override
    {
        ASSERT_EQ(UA_Server_run_startup(server), UA_STATUSCODE_GOOD);
        port = loop.GetListenAddresses().at(0).port;
        thread = std::thread([this] {
            while (!stopping)
                UA_Server_run_iterate(server, true);
            UA_Server_run_shutdown(server);
        });
    }

    void Stop()
    {
        if (!thread.joinable())
            return;
        stopping = true;
        loop.Wake();
        thread.join();
    }

    /// On the loop's thread or another one: the library allows both.
    void RaiseEvent(UA_UInt16 severity)
    {
        UA_NodeId event;
        ASSERT_EQ(
            UA_Server_createEvent(server, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE), &event),
            UA_STATUSCODE_GOOD);
        std::string name = "Severity";
        UA_Server_writeObjectProperty_scalar(server, event, {0, Borrow(name)}, &severity,
                                             &UA_TYPES[UA_TYPES_UINT16]);
        ASSERT_EQ(UA_Server_triggerEvent(server, event, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER),
                                         nullptr, true),
                  UA_STATUSCODE_GOOD);
    }

    /// Nobody says here which connections have a session.
    static ConnectionLimits MakeLimits()
    {
        ConnectionLimits limits;
        limits.strangers.messageSize = limits.outputLimit;
        limits.strangers.output = limits.outputLimit;
        return limits;
    }

    Log log;
    UA_Logger logger = log.GetLogger();
    EventLoop loop{log.GetLogger(), MakeLimits()};
    UA_Server* server{};
    std::uint16_t port = 0;
    std::atomic<bool> stopping = false;
    std::thread thread;

private:
    static AServer& GetTest(UA_Server* server)
    {
        return *static_cast<AServer*>(UA_Server_getConfig(server)->context);
    }

    void AddNodes() const
    {
        AddMethod(repeat, "Repeat");
        AddMethod(repeatLater, "RepeatLater");
        UA_Server_setMethodNodeAsync(server, repeatLater, true);
        std::string content(megabyte, 'l');
        auto bytes = Borrow(content);
        auto attributes = UA_VariableAttributes_default;
        UA_Variant_setScalar(&attributes.value, &bytes, &UA_TYPES[UA_TYPES_BYTESTRING]);
        attributes.dataType = UA_TYPES[UA_TYPES_BYTESTRING].typeId;
        attributes.accessLevel = UA_ACCESSLEVELMASK_READ;
        std::string name = "Large";
        ASSERT_EQ(UA_Server_addVariableNode(
                      server, large, objects, UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT),
                      {1, Borrow(name)}, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE),
                      attributes, nullptr, nullptr),
                  UA_STATUSCODE_GOOD);
    }

    void AddMethod(const UA_NodeId& id, std::string name) const
    {
        auto attributes = UA_MethodAttributes_default;
        attributes.executable = true;
        attributes.userExecutable = true;
        UA_Argument argument{};
        argument.name = Borrow(name);
        argument.dataType = UA_TYPES[UA_TYPES_INT32].typeId;
        argument.valueRank = UA_VALUERANK_SCALAR;
        ASSERT_EQ(UA_Server_addMethodNode(server, id, objects,
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT),
                                          {1, Borrow(name)}, attributes, &Repeat, 1, &argument, 1,
                                          &argument, nullptr, nullptr),
                  UA_STATUSCODE_GOOD);
    }

    static void OnAsynchronousCall(UA_Server* server)
    {
        auto& test = GetTest(server);
        test.loop.Post([&test] { test.AnswerAsynchronousCalls(); });
    }

    void AnswerAsynchronousCalls()
    {
        UA_AsyncOperationType type{};
        const UA_AsyncOperationRequest* request{};
        void* context{};
        UA_DateTime timeout{};
        while (
            UA_Server_getAsyncOperationNonBlocking(server, &type, &request, &context, &timeout)) {
            UA_AsyncOperationResponse response{};
            auto& result = response.callMethodResult;
            result.outputArguments = request->callMethodRequest.inputArguments;
            result.outputArgumentsSize = request->callMethodRequest.inputArgumentsSize;
            UA_Server_setAsyncOperationResult(server, &response, context);
        }
        loop.FlushAnswers();
    }
};

/// The library's own client.
class Client
{
public:
    explicit Client(std::uint16_t port)
        : client(UA_Client_new(), &UA_Client_delete)
    {
        auto* config = UA_Client_getConfig(client.get());
        config->logging->log = [](void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {
        };
        UA_ClientConfig_setDefault(config);
        config->outStandingPublishRequests = 5;
        const auto url = "opc.tcp://127.0.0.1:" + std::to_string(port);
        if (UA_Client_connect(client.get(), url.c_str()) != UA_STATUSCODE_GOOD)
            throw std::runtime_error("cannot connect");
    }

    [[nodiscard]] UA_Client* Get() const { return client.get(); }

    /// Minus one if the call fails.
    [[nodiscard]] int Call(const UA_NodeId& method, int value) const
    {
        UA_Variant input;
        UA_Variant_setScalar(&input, &value, &UA_TYPES[UA_TYPES_INT32]);
        std::size_t count = 0;
        UA_Variant* output{};
        const auto status =
            UA_Client_call(client.get(), objects, method, 1, &input, &count, &output);
        const auto result =
            status == UA_STATUSCODE_GOOD && count == 1 ? *static_cast<int*>(output->data) : -1;
        UA_Array_delete(output, count, &UA_TYPES[UA_TYPES_VARIANT]);
        return result;
    }

    [[nodiscard]] std::size_t ReadLarge() const
    {
        UA_Variant value;
        if (UA_Client_readValueAttribute(client.get(), large, &value) != UA_STATUSCODE_GOOD)
            return 0;
        const auto size = static_cast<UA_ByteString*>(value.data)->length;
        UA_Variant_clear(&value);
        return size;
    }

    /// Asks for it without taking the answer.
    [[nodiscard]] bool RequestLarge() const
    {
        const auto ignore = [](UA_Client*, void*, UA_UInt32, UA_StatusCode, UA_DataValue*) {
        };
        return UA_Client_readValueAttribute_async(client.get(), large, ignore, nullptr, nullptr) ==
               UA_STATUSCODE_GOOD;
    }

    /// Subscribes to the events of the server; what comes is kept in `severities`.
    void Subscribe(double interval)
    {
        auto request = UA_CreateSubscriptionRequest_default();
        request.requestedPublishingInterval = interval;
        request.requestedLifetimeCount = lifetimeCount;
        const auto response =
            UA_Client_Subscriptions_create(client.get(), request, nullptr, nullptr, nullptr);
        std::array<std::string, 1> path{"Severity"};
        UA_QualifiedName name{0, Borrow(path[0])};
        UA_SimpleAttributeOperand field{};
        field.typeDefinitionId = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEEVENTTYPE);
        field.browsePath = &name;
        field.browsePathSize = 1;
        field.attributeId = UA_ATTRIBUTEID_VALUE;
        UA_EventFilter filter{};
        filter.selectClauses = &field;
        filter.selectClausesSize = 1;
        auto item = UA_MonitoredItemCreateRequest_default(UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER));
        item.itemToMonitor.attributeId = UA_ATTRIBUTEID_EVENTNOTIFIER;
        item.requestedParameters.queueSize = 100;
        UA_ExtensionObject_setValue(&item.requestedParameters.filter, &filter,
                                    &UA_TYPES[UA_TYPES_EVENTFILTER]);
        const auto result = UA_Client_MonitoredItems_createEvent(
            client.get(), response.subscriptionId, UA_TIMESTAMPSTORETURN_NEITHER, item, this,
            &OnEvent, nullptr);
        if (result.statusCode != UA_STATUSCODE_GOOD)
            throw std::runtime_error("cannot subscribe");
    }

    /// Takes what comes until there are so many events.
    [[nodiscard]] bool RunUntil(std::size_t count, std::chrono::milliseconds longest) const
    {
        const auto end = std::chrono::steady_clock::now() + longest;
        while (severities.size() < count && std::chrono::steady_clock::now() < end)
            UA_Client_run_iterate(client.get(), 1);
        return severities.size() >= count;
    }

    std::vector<UA_UInt16> severities;

private:
    static void OnEvent(UA_Client* /*client*/, UA_UInt32 /*subscription*/, void* /*context*/,
                        UA_UInt32 /*item*/, void* self, size_t /*count*/, UA_Variant* fields)
    {
        if (UA_Variant_hasScalarType(fields, &UA_TYPES[UA_TYPES_UINT16]))
            static_cast<Client*>(self)->severities.push_back(
                *static_cast<UA_UInt16*>(fields->data));
    }

    std::unique_ptr<UA_Client, void (*)(UA_Client*)> client;
};

TEST_F(AServer, AnswersCallsAndReads)
{
    const Client client(port);
    for (auto i = 0; i < 100; ++i)
        EXPECT_EQ(client.Call(repeat, i), i);
    EXPECT_EQ(client.ReadLarge(), megabyte);
}

TEST_F(AServer, AnswersManyClientsAtOnce)
{
    std::atomic answered = 0;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (auto i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            const Client client(port);
            for (auto call = 0; call < 100; ++call)
                answered += client.Call(repeat, call) == call ? 1 : 0;
        });
    }
    for (auto& one : threads)
        one.join();
    EXPECT_EQ(answered, 800);
}

TEST_F(AServer, AnswersAsynchronousCallsBeforeTheLibraryDoesByItself)
{
    // It does so once a second, in the first cyclic callback that it registers.
    auto* handle = loop.GetHandle();
    ASSERT_EQ(handle->modifyCyclicCallback(handle, 1, 3'600'000.0, nullptr, {}),
              UA_STATUSCODE_GOOD);
    const Client client(port);
    for (auto i = 0; i < 30; ++i)
        EXPECT_EQ(client.Call(repeatLater, i), i);
}

TEST_F(AServer, DeliversEventsWhateverThePublishingInterval)
{
    Client client(port);
    client.Subscribe(120000);
    ASSERT_TRUE(client.RunUntil(0, 0ms));
    for (UA_UInt16 i = 1; i <= 20; ++i) {
        RaiseEvent(i);
        loop.DeliverEvents();
        ASSERT_TRUE(client.RunUntil(i, patience));
    }
    EXPECT_EQ(client.severities.back(), 20);
}

TEST_F(AServer, DeliversEventsToAClientThatTakesThemLate)
{
    Client client(port);
    client.Subscribe(120000);
    for (UA_UInt16 i = 1; i <= 100; ++i) { // more than the client has asked for
        RaiseEvent(i);
        loop.DeliverEvents();
    }
    EXPECT_TRUE(client.RunUntil(100, patience));
    RaiseEvent(101);
    loop.DeliverEvents();
    EXPECT_TRUE(client.RunUntil(101, patience));
    EXPECT_TRUE(std::is_sorted(client.severities.begin(), client.severities.end()));
}

TEST_F(AServer, DeliversEventsToTheOwnerThatIsNamedAlone)
{
    Client named(port);
    OnLoop(loop, [&] {
        ConnectionId id = 0; // the only one
        for (ConnectionId candidate = 1; candidate < 10; ++candidate)
            id = loop.GetConnection(candidate) ? candidate : id;
        loop.SetSubscriptionOwners([id, owner = &named](ConnectionId connection) {
            return connection == id ? owner : nullptr;
        });
        return id;
    });
    Client other(port);
    named.Subscribe(120000);
    other.Subscribe(120000);
    RaiseEvent(7);
    loop.DeliverEvents(&named);
    EXPECT_TRUE(named.RunUntil(1, patience));
    EXPECT_FALSE(other.RunUntil(1, 100ms));
}

TEST_F(AServer, KeepsASubscriptionAliveHoweverOftenEventsAreDeliveredInVain)
{
    Client client(port);
    client.Subscribe(100);
    auto* handle = loop.GetHandle();
    std::promise<bool> done;
    auto turns = 0;
    Caller eachTurn([&] {
        loop.DeliverEvents();
        if (++turns == 3 * lifetimeCount)
            done.set_value(true);
        else
            handle->addTimedCallback(handle, &Caller::Call, nullptr, &eachTurn, 0, nullptr);
    });
    loop.Post(eachTurn.function);
    EXPECT_TRUE(WaitFor(done.get_future()));
    RaiseEvent(3);
    loop.DeliverEvents();
    EXPECT_TRUE(client.RunUntil(1, patience));
}

TEST_F(AServer, IsNotDisturbedByAClientThatTakesNoAnswers)
{
    const Client stuck(port);
    const Client other(port);
    for (auto i = 0; i < 200 && loop.CountConnections() == 2; ++i) {
        static_cast<void>(stuck.RequestLarge());
        ASSERT_EQ(other.Call(repeat, i), i);
    }
    EXPECT_EQ(other.ReadLarge(), megabyte);
}

TEST_F(AServer, IsNotDisturbedByGarbageAndHalfMessages)
{
    const Client client(port);
    std::vector<RawClient> strangers;
    const std::string halfHello("HEL", 3);
    const std::string endless("HELF\xff\xff\xff\xff", 8);
    for (const auto& text : {std::string(1000, '\xaa'), halfHello, endless, std::string("GET / "),
                             std::string(1000, '\0')}) {
        strangers.emplace_back(port);
        try {
            strangers.back().Send(text);
        } catch (const std::runtime_error&) { // closed already
        }
    }
    EXPECT_TRUE(strangers.front().IsClosedByPeer());
    for (auto i = 0; i < 100; ++i)
        EXPECT_EQ(client.Call(repeat, i), i);
}

TEST_F(AServer, StopsWithConnectionsOpen)
{
    const Client client(port);
    const Client stuck(port);
    for (auto i = 0; i < 20; ++i)
        static_cast<void>(stuck.RequestLarge());
    const RawClient stranger(port);
    stranger.Send("HEL");
    Stop();
    EXPECT_EQ(loop.CountConnections(), 0U);
    EXPECT_EQ(loop.GetHandle()->state, UA_EVENTLOOPSTATE_STOPPED);
    EXPECT_TRUE(stranger.IsClosedByPeer());
}

TEST_F(AServer, LeavesNothingOfClientsThatComeAndGo)
{
    static_cast<void>(Client(port).Call(repeat, 1));
    ASSERT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    const auto before = CountDescriptors();
    for (auto i = 0; i < 20; ++i)
        EXPECT_EQ(Client(port).Call(repeat, i), i);
    EXPECT_TRUE(Eventually([&] { return loop.CountConnections() == 0; }));
    EXPECT_EQ(CountDescriptors(), before);
}

} // namespace
} // namespace Host
