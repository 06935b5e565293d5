#include "Transport/Accepting/AcceptedConnections.h"
#include "LoopFixtures.h"
#include "Transport/Loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <tuple>

#include <fcntl.h>
#include <sys/resource.h>

namespace Transport {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EmptyPart : public TurnPart
{
    UA_DateTime GetNext(UA_DateTime /*now*/) override
    {
        return std::numeric_limits<UA_DateTime>::max();
    }
};

/// Listens on a loop of its own thread; what comes in is counted, and sent back if that is wanted.
class ConnectionsToAHost : public testing::Test
{
protected:
    ConnectionsToAHost() = default;

    explicit ConnectionsToAHost(const ConnectionLimits& limits)
        : accepted(loop, limits)
    {}

    void TearDown() override { Stop(); }

    void SetUp() override
    {
        accepted.SetClosedObserver([this](ConnectionId id) {
            const std::scoped_lock lock(mutex);
            observed.push_back(id);
            if (const auto info = accepted.Get(id))
                lastInfo = *info;
        });
        ASSERT_EQ(handle->start(handle), UA_STATUSCODE_GOOD);
        ASSERT_EQ(Listen({"127.0.0.1"}, false), UA_STATUSCODE_GOOD);
        port = accepted.GetListenAddresses().at(0).port;
        thread = std::thread([this] {
            while (handle->state != UA_EVENTLOOPSTATE_STOPPED)
                handle->run(handle, 60000);
        });
    }

    UA_StatusCode Listen(std::vector<std::string> addresses, bool onlyCheck)
    {
        UA_UInt16 any = 0;
        UA_Boolean yes = true;
        UA_Boolean validate = onlyCheck;
        std::vector<UA_String> texts;
        std::transform(addresses.begin(), addresses.end(), std::back_inserter(texts),
                       [](const std::string& text) { return Borrow(text); });
        std::array<std::string, 4> names{"port", "listen", "validate", "address"};
        std::array<UA_KeyValuePair, 4> pairs{};
        for (std::size_t i = 0; i < pairs.size(); ++i)
            pairs.at(i).key = {0, Borrow(names.at(i))};
        UA_Variant_setScalar(&pairs[0].value, &any, &UA_TYPES[UA_TYPES_UINT16]);
        UA_Variant_setScalar(&pairs[1].value, &yes, &UA_TYPES[UA_TYPES_BOOLEAN]);
        UA_Variant_setScalar(&pairs[2].value, &validate, &UA_TYPES[UA_TYPES_BOOLEAN]);
        UA_Variant_setArray(&pairs[3].value, texts.data(), texts.size(),
                            &UA_TYPES[UA_TYPES_STRING]);
        const UA_KeyValueMap parameters{pairs.size(), pairs.data()};
        auto* manager = GetManager();
        return manager->openConnection(manager, &parameters, this, nullptr, &OnConnection);
    }

    void Stop()
    {
        if (!thread.joinable())
            return;
        loop.Post([this] { handle->stop(handle); });
        thread.join();
    }

    [[nodiscard]] UA_ConnectionManager* GetManager() const
    {
        return reinterpret_cast<UA_ConnectionManager*>(handle->eventSources);
    }

    UA_StatusCode Send(ConnectionId id, std::size_t size)
    {
        auto* manager = GetManager();
        UA_ByteString bytes;
        manager->allocNetworkBuffer(manager, id, &bytes, size);
        std::fill_n(bytes.data, size, UA_Byte{'x'});
        return manager->sendWithConnection(manager, id, nullptr, &bytes);
    }

    [[nodiscard]] std::size_t GetReceived(ConnectionId id) const
    {
        const std::scoped_lock lock(mutex);
        const auto found = received.find(id);
        return found == received.end() ? 0 : found->second;
    }

    /// The connection that a client has opened, once it is there.
    ConnectionId WaitForConnection(const RawClient& client)
    {
        ConnectionId id = 0;
        EXPECT_TRUE(Eventually([&] {
            const std::scoped_lock lock(mutex);
            const auto found = ids.find(client.GetPort());
            if (found != ids.end())
                id = found->second;
            return id != 0;
        }));
        return id;
    }

    [[nodiscard]] std::size_t CountClosed(ConnectionId id) const
    {
        const std::scoped_lock lock(mutex);
        return static_cast<std::size_t>(std::count(closed.begin(), closed.end(), id));
    }

    Log log;
    EmptyPart part;
    Loop loop{log.GetLogger(), part};
    AcceptedConnections accepted{loop, ConnectionLimits{}};
    UA_EventLoop* const handle = &loop.GetHandle();
    std::uint16_t port = 0;
    std::atomic<bool> echo = true;
    std::atomic<bool> closeAfterEcho = false;
    std::atomic<bool> admit = true; // as if each had a session, which takes no messages of OPC UA
    std::thread thread;

    mutable std::mutex mutex; // guards what follows
    std::map<ConnectionId, std::size_t> received;
    std::map<std::uint16_t, ConnectionId> ids; // by the client's port
    std::vector<ConnectionId> closed;
    std::vector<ConnectionId> observed;
    std::vector<ConnectionId> reads; // in their order
    std::function<void()> onRead;
    ConnectionInfo lastInfo;

private:
    static void OnConnection(UA_ConnectionManager* manager, uintptr_t id, void* self,
                             void** /*context*/, UA_ConnectionState state,
                             const UA_KeyValueMap* /*parameters*/, UA_ByteString message)
    {
        auto& test = *static_cast<ConnectionsToAHost*>(self);
        const auto info = test.accepted.Get(id);
        if (info && test.admit)
            test.accepted.MarkAdmitted(id, true);
        EXPECT_EQ(test.accepted.GetCurrent(), info ? id : 0);
        const std::scoped_lock lock(test.mutex);
        if (info)
            test.ids[info->remotePort] = id;
        if (state == UA_CONNECTIONSTATE_CLOSING)
            test.closed.push_back(id);
        test.received[id] += message.length;
        if (message.length > 0) {
            test.reads.push_back(id);
            if (test.onRead)
                test.onRead();
        }
        if (test.echo && message.length > 0) {
            UA_ByteString copy;
            UA_ByteString_copy(&message, &copy);
            manager->sendWithConnection(manager, id, nullptr, &copy);
            if (test.closeAfterEcho)
                manager->closeConnection(manager, id);
        }
    }
};

TEST_F(ConnectionsToAHost, CarryBytesBothWays)
{
    const RawClient client(port);
    for (const std::size_t size : {std::size_t{1}, megabyte}) {
        const std::string text(size, 'y');
        std::thread sender([&] { client.Send(text); });
        EXPECT_EQ(client.Receive(text.size()), text);
        sender.join();
    }
}

/// Clients that have all sent more than is read at once, before any of it is read.
class BusyConnections : public ConnectionsToAHost
{
protected:
    BusyConnections() { echo = false; }

    void SetUp() override
    {
        ConnectionsToAHost::SetUp();
        for (std::size_t i = 0; i < count; ++i)
            connected.push_back(WaitForConnection(clients.emplace_back(port)));
    }

    /// Keeps the loop from reading until all have sent.
    void SendAll()
    {
        OnLoop(loop, [&] {
            const std::string block(4 * megabyte, 'b');
            for (const auto& client : clients)
                EXPECT_GT(client.SendSome(block), 0U);
            return true;
        });
    }

    /// Waits until so many reads were done and returns them in their order.
    std::vector<ConnectionId> AwaitReads(std::size_t wanted)
    {
        std::vector<ConnectionId> found;
        EXPECT_TRUE(Eventually([&] {
            const std::scoped_lock lock(mutex);
            found = reads;
            return found.size() >= wanted;
        }));
        return found;
    }

    static constexpr std::size_t count = 40; // more than handlers run in a turn
    std::vector<RawClient> clients;
    std::vector<ConnectionId> connected;
};

TEST_F(BusyConnections, AreEachReadOnceBeforeAnyIsReadTwice)
{
    SendAll();
    auto order = AwaitReads(count + 1);
    order.resize(count);
    EXPECT_THAT(order, testing::UnorderedElementsAreArray(connected));
}

TEST_F(BusyConnections, AreReadAfterOneThatSaysLittle)
{
    const RawClient quiet(port);
    const auto id = WaitForConnection(quiet);
    {
        const std::scoped_lock lock(mutex);
        onRead = [&] {
            if (reads.size() == count + 5)
                quiet.Send("x");
        };
    }
    SendAll();
    // Not always the very next: the system may tell of what it sent a moment later.
    auto order = AwaitReads(count + 5 + count / 2);
    order.resize(count + 5 + count / 2);
    EXPECT_THAT(order, testing::Contains(id)) << "half of the others were read before";
}

TEST_F(ConnectionsToAHost, AreDescribedUntilTheyHaveClosed)
{
    RawClient client(port);
    client.Send("12345");
    EXPECT_EQ(client.Receive(5), "12345");
    const auto id = WaitForConnection(client);
    const auto clientPort = client.GetPort();
    EXPECT_EQ(accepted.Count(), 1U);
    client.Close();
    EXPECT_TRUE(Eventually([&] { return accepted.Count() == 0; }));
    EXPECT_FALSE(accepted.Get(id));
    const std::scoped_lock lock(mutex);
    EXPECT_THAT(observed, ElementsAre(id));
    EXPECT_EQ(lastInfo.remoteAddress, "127.0.0.1");
    EXPECT_EQ(lastInfo.remotePort, clientPort);
    EXPECT_EQ(lastInfo.bytesIn, 5U);
    EXPECT_EQ(lastInfo.bytesOut, 5U);
}

TEST_F(ConnectionsToAHost, AreCurrentOnlyWhileTheyAreHandled)
{
    EXPECT_EQ(OnLoop(loop, [&] { return accepted.GetCurrent(); }), 0U);
    EXPECT_EQ(accepted.GetCurrent(), 0U);
}

TEST_F(ConnectionsToAHost, AreClosedOnceHoweverOftenThatIsAskedFor)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    auto* manager = GetManager();
    const auto [first, second, countMeanwhile] = OnLoop(loop, [&] {
        const auto one = manager->closeConnection(manager, id);
        const auto two = manager->closeConnection(manager, id);
        accepted.CloseConnection(id);
        return std::tuple(one, two, CountClosed(id));
    });
    EXPECT_EQ(first, UA_STATUSCODE_GOOD);
    EXPECT_NE(second, UA_STATUSCODE_GOOD);
    EXPECT_EQ(countMeanwhile, 0U) << "closing is not to be told from within";
    EXPECT_TRUE(client.IsClosedByPeer());
    EXPECT_TRUE(Eventually([&] { return accepted.Count() == 0; }));
    EXPECT_EQ(CountClosed(id), 1U);
    EXPECT_NE(OnLoop(loop, [&] { return Send(id, 1); }), UA_STATUSCODE_GOOD);
}

TEST_F(ConnectionsToAHost, DeliverWhatWasSentBeforeTheyWereClosed)
{
    closeAfterEcho = true; // while its message is still being handled
    const RawClient client(port);
    client.Send("hello");
    EXPECT_EQ(client.Receive(100), "hello");
}

TEST_F(ConnectionsToAHost, AreAllToldOfTheEndOfTheLoop)
{
    std::vector<RawClient> clients;
    clients.reserve(10);
    for (auto i = 0; i < 10; ++i)
        clients.emplace_back(port);
    for (const auto& client : clients)
        WaitForConnection(client);
    Stop();
    const std::scoped_lock lock(mutex);
    EXPECT_EQ(closed.size(), 11U) << "the connections and the listening socket";
    std::sort(closed.begin(), closed.end());
    EXPECT_EQ(std::adjacent_find(closed.begin(), closed.end()), closed.end());
    EXPECT_EQ(observed.size(), 10U);
    EXPECT_THAT(accepted.GetListenAddresses(), IsEmpty());
}

TEST_F(ConnectionsToAHost, LeaveNoDescriptorsBehind)
{
    WaitForConnection(RawClient(port));
    ASSERT_TRUE(Eventually([&] { return accepted.Count() == 0; }));
    const auto before = CountDescriptors();
    for (auto i = 0; i < 200; ++i) {
        const RawClient client(port);
        if (i % 2 == 0)
            client.Send("x");
    }
    EXPECT_TRUE(Eventually([&] {
        const std::scoped_lock lock(mutex);
        return observed.size() == 201;
    }));
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == before; }));
    const std::scoped_lock lock(mutex);
    std::sort(observed.begin(), observed.end());
    EXPECT_EQ(std::adjacent_find(observed.begin(), observed.end()), observed.end())
        << "a number was used again";
}

TEST_F(ConnectionsToAHost, ShareThePortThatTheSystemChoseAmongAddresses)
{
    const auto status = OnLoop(loop, [&] { return Listen({"127.0.0.1", "127.0.0.2"}, false); });
    EXPECT_EQ(status, UA_STATUSCODE_GOOD);
    const auto addresses = accepted.GetListenAddresses();
    ASSERT_EQ(addresses.size(), 3U);
    EXPECT_EQ(addresses[1].port, addresses[2].port);
    EXPECT_EQ(addresses[2].address, "127.0.0.2");
}

TEST_F(ConnectionsToAHost, AreOnlyCheckedIfThatIsAllThatIsAskedFor)
{
    EXPECT_EQ(OnLoop(loop, [&] { return Listen({"127.0.0.1"}, true); }), UA_STATUSCODE_GOOD);
    EXPECT_NE(OnLoop(loop, [&] { return Listen({"192.0.2.1"}, true); }), UA_STATUSCODE_GOOD);
    EXPECT_EQ(accepted.GetListenAddresses().size(), 1U);
    EXPECT_EQ(log.Count("cannot listen on 192.0.2.1"), 1U);
}

/// Takes all descriptors that the process may have.
class NoDescriptors
{
public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        auto low = before;
        low.rlim_cur = std::min<rlim_t>(before.rlim_cur, 256);
        setrlimit(RLIMIT_NOFILE, &low);
        for (;;) {
            const auto descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (descriptor < 0)
                break;
            taken.push_back(descriptor);
        }
    }

    ~NoDescriptors()
    {
        for (const auto descriptor : taken)
            close(descriptor);
        setrlimit(RLIMIT_NOFILE, &before);
    }

    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors(NoDescriptors&&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    NoDescriptors& operator=(NoDescriptors&&) = delete;

private:
    rlimit before{};
    std::vector<int> taken;
};

TEST_F(ConnectionsToAHost, WaitToBeAcceptedWhileThereAreNoDescriptors)
{
    const RawClient present(port);
    std::vector<RawClient> clients(3); // their descriptors are taken before
    WaitForConnection(present);
    {
        const NoDescriptors none;
        for (const auto& client : clients)
            client.Connect(port);
        EXPECT_TRUE(Eventually([&] { return log.Count("cannot accept connections") > 0; }));
        present.Send("hello");
        EXPECT_EQ(present.Receive(5), "hello");
        EXPECT_EQ(accepted.Count(), 1U);
    }
    for (const auto& client : clients) {
        client.Send("there");
        EXPECT_EQ(client.Receive(5), "there");
    }
    EXPECT_EQ(log.Count("cannot accept connections"), 1U);
    EXPECT_EQ(log.Count("can be accepted again"), 1U);
}

class ConnectionsWithLimits : public ConnectionsToAHost
{
protected:
    static inline const ConnectionLimits limits{
        .connections = 3,
        .outputPause = megabyte,
        .outputLimit = 8 * megabyte,
        .brakeAllowance = 2 * megabyte,
        .strangers = {},
    };

    ConnectionsWithLimits()
        : ConnectionsToAHost(limits)
    {}
};

TEST_F(ConnectionsWithLimits, AreRefusedAboveTheirNumber)
{
    std::vector<RawClient> clients;
    clients.reserve(10);
    for (auto i = 0; i < 3; ++i)
        WaitForConnection(clients.emplace_back(port));
    for (auto i = 0; i < 5; ++i)
        EXPECT_TRUE(RawClient(port).IsClosedByPeer());
    EXPECT_EQ(log.Count("refuses connections"), 1U);
    clients.pop_back();
    ASSERT_TRUE(Eventually([&] { return accepted.Count() == 2; }));
    const RawClient next(port);
    next.Send("x");
    EXPECT_EQ(next.Receive(1), "x");
    EXPECT_EQ(log.Count("room for connections again"), 1U);
}

TEST_F(ConnectionsWithLimits, AreNotReadWhileTheirOutputWaits)
{
    const RawClient client(port);
    const RawClient other(port);
    const auto id = WaitForConnection(client);
    // More than the system's buffers take, less than the limit.
    EXPECT_EQ(OnLoop(loop, [&] { return Send(id, 8 * megabyte); }), UA_STATUSCODE_GOOD);
    client.Send("hello");
    for (auto i = 0; i < 100; ++i) {
        other.Send("x");
        EXPECT_EQ(other.Receive(1), "x");
    }
    EXPECT_EQ(GetReceived(id), 0U);
    EXPECT_EQ(client.Receive(8 * megabyte), std::string(8 * megabyte, 'x'));
    EXPECT_EQ(client.Receive(5), "hello");
}

TEST_F(ConnectionsWithLimits, AreClosedIfTheirOutputIsNotTaken)
{
    const RawClient client(port);
    const RawClient other(port);
    const auto id = WaitForConnection(client);
    const auto sent = OnLoop(loop, [&] {
        std::size_t count = 0;
        while (count < 100 * megabyte && Send(id, megabyte) == UA_STATUSCODE_GOOD)
            count += megabyte;
        return count;
    });
    EXPECT_LT(sent, 100 * megabyte);
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
    EXPECT_EQ(log.Count("does not read its answers"), 1U);
    other.Send("x");
    EXPECT_EQ(other.Receive(1), "x");
}

TEST_F(ConnectionsWithLimits, ThatSendMostAreNotReadWhileMemoryIsShort)
{
    std::atomic isShort = true;
    OnLoop(loop, [&] {
        accepted.SetMemoryBrake([&] { return isShort.load(); });
        return true;
    });
    const RawClient quiet(port);
    quiet.Send("x");
    EXPECT_EQ(quiet.Receive(1), "x");
    echo = false;
    const RawClient uploader(port);
    const auto id = WaitForConnection(uploader);
    constexpr auto total = 16 * megabyte;
    std::thread upload([&] { uploader.Send(std::string(total, 'u')); });
    EXPECT_TRUE(Eventually([&] { return GetReceived(id) >= limits.brakeAllowance / 2; }));
    echo = true;
    for (auto i = 0; i < 1000; ++i) {
        quiet.Send("x");
        EXPECT_EQ(quiet.Receive(1), "x");
    }
    EXPECT_LT(GetReceived(id), limits.brakeAllowance);
    EXPECT_EQ(log.Count("memory is short"), 1U);
    echo = false;
    isShort = false;
    EXPECT_TRUE(Eventually([&] { return GetReceived(id) == total; }));
    upload.join();
    EXPECT_EQ(log.Count("Warning: TCP: memory is no longer short"), 1U);
}

TEST_F(ConnectionsWithLimits, ThatAreNotReadAreClosedWhenTheirClientHasGone)
{
    OnLoop(loop, [&] {
        accepted.SetMemoryBrake([] { return true; });
        return true;
    });
    echo = false;
    RawClient uploader(port);
    const auto id = WaitForConnection(uploader);
    const std::string block(megabyte, 'u');
    EXPECT_TRUE(Eventually([&] {
        static_cast<void>(uploader.SendSome(block));
        return GetReceived(id) >= limits.brakeAllowance;
    }));
    static_cast<void>(uploader.SendSome(block)); // what will not be read any more
    uploader.Close();
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
}

/// Clients without a session.
class Strange : public ConnectionsToAHost
{
protected:
    Strange()
        : ConnectionsToAHost(MakeLimits())
    {
        admit = false;
    }

    static ConnectionLimits MakeLimits()
    {
        ConnectionLimits limits;
        limits.connections = 6;
        limits.strangers.perAddress = 3;
        limits.strangers.hello = 0ms;
        limits.strangers.output = megabyte;
        return limits;
    }

    void CloseOverdue()
    {
        OnLoop(loop, [&] {
            accepted.CloseOverdue();
            return true;
        });
    }

    const std::string hello{"HELF\x0a\0\0\0..", 10};
};

TEST_F(Strange, ConnectionsAreToldWhyTheyAreClosed)
{
    const RawClient client(port);
    client.Send(hello);
    EXPECT_EQ(client.Receive(hello.size()), hello);
    client.Send(std::string("MSGF\xff\xff\x02\0", 8));
    const std::string reason = "too large before a session is active";
    const auto answer = client.Receive(1000);
    ASSERT_EQ(answer.size(), 16 + reason.size());
    EXPECT_EQ(answer.substr(0, 8), std::string("ERRF\x34\0\0\0", 8));
    EXPECT_EQ(answer.substr(8, 4), std::string("\0\0\x80\x80", 4)) << "Bad_TcpMessageTooLarge";
    EXPECT_EQ(answer.substr(16), reason);
    EXPECT_TRUE(Eventually([&] { return accepted.Count() == 0; }));
}

TEST_F(Strange, ConnectionsDoNotReachTheServerWithLargeMessages)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    client.Send(std::string("MSGF\xff\xff\x02\0", 8));
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
    EXPECT_EQ(GetReceived(id), 0U);
}

TEST_F(Strange, ConnectionsMaySendLargeMessagesOnceTheyAreAdmitted)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    accepted.MarkAdmitted(id, true);
    client.Send(std::string("MSGF\xff\xff\x02\0", 8));
    EXPECT_TRUE(Eventually([&] { return GetReceived(id) == 8; }));
    CloseOverdue();
    CloseOverdue();
    EXPECT_EQ(CountClosed(id), 0U);
}

TEST_F(Strange, ConnectionsThatAreOverdueAreClosedAtTheSecondLook)
{
    const RawClient silent(port);
    const RawClient other(port);
    const auto id = WaitForConnection(silent);
    other.Send(hello);
    EXPECT_EQ(other.Receive(hello.size()), hello);
    CloseOverdue();
    EXPECT_EQ(CountClosed(id), 0U);
    CloseOverdue();
    EXPECT_TRUE(silent.IsClosedByPeer());
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
    other.Send(hello);
    EXPECT_EQ(other.Receive(hello.size()), hello);
}

TEST_F(Strange, ConnectionsGiveWayToNewerOnesOfTheirAddress)
{
    std::vector<RawClient> clients;
    clients.reserve(10);
    for (auto i = 0; i < 10; ++i)
        WaitForConnection(clients.emplace_back(port));
    for (auto i = 0; i < 7; ++i)
        EXPECT_TRUE(clients.at(static_cast<std::size_t>(i)).IsClosedByPeer()) << i;
    EXPECT_TRUE(Eventually([&] { return accepted.Count() == 3; }));
    clients.back().Send(hello);
    EXPECT_EQ(clients.back().Receive(hello.size()), hello);
}

TEST_F(Strange, ConnectionsDoNotKeepOthersOutWhereverTheyComeFrom)
{
    std::vector<RawClient> clients;
    clients.reserve(6);
    for (auto i = 0; i < 6; ++i) {
        const auto id = WaitForConnection(clients.emplace_back(port));
        if (i != 1)
            accepted.MarkAdmitted(id, true);
    }
    const RawClient next(port);
    WaitForConnection(next);
    EXPECT_TRUE(clients.at(1).IsClosedByPeer());
    next.Send(hello);
    EXPECT_EQ(next.Receive(hello.size()), hello);
    EXPECT_EQ(log.Count("those without a session give way"), 1U);
}

TEST_F(Strange, ConnectionsGiveWayWhenThereAreNoDescriptors)
{
    const RawClient old(port);
    WaitForConnection(old);
    const RawClient next; // its descriptor is taken before
    const NoDescriptors none;
    next.Connect(port);
    EXPECT_TRUE(old.IsClosedByPeer());
    next.Send(hello);
    EXPECT_EQ(next.Receive(hello.size()), hello);
}

TEST_F(Strange, ConnectionsAreClosedWhenTheyDoNotTakeTheirAnswers)
{
    const RawClient client(port);
    const auto id = WaitForConnection(client);
    const auto sent = OnLoop(loop, [&] {
        std::size_t count = 0;
        while (count < 100 * megabyte && Send(id, megabyte) == UA_STATUSCODE_GOOD)
            count += megabyte;
        return count;
    });
    EXPECT_LT(sent, 20 * megabyte) << "the system's buffers take some";
    EXPECT_TRUE(Eventually([&] { return CountClosed(id) == 1; }));
}
} // namespace
} // namespace Transport
