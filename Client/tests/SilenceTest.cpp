// Servers that give no sign of life.

#include "Fixture.h"
#include "Relay.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>

using namespace Client;
using namespace ClientTest;

namespace {

class ASilentServer : public WithHost
{
protected:
    ConnectionOptions MakeImpatientOptions()
    {
        auto options = MakeOptions(host);
        options.answerTime = std::chrono::seconds(3);
        options.reconnectTime = std::chrono::milliseconds(1);
        return options;
    }

    static std::string GetReason(const std::function<void()>& operation)
    {
        try {
            operation();
        } catch (const ConnectionLostException& lost) {
            return lost.what();
        }
        return "was not given up";
    }
};

TEST_F(ASilentServer, IsGivenUpWithTheNameOfTheCall)
{
    Connection connection(MakeImpatientOptions());
    FileSystem fileSystem(connection);
    kill(host.GetProcess(), SIGSTOP);
    const auto reason = GetReason([&] { (void)fileSystem.GetTime("some file"); });
    kill(host.GetProcess(), SIGCONT);
    EXPECT_EQ(reason, "no answer to GetDateTime of 'some file' for 3 s");
}

TEST_F(ASilentServer, IsGivenUpWhenTheEventOfACallIsLost)
{
    Relay relay(host.GetPort());
    auto options = MakeImpatientOptions();
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    const auto names = connection.GetInfo().namespaces;
    const auto index = static_cast<char>(
        std::find(names.begin(), names.end(), "urn:Talvensor:FileSystem") - names.begin());
    // The type of the event becomes one that nobody knows.
    relay.Rewrite({'\x01', index, '\x40', '\0'}, {'\x01', index, '\x41', '\0'});
    EXPECT_EQ(GetReason([&] { (void)fileSystem.Exists("some file"); }),
              "no answer to Exists of 'some file' for 3 s");
}

} // namespace
