#include "ModuleTest.h"

#include "LogCapture.h"
#include "ProcessLimits.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <thread>

namespace {

using namespace FileSystemTests;
namespace stdfs = std::filesystem;

using testing::AllOf;
using testing::Field;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint32_t generalCode = 535;
constexpr std::uint32_t permissionsCode = 197143;

/// Expects one error of the worker, about a listing that broke off.
auto IsBrokenListing()
{
    return AllOf(Field(&Core::LogEntry::level, Core::LogLevel::Error),
                 Field(&Core::LogEntry::code, generalCode),
                 Field(&Core::LogEntry::function, "operator()"), Field(&Core::LogEntry::line, 820),
                 Field(&Core::LogEntry::message,
                       AllOf(StartsWith("Exception caught: "), HasSubstr("directory_iterator"))));
}

auto IsFailedTransfer(const std::string& text, int line)
{
    return AllOf(Field(&Core::LogEntry::level, Core::LogLevel::Error),
                 Field(&Core::LogEntry::code, generalCode),
                 Field(&Core::LogEntry::function, "CloseFileAndDispatchError"),
                 Field(&Core::LogEntry::line, line), Field(&Core::LogEntry::message, text));
}

/// Returns the results of all acknowledgements, in order.
std::vector<unsigned int> ToResults(const std::vector<Ack>& acks)
{
    std::vector<unsigned int> results;
    results.reserve(acks.size());
    for (const auto& ack : acks)
        results.push_back(ack.second);
    return results;
}

/// A file system whose worker has the rights of an ordinary user, as the test itself has.
class AnOrdinaryUser : public testing::Test
{
protected:
    AnOrdinaryUser()
    {
        stdfs::create_directory(folder / "closed");
        stdfs::create_directory(folder / "closed/inner");
        static_cast<void>(folder.MakeFile("closed/file", "content"));
        stdfs::permissions(folder / "closed", stdfs::perms::none);
        stdfs::permissions(folder.GetPath(), static_cast<stdfs::perms>(0555));
    }
    ~AnOrdinaryUser() override
    {
        stdfs::permissions(folder.GetPath(), stdfs::perms::owner_all);
        stdfs::permissions(folder / "closed", stdfs::perms::owner_all);
    }

    Events WaitForBarrier() { return FileSystemTests::WaitForBarrier(client, recorder); }
    std::vector<Ack> TakeAcks() { return ToAcks(WaitForBarrier()); }

    TemporaryFolder folder;
    LoadedModule module;
    Core::NodeId object = [this] {
        const WithoutRights rights; // the worker inherits them
        return module.MakeFileSystem();
    }();
    Client client{module.GetRuntime(), object};
    EventRecorder recorder{module.GetRuntime(), object};
    LogCapture log;
};

TEST_F(AnOrdinaryUser, GetsNoAnswerForAListingThatMeetsAClosedDirectory)
{
    client.List(folder.GetPath(), true);
    EXPECT_TRUE(WaitForBarrier().empty());
    EXPECT_THAT(log.GetEntries(), testing::ElementsAre(IsBrokenListing()));
    EXPECT_THAT(log.GetEntries().front().message, HasSubstr(folder / "closed"));
}

TEST_F(AnOrdinaryUser, GetsAListingThatDoesNotGoIntoTheClosedDirectory)
{
    client.List(folder.GetPath(), false);
    const Events events = WaitForBarrier();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(ToPaths(ToEntries(*events.front())), std::vector<std::string>{"closed"});
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(AnOrdinaryUser, GetsNoAnswerForAListingOfTheClosedDirectoryItself)
{
    client.List(folder / "closed", false);
    EXPECT_TRUE(WaitForBarrier().empty());
    EXPECT_THAT(log.GetEntries(), testing::ElementsAre(IsBrokenListing()));
}

TEST_F(AnOrdinaryUser, IsToldThatWhatCannotBeAskedForDoesNotExist)
{
    client.Exists(folder / "closed/file");
    client.Exists(folder / "closed");
    for (const bool expected : {false, true}) {
        const auto event = recorder.Take();
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(OwnField(*event, "Exist").Get<bool>(), expected);
    }
}

TEST_F(AnOrdinaryUser, CannotMakeOrDeleteAnythingInAReadOnlyDirectory)
{
    client.UploadFile(folder / "file", ToBytes("x"));
    client.Open(folder / "file", 2);
    client.OpenWrite(folder / "file", ToBytes("x"));
    EXPECT_EQ(ToResults(TakeAcks()), std::vector<unsigned int>({1, 1, 1}));
    EXPECT_THAT(log.GetEntries(),
                testing::ElementsAre(IsFailedTransfer("OpenTask, cannot open the file", 12),
                                     IsFailedTransfer("OpenWriteTask, cannot open the file", 12)));
    client.CreateDirectory(folder / "new");
    client.Delete({folder / "closed"});
    const Events events = WaitForBarrier();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(TypeNumber(*events[0]), createDirectoryResultEvent);
    EXPECT_EQ(TypeNumber(*events[1]), deleteResultEvent);
    EXPECT_FALSE(stdfs::exists(folder / "new"));
    EXPECT_TRUE(stdfs::exists(folder / "closed/file"));
}

TEST_F(AnOrdinaryUser, IsToldThatTimesAndPermissionsOfOthersFilesCannotBeSet)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Only root can make a file of somebody else's";
    stdfs::permissions(folder.GetPath(), stdfs::perms::all);
    const std::string file = folder.MakeFile("file");
    stdfs::permissions(file, stdfs::perms::all);
    const unsigned int timed = client.OpenWrite(file, ToBytes("x"));
    client.WriteClose(timed, {}, Core::DateTime::FromUnixEpochTime(1000));
    const unsigned int permitted = client.OpenWrite(file, ToBytes("x"));
    client.WriteClose(permitted, {}, {}, 0x02);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{timed, 4}, {permitted, 5}}));
    EXPECT_THAT(
        log.GetEntries(),
        testing::ElementsAre(
            IsFailedTransfer("WriteCloseTask, cannot set date/time of remote file", 21),
            AllOf(Field(&Core::LogEntry::code, permissionsCode),
                  Field(&Core::LogEntry::message,
                        StartsWith("Cannot set permissions to file '" + file + "' : "))),
            IsFailedTransfer("WriteCloseTask, cannot set file permissions of remote file", 24)));
}

TEST_F(AnOrdinaryUser, IsToldOfAFullDevice)
{
    const unsigned int closed = client.OpenWrite("/dev/full", ToBytes("small, so it is buffered"));
    client.Close(closed);
    const unsigned int lastBlock = client.Open("/dev/full", 4);
    client.WriteClose(lastBlock, ToBytes("small"));
    const unsigned int written = client.OpenWrite("/dev/full", Bytes(100'000));
    const unsigned int uploaded = client.UploadFile("/dev/full", Bytes(100'000));
    EXPECT_EQ(TakeAcks(),
              std::vector<Ack>({{closed, 3}, {lastBlock, 3}, {written, 2}, {uploaded, 0}}));
    EXPECT_THAT(
        log.GetEntries(),
        testing::ElementsAre(IsFailedTransfer("WriteCloseTask, cannot close the remote file", 18),
                             IsFailedTransfer("OpenWriteTask, cannot write all data", 15)));
}

class AFailure : public AFileSystem
{
protected:
    LogCapture log;
};

TEST_F(AFailure, OfSettingTimeOrPermissionsIsToldWhenTheFileIsGone)
{
    const std::string file = folder / "file";
    const auto time = Core::DateTime::FromUnixEpochTime(1000);
    const unsigned int timed = Open(file, 0);
    stdfs::remove(file);
    client.WriteClose(timed, ToBytes("x"), time);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{timed, 4}}));
    const unsigned int permitted = Open(file, 0);
    stdfs::remove(file);
    client.WriteClose(permitted, ToBytes("x"), {}, 0x04);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{permitted, 5}}));
    EXPECT_EQ(log.GetEntries().size(), 3U);
    EXPECT_TRUE(IsNothingOpen());
}

TEST_F(AFailure, ToGetADescriptorIsToldAndPasses)
{
    const std::string file = folder.MakeFile("file", "content");
    const std::string root = folder.GetPath();
    std::vector<Ack> expected;
    Events events;
    {
        const NoMoreDescriptors limit;
        expected.emplace_back(client.Open(file, 1), 1);
        expected.emplace_back(client.OpenWrite(file, ToBytes("x")), 1);
        expected.emplace_back(client.UploadFile(file, ToBytes("x")), 1);
        client.List(root);
        events = WaitForBarrier();
    }
    EXPECT_EQ(ToAcks(events), expected);
    EXPECT_THAT(log.GetEntries(),
                testing::ElementsAre(IsFailedTransfer("OpenTask, cannot open the file", 12),
                                     IsFailedTransfer("OpenWriteTask, cannot open the file", 12),
                                     IsBrokenListing()));
    EXPECT_EQ(ReadWholeFile(file), "content");
    EXPECT_EQ(client.Read(Open(file, 1), 10), ToBytes("content"));
    EXPECT_EQ(TakeListing(root).size(), 1U);
}

TEST_F(AFailure, ToWriteEverythingIsToldByTheStepThatMeetsIt)
{
    const std::string file = folder / "file";
    unsigned int inBlock = 0;
    unsigned int inLastBlock = 0;
    unsigned int inClose = 0;
    unsigned int afterClose = 0;
    Events events;
    {
        const FileSizeLimit limit(100'000);
        inBlock = client.OpenWrite(file, Bytes(90'000));
        client.Write(inBlock, Bytes(90'000));
        inLastBlock = client.OpenWrite(file, Bytes(90'000));
        client.WriteClose(inLastBlock, Bytes(90'000));
        inClose = client.Open(file, 4);
        events = WaitForBarrier();
        client.SetPosition(inClose, 100'000);
        client.Write(inClose, Bytes(100)); // waits in the buffer
        client.Close(inClose);
        afterClose = client.Open(file, 4);
        const Events more = WaitForBarrier();
        events.insert(events.end(), more.begin(), more.end());
        client.SetPosition(afterClose, 100'000);
        client.WriteClose(afterClose, Bytes(100));
        const Events rest = WaitForBarrier();
        events.insert(events.end(), rest.begin(), rest.end());
    }
    EXPECT_EQ(ToAcks(events),
              std::vector<Ack>({{inBlock, 2}, {inLastBlock, 2}, {inClose, 3}, {afterClose, 3}}));
    EXPECT_THAT(
        log.GetEntries(),
        testing::ElementsAre(IsFailedTransfer("WriteTask, cannot write all data", 15),
                             IsFailedTransfer("WriteCloseTask, cannot write all data", 15),
                             IsFailedTransfer("WriteCloseTask, cannot close the remote file", 18)));
    EXPECT_TRUE(IsNothingOpen());
}

TEST_F(AFailure, OfAnUploadToWriteEverythingLeavesTheFileOpenAndSaysNothing)
{
    const std::string file = folder / "file";
    unsigned int handle = 0;
    std::vector<Ack> acks;
    {
        const FileSizeLimit limit(100'000);
        handle =
            client.UploadFile(file, Bytes(200'000), Core::DateTime::FromUnixEpochTime(1000), 0x02);
        acks = TakeAcks();
    }
    EXPECT_EQ(acks, std::vector<Ack>({{handle, 0}}));
    EXPECT_TRUE(log.GetEntries().empty());
    EXPECT_EQ(stdfs::file_size(file), 100'000U);
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>{file});
    client.EndSession();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
    EXPECT_NE(client.GetSession(), nullptr);
}

/// Runs on a thread that sees a small file system of its own in a folder; false when the system
/// forbids it.
template <typename Function>
bool RunOnSmallDisk(const std::string& folder, const Function& function)
{
    bool isMounted = false;
    std::thread thread([&] {
        isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                    ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=128k,mode=0777") == 0;
        if (isMounted)
            function();
    });
    thread.join();
    return isMounted;
}

TEST(ASmallDisk, IsFullAndWorksAgainWhenSomethingIsDeleted)
{
    const TemporaryFolder folder;
    const std::string file = folder / "file";
    const bool ran = RunOnSmallDisk(folder.GetPath(), [&] {
        LoadedModule module;
        const auto object =
            module.MakeFileSystem(); // the worker inherits this thread's view of the files
        const Client client(module.GetRuntime(), object);
        EventRecorder recorder(module.GetRuntime(), object);
        const auto takeAcks = [&] {
            return ToAcks(WaitForBarrier(client, recorder));
        };

        const unsigned int full = client.OpenWrite(file, Bytes(100'000));
        client.Write(full, Bytes(100'000));
        EXPECT_EQ(takeAcks(), std::vector<Ack>({{full, 2}}));
        EXPECT_EQ(stdfs::file_size(file), 131'072U);

        const unsigned int other = client.OpenWrite(folder / "other", ToBytes("buffered"));
        client.WriteClose(other, {});
        EXPECT_EQ(takeAcks(), std::vector<Ack>({{other, 3}}));

        client.Delete({file});
        EXPECT_EQ(WaitForBarrier(client, recorder).size(), 1U);
        const unsigned int again =
            client.UploadFile(file, Bytes(100'000), Core::DateTime::FromUnixEpochTime(1000));
        EXPECT_EQ(takeAcks(), std::vector<Ack>({{again, 0}}));
        EXPECT_EQ(client.GetDateTime(file), Core::DateTime::FromUnixEpochTime(1000));
    });
    if (!ran)
        GTEST_SKIP() << "No file system can be mounted here";
}

} // namespace
