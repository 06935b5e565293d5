#include "Transport/Opening/OpenedConnections.h"
#include "LoopFixtures.h"
#include "Transport/Loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <atomic>
#include <condition_variable>
#include <limits>
#include <vector>

namespace Transport {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Returns a message of the protocol: a type, the size of the whole, and a body.
std::string MakeMessage(const std::string& body)
{
    return "MSGF" + std::string{static_cast<char>(8 + body.size()), 0, 0, 0} + body;
}

/// A socket that listens on a port of its own.
class Listener
{
public:
    Listener()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(descriptor, any, size), 0);
        EXPECT_EQ(listen(descriptor, 1), 0);
        EXPECT_EQ(getsockname(descriptor, any, &size), 0);
        port = ntohs(address.sin_port);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { close(descriptor); }

    [[nodiscard]] std::uint16_t GetPort() const { return port; }
    [[nodiscard]] int Accept() const { return accept(descriptor, nullptr, nullptr); }

private:
    int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::uint16_t port = 0;
};

boost::asio::ip::tcp::endpoint MakeEndpoint(const char* address, std::uint16_t port)
{
    return {boost::asio::ip::make_address(address), port};
}

/// Sends what has gathered, as a client's part does.
class FlushingPart : public TurnPart
{
public:
    OpenedConnections* opened = nullptr;

private:
    void BeforeWaiting() override { opened->Flush(); }
    UA_DateTime GetNext(UA_DateTime /*now*/) override
    {
        return std::numeric_limits<UA_DateTime>::max();
    }
};

/// A loop that opens connections, and what it tells of them.
class AnOpenedConnection : public testing::Test
{
protected:
    AnOpenedConnection()
    {
        part.opened = &opened;
        EXPECT_EQ(handle.start(&handle), UA_STATUSCODE_GOOD);
    }
    ~AnOpenedConnection() override
    {
        close(peer);
        for (handle.stop(&handle); handle.state != UA_EVENTLOOPSTATE_STOPPED;)
            handle.run(&handle, 100);
    }

    void Open(const std::string& host, std::uint16_t port)
    {
        UA_String address = Borrow(host);
        std::array<UA_KeyValuePair, 2> pairs{};
        pairs[0].key = {0, Borrow("port")};
        UA_Variant_setScalar(&pairs[0].value, &port, &UA_TYPES[UA_TYPES_UINT16]);
        pairs[1].key = {0, Borrow("address")};
        UA_Variant_setScalar(&pairs[1].value, &address, &UA_TYPES[UA_TYPES_STRING]);
        const UA_KeyValueMap parameters{pairs.size(), pairs.data()};
        auto& manager = opened.GetHandle();
        EXPECT_EQ(manager.openConnection(&manager, &parameters, this, nullptr, &OnConnection),
                  UA_STATUSCODE_GOOD);
    }

    /// Opens a connection to a socket of ours.
    void Connect()
    {
        Open("127.0.0.1", listener.GetPort());
        peer = listener.Accept();
        ASSERT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_ESTABLISHED); }));
    }

    [[nodiscard]] bool IsLast(UA_ConnectionState state) const
    {
        return !states.empty() && states.back() == state;
    }

    template <typename Condition>
    [[nodiscard]] bool RunUntil(Condition condition)
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!condition() && std::chrono::steady_clock::now() < end)
            handle.run(&handle, 1'000);
        return condition();
    }

    /// Returns when the loop has handed over so much.
    void SendFromPeer(const std::string& bytes)
    {
        sent += bytes.size();
        ASSERT_EQ(send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        ASSERT_TRUE(RunUntil([&] {
            std::size_t taken = 0;
            for (const auto& each : handedOver)
                taken += each.size();
            return taken == sent;
        }));
    }

    UA_StatusCode Send(const std::string& text)
    {
        auto& manager = opened.GetHandle();
        UA_ByteString bytes;
        EXPECT_EQ(manager.allocNetworkBuffer(&manager, id, &bytes, 65'536), UA_STATUSCODE_GOOD);
        std::copy(text.begin(), text.end(), bytes.data);
        bytes.length = text.size();
        return manager.sendWithConnection(&manager, id, nullptr, &bytes);
    }

    /// Holds a lookup in its thread until it opens.
    class Gate
    {
    public:
        void Open()
        {
            const std::scoped_lock lock(mutex);
            isOpen = true;
            condition.notify_all();
        }
        void Wait()
        {
            std::unique_lock lock(mutex);
            condition.wait(lock, [&] { return isOpen; });
        }

    private:
        std::mutex mutex;
        std::condition_variable condition;
        bool isOpen = false;
    };

    /// Answers lookups, when it may.
    Lookup LookUpHere(const std::string& host, std::uint16_t /*port*/)
    {
        gate.Wait();
        const auto found = lookup;
        lookedUp = host;
        isLookedUp = true; // the test may end from here on
        return found;
    }

    Log log;
    FlushingPart part;
    Listener listener;
    Gate gate;
    Lookup lookup;
    std::string lookedUp;
    std::atomic<bool> isLookedUp = false;
    Loop loop{log.GetLogger(), part, 1};
    OpenedConnections opened{loop, [this](const std::string& host, std::uint16_t port) {
                                 return LookUpHere(host, port);
                             }};
    UA_EventLoop& handle = loop.GetHandle();
    std::vector<UA_ConnectionState> states;
    std::vector<std::string> handedOver;
    ConnectionId id = 0;
    std::size_t sent = 0;
    int peer = -1;

private:
    static void OnConnection(UA_ConnectionManager* /*manager*/, uintptr_t id, void* application,
                             void** /*context*/, UA_ConnectionState state,
                             const UA_KeyValueMap* /*parameters*/, UA_ByteString bytes)
    {
        auto& self = *static_cast<AnOpenedConnection*>(application);
        self.id = id;
        if (bytes.length > 0)
            self.handedOver.emplace_back(reinterpret_cast<char*>(bytes.data), bytes.length);
        else
            self.states.push_back(state);
    }
};

TEST_F(AnOpenedConnection, HandsOverMessageByMessageWhatComesAtOnce)
{
    Connect();
    const std::vector<std::string> messages{MakeMessage("first"), MakeMessage(""),
                                            MakeMessage("last")};
    SendFromPeer(messages[0] + messages[1] + messages[2]);
    EXPECT_EQ(handedOver, messages);
}

TEST_F(AnOpenedConnection, FindsTheEndOfAMessageThatComesInParts)
{
    Connect();
    const auto whole = MakeMessage("first") + MakeMessage("second");
    for (const char byte : whole)
        SendFromPeer(std::string(1, byte));
    handedOver.clear();
    sent = 0;
    const auto next = MakeMessage("third");
    SendFromPeer(next.substr(0, 6));
    SendFromPeer(next.substr(6, 4));
    SendFromPeer(next.substr(10) + MakeMessage("fourth"));
    EXPECT_EQ(handedOver, (std::vector<std::string>{next.substr(0, 6), next.substr(6, 4),
                                                    next.substr(10), MakeMessage("fourth")}));
}

TEST_F(AnOpenedConnection, GathersWhatIsSentUntilTheLoopWaits)
{
    Connect();
    for (const std::string text : {"one ", "two ", "three"})
        EXPECT_EQ(Send(text), UA_STATUSCODE_GOOD);
    EXPECT_EQ(opened.GetQueued(), 13U);
    handle.run(&handle, 0);
    EXPECT_EQ(opened.GetQueued(), 0U);
    std::string received(13, '\0');
    EXPECT_EQ(recv(peer, received.data(), received.size(), 0), 13);
    EXPECT_EQ(received, "one two three");
}

TEST_F(AnOpenedConnection, IsToldOnceThatThePeerHasClosedIt)
{
    Connect();
    close(std::exchange(peer, -1));
    EXPECT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_CLOSING); }));
    handle.run(&handle, 0);
    EXPECT_THAT(states, ElementsAre(UA_CONNECTIONSTATE_OPENING, UA_CONNECTIONSTATE_ESTABLISHED,
                                    UA_CONNECTIONSTATE_CLOSING));
    EXPECT_EQ(Send("late"), UA_STATUSCODE_BADCONNECTIONCLOSED);
}

TEST_F(AnOpenedConnection, DropsItsOutputWhenItIsBroken)
{
    Connect();
    EXPECT_EQ(Send("unsent"), UA_STATUSCODE_GOOD);
    opened.Break();
    EXPECT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_CLOSING); }));
    char byte = 0;
    EXPECT_EQ(recv(peer, &byte, 1, 0), 0);
}

TEST_F(AnOpenedConnection, SendsItsOutputWhenItIsClosed)
{
    Connect();
    EXPECT_EQ(Send("farewell"), UA_STATUSCODE_GOOD);
    auto& manager = opened.GetHandle();
    EXPECT_EQ(manager.closeConnection(&manager, id), UA_STATUSCODE_GOOD);
    EXPECT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_CLOSING); }));
    std::string received(8, '\0');
    EXPECT_EQ(recv(peer, received.data(), received.size(), MSG_WAITALL), 8);
    EXPECT_EQ(received, "farewell");
}

TEST_F(AnOpenedConnection, TriesTheAddressesOfANameOneAfterTheOther)
{
    // Nobody listens on the first.
    lookup.endpoints = {MakeEndpoint("127.0.0.2", listener.GetPort()),
                        MakeEndpoint("127.0.0.1", listener.GetPort())};
    gate.Open();
    Open("name.test", listener.GetPort());
    EXPECT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_ESTABLISHED); }));
    EXPECT_EQ(lookedUp, "name.test");
    EXPECT_EQ(log.Count("Connection refused"), 1U);
    peer = listener.Accept();
}

TEST_F(AnOpenedConnection, EndsWhenItsNameHasNoAddress)
{
    lookup.error = "nobody knows it";
    gate.Open();
    Open("name.test", 4840);
    EXPECT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_CLOSING); }));
    EXPECT_THAT(states, ElementsAre(UA_CONNECTIONSTATE_OPENING, UA_CONNECTIONSTATE_CLOSING));
    EXPECT_EQ(log.Count("'name.test' cannot be found: nobody knows it"), 1U);
}

TEST_F(AnOpenedConnection, CanBeBrokenWhileItsNameIsLookedUp)
{
    lookup.endpoints = {MakeEndpoint("127.0.0.1", listener.GetPort())};
    Open("name.test", listener.GetPort());
    handle.run(&handle, 0);
    EXPECT_THAT(states, ElementsAre(UA_CONNECTIONSTATE_OPENING));
    opened.Break();
    EXPECT_TRUE(RunUntil([&] { return IsLast(UA_CONNECTIONSTATE_CLOSING); }));
    gate.Open();
    EXPECT_TRUE(Eventually([&] { return isLookedUp.load(); }));
    handle.run(&handle, 0);
    EXPECT_EQ(states.size(), 2U) << "what is found late is of no use";
}

} // namespace
} // namespace Transport
