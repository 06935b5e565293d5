#include "HostProcess.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

using namespace Client;
using ClientTest::HostProcess;
using ClientTest::TemporaryFolder;

namespace {

class AConnection : public testing::Test
{
protected:
    ConnectionOptions MakeOptions(Security security)
    {
        ConnectionOptions options;
        options.url = host.GetUrl();
        options.security = security;
        options.stateFolder = state.GetPath() / "client";
        return options;
    }

    TemporaryFolder files;
    TemporaryFolder state;
    HostProcess host{files.GetPath()};
};

TEST_F(AConnection, CanBePlain)
{
    Connection connection(MakeOptions(Security::Plain));
    const auto info = connection.GetInfo();
    EXPECT_EQ(info.securityMode, "None");
    EXPECT_THAT(info.namespaces, testing::Contains("urn:Talvensor:FileSystem"));
    EXPECT_THAT(info.sharedNodes, testing::ElementsAre("FileSystem"));
    EXPECT_THAT(info.modules, testing::ElementsAre("urn:Talvensor:FileSystem"));
}

} // namespace
