#include "Fixture.h"
#include "Relay.h"

#include "Client/FileSystem.h"
#include "Client/Watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Client;
using namespace ClientTest;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

class ALostConnection : public WithHost
{
protected:
    /// Does something once, when so much has been moved.
    static ProgressCallback Once(std::uint64_t bytes, std::function<void()> action)
    {
        return [bytes, action = std::move(action), done = false](const Progress& progress) mutable {
            if (progress.bytes < bytes || done)
                return;
            done = true;
            action();
        };
    }

    TransferOptions MakeTransfer(ProgressCallback progress)
    {
        TransferOptions options;
        options.isRecursive = true;
        options.progress = std::move(progress);
        return options;
    }
};

TEST_F(ALostConnection, IsMadeAgainInAnUpload)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    MakeFile(local.GetPath() / "source", 40 * mebibyte);
    const auto before = relay.CountConnections();
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "source").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(8 * mebibyte, [&] { relay.Cut(); })));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_GT(relay.CountConnections(), before);
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(local.GetPath() / "source"));
    EXPECT_EQ(GetSeconds(root.GetPath() / "file"), oldTime);
}

TEST_F(ALostConnection, IsMadeAgainInADownload)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    MakeFile(root.GetPath() / "file", 40 * mebibyte);
    const auto before = relay.CountConnections();
    const auto fetched = fileSystem.Download(
        {{(local.GetPath() / "target").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(8 * mebibyte, [&] { relay.Cut(); })));
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(fetched.bytes, 40 * mebibyte);
    EXPECT_GT(relay.CountConnections(), before);
    EXPECT_EQ(ReadFile(local.GetPath() / "target"), ReadFile(root.GetPath() / "file"));
}

TEST_F(ALostConnection, IsMadeAgainInATreeOfSmallFiles)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    for (int i = 0; i < 1'000; ++i)
        MakeFile(local.GetPath() / "tree" / std::to_string(i), 5'000);
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "tree").string(), (root.GetPath() / "tree").string()}},
        MakeTransfer(Once(2'000'000, [&] { relay.Cut(); })));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.files, 1'000U);
    ExpectSameTrees(local.GetPath() / "tree", root.GetPath() / "tree");
    const auto fetched = fileSystem.Download(
        {{(local.GetPath() / "back").string(), (root.GetPath() / "tree").string()}},
        MakeTransfer(Once(2'000'000, [&] { relay.Cut(); })));
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(fetched.files, 1'000U);
    ExpectSameTrees(local.GetPath() / "tree", local.GetPath() / "back");
}

TEST_F(ALostConnection, IsMadeAgainWhenEncrypted)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host, Security::Encrypted);
    options.url = relay.GetUrl();
    options.trustServer = [](const ServerCertificate&) {
        return true;
    };
    Connection connection(options);
    FileSystem fileSystem(connection);
    MakeFile(local.GetPath() / "source", 30 * mebibyte);
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "source").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(10 * mebibyte, [&] { relay.Cut(); })));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(local.GetPath() / "source"));
}

TEST_F(ALostConnection, IsMadeAgainWithAHostThatWasKilledAndStarted)
{
    Connection connection(MakeOptions(host));
    FileSystem fileSystem(connection);
    MakeFile(local.GetPath() / "source", 60 * mebibyte);
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "source").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(20 * mebibyte, [&] { host.Restart(); })));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(local.GetPath() / "source"));
    const auto fetched = fileSystem.Download(
        {{(local.GetPath() / "target").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(20 * mebibyte, [&] { host.Restart(); })));
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(ReadFile(local.GetPath() / "target"), ReadFile(local.GetPath() / "source"));
}

TEST_F(ALostConnection, LeavesNoEarlierFilesOfTheSameTime)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    for (int i = 0; i < 1'000; ++i) {
        MakeFile(local.GetPath() / "tree" / std::to_string(i), 5'000);
        MakeFile(root.GetPath() / "tree" / std::to_string(i), 4'999);
    }
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "tree").string(), (root.GetPath() / "tree").string()}},
        MakeTransfer(Once(2'000'000, [&] { relay.Cut(); })));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ExpectSameTrees(local.GetPath() / "tree", root.GetPath() / "tree");
}

TEST_F(ALostConnection, IsNotTheOnlyThingThatLosesABlock)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    MakeFile(local.GetPath() / "source", 40 * mebibyte);
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "source").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(8 * mebibyte, [&] { relay.SpoilWrite(); })));
    ASSERT_TRUE(relay.HasSpoiled());
    ASSERT_EQ(sent.failures.size(), 1U) << Describe(sent);
    EXPECT_EQ(sent.failures[0].kind, FailureKind::Refused);
    EXPECT_EQ(sent.files, 0U);
    EXPECT_THAT(sent.unfinished, testing::ElementsAre((root.GetPath() / "file").string()));
}

TEST_F(ALostConnection, IsToldWhenItCannotBeMadeAgain)
{
    auto options = MakeOptions(host);
    options.reconnectTime = std::chrono::milliseconds(300);
    Connection connection(options);
    FileSystem fileSystem(connection);
    MakeFile(local.GetPath() / "source", 60 * mebibyte);
    const auto sent = fileSystem.Upload(
        {{(local.GetPath() / "source").string(), (root.GetPath() / "file").string()}},
        MakeTransfer(Once(20 * mebibyte, [&] { host.Kill(); })));
    EXPECT_TRUE(sent.isConnectionLost);
    EXPECT_THAT(sent.unfinished, testing::ElementsAre((root.GetPath() / "file").string()));
    EXPECT_THROW((void)fileSystem.Exists("anything"), ConnectionLostException);
}

TEST_F(ALostConnection, IsNoticedByAWatch)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    Watch watch(connection, "FileSystem");
    relay.Cut();
    EXPECT_THROW((void)watch.Next(), ConnectionLostException);
}

TEST_F(ALostConnection, LosesNoAnswerOfManyCalls)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection connection(options);
    FileSystem fileSystem(connection);
    MakeFile(root.GetPath() / "there", 1);
    // The relay cuts on a thread of its own, at any point of the calls that follow. It waits for a
    // connection that works: cutting each at once would leave it to chance when this ends.
    for (int cuts = 0; cuts < 8; ++cuts) {
        const int before = relay.CountConnections();
        relay.Cut();
        do {
            EXPECT_TRUE(fileSystem.Exists((root.GetPath() / "there").string()));
            EXPECT_FALSE(fileSystem.Exists((root.GetPath() / "missing").string()));
        } while (relay.CountConnections() == before);
    }
}

} // namespace
