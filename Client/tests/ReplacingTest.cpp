// Uploads to a server with file objects: beside the target, renamed when whole.

#include "Fixture.h"
#include "Relay.h"

#include "LocalFiles.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace Client;
using namespace ClientTest;

namespace fs = std::filesystem;

namespace {

constexpr std::size_t smallSize = 1000;
constexpr std::size_t largeSize = std::size_t{8} << 20U;

class AReplacedFile : public WithObjects
{
protected:
    std::vector<TransferItem> MakeItem(std::size_t size)
    {
        MakeFile(local.GetPath() / "file", size);
        return {{(local.GetPath() / "file").string(), Target().string()}};
    }
    fs::path Target() const { return root.GetPath() / "file"; }
    std::vector<std::string> GetNames() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(root.GetPath()))
            names.push_back(entry.path().filename().string());
        return names;
    }
    static unsigned int GetMode(const fs::path& file)
    {
        return static_cast<unsigned int>(fs::status(file).permissions());
    }

    Connection connection{MakeOptions(host)};
    FileSystem fileSystem{connection};
};

TEST_F(AReplacedFile, IsWholeWhetherSmallOrLarge)
{
    for (const std::size_t size : {std::size_t{0}, smallSize, largeSize}) {
        const auto sent = fileSystem.Upload(MakeItem(size));
        EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
        EXPECT_EQ(ReadFile(Target()), MakeContent(size));
        EXPECT_EQ(GetSeconds(Target()), oldTime);
        EXPECT_THAT(GetNames(), testing::ElementsAre("file"));
    }
}

TEST_F(AReplacedFile, IsReplacedNotWritten)
{
    for (const std::size_t size : {smallSize, largeSize}) {
        WriteFile(Target(), "before");
        fs::create_hard_link(Target(), root.GetPath() / "other");
        ASSERT_TRUE(fileSystem.Upload(MakeItem(size)).IsComplete());
        EXPECT_EQ(ReadFile(root.GetPath() / "other"), "before");
        fs::remove(root.GetPath() / "other");
    }
}

TEST_F(AReplacedFile, IsWrittenItselfWhenAskedFor)
{
    WriteFile(Target(), "before");
    fs::create_hard_link(Target(), root.GetPath() / "other");
    TransferOptions options;
    options.isInPlace = true;
    ASSERT_TRUE(fileSystem.Upload(MakeItem(smallSize), options).IsComplete());
    EXPECT_EQ(ReadFile(root.GetPath() / "other"), MakeContent(smallSize));
}

TEST_F(AReplacedFile, StaysWholeForWhoReadsItMeanwhile)
{
    ASSERT_TRUE(fileSystem.Upload(MakeItem(largeSize)).IsComplete());
    const auto before = MakeContent(largeSize);
    const auto items = MakeItem(largeSize + 1);
    std::atomic<bool> sawPart = false;
    TransferOptions options;
    options.progress = [&](const Progress& progress) {
        if (!progress.isFileFinished && fs::file_size(Target()) != largeSize)
            sawPart = true;
    };
    ASSERT_TRUE(fileSystem.Upload(items, options).IsComplete());
    EXPECT_FALSE(sawPart);
    EXPECT_EQ(fs::file_size(Target()), largeSize + 1);
}

TEST_F(AReplacedFile, KeepsItsPermissions)
{
    for (const std::size_t size : {smallSize, largeSize})
        for (const unsigned int mode : {0600U, 0640U, 0644U, 0444U, 0400U, 0755U}) {
            WriteFile(Target(), "before");
            fs::permissions(Target(), fs::perms(mode));
            const auto sent = fileSystem.Upload(MakeItem(size));
            EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
            EXPECT_EQ(GetMode(Target()), mode);
            EXPECT_EQ(fs::file_size(Target()), size);
            fs::remove(Target());
        }
}

TEST_F(AReplacedFile, GetsThePermissionsThatAreSent)
{
    const auto items = MakeItem(smallSize);
    WriteFile(Target(), "before");
    fs::permissions(Target(), fs::perms(0640));
    fs::permissions(items[0].local, fs::perms(0555));
    ASSERT_TRUE(fileSystem.Upload(items).IsComplete());
    EXPECT_EQ(GetMode(Target()), 0550U);
}

TEST_F(AReplacedFile, IsNeverReadableForMoreThanBefore)
{
    for (const std::size_t size : {smallSize, largeSize}) {
        const auto items = MakeItem(size);
        WriteFile(Target(), "before");
        fs::permissions(Target(), fs::perms(0600));
        fs::permissions(items[0].local, fs::perms(0400));
        std::vector<unsigned int> modes;
        TransferOptions options;
        options.verifies = true; // with the part closed
        options.progress = [&](const Progress& progress) {
            if (progress.isFileFinished)
                return;
            for (const auto& entry : fs::directory_iterator(root.GetPath()))
                modes.push_back(GetMode(entry.path()));
        };
        const auto sent = fileSystem.Upload(items, options);
        EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
        EXPECT_THAT(modes, testing::Contains(0600U));
        EXPECT_THAT(modes, testing::Each(testing::AnyOf(0600U, 0400U)));
        EXPECT_EQ(GetMode(Target()), 0400U);
        ASSERT_TRUE(fileSystem.Upload(items).IsComplete());
        EXPECT_EQ(GetMode(Target()), 0400U);
        fs::remove(Target());
        fs::remove(items[0].local);
    }
}

TEST_F(AReplacedFile, IsNeverReadableForMoreThanBeforeAmongManySmallOnes)
{
    constexpr int count = 300;
    const fs::path tree = local.GetPath() / "tree";
    const fs::path target = root.GetPath() / "tree";
    for (int i = 0; i < count; ++i) {
        const auto file = tree / std::to_string(i);
        MakeFile(file, smallSize);
        fs::permissions(file, fs::perms(i % 3 == 0 ? 0644 : i % 3 == 1 ? 0600 : 0440));
    }
    std::size_t seen = 0;
    TransferOptions options;
    options.isRecursive = true;
    options.progress = [&](const Progress& progress) {
        if (progress.isFileFinished)
            return;
        for (const auto& entry : fs::directory_iterator(target)) {
            const auto name = entry.path().filename().string();
            struct stat status = {};
            const bool isThere = stat(entry.path().c_str(), &status) == 0; // a part may have gone
            if (!isThere || !S_ISREG(status.st_mode) || status.st_size == 0 ||
                std::stoi(name.substr(IsPartName(name) ? 1 : 0)) % 3 == 0)
                continue;
            ++seen;
            EXPECT_EQ(status.st_mode & 0007U, 0U) << entry.path();
        }
    };
    const auto sent = fileSystem.Upload({{tree.string(), target.string()}}, options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.files, std::size_t{count});
    EXPECT_GT(seen, 0U);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(GetMode(target / std::to_string(i)), GetMode(tree / std::to_string(i)));
    ExpectSameTrees(tree, target);
}

TEST_F(AReplacedFile, CannotBeOpenedByOthersBeforeItsPartIsClosed)
{
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(watch, 0);
    ASSERT_GE(inotify_add_watch(watch, root.GetPath().c_str(), IN_CREATE), 0);
    const auto countMade = [watch] {
        alignas(inotify_event) std::array<char, 65536> buffer{};
        std::size_t count = 0;
        for (ssize_t size = 0; (size = read(watch, buffer.data(), buffer.size())) > 0;)
            for (ssize_t at = 0; at < size;) {
                inotify_event event{};
                std::memcpy(&event, buffer.data() + at, sizeof event);
                at += static_cast<ssize_t>(sizeof event + event.len);
                if ((event.mask & IN_ISDIR) == 0)
                    ++count;
            }
        return count;
    };
    for (const std::size_t size : {smallSize, largeSize}) {
        const auto items = MakeItem(size);
        fs::permissions(items[0].local, fs::perms(0600));
        const auto sent = fileSystem.Upload(items);
        EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
        EXPECT_EQ(countMade(), 0U) << "each is moved there";
        EXPECT_EQ(GetMode(Target()), 0600U);
        EXPECT_TRUE(ReadFile(Target()) == MakeContent(size));
        fs::remove(Target());
        EXPECT_THAT(GetNames(), testing::IsEmpty());
        fs::remove(items[0].local);
    }
    close(watch);
}

TEST_F(AReplacedFile, IsWholeThoughAnotherTransferOfItIsInterruptedMeanwhile)
{
    const auto items = MakeItem(largeSize);
    Connection otherConnection(MakeOptions(host));
    FileSystem other(otherConnection);
    TransferResult broken;
    TransferOptions options;
    options.progress = [&, isFirst = true](const Progress& progress) mutable {
        if (!isFirst || progress.bytes < largeSize / 2)
            return;
        isFirst = false;
        std::thread([&] {
            Cancellation cancellation;
            TransferOptions interrupted;
            interrupted.cancellation = &cancellation;
            interrupted.progress = [&](const Progress&) {
                cancellation.Cancel();
            };
            broken = other.Upload(items, interrupted);
        }).join();
    };
    const auto sent = fileSystem.Upload(items, options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ASSERT_TRUE(broken.isCancelled);
    EXPECT_TRUE(ReadFile(Target()) == MakeContent(largeSize));
    EXPECT_EQ(GetSeconds(Target()), oldTime);
    TransferOptions again;
    again.resumes = true;
    ASSERT_TRUE(fileSystem.Upload(MakeItem(largeSize + 1), again).IsComplete());
    EXPECT_TRUE(ReadFile(Target()) == MakeContent(largeSize + 1));
}

TEST_F(AReplacedFile, IsWrittenInPlaceByOneOfTwoTransfers)
{
    const auto items = MakeItem(largeSize);
    MakeFile(local.GetPath() / "other", largeSize + 1);
    const std::vector<TransferItem> others = {
        {(local.GetPath() / "other").string(), Target().string()}};
    Connection otherConnection(MakeOptions(host));
    FileSystem other(otherConnection);
    TransferResult refused;
    TransferOptions options;
    options.isInPlace = true;
    options.progress = [&, isFirst = true](const Progress&) mutable {
        if (!std::exchange(isFirst, false))
            return;
        std::thread([&] {
            TransferOptions same;
            same.isInPlace = true;
            refused = other.Upload(others, same);
        }).join();
    };
    const auto sent = fileSystem.Upload(items, options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ASSERT_EQ(refused.failures.size(), 1U);
    EXPECT_EQ(refused.failures[0].cause, "another transfer is writing it");
    EXPECT_THAT(refused.unfinished, testing::IsEmpty());
    EXPECT_TRUE(ReadFile(Target()) == MakeContent(largeSize));
    options.progress = {};
    EXPECT_TRUE(other.Upload(items, options).IsComplete());
}

TEST_F(AReplacedFile, IsWrittenThroughALinkIntoAnotherFolder)
{
    TemporaryFolder second;
    HostProcess two(root.GetPath(), [&] {
        auto arguments = GetObjectArguments();
        arguments.insert(arguments.end(), {"--root", second.GetPath().string()});
        return arguments;
    }());
    fs::create_directory_symlink(second.GetPath(), root.GetPath() / "link");
    Connection toBoth(MakeOptions(two));
    FileSystem both(toBoth);
    for (const std::size_t size : {smallSize, largeSize}) {
        auto items = MakeItem(size);
        items[0].remote = (root.GetPath() / "link" / "file").string();
        const auto sent = both.Upload(items);
        EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
        EXPECT_TRUE(ReadFile(second.GetPath() / "file") == MakeContent(size));
        EXPECT_EQ(std::distance(fs::directory_iterator(second.GetPath()), {}), 1);
    }
}

TEST_F(AReplacedFile, IsNewWithoutWhatTheUmaskTakesUnlessItIsPartOfATree)
{
    const auto items = MakeItem(smallSize);
    fs::permissions(items[0].local, fs::perms(0666));
    ASSERT_TRUE(fileSystem.Upload(items).IsComplete());
    EXPECT_EQ(GetMode(Target()), 0644U);
    fs::permissions(Target(), fs::perms(0666));
    const mode_t before = umask(077);
    const auto back = local.GetPath() / "back";
    const auto fetched = fileSystem.Download({{back.string(), Target().string()}});
    umask(before);
    ASSERT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(GetMode(back), 0600U);
    ListEntry entry;
    entry.path = "file";
    TreePart part{local.GetPath().string(), root.GetPath().string(), {entry}};
    fs::remove(Target());
    ASSERT_TRUE(fileSystem.UploadPart(part).IsComplete());
    EXPECT_EQ(GetMode(Target()), 0666U);
    fs::remove(items[0].local);
    const mode_t again = umask(077);
    const auto synchronized = fileSystem.DownloadPart(part);
    umask(again);
    ASSERT_TRUE(synchronized.IsComplete()) << Describe(synchronized);
    EXPECT_EQ(GetMode(items[0].local), 0666U);
}

TEST_F(AReplacedFile, TakesThePlaceOfALink)
{
    WriteFile(root.GetPath() / "other", "before");
    fs::create_symlink("other", Target());
    ASSERT_TRUE(fileSystem.Upload(MakeItem(smallSize)).IsComplete());
    EXPECT_FALSE(fs::is_symlink(Target()));
    EXPECT_EQ(ReadFile(root.GetPath() / "other"), "before");
}

TEST_F(AReplacedFile, IsNoDirectory)
{
    fs::create_directory(Target());
    const auto sent = fileSystem.Upload(MakeItem(smallSize));
    ASSERT_EQ(sent.failures.size(), 1U);
    EXPECT_EQ(sent.failures[0].cause, "is a directory");
    EXPECT_THAT(GetNames(), testing::ElementsAre("file"));
}

TEST_F(AReplacedFile, IsCarriedOnFromItsPart)
{
    WriteFile(Target(), "before");
    const auto items = MakeItem(largeSize);
    Cancellation cancellation;
    TransferOptions options;
    options.cancellation = &cancellation;
    options.progress = [&](const Progress& progress) {
        if (progress.bytes > 0)
            cancellation.Cancel();
    };
    const auto broken = fileSystem.Upload(items, options);
    ASSERT_TRUE(broken.isCancelled);
    ASSERT_THAT(broken.unfinished, testing::SizeIs(1));
    EXPECT_EQ(ReadFile(Target()), "before");
    EXPECT_GT(fs::file_size(broken.unfinished[0]), 0U);
    TransferOptions again;
    again.resumes = true;
    again.verifies = true;
    const auto sent = fileSystem.Upload(items, again);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_GT(sent.resumedBytes, 0U);
    EXPECT_EQ(ReadFile(Target()), MakeContent(largeSize));
    EXPECT_THAT(GetNames(), testing::ElementsAre("file"));
}

TEST_F(AReplacedFile, LeavesNothingOfSmallFilesThatWereCancelled)
{
    const fs::path tree = local.GetPath() / "tree";
    for (int i = 0; i < 500; ++i)
        MakeFile(tree / std::to_string(i), smallSize);
    Cancellation cancellation;
    TransferOptions options;
    options.isRecursive = true;
    options.cancellation = &cancellation;
    options.progress = [&](const Progress& progress) {
        if (progress.bytes > 50 * smallSize)
            cancellation.Cancel();
    };
    const auto sent =
        fileSystem.Upload({{tree.string(), (root.GetPath() / "tree").string()}}, options);
    ASSERT_TRUE(sent.isCancelled);
    EXPECT_THAT(sent.unfinished, testing::IsEmpty());
    for (const auto& entry : fs::directory_iterator(root.GetPath() / "tree"))
        EXPECT_FALSE(IsPartName(entry.path().filename().string())) << entry.path();
}

TEST_F(AReplacedFile, IsRenamedAlthoughTheConnectionIsLostMeanwhile)
{
    const auto names = connection.GetInfo().namespaces;
    const auto index = static_cast<char>(
        std::find(names.begin(), names.end(), "urn:Talvensor:FileObjects") - names.begin());
    for (const std::size_t size : {smallSize, largeSize}) {
        Relay relay(host.GetPort());
        auto options = MakeOptions(host);
        options.url = relay.GetUrl();
        Connection cut(options);
        FileSystem again(cut);
        relay.CutBefore({'\x01', index, '\x56', '\x04'}, 1); // the call that renames
        const auto sent = again.Upload(MakeItem(size));
        EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
        EXPECT_TRUE(relay.HasCut());
        EXPECT_EQ(ReadFile(Target()), MakeContent(size));
        EXPECT_THAT(GetNames(), testing::ElementsAre("file"));
    }
}

TEST_F(AReplacedFile, IsClosedAndWholeAlthoughTheConnectionIsLostWhileItsPartIsMade)
{
    const auto names = connection.GetInfo().namespaces;
    const auto index = static_cast<char>(
        std::find(names.begin(), names.end(), "urn:Talvensor:FileObjects") - names.begin());
    const std::string setPermissions{'\x01', index, '\x7E', '\x04'};
    const std::string move{'\x01', index, '\x56', '\x04'};
    const fs::path tree = local.GetPath() / "tree";
    for (int i = 0; i < 300; ++i)
        MakeFile(tree / std::to_string(i), smallSize);
    for (const auto* const name : {"large", "larger"})
        MakeFile(tree / name, largeSize);
    for (const auto& entry : fs::directory_iterator(tree))
        fs::permissions(entry.path(), fs::perms(0600));
    int number = 0;
    for (const auto& [bytes, occurrence] :
         {std::pair(setPermissions, 1), {setPermissions, 2}, {move, 1}, {move, 2}, {move, 5}}) {
        const fs::path target = root.GetPath() / std::to_string(++number);
        Relay relay(host.GetPort());
        auto options = MakeOptions(host);
        options.url = relay.GetUrl();
        Connection cut(options);
        FileSystem again(cut);
        relay.CutBefore(bytes, occurrence);
        TransferOptions transfer;
        transfer.isRecursive = true;
        const auto sent = again.Upload({{tree.string(), target.string()}}, transfer);
        EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
        EXPECT_TRUE(relay.HasCut());
        ExpectSameTrees(tree, target);
        for (const auto& entry : fs::directory_iterator(target))
            EXPECT_EQ(GetMode(entry.path()), 0600U) << entry.path();
        for (const auto& entry : fs::directory_iterator(root.GetPath()))
            EXPECT_FALSE(IsPartName(entry.path().filename().string())) << entry.path();
    }
}

TEST_F(AReplacedFile, CountsAsRenamedOnlyIfTheTargetIsTheFileThatWasSent)
{
    const auto names = connection.GetInfo().namespaces;
    const auto index = static_cast<char>(
        std::find(names.begin(), names.end(), "urn:Talvensor:FileObjects") - names.begin());
    for (const std::size_t size : {smallSize, largeSize}) {
        WriteFile(Target(), "before");
        Relay relay(host.GetPort());
        auto options = MakeOptions(host);
        options.url = relay.GetUrl();
        options.report = [this](const std::string&) { // of the loss: somebody else takes the part
            for (const auto& name : GetNames())
                if (IsPartName(name))
                    fs::remove(root.GetPath() / name);
        };
        Connection cut(options);
        FileSystem again(cut);
        relay.CutBefore({'\x01', index, '\x56', '\x04'}, 1); // the call that renames
        const auto sent = again.Upload(MakeItem(size));
        EXPECT_TRUE(relay.HasCut());
        ASSERT_EQ(sent.failures.size(), 1U);
        EXPECT_EQ(sent.failures[0].step, Step::Rename);
        EXPECT_EQ(ReadFile(Target()), "before");
    }
}

TEST_F(AReplacedFile, LeavesNoPartUntoldWhenTheConnectionIsGivenUp)
{
    const fs::path tree = local.GetPath() / "tree";
    for (int i = 0; i < 1000; ++i)
        MakeFile(tree / std::to_string(i), smallSize);
    for (const bool isInterrupted : {false, true}) {
        const fs::path target = root.GetPath() / (isInterrupted ? "interrupted" : "lost");
        Relay relay(host.GetPort());
        Cancellation cancellation;
        auto options = MakeOptions(host);
        options.url = relay.GetUrl();
        options.reconnectTime = std::chrono::milliseconds(isInterrupted ? 60'000 : 300);
        options.report = [&](const std::string&) {
            if (isInterrupted)
                cancellation.Cancel();
        };
        Connection cut(options);
        FileSystem files(cut);
        TransferOptions transfer;
        transfer.isRecursive = true;
        transfer.cancellation = &cancellation;
        transfer.progress = [&, isFirst = true](const Progress& progress) mutable {
            if (!std::exchange(isFirst, isFirst && progress.bytes < 300 * smallSize))
                return;
            if (progress.bytes >= 300 * smallSize) {
                relay.Refuse(true);
                relay.Cut();
            }
        };
        const auto sent = files.Upload({{tree.string(), target.string()}}, transfer);
        EXPECT_EQ(sent.isCancelled, isInterrupted);
        EXPECT_EQ(sent.isConnectionLost, !isInterrupted);
        for (const auto& failure : sent.failures)
            EXPECT_FALSE(failure.path.empty()) << failure.cause;
        EXPECT_EQ(sent.failures.empty(), isInterrupted);
        std::size_t parts = 0;
        for (const auto& entry : fs::directory_iterator(target))
            if (IsPartName(entry.path().filename().string())) {
                ++parts;
                EXPECT_THAT(sent.unfinished, testing::Contains(entry.path().string()));
            }
        EXPECT_GT(parts, 0U);
    }
}

TEST_F(AReplacedFile, CanComeFromAStream)
{
    WriteFile(Target(), "before");
    std::size_t left = 3;
    const auto sent = fileSystem.UploadFrom(
        [&](std::span<unsigned char> buffer) {
            if (left == 0)
                return std::size_t{0};
            --left;
            buffer[0] = 'x';
            return std::size_t{1};
        },
        Target().string());
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadFile(Target()), "xxx");
    EXPECT_THAT(GetNames(), testing::ElementsAre("file"));
}

TEST_F(AReplacedFile, StaysWhenItsStreamFails)
{
    WriteFile(Target(), "before");
    EXPECT_THROW(
        (void)fileSystem.UploadFrom(
            [&](std::span<unsigned char>) -> std::size_t { throw std::runtime_error("no more"); },
            Target().string()),
        std::runtime_error);
    EXPECT_EQ(ReadFile(Target()), "before");
    EXPECT_THAT(GetNames(), testing::ElementsAre("file"));
}

TEST(APartName, IsRecognised)
{
    EXPECT_TRUE(IsPartName(GetPartName("file")));
    EXPECT_TRUE(IsPartName(GetRemotePartName("file", "here", "1")));
    EXPECT_TRUE(IsPartName(GetRemotePartName(std::string(250, 'x'), "here", "1")));
    EXPECT_LE(GetRemotePartName(std::string(250, 'x'), "here", "1").size(), 255U);
    EXPECT_TRUE(IsPartName(MakeRemotePartName("file")));
    EXPECT_FALSE(IsPartName("file"));
    EXPECT_FALSE(IsPartName(".talvensor-part"));
    EXPECT_FALSE(IsPartName(".file.talvensor-parts"));
    EXPECT_TRUE(IsPartName(".talvensor-0123456789abcdef0123456789abcdef.part"));
    EXPECT_FALSE(IsPartName(".talvensor-0123456789abcdef0123456789abcde.part"));
    EXPECT_FALSE(IsPartName(".talvensor-0123456789abcdef0123456789abcdeg.part"));
    EXPECT_NE(GetRemotePartName("file", "here", "1"), GetRemotePartName("file", "there", "1"));
    EXPECT_NE(GetRemotePartName("file", "here", "1"), GetRemotePartName("file", "here", "2"));
    EXPECT_NE(MakeRemotePartName("file"), MakeRemotePartName("file"));
}

TEST(APart, IsClosedToOthersBeforeItHasContent)
{
    const TemporaryFolder folder;
    const int directory = open(folder.GetPath().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const bool wasThere : {false, true}) {
        const auto path = folder.GetPath() / (wasThere ? "old" : "new");
        if (wasThere)
            WriteFile(path, "x");
        PartFile part(directory, "file", path.filename().string(), "file", true, 0400);
        EXPECT_EQ(static_cast<unsigned int>(fs::status(path).permissions()), 0600U);
        part.Finish(std::nullopt);
        EXPECT_EQ(static_cast<unsigned int>(fs::status(folder.GetPath() / "file").permissions()),
                  0400U);
    }
    close(directory);
}

TEST(AnAsideName, IsThatOfAPartAndToldFromOne)
{
    for (const auto& path : {std::string("file"), std::string("a/b/file"), std::string(250, 'x')}) {
        const auto name = MakeAsideName(path).substr(path.rfind('/') + 1);
        EXPECT_TRUE(IsAsideName(name)) << name;
        EXPECT_TRUE(IsPartName(name)) << name;
        EXPECT_LE(name.size(), 255U);
    }
    EXPECT_TRUE(MakeAsideName("a/b/file").starts_with("a/b/.file.talvensor-part-0-"));
    EXPECT_NE(MakeAsideName("file"), MakeAsideName("file"));
    EXPECT_FALSE(IsAsideName(GetPartName("file")));
    EXPECT_FALSE(IsAsideName(GetPartName(".file.talvensor-part-0-0123456789abcdef")));
    EXPECT_FALSE(IsAsideName(MakeRemotePartName("file")));
    EXPECT_FALSE(IsAsideName(GetRemotePartName("file", "here", "1")));
    EXPECT_FALSE(IsAsideName(".file.talvensor-part-0-0123456789abcde"));
    EXPECT_FALSE(IsAsideName(".file-0-0123456789abcdef"));
    EXPECT_FALSE(IsAsideName("file"));
}

} // namespace
