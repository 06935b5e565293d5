#include "Fixture.h"

#include "Client/FileSystem.h"
#include "Client/Watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Client;
using namespace ClientTest;
namespace fs = std::filesystem;

namespace {

class AConnection : public WithHost
{
protected:
    ConnectionOptions MakeTrustingOptions()
    {
        auto options = MakeOptions(host, Security::Encrypted);
        options.trustServer = [this](const ServerCertificate& certificate) {
            shown = certificate;
            return true;
        };
        return options;
    }

    static void Connect(const ConnectionOptions& options) { const Connection connection(options); }

    std::optional<ServerCertificate> shown;
};

TEST_F(AConnection, IsGivenUpWhenCancelled)
{
    const int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(listen(silent, 1), 0); // the system accepts, and nobody answers
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(getsockname(silent, reinterpret_cast<sockaddr*>(&address), &size), 0);
    auto options = MakeOptions(host);
    options.url = "opc.tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    options.connectTime = std::chrono::hours(1);
    Cancellation cancellation;
    std::thread canceller([&] { cancellation.Cancel(); });
    EXPECT_THROW(Connection(options, &cancellation), CancelledException);
    canceller.join();
    close(silent);
}

TEST_F(AConnection, CanBePlain)
{
    Connection connection(MakeOptions(host));
    const auto info = connection.GetInfo();
    EXPECT_EQ(info.securityMode, "None");
    EXPECT_THAT(info.namespaces, testing::Contains("urn:Talvensor:FileSystem"));
    EXPECT_THAT(info.sharedNodes, testing::ElementsAre("FileSystem"));
    EXPECT_THAT(info.modules, testing::ElementsAre("urn:Talvensor:FileSystem"));
}

TEST_F(AConnection, IsEncryptedWhereThatIsOffered)
{
    auto options = MakeTrustingOptions();
    options.security = Security::Automatic;
    Connection connection(options);
    const auto info = connection.GetInfo();
    EXPECT_EQ(info.securityMode, "SignAndEncrypt");
    EXPECT_EQ(info.securityPolicy, "Aes128_Sha256_RsaOaep");
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->acquaintance, Acquaintance::FirstSeen);
    EXPECT_EQ(shown->fingerprint.size(), 95U);
    EXPECT_EQ(info.fingerprint, shown->fingerprint);
}

TEST_F(AConnection, RemembersTheServerAndKeepsItsOwnKey)
{
    const auto key = state.GetPath() / "client" / "own" / "key.der";
    Connect(MakeTrustingOptions());
    const auto content = ReadFile(key);
    struct stat status = {};
    ASSERT_EQ(stat(key.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    Connect(MakeTrustingOptions());
    EXPECT_EQ(shown->acquaintance, Acquaintance::Known);
    EXPECT_EQ(ReadFile(key), content);
    // A known one needs nobody to ask.
    auto options = MakeOptions(host, Security::Encrypted);
    EXPECT_NO_THROW(Connect(options));
}

TEST_F(AConnection, RefusesAnUnknownServerUnlessItIsAccepted)
{
    auto options = MakeOptions(host, Security::Encrypted);
    EXPECT_EQ(GetRefusal([&] { Connect(options); }), Refusal::ServerCertificate);
    options.trustServer = [](const ServerCertificate&) {
        return false;
    };
    EXPECT_EQ(GetRefusal([&] { Connect(options); }), Refusal::ServerCertificate);
}

TEST_F(AConnection, SaysThatTheServerHasAnotherCertificate)
{
    Connect(MakeTrustingOptions());
    const auto before = shown->fingerprint;
    const auto port = host.GetPort();
    host.Kill();
    const HostProcess other(root.GetPath(), {}, port); // with a key of its own
    auto options = MakeOptions(other, Security::Encrypted);
    EXPECT_EQ(GetRefusal([&] { Connect(options); }), Refusal::ServerCertificate);
    Connect(MakeTrustingOptions());
    EXPECT_EQ(shown->acquaintance, Acquaintance::Changed);
    EXPECT_EQ(shown->previousFingerprint, before);
    EXPECT_NE(shown->fingerprint, before);
}

TEST_F(AConnection, SaysThatNothingAnswers)
{
    const auto options = MakeOptions(host);
    host.Kill();
    EXPECT_THROW(Connect(options), NoConnectionException);
    auto wrong = options;
    wrong.url = "http://127.0.0.1";
    EXPECT_THROW(Connect(wrong), InvalidArgumentException);
}

TEST_F(AConnection, AsksForTheRightPassword)
{
    const auto users = state.GetPath() / "users";
    const std::string command =
        "printf 'secret\\n' | " TALVENSOR_HOST " passwd " + users.string() + " anna > /dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const HostProcess closed(root.GetPath(), {"--users", users.string()});
    for (const auto security : {Security::Plain, Security::Encrypted}) {
        auto options = MakeOptions(closed, security);
        options.trustServer = [](const ServerCertificate&) {
            return true;
        };
        EXPECT_EQ(GetRefusal([&] { Connect(options); }), Refusal::Login);
        options.login = Login{"anna", "wrong"};
        EXPECT_EQ(GetRefusal([&] { Connect(options); }), Refusal::Login);
        options.login = Login{"anna", "secret"};
        Connection connection(options);
        EXPECT_EQ(connection.GetInfo().user, "anna");
        FileSystem fileSystem(connection);
        EXPECT_TRUE(fileSystem.Exists(root.GetPath().string()));
    }
}

TEST_F(AConnection, SaysThatThereAreEnoughFileSystems)
{
    Connection connection(MakeOptions(host));
    std::vector<std::unique_ptr<FileSystem>> fileSystems;
    EXPECT_EQ(GetRefusal([&] {
                  for (int i = 0; i < 100; ++i)
                      fileSystems.push_back(std::make_unique<FileSystem>(connection));
              }),
              Refusal::Limit);
    EXPECT_TRUE(fileSystems.front()->Exists(root.GetPath().string()));
}

TEST_F(AConnection, HearsASharedNode)
{
    Connection connection(MakeOptions(host));
    EXPECT_THROW(Watch(connection, "missing"), OperationFailedException);
    Watch watch(connection, "FileSystem");
    Cancellation cancellation;
    cancellation.Cancel();
    EXPECT_THROW((void)watch.Next(&cancellation), CancelledException);
}

class AFileSystem : public WithHost
{
protected:
    std::string Path(const std::string& name) { return (root.GetPath() / name).string(); }

    Connection connection{MakeOptions(host)};
    FileSystem fileSystem{connection};
};

TEST_F(AFileSystem, TellsWhatIsThere)
{
    MakeFile(Path("file"), 1);
    EXPECT_EQ(fileSystem.GetKind(Path("file")), Kind::File);
    EXPECT_EQ(fileSystem.GetKind(root.GetPath().string()), Kind::Directory);
    EXPECT_EQ(fileSystem.GetKind(Path("missing")), Kind::Missing);
    EXPECT_TRUE(fileSystem.Exists(Path("file")));
    EXPECT_FALSE(fileSystem.Exists(Path("missing")));
    EXPECT_THROW((void)fileSystem.Exists(""), InvalidArgumentException);
}

TEST_F(AFileSystem, Lists)
{
    MakeFile(Path("tree/sub/deep"), 1);
    MakeFile(Path("tree/\xFF\n"), 1);
    const auto flat = fileSystem.List(Path("tree"), false);
    EXPECT_EQ(flat.entries.size(), 2U);
    const auto all = fileSystem.List(Path("tree"), true);
    std::vector<std::string> paths;
    for (const auto& entry : all.entries) {
        paths.push_back(entry.path);
        EXPECT_EQ(entry.isDirectory, entry.path == "sub");
        EXPECT_TRUE(entry.isDirectory || entry.time == FileTime(std::chrono::seconds(oldTime)));
    }
    EXPECT_THAT(paths, testing::UnorderedElementsAre("sub", "sub/deep", "\xFF\n"));
    EXPECT_THROW((void)fileSystem.List(Path("missing"), false), OperationFailedException);
    EXPECT_THROW((void)fileSystem.List(Path("tree/sub/deep"), false), OperationFailedException);
}

TEST_F(AFileSystem, ListsWhatOneEventCannotCarry)
{
    constexpr int count = 61'441;
    fs::create_directories(Path("many/one"));
    fs::create_directories(Path("many/two"));
    for (int i = 0; i < count; ++i)
        std::ofstream(
            Path("many/" + std::string(i % 2 == 0 ? "one/" : "two/") + std::to_string(i)));
    const auto listing = fileSystem.List(Path("many"), true);
    EXPECT_TRUE(listing.failures.empty());
    EXPECT_EQ(listing.entries.size(), static_cast<std::size_t>(count) + 2);
}

TEST_F(AFileSystem, ListsTheLongestNamesOfAsManyEntriesAsOneEventCarries)
{
    constexpr int count = 61'440;
    fs::create_directories(Path("many"));
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        std::ofstream(Path("many/" + number + std::string(255 - number.size(), 'n')));
    }
    EXPECT_EQ(fileSystem.List(Path("many"), false).entries.size(), std::size_t{count});
}

TEST_F(AFileSystem, GetsAllListingsThatItAskedForAtOnce)
{
    constexpr int count = 3'000;
    constexpr int threadCount = 40;
    fs::create_directories(Path("many"));
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        std::ofstream(Path("many/" + number + std::string(240 - number.size(), 'n')));
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([&] {
            EXPECT_EQ(fileSystem.List(Path("many"), false).entries.size(), std::size_t{count});
        });
    for (auto& thread : threads)
        thread.join();
}

TEST_F(AFileSystem, CreatesDirectories)
{
    fileSystem.CreateDirectory(Path("a/b/c"));
    EXPECT_TRUE(fs::is_directory(Path("a/b/c")));
    fileSystem.CreateDirectory(Path("a/b/c"));
    MakeFile(Path("file"), 1);
    EXPECT_THROW(fileSystem.CreateDirectory(Path("file")), OperationFailedException);
    EXPECT_THROW(fileSystem.CreateDirectory(Path("file/below")), OperationFailedException);
}

TEST_F(AFileSystem, Deletes)
{
    MakeFile(Path("tree/sub/file"), 1);
    MakeFile(Path("file"), 1);
    const auto failures = fileSystem.Delete({Path("tree"), Path("file"), Path("missing")});
    EXPECT_FALSE(fs::exists(Path("tree")));
    EXPECT_FALSE(fs::exists(Path("file")));
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].path, Path("missing"));
    EXPECT_TRUE(fileSystem.Delete({Path("missing")}, true).empty());
}

TEST_F(AFileSystem, GetsAndSetsTimes)
{
    MakeFile(Path("file"), 1);
    const FileTime time(std::chrono::seconds(oldTime + 5));
    fileSystem.SetTime(Path("file"), time);
    EXPECT_EQ(fileSystem.GetTime(Path("file")), time);
    EXPECT_EQ(GetSeconds(Path("file")), oldTime + 5);
    EXPECT_EQ(fileSystem.GetTime(Path("missing")), std::nullopt);
    EXPECT_THROW(fileSystem.SetTime(Path("missing"), time), OperationFailedException);
}

TEST_F(AFileSystem, SetsPermissions)
{
    MakeFile(Path("file"), 10);
    fileSystem.SetPermissions(Path("file"), {.readOnly = false, .executable = true});
    EXPECT_EQ(fs::status(Path("file")).permissions() & fs::perms(0111), fs::perms(0111));
    EXPECT_EQ(fs::file_size(Path("file")), 10U);
    EXPECT_EQ(GetSeconds(Path("file")), oldTime);
    EXPECT_THROW(fileSystem.SetPermissions(Path("missing"), {}), OperationFailedException);
    EXPECT_FALSE(fs::exists(Path("missing")));
}

TEST_F(AFileSystem, FindsSizesWithoutChangingFiles)
{
    const std::vector<std::size_t> sizes{0, 1, 4095, 4096, 4097, 8192, 8193, 61440, 1'000'003};
    std::vector<std::string> paths;
    std::vector<std::optional<std::uint64_t>> expected;
    for (const auto size : sizes) {
        paths.push_back(Path(std::to_string(size)));
        MakeFile(paths.back(), size);
        expected.emplace_back(size);
    }
    MakeFile(Path("sparse"), 0);
    fs::resize_file(Path("sparse"), (std::uintmax_t{5} << 30U) + 7);
    paths.push_back(Path("sparse"));
    expected.emplace_back((std::uint64_t{5} << 30U) + 7);
    paths.push_back(Path("missing"));
    expected.emplace_back();
    EXPECT_EQ(fileSystem.GetSizes(paths), expected);
    EXPECT_EQ(GetSeconds(Path("1")), oldTime);
    EXPECT_THROW((void)fileSystem.GetSize(Path("missing")), OperationFailedException);
    EXPECT_THROW((void)fileSystem.GetSize(root.GetPath().string()), OperationFailedException);
}

TEST_F(AFileSystem, GetsItsOwnAnswersBesideAnother)
{
    Connection otherConnection(MakeOptions(host));
    FileSystem other(otherConnection);
    for (int i = 0; i < 50; ++i) {
        MakeFile(Path("one/" + std::to_string(i)), 0);
        MakeFile(Path("two/a" + std::to_string(i)), 0);
    }
    const auto check = [&](FileSystem& asked, const std::string& folder, bool hasLetter) {
        for (int i = 0; i < 100; ++i)
            for (const auto& entry : asked.List(Path(folder), false).entries)
                ASSERT_EQ(entry.path.front() == 'a', hasLetter);
    };
    std::thread thread([&] { check(other, "two", true); });
    check(fileSystem, "one", false);
    thread.join();
}

TEST_F(AFileSystem, AnswersSeveralThreads)
{
    MakeFile(Path("there"), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 200; ++j) {
                EXPECT_TRUE(fileSystem.Exists(Path("there")));
                EXPECT_FALSE(fileSystem.Exists(Path("missing")));
            }
        });
    for (auto& thread : threads)
        thread.join();
}

} // namespace
