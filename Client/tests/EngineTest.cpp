#include "Fixture.h"
#include "Relay.h"

#include "Client/FileSystem.h"
#include "Client/Watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

using namespace Client;
using namespace ClientTest;

namespace {

/// How a request to call a method begins, after what leads every message.
const std::string callRequest("\x01\x00\xC8\x02", 4);

class ARelayedConnection : public WithHost
{
protected:
    ConnectionOptions MakeRelayed(Security security = Security::Plain)
    {
        auto options = MakeOptions(host, security);
        options.url = relay.GetUrl();
        options.reconnectTime = std::chrono::seconds(15);
        return options;
    }

    std::string Path(const std::string& name) { return (root.GetPath() / name).string(); }

    Relay relay{host.GetPort()};
};

TEST_F(ARelayedConnection, SurvivesASecondLossWhileItEntersANewSession)
{
    MakeFile(Path("there"), 1);
    Connection connection(MakeRelayed());
    FileSystem first(connection);
    FileSystem second(connection);
    // The first has its node of the new session then, the second has not.
    relay.CutBefore(callRequest, 2);
    host.Restart();
    for (auto* const fileSystem : {&first, &second}) {
        EXPECT_TRUE(fileSystem->Exists(Path("there")));
        EXPECT_FALSE(fileSystem->Exists(Path("missing")));
    }
    EXPECT_TRUE(relay.HasCut());
}

} // namespace
