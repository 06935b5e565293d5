// Connecting to hosts that are open to other machines: they ask for encryption and a password.

#include "Fixture.h"
#include "TrustStore.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

using namespace Client;
using namespace ClientTest;
namespace fs = std::filesystem;

namespace {

class AHostOpenToOtherMachines : public testing::Test
{
protected:
    AHostOpenToOtherMachines()
    {
        const std::string command =
            "printf 'secret\n' | " TALVENSOR_HOST " passwd " + users.string() + " anna > /dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0); // NOLINT(concurrency-mt-unsafe)
    }

    [[nodiscard]] ConnectionOptions MakeOptions(const std::string& url,
                                                const std::string& password = "secret") const
    {
        ConnectionOptions options;
        options.url = url;
        options.login = Login{"anna", password};
        options.stateFolder = state.GetPath() / "client";
        options.trustServer = [](const ServerCertificate&) {
            return true;
        };
        return options;
    }

    /// Expects that the right password opens a session.
    void ExpectWelcome(const std::string& url) const
    {
        Connection connection(MakeOptions(url));
        const auto info = connection.GetInfo();
        EXPECT_EQ(info.securityMode, "SignAndEncrypt");
        EXPECT_EQ(info.user, "anna");
        FileSystem fileSystem(connection);
        EXPECT_TRUE(fileSystem.Exists(root.GetPath().string()));
    }

    TemporaryFolder root;
    TemporaryFolder state;
    const fs::path users = state.GetPath() / "users";
    const std::vector<std::string> flags{"--users", users.string()};
    const std::vector<std::string> anyClient{"--users", users.string(), "--trust-any-client"};
};

TEST_F(AHostOpenToOtherMachines, LetsAUserInByItsAddressAndByItsName)
{
    const HostProcess host(root.GetPath(), anyClient, 0, {.address = "0.0.0.0"});
    ExpectWelcome(host.GetUrl("127.0.0.1"));
    ExpectWelcome(host.GetUrl("localhost"));
}

TEST_F(AHostOpenToOtherMachines, RefusesAWrongPasswordAndNone)
{
    const HostProcess host(root.GetPath(), anyClient, 0, {.address = "0.0.0.0"});
    EXPECT_EQ(GetRefusal([&] { Connection(MakeOptions(host.GetUrl(), "wrong")); }), Refusal::Login);
    auto nobody = MakeOptions(host.GetUrl());
    nobody.login.reset();
    EXPECT_EQ(GetRefusal([&] { Connection connection(nobody); }), Refusal::Login);
}

TEST_F(AHostOpenToOtherMachines, HasNoPlainConnection)
{
    const HostProcess host(root.GetPath(), anyClient, 0, {.address = "0.0.0.0"});
    auto plain = MakeOptions(host.GetUrl());
    plain.security = Security::Plain;
    EXPECT_EQ(GetRefusal([&] { Connection connection(plain); }), Refusal::Security);
}

TEST_F(AHostOpenToOtherMachines, LetsInTheCertificatesThatItTrustsAndNoOthers)
{
    const auto trusted = state.GetPath() / "pki" / "trusted";
    fs::create_directories(trusted);
    const auto own = LoadIdentity(state.GetPath() / "client").certificate;
    WriteFile(trusted / "client.der", std::string(own.begin(), own.end()));
    const HostProcess host(root.GetPath(), flags, 0,
                           {.address = "0.0.0.0", .pki = state.GetPath() / "pki"});
    ExpectWelcome(host.GetUrl());
    auto stranger = MakeOptions(host.GetUrl());
    stranger.stateFolder = state.GetPath() / "stranger";
    EXPECT_EQ(GetRefusal([&] { Connection connection(stranger); }), Refusal::ClientCertificate);
}

/// Network namespaces of the calling thread: one for a host and one for a client, with a cable
/// between them.
class TwoMachines
{
public:
    static constexpr const char* hostAddress = "192.0.2.1";

    TwoMachines()
    {
        areThere = Unshare(host) && Unshare(client) &&
                   Run("ip link set lo up && ip link add cable type veth peer name plug && "
                       "ip addr add 192.0.2.2/24 dev cable && ip link set cable up && "
                       "ip link set plug netns /proc/" +
                       std::to_string(getpid()) + "/fd/" + std::to_string(host)) &&
                   Enter(host) &&
                   Run("ip link set lo up && ip addr add 192.0.2.1/24 dev plug && "
                       "ip link set plug up");
    }
    TwoMachines(const TwoMachines&) = delete;
    TwoMachines& operator=(const TwoMachines&) = delete;
    ~TwoMachines()
    {
        close(host);
        close(client);
    }

    [[nodiscard]] bool AreThere() const noexcept { return areThere; }
    /// Moves this thread, and the processes that it starts, to the client's machine.
    void GoToClient() const { ASSERT_TRUE(Enter(client)); }

private:
    static bool Run(const std::string& commands)
    {
        const auto quiet = "{ " + commands + "; } > /dev/null 2>&1";
        return std::system(quiet.c_str()) == 0; // NOLINT(concurrency-mt-unsafe)
    }
    static bool Enter(int machine) { return setns(machine, CLONE_NEWNET) == 0; }
    static bool Unshare(int& machine)
    {
        if (unshare(CLONE_NEWNET) != 0)
            return false;
        machine = open("/proc/thread-self/ns/net", O_RDONLY); // the commands use it as well
        return machine >= 0;
    }

    int host = -1;
    int client = -1;
    bool areThere = false;
};

class AHostOnAnotherMachine : public AHostOpenToOtherMachines
{
protected:
    void Connect()
    {
        const TwoMachines machines;
        if (!machines.AreThere())
            GTEST_SKIP() << "NOT TESTED, this machine lets this user make no network namespaces "
                            "or has no program ip";
        const HostProcess host(root.GetPath(), anyClient, 0, {.address = "0.0.0.0"});
        machines.GoToClient();
        ExpectWelcome(host.GetUrl(TwoMachines::hostAddress));
        EXPECT_EQ(GetRefusal([&] {
                      Connection(MakeOptions(host.GetUrl(TwoMachines::hostAddress), "wrong"));
                  }),
                  Refusal::Login);
        EXPECT_THROW(Connection(MakeOptions(host.GetUrl())), NoConnectionException)
            << "it is not on the client's machine";
    }
};

TEST_F(AHostOnAnotherMachine, LetsAUserInOverTheNetwork)
{
    const auto connect = [this] {
        try {
            Connect();
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    };
    std::thread(connect).join(); // what is unshared goes with the thread
}

} // namespace
