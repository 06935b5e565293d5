#include "EventLoop.h"

#include <gtest/gtest.h>
#include <open62541/types.h>
#include <open62541/util.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using Client::EventLoop;

namespace {

/// A message of the protocol: a type, the size of the whole, and something.
std::string MakeMessage(const std::string& body)
{
    return "MSGF" + std::string{static_cast<char>(8 + body.size()), 0, 0, 0} + body;
}

/// A loop that is connected to a socket of ours, and what it hands over.
class AnEventLoop : public testing::Test
{
protected:
    AnEventLoop()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listener, any, size), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        EXPECT_EQ(getsockname(listener, any, &size), 0);
        UA_EventLoop& handle = *loop.GetHandle();
        handle.start(&handle);
        Connect(ntohs(address.sin_port));
        peer = accept(listener, nullptr, nullptr);
    }
    ~AnEventLoop() override
    {
        close(peer);
        UA_EventLoop& handle = *loop.GetHandle();
        for (handle.stop(&handle); handle.state != UA_EVENTLOOPSTATE_STOPPED;)
            handle.run(&handle, 100);
        close(listener);
    }

    void Connect(UA_UInt16 port)
    {
        std::string host = "127.0.0.1";
        UA_String address{host.size(), reinterpret_cast<UA_Byte*>(host.data())};
        UA_KeyValuePair pairs[2]{};
        pairs[0].key = UA_QUALIFIEDNAME(0, const_cast<char*>("port"));
        UA_Variant_setScalar(&pairs[0].value, &port, &UA_TYPES[UA_TYPES_UINT16]);
        pairs[1].key = UA_QUALIFIEDNAME(0, const_cast<char*>("address"));
        UA_Variant_setScalar(&pairs[1].value, &address, &UA_TYPES[UA_TYPES_STRING]);
        const UA_KeyValueMap parameters{2, pairs};
        auto* const manager =
            reinterpret_cast<UA_ConnectionManager*>(loop.GetHandle()->eventSources);
        EXPECT_EQ(manager->openConnection(manager, &parameters, this, nullptr, &OnConnection),
                  UA_STATUSCODE_GOOD);
    }

    static void OnConnection(UA_ConnectionManager* /*manager*/, uintptr_t /*id*/, void* application,
                             void** /*context*/, UA_ConnectionState /*state*/,
                             const UA_KeyValueMap* /*parameters*/, UA_ByteString bytes)
    {
        if (bytes.length > 0)
            static_cast<AnEventLoop*>(application)
                ->handedOver.emplace_back(reinterpret_cast<char*>(bytes.data), bytes.length);
    }

    /// Returns when the loop has handed over so much.
    void Send(const std::string& bytes)
    {
        sent += bytes.size();
        ASSERT_EQ(send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        UA_EventLoop& handle = *loop.GetHandle();
        for (std::size_t taken = 0; taken < sent;) {
            handle.run(&handle, 1'000);
            taken = 0;
            for (const auto& each : handedOver)
                taken += each.size();
        }
    }

    const UA_Logger logger{[](void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}, nullptr,
                           nullptr};
    EventLoop loop{logger};
    std::vector<std::string> handedOver;
    std::size_t sent = 0;
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int peer = -1;
};

TEST_F(AnEventLoop, HandsOverMessageByMessageWhatComesAtOnce)
{
    const std::vector<std::string> messages{MakeMessage("first"), MakeMessage(""),
                                            MakeMessage("last")};
    Send(messages[0] + messages[1] + messages[2]);
    EXPECT_EQ(handedOver, messages);
}

TEST_F(AnEventLoop, FindsTheEndOfAMessageThatComesInParts)
{
    const auto whole = MakeMessage("first") + MakeMessage("second");
    for (const char byte : whole)
        Send(std::string(1, byte));
    handedOver.clear();
    sent = 0;
    const auto next = MakeMessage("third");
    Send(next.substr(0, 6));
    Send(next.substr(6, 4));
    Send(next.substr(10) + MakeMessage("fourth"));
    EXPECT_EQ(handedOver, (std::vector<std::string>{next.substr(0, 6), next.substr(6, 4),
                                                    next.substr(10), MakeMessage("fourth")}));
}

} // namespace
