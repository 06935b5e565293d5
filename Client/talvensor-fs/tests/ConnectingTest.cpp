// Logins and trusted certificates, and the messages when they are refused.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

std::string GetFingerprint(const Desk& desk)
{
    const auto result = desk.Run({"--accept-new", "info", "--json"});
    return nlohmann::json::parse(result.output)["fingerprint"];
}

TEST(AnUnknownServer, IsRefusedWithoutATerminal)
{
    const Desk desk;
    const auto result = desk.Run({"ls"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.error, HasSubstr("is not known"));
    EXPECT_THAT(result.error, HasSubstr("--trust-fingerprint"));
    EXPECT_EQ(desk.Run({"ls"}).status, 4) << "a refused one is not remembered";
}

TEST(AnUnknownServer, IsRememberedOnceAccepted)
{
    const Desk desk;
    const auto first = desk.Run({"--accept-new", "ls"});
    EXPECT_EQ(first.status, 0) << first.error;
    EXPECT_THAT(first.error, HasSubstr("trusting 127.0.0.1"));
    const auto second = desk.Run({"ls"});
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.error, "");
}

TEST(AFingerprintOnTheCommandLine, IsTheOnlyOneThatIsTrusted)
{
    Desk desk;
    const auto fingerprint = GetFingerprint(desk);
    desk.environment["XDG_STATE_HOME"] = (desk.GetHome() / "other").string();
    auto wrong = fingerprint;
    wrong[0] = wrong[0] == '0' ? '1' : '0';
    const auto refused = desk.Run({"--trust-fingerprint", wrong, "ls"});
    EXPECT_EQ(refused.status, 4);
    EXPECT_THAT(refused.error, HasSubstr(fingerprint));
    EXPECT_EQ(desk.Run({"--trust-fingerprint", fingerprint, "ls"}).status, 0);
    EXPECT_EQ(desk.Run({"ls"}).status, 0) << "remembered";
    EXPECT_EQ(desk.Run({"--trust-fingerprint", wrong, "ls"}).status, 4) << "also when known";
}

TEST(AChangedServer, IsRefusedUntilItsFingerprintIsGiven)
{
    Desk desk;
    const auto before = GetFingerprint(desk);
    const Desk other;
    const auto after = GetFingerprint(other);
    // The other host's key at the address where the first one was.
    const auto known = desk.GetHome() / ".local/state/talvensor/client";
    desk.environment["TALVENSOR_ENDPOINT"] = other.host.GetUrl();
    for (const auto& entry : fs::directory_iterator(known)) {
        auto text = ReadFile(entry.path());
        const auto port = ":" + std::to_string(desk.host.GetPort());
        if (const auto found = text.find(port); found != std::string::npos) {
            text.replace(found, port.size(), ":" + std::to_string(other.host.GetPort()));
            WriteFile(entry.path(), text);
        }
    }
    const auto result = desk.Run({"--accept-new", "ls"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.error, HasSubstr("shows another certificate than before"));
    EXPECT_THAT(result.error, HasSubstr(before));
    EXPECT_THAT(result.error, HasSubstr(after));
    EXPECT_EQ(desk.Run({"--trust-fingerprint", after, "ls"}).status, 0);
    EXPECT_EQ(desk.Run({"ls"}).status, 0) << "remembered in place of the other";
}

TEST(AServerThatIsNotThere, IsNoConnection)
{
    Desk desk;
    desk.host.Kill();
    const auto result = desk.Run({"ls"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.error, "talvensor-fs: cannot connect to " + desk.host.GetUrl() +
                                ": Connection refused (BadConnectionRejected)\n");
}

/// Says something to whoever connects, and hangs up.
class AnotherService : public testing::Test
{
protected:
    AnotherService()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listener, any, size), 0);
        EXPECT_EQ(listen(listener, 8), 0);
        EXPECT_EQ(getsockname(listener, any, &size), 0);
        desk.environment["TALVENSOR_ENDPOINT"] =
            "opc.tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    ~AnotherService() override { close(listener); }

    [[nodiscard]] std::string GetError(const std::string& text) const
    {
        std::thread service([&] {
            const int client = accept(listener, nullptr, nullptr);
            char first = 0;
            EXPECT_EQ(recv(client, &first, 1, 0), 1);
            EXPECT_EQ(send(client, text.data(), text.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(text.size()));
            close(client);
        });
        const auto result = desk.Run({"ls"});
        service.join();
        EXPECT_EQ(result.status, 3);
        return result.error;
    }

    Desk desk;
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(AnotherService, IsKnownByWhatItSays)
{
    EXPECT_THAT(GetError("HTTP/1.1 400 Bad Request\r\n\r\n"),
                HasSubstr("it does not speak OPC UA"));
}

TEST_F(AnotherService, IsNotAskedAgainWhenItHangsUp)
{
    EXPECT_THAT(GetError(""), HasSubstr("the server closed the connection"));
}

TEST(AWrongArgument, IsAUsageError)
{
    Desk desk;
    EXPECT_EQ(desk.Run({"fly"}).status, 2);
    EXPECT_EQ(desk.Run({"-e", "http://localhost", "ls"}).status, 2);
    desk.environment.erase("TALVENSOR_ENDPOINT");
    const auto result = desk.Run({"ls"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("no server given"));
}

class AUser : public testing::Test
{
protected:
    AUser()
    {
        desk.environment["TALVENSOR_USER"] = userName;
        WriteFile(passwordFile, std::string(password) + "\nmore\n");
        fs::permissions(passwordFile, fs::perms::owner_read);
    }

    ClientTest::TemporaryFolder users;
    Desk desk{{"--users", Desk::MakeUserFile(users.GetPath()).string(), "--trust-any-client"}};
    const fs::path passwordFile = desk.GetHome() / "password";
};

TEST_F(AUser, LogsInWithAPasswordFromAFile)
{
    const auto result =
        desk.Run({"--accept-new", "--password-file", passwordFile.string(), "info", "--json"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(nlohmann::json::parse(result.output)["user"], userName);
}

TEST_F(AUser, IsToldWhenOthersCanReadThePassword)
{
    fs::permissions(passwordFile, fs::perms::owner_read | fs::perms::group_read);
    const auto result = desk.Run({"--accept-new", "--password-file", passwordFile.string(), "ls"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("others may read"));
}

TEST_F(AUser, IsRefusedWithAWrongPassword)
{
    desk.environment["TALVENSOR_PASSWORD"] = "wrong";
    const auto result = desk.Run({"--accept-new", "ls"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.error, Not(HasSubstr("wrong\n")));
}

TEST_F(AUser, CannotBeAskedWithoutATerminal)
{
    const auto result = desk.Run({"--accept-new", "ls"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("no terminal to ask for the password"));
}

TEST_F(AUser, KeepsSettingsInAProfile)
{
    desk.environment.erase("TALVENSOR_USER");
    desk.environment.erase("TALVENSOR_ENDPOINT");
    const auto folder = desk.GetHome() / ".config/talvensor";
    fs::create_directories(folder);
    fs::copy_file(passwordFile, folder / "secret");
    WriteFile(folder / "client.toml", "[plant]\nendpoint = \"" + desk.host.GetUrl() +
                                          "\"\nuser = \"" + userName +
                                          "\"\npassword-file = \"secret\"\ntimeout = 60\n"
                                          "[odd]\n\ncolour = \"red\"\n");
    const auto result = desk.Run({"--profile", "plant", "--accept-new", "ls"});
    EXPECT_EQ(result.status, 0) << result.error;
    const auto unknown = desk.Run({"--profile", "nothing", "ls"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_THAT(unknown.error, HasSubstr("no profile [nothing]"));
    const auto odd = desk.Run({"--profile", "odd", "ls"});
    EXPECT_EQ(odd.status, 2);
    EXPECT_THAT(odd.error, HasSubstr("client.toml:8: unknown setting colour"));
    fs::remove(folder / "client.toml");
    const auto missing = desk.Run({"--profile", "plant", "ls"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.error, HasSubstr("client.toml: No such file or directory"));
}

} // namespace
} // namespace CliTest
