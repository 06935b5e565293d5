// The reasons that somebody sees when something fails, and targets that are replaced, with a server
// that has file objects.

#include "Tool.h"

#include "Client/Transfer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sched.h>
#include <thread>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

std::vector<std::string> Plain(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"--security", "plain"});
    return arguments;
}

std::size_t CountLines(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class AServerWithReasons : public testing::Test
{
protected:
    Result Run(const std::vector<std::string>& arguments, const std::string& input = "") const
    {
        return desk.Run(Plain(arguments), input);
    }

    Desk desk{ClientTest::GetObjectArguments()};
};

TEST_F(AServerWithReasons, NamesADirectoryThatIsMissing)
{
    WriteFile(desk.GetLocal("file"), "x");
    const auto result = Run({"-q", "put", "file", "no/such/file"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "talvensor-fs: no/such/file (remote): cannot open: No such directory: "
                            "no/such\n");
}

TEST_F(AServerWithReasons, NamesAFileThatIsMissing)
{
    EXPECT_THAT(Run({"-q", "get", "nothing", "here"}).error,
                HasSubstr("No such file or directory"));
    EXPECT_FALSE(fs::exists(Client::GetPartName(desk.GetLocal("here").string())));
}

TEST_F(AServerWithReasons, RenamesAndMoves)
{
    WriteFile(desk.GetRemote("one"), "1");
    WriteFile(desk.GetRemote("two"), "2");
    EXPECT_EQ(Run({"mv", "one", "three"}).error, "");
    EXPECT_EQ(ReadFile(desk.GetRemote("three")), "1");
    fs::create_directory(desk.GetRemote("directory"));
    EXPECT_EQ(Run({"mv", "--glob", "t*", "directory"}).error, "");
    EXPECT_EQ(ReadFile(desk.GetRemote("directory/two")), "2");
    const auto result = Run({"mv", "nothing", "directory/two", "."});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error,
              "talvensor-fs: nothing (remote): cannot rename: No such file or directory\n");
    EXPECT_TRUE(fs::exists(desk.GetRemote("two")));
}

TEST_F(AServerWithReasons, Copies)
{
    fs::create_directories(desk.GetRemote("tree/below"));
    WriteFile(desk.GetRemote("tree/below/file"), "1");
    EXPECT_THAT(Run({"cp", "tree", "copy"}).error,
                HasSubstr("tree (remote): cannot copy: is a directory (use -r)"));
    EXPECT_EQ(Run({"cp", "-r", "tree", "copy"}).error, "");
    EXPECT_EQ(ReadFile(desk.GetRemote("copy/below/file")), "1");
    EXPECT_EQ(Run({"cp", "copy/below/file", "file"}).error, "");
    EXPECT_EQ(ReadFile(desk.GetRemote("file")), "1");
}

TEST_F(AServerWithReasons, WarnsOfAPrivateFileThatIsWrittenInPlace)
{
    WriteFile(desk.GetLocal("private"), "x");
    fs::permissions(desk.GetLocal("private"), fs::perms(0600));
    EXPECT_EQ(Run({"-q", "put", "private", "kept"}).error, "");
    EXPECT_EQ(
        Run({"-q", "put", "--in-place", "private", "file"}).error,
        "talvensor-fs: private: warning: others cannot read it here, but may on the server\n");
}

TEST_F(AServerWithReasons, ShowsNothingInAPipeBeforeTheEnd)
{
    MakeSparseFile(desk.GetRemote("file"), 1000);
    EXPECT_EQ(CountLines(Run({"get", "file", "here"}).error), 1U);
}

TEST_F(AServerWithReasons, KeepsATargetWhenThereIsNoMoreInput)
{
    WriteFile(desk.GetRemote("file"), "before");
    EXPECT_EQ(Run({"put", "-", "file"}, "after").status, 0);
    EXPECT_EQ(ReadFile(desk.GetRemote("file")), "after");
}

class AServerThatMayNotWrite : public testing::Test
{
protected:
    AServerThatMayNotWrite()
    {
        fs::create_directory(desk.GetRemote("closed"));
        fs::permissions(desk.GetRemote("closed"), fs::perms(0555));
    }
    ~AServerThatMayNotWrite() override
    {
        fs::permissions(desk.GetRemote("closed"), fs::perms(0755));
    }

    Desk desk{ClientTest::GetObjectArguments(), ClientTest::StartUnprivileged()};
};

TEST_F(AServerThatMayNotWrite, SaysSoOnceForManyFiles)
{
    std::vector<std::string> arguments = Plain({"-q", "put"});
    for (int i = 0; i < 520; ++i) {
        WriteFile(desk.GetLocal("file" + std::to_string(i)), "x");
        arguments.push_back("file" + std::to_string(i));
    }
    arguments.emplace_back("closed");
    const auto result = desk.Run(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("file0 (remote): cannot open: Permission denied: the "
                                        "server may not write to closed\n"));
    EXPECT_THAT(result.error, HasSubstr("and 515 others: Permission denied"));
    EXPECT_EQ(CountLines(result.error), 6U);
}

TEST_F(AServerThatMayNotWrite, ReplacesAReadOnlyFileWhereItMayWriteTheDirectory)
{
    fs::create_directory(desk.GetRemote("open"));
    fs::permissions(desk.GetRemote("open"), fs::perms(0777));
    WriteFile(desk.GetRemote("open/file"), "before");
    fs::permissions(desk.GetRemote("open/file"), fs::perms(0444));
    WriteFile(desk.GetLocal("file"), "after");
    EXPECT_THAT(desk.Run(Plain({"-q", "put", "--in-place", "file", "open/file"})).error,
                HasSubstr("Permission denied"));
    EXPECT_EQ(desk.Run(Plain({"-q", "put", "--in-place", "-f", "file", "open/file"})).error, "");
    EXPECT_EQ(ReadFile(desk.GetRemote("open/file")), "after");
    WriteFile(desk.GetLocal("file"), "again");
    fs::permissions(desk.GetRemote("open/file"), fs::perms(0444));
    EXPECT_EQ(desk.Run(Plain({"-q", "put", "file", "open/file"})).error, "");
    EXPECT_EQ(ReadFile(desk.GetRemote("open/file")), "again");
}

TEST_F(AServerThatMayNotWrite, SaysWhyItCannotReadOrDelete)
{
    WriteFile(desk.GetRemote("closed/secret"), "x");
    fs::permissions(desk.GetRemote("closed/secret"), fs::perms(0600));
    EXPECT_THAT(desk.Run(Plain({"-q", "get", "closed/secret", "here"})).error,
                HasSubstr("cannot open: Permission denied\n"));
    EXPECT_FALSE(fs::exists(Client::GetPartName(desk.GetLocal("here").string())));
    EXPECT_THAT(desk.Run(Plain({"rm", "closed/secret"})).error,
                HasSubstr("cannot delete: Permission denied: the server may not write to closed"));
    EXPECT_THAT(desk.Run(Plain({"mkdir", "closed/new"})).error,
                HasSubstr("Permission denied: the server may not write to closed"));
}

TEST(AServerWithAReadOnlyFolder, SaysSoForTheFolderAndWhatIsInIt)
{
    const ClientTest::TemporaryFolder fixed;
    auto arguments = ClientTest::GetObjectArguments();
    arguments.insert(arguments.end(), {"--read-only", fixed.GetPath().string()});
    const Desk desk(arguments);
    const auto file = (fixed.GetPath() / "file").string();
    WriteFile(file, "x");
    fs::last_write_time(file, std::chrono::file_clock::from_sys(std::chrono::sys_seconds{}));
    const auto getError = [&desk](std::vector<std::string> command) {
        const auto result = desk.Run(Plain(std::move(command)));
        EXPECT_EQ(result.status, 1);
        return result.error;
    };
    EXPECT_THAT(getError({"touch", fixed.GetPath().string()}), HasSubstr("Read-only"));
    EXPECT_THAT(getError({"touch", file}), HasSubstr("Read-only"));
    EXPECT_THAT(getError({"touch", "-d", "@0", file}), HasSubstr("Read-only"))
        << "though it has this time";
    EXPECT_THAT(getError({"mkdir", file + "s"}), HasSubstr("Read-only"));
    EXPECT_THAT(getError({"mkdir", "/new"}), HasSubstr("those of the host's configuration"));
    EXPECT_THAT(getError({"rm", "-r", desk.host.GetRoot().string()}),
                HasSubstr("those of the host's configuration"));
    fs::create_directories(desk.GetLocal("many"));
    for (int i = 0; i < 9; ++i)
        WriteFile(desk.GetLocal("many/" + std::to_string(i)), "x");
    EXPECT_THAT(getError({"-q", "sync", "many", "remote:" + fixed.GetPath().string()}),
                HasSubstr("and 4 others: Read-only"));
}

TEST(AServerWithoutReasons, IsAskedForTheDirectoryAllTheSame)
{
    const Desk desk;
    WriteFile(desk.GetLocal("file"), "x");
    EXPECT_THAT(desk.Run(Plain({"-q", "put", "file", "no/such/file"})).error,
                HasSubstr("cannot open: No such directory: no/such\n"));
    EXPECT_THAT(desk.Run(Plain({"mv", "file", "other"})).error,
                HasSubstr("it can neither rename nor copy"));
}

void PutManyOntoAFullDisk()
{
    const ClientTest::TemporaryFolder disk;
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", disk.GetPath().c_str(), "tmpfs", 0, "size=1m,mode=0777") != 0)
        GTEST_SKIP() << "no disk can be mounted";
    {
        auto arguments = ClientTest::GetObjectArguments();
        arguments.insert(arguments.end(), {"--root", disk.GetPath().string()});
        const Desk desk(arguments);
        fs::create_directories(desk.GetLocal("tree"));
        for (int i = 0; i < 520; ++i)
            MakeMarkedFile(desk.GetLocal("tree/" + std::to_string(i)), 100'000);
        const auto result = desk.Run(Plain({"-q", "put", "-r", "tree", disk.GetPath().string()}));
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.error, HasSubstr("No space left on the server's disk"));
        EXPECT_THAT(result.error, HasSubstr("others: No space left on the server's disk"));
        EXPECT_LE(CountLines(result.error), 12U) << result.error;
        for (const auto& entry : fs::directory_iterator(disk.GetPath() / "tree"))
            EXPECT_EQ(entry.file_size(), 100'000U) << entry.path();
    }
    umount2(disk.GetPath().c_str(), MNT_DETACH);
}

TEST(AFullDiskOfTheServer, EndsATransferWithOneReasonForAll)
{
    std::thread(&PutManyOntoAFullDisk).join(); // what is unshared goes with the thread
}

} // namespace
} // namespace CliTest
