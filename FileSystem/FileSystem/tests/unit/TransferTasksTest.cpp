#include "Descriptors.h"
#include "Host.h"
#include "HostDoubles.h"
#include "LogCapture.h"
#include "ProcessLimits.h"
#include "Waiting.h"

#include <sys/stat.h>

namespace FileSystemTests {

using FileSystem::CloseTask;
using FileSystem::FileSystemBehaviour;
using FileSystem::OpenTask;
using FileSystem::OpenWriteCloseTask;
using FileSystem::OpenWriteTask;
using FileSystem::WriteCloseTask;
using FileSystem::WriteTask;

namespace {

/// More than a stream's buffer holds, so that writing meets the file at once.
const std::vector<unsigned char> muchData(100'000, 'x');
const Core::DateTime noTime;
const Core::DateTime someTime = Core::DateTime::FromUnixEpochTime(1'000'000'000);

mode_t GetPermissions(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

} // namespace

/// Each situation of a transfer, for each kind of task that can meet it.
class TransferTasks : public FileSystemTest
{
protected:
    template <typename Task, typename... Arguments>
    void Run(Arguments&&... arguments)
    {
        RunTask<Task>(behaviour, std::forward<Arguments>(arguments)...);
    }

    /// Expects a failed transfer: logged, closed, acknowledged.
    void ExpectError(const std::string& text, unsigned int handle, unsigned int result)
    {
        ExpectOnlyAck(handle, result);
        EXPECT_FALSE(IsRegistered(handle));
        ASSERT_EQ(CountErrors(), 1);
        EXPECT_EQ(log.GetEntries().back().message, text);
    }

    /// Expects an acknowledgement and no logged error.
    void ExpectPlainAck(unsigned int handle, unsigned int result)
    {
        ExpectOnlyAck(handle, result);
        EXPECT_EQ(CountErrors(), 0);
    }

    void ExpectSilence()
    {
        ExpectNoEvent();
        EXPECT_EQ(CountErrors(), 0);
    }

    [[nodiscard]] std::ptrdiff_t CountErrors() const
    {
        const auto entries = log.GetEntries();
        return std::count_if(entries.begin(), entries.end(), [](const auto& entry) {
            return entry.level == Core::LogLevel::Error;
        });
    }

    /// An open stream whose next write of more than a buffer falls short.
    unsigned int OpenFull() { return OpenRegistered("/dev/full", OpenModeEnum::CreateWrite); }

    /// Returns a registered handle whose file was opened and removed.
    unsigned int OpenVanished()
    {
        const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
        std::filesystem::remove(path);
        return handle;
    }

    /// Ends the session while a task waits for the other end of the pipe that it opens.
    void EndSessionWhileOpening(const Fifo& pipe)
    {
        ASSERT_TRUE(WaitUntilStuckIn(SYS_openat, workerThreadId));
        session->Close();
        pipe.Drain([] {});
    }

    /// Runs an upload into a pipe that vanishes once it is open and before anything is written:
    /// opening, writing and closing succeed, but the path leads nowhere then.
    void UploadIntoVanishing(const Fifo& pipe, unsigned int handle, const Core::DateTime& time,
                             unsigned char permissions)
    {
        behaviour.EnqueueAsyncTask(std::make_shared<OpenWriteCloseTask>(
            behaviour, handle, pipe.GetPath(), muchData, time, permissions));
        pipe.Drain([&] { std::filesystem::remove(pipe.GetPath()); });
        FinishQueue(behaviour);
    }

    const std::string path = folder / "x";
    const std::string missing = folder / "missing/x";
    const pid_t workerThreadId = OnWorker(behaviour, [] { return ::gettid(); });
    LogCapture log;
};

// Opening fails

TEST_F(TransferTasks, OpenFailsWithError1WhenTheFileCannotBeOpened)
{
    const unsigned int handle = Register(missing);
    Run<OpenTask>(handle, missing, OpenModeEnum::CreateWrite);
    ExpectError("OpenTask, cannot open the file", handle, 1);
}

TEST_F(TransferTasks, OpenWriteFailsWithError1WhenTheFileCannotBeOpened)
{
    const unsigned int handle = Register(missing);
    Run<OpenWriteTask>(handle, missing, Bytes("data"));
    ExpectError("OpenWriteTask, cannot open the file", handle, 1);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges1WhenTheFileCannotBeOpenedAndKeepsTheHandle)
{
    const unsigned int handle = Register(missing);
    Run<OpenWriteCloseTask>(handle, missing, Bytes("data"), someTime, 6);
    ExpectPlainAck(handle, 1);
    EXPECT_TRUE(IsRegistered(handle));
}

TEST_F(TransferTasks, OpenFailsWithError1ForAMissingFileThatMustExist)
{
    const unsigned int handle = Register(path);
    Run<OpenTask>(handle, path, OpenModeEnum::Read);
    ExpectError("OpenTask, cannot open the file", handle, 1);
}

TEST_F(TransferTasks, OpenFailsWithError1ForAnEmptyPath)
{
    const unsigned int handle = Register("");
    Run<OpenTask>(handle, "", OpenModeEnum::CreateWrite);
    ExpectError("OpenTask, cannot open the file", handle, 1);
}

TEST_F(TransferTasks, OpenFailsWithError1OnceTheDescriptorsAreUsedUp)
{
    const unsigned int handle = Register(path);
    {
        const NoMoreDescriptors limit;
        Run<OpenTask>(handle, path, OpenModeEnum::CreateWrite);
    }
    ExpectError("OpenTask, cannot open the file", handle, 1);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges1InAReadOnlyFolder)
{
    const unsigned int handle = Register(path);
    ASSERT_EQ(::chmod(folder.GetPath().c_str(), 0555), 0);
    OnWorker(behaviour, [&] {
        const WithoutRights ordinary;
        OpenWriteCloseTask(behaviour, handle, path, Bytes("data"), noTime, 6).DoWork();
    });
    ASSERT_EQ(::chmod(folder.GetPath().c_str(), 0700), 0);
    ExpectPlainAck(handle, 1);
    EXPECT_FALSE(std::filesystem::exists(path));
}

// The handle is unknown at the write

TEST_F(TransferTasks, WriteSaysNothingForAnUnknownHandle)
{
    Run<WriteTask>(12345U, Bytes("data"));
    ExpectSilence();
}

TEST_F(TransferTasks, WriteSaysNothingForAHandleThatWasNeverOpened)
{
    const unsigned int handle = Register(path);
    Run<WriteTask>(handle, Bytes("data"));
    ExpectSilence();
    EXPECT_TRUE(IsRegistered(handle));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TransferTasks, WriteCloseSaysNothingForAnUnknownHandle)
{
    Run<WriteCloseTask>(12345U, Bytes("data"), someTime, 6);
    ExpectSilence();
}

TEST_F(TransferTasks, WriteCloseSaysNothingForAHandleThatWasNeverOpenedAndKeepsIt)
{
    const unsigned int handle = Register(path);
    Run<WriteCloseTask>(handle, Bytes("data"), someTime, 6);
    ExpectSilence();
    EXPECT_TRUE(IsRegistered(handle));
}

TEST_F(TransferTasks, WriteCloseSaysNothingForAHandleThatIsClosedAlready)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    Run<WriteCloseTask>(handle, Bytes("data"), someTime, 6);
    ExpectSilence();
    EXPECT_EQ(ReadWholeFile(path), "");
}

TEST_F(TransferTasks, OpenWriteFailsWithError1ForAnUnknownHandle)
{
    Run<OpenWriteTask>(12345U, path, Bytes("data"));
    ExpectError("OpenWriteTask, cannot open the file", 12345, 1);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges1ForAnUnknownHandle)
{
    Run<OpenWriteCloseTask>(12345U, path, Bytes("data"), someTime, 6);
    ExpectPlainAck(12345, 1);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TransferTasks, OpenFailsWithError1ForAnUnknownHandle)
{
    Run<OpenTask>(12345U, path, OpenModeEnum::CreateWrite);
    ExpectError("OpenTask, cannot open the file", 12345, 1);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TransferTasks, OpenWriteFailsWithError1WhenTheSessionEndsWhileTheFileIsOpened)
{
    const Fifo pipe(folder / "pipe");
    const unsigned int handle = Register(pipe.GetPath());
    behaviour.EnqueueAsyncTask(
        std::make_shared<OpenWriteTask>(behaviour, handle, pipe.GetPath(), Bytes("data")));
    EndSessionWhileOpening(pipe);
    ExpectError("OpenWriteTask, cannot open the file", handle, 1);
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 0U);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges1WhenTheSessionEndsWhileTheFileIsOpened)
{
    const Fifo pipe(folder / "pipe");
    const unsigned int handle = Register(pipe.GetPath());
    behaviour.EnqueueAsyncTask(std::make_shared<OpenWriteCloseTask>(
        behaviour, handle, pipe.GetPath(), Bytes("data"), someTime, 6));
    EndSessionWhileOpening(pipe);
    ExpectPlainAck(handle, 1);
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 0U);
}

// Writing falls short

TEST_F(TransferTasks, WriteFailsWithError2WhenItFallsShort)
{
    const unsigned int handle = OpenFull();
    Run<WriteTask>(handle, muchData);
    ExpectError("WriteTask, cannot write all data", handle, 2);
    EXPECT_EQ(CountDescriptors("/dev/full"), 0U);
}

TEST_F(TransferTasks, WriteCloseFailsWithError2WhenItFallsShort)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    const mode_t before = GetPermissions(path);
    {
        const FileSizeLimit limit(50'000);
        Run<WriteCloseTask>(handle, muchData, someTime, 6);
    }
    ExpectError("WriteCloseTask, cannot write all data", handle, 2);
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(GetPermissions(path), before);
    EXPECT_NE(FileSystemBehaviour::GetDateTime(path), someTime.ToUnixEpochTime());
}

TEST_F(TransferTasks, OpenWriteFailsWithError2WhenItFallsShort)
{
    const unsigned int handle = Register("/dev/full");
    Run<OpenWriteTask>(handle, "/dev/full", muchData);
    ExpectError("OpenWriteTask, cannot write all data", handle, 2);
    EXPECT_EQ(CountDescriptors("/dev/full"), 0U);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges0WhenItFallsShortAndTheFileStaysOpen)
{
    const unsigned int handle = Register(path);
    std::ofstream(path).close();
    const mode_t before = GetPermissions(path);
    {
        const FileSizeLimit limit(50'000);
        Run<OpenWriteCloseTask>(handle, path, muchData, someTime, 6);
    }
    ExpectPlainAck(handle, 0);
    EXPECT_TRUE(IsRegistered(handle));
    EXPECT_EQ(CountDescriptors(path), 1U);
    EXPECT_EQ(std::filesystem::file_size(path), 50'000U);
    EXPECT_EQ(GetPermissions(path), before);
    EXPECT_NE(FileSystemBehaviour::GetDateTime(path), someTime.ToUnixEpochTime());
}

TEST_F(TransferTasks, WriteFailsWithError2WhenTheStreamIsOnlyRead)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x"), OpenModeEnum::Read);
    Run<WriteTask>(handle, Bytes("data"));
    ExpectError("WriteTask, cannot write all data", handle, 2);
}

TEST_F(TransferTasks, WriteFailsWithError2WhenTheDescriptorIsGone)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    ::close(fileno(GetStream(handle)));
    Run<WriteTask>(handle, muchData);
    ExpectError("WriteTask, cannot write all data", handle, 2);
}

// Closing fails

TEST_F(TransferTasks, CloseAcknowledges3WhenClosingFails)
{
    const unsigned int handle = OpenFull();
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    Run<CloseTask>(handle);
    ExpectPlainAck(handle, 3);
    EXPECT_FALSE(IsRegistered(handle));
}

TEST_F(TransferTasks, WriteCloseFailsWithError3WhenClosingFails)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    const mode_t before = GetPermissions(path);
    {
        const FileSizeLimit limit(0);
        Run<WriteCloseTask>(handle, Bytes("lost"), someTime, 6);
    }
    ExpectError("WriteCloseTask, cannot close the remote file", handle, 3);
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(GetPermissions(path), before);
    EXPECT_NE(FileSystemBehaviour::GetDateTime(path), someTime.ToUnixEpochTime());
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges0WhenClosingFailsAndStampsNothing)
{
    const unsigned int handle = Register(path);
    std::ofstream(path).close();
    const mode_t before = GetPermissions(path);
    {
        const FileSizeLimit limit(0);
        Run<OpenWriteCloseTask>(handle, path, Bytes("lost"), someTime, 6);
    }
    ExpectPlainAck(handle, 0);
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(GetPermissions(path), before);
    EXPECT_NE(FileSystemBehaviour::GetDateTime(path), someTime.ToUnixEpochTime());
}

// Setting the time fails

TEST_F(TransferTasks, WriteCloseFailsWithError4WhenTheTimeCannotBeSetAndSetsNoPermissions)
{
    const unsigned int handle = OpenVanished();
    Run<WriteCloseTask>(handle, Bytes("data"), someTime, 6);
    ExpectError("WriteCloseTask, cannot set date/time of remote file", handle, 4);
    EXPECT_EQ(log.GetEntries().size(), 1U);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges0WhenTheTimeCannotBeSetAndSetsNoPermissions)
{
    const Fifo pipe(folder / "pipe");
    const unsigned int handle = Register(pipe.GetPath());
    UploadIntoVanishing(pipe, handle, someTime, 6);
    ExpectPlainAck(handle, 0);
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_TRUE(log.GetEntries().empty());
}

// Setting the permissions fails

TEST_F(TransferTasks, WriteCloseFailsWithError5WhenThePermissionsCannotBeSet)
{
    const unsigned int handle = OpenVanished();
    Run<WriteCloseTask>(handle, Bytes("data"), noTime, 6);
    ExpectError("WriteCloseTask, cannot set file permissions of remote file", handle, 5);
    EXPECT_EQ(log.GetEntries().size(), 2U);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges0WhenThePermissionsCannotBeSet)
{
    const Fifo pipe(folder / "pipe");
    const unsigned int handle = Register(pipe.GetPath());
    UploadIntoVanishing(pipe, handle, noTime, 6);
    ExpectPlainAck(handle, 0);
    EXPECT_FALSE(IsRegistered(handle));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].function, "SetFilePermissions");
}

// Success

TEST_F(TransferTasks, OpenSaysNothingWhenAllGoesWellAndLeavesTheFileOpen)
{
    const unsigned int handle = Register(path);
    Run<OpenTask>(handle, path, OpenModeEnum::CreateWrite);
    ExpectSilence();
    EXPECT_NE(GetStream(handle), nullptr);
    EXPECT_EQ(CountDescriptors(path), 1U);
}

TEST_F(TransferTasks, CloseAcknowledges0WhenAllGoesWell)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    Run<CloseTask>(handle);
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_FALSE(IsRegistered(handle));
}

TEST_F(TransferTasks, WriteSaysNothingWhenAllGoesWellAndALaterCloseAcknowledges0)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    Run<WriteTask>(handle, Bytes("first "));
    Run<WriteTask>(handle, Bytes("second"));
    ExpectSilence();
    EXPECT_EQ(behaviour.GetPosition(handle), 12);
    Run<CloseTask>(handle);
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(ReadWholeFile(path), "first second");
}

TEST_F(TransferTasks, WriteCloseAcknowledges0WhenAllGoesWell)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    Run<WriteCloseTask>(handle, Bytes("data"), someTime, 6);
    ExpectPlainAck(handle, 0);
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(ReadWholeFile(path), "data");
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), someTime.ToUnixEpochTime());
    EXPECT_EQ(GetPermissions(path), 0555U);
}

TEST_F(TransferTasks, OpenWriteSaysNothingWhenAllGoesWellAndLeavesTheFileOpen)
{
    const unsigned int handle = Register(path);
    Run<OpenWriteTask>(handle, path, Bytes("data"));
    ExpectSilence();
    EXPECT_EQ(behaviour.GetPosition(handle), 4);
    EXPECT_EQ(CountDescriptors(path), 1U);
}

TEST_F(TransferTasks, OpenWriteCloseAcknowledges0WhenAllGoesWell)
{
    const unsigned int handle = Register(path);
    Run<OpenWriteCloseTask>(handle, path, Bytes("data"), someTime, 4);
    ExpectPlainAck(handle, 0);
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(ReadWholeFile(path), "data");
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), someTime.ToUnixEpochTime());
    EXPECT_EQ(GetPermissions(path) & 0111U, 0111U);
}

// Particular inputs

TEST_F(TransferTasks, WriteCloseWithoutDataAndTimeClosesAndSetsThePermissions)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    EXPECT_TRUE(FileSystemBehaviour::SetDateTime(path, 5000));
    Run<WriteCloseTask>(handle, Bytes(""), noTime, 6);
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(ReadWholeFile(path), "");
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), 5000);
    EXPECT_EQ(GetPermissions(path), 0555U);
}

TEST_F(TransferTasks, WriteCloseWithPermissions0DoesNotTouchAVanishedFile)
{
    const unsigned int handle = OpenVanished();
    Run<WriteCloseTask>(handle, Bytes("data"), noTime, 0);
    ExpectPlainAck(handle, 0);
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(TransferTasks, OpenWriteCloseWithoutATimeLeavesTheFileClosedWithItsPermissions)
{
    const unsigned int handle = Register(path);
    Run<OpenWriteCloseTask>(handle, path, Bytes(""), noTime, 2);
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(GetPermissions(path), 0444U);
}

TEST_F(TransferTasks, ATimeBefore1970IsSet)
{
    const unsigned int handle = Register(path);
    Run<OpenWriteCloseTask>(handle, path, Bytes("data"), Core::DateTime::FromUnixEpochTime(-5000),
                            0);
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), -5000);
}

TEST_F(TransferTasks, TimeAndPermissionsGoToTheRecordedPath)
{
    // The record's path counts: a second name of the file is stamped although the stream was
    // opened by the first.
    const std::string other = folder.MakeFile("other");
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    probe.HandlesMap().at(handle).path = other;
    Run<WriteCloseTask>(handle, Bytes("data"), someTime, 6);
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(ReadWholeFile(path), "data");
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(other), someTime.ToUnixEpochTime());
    EXPECT_EQ(GetPermissions(other), 0555U);
}

TEST_F(TransferTasks, CloseAcknowledges3ForAHandleThatWasNeverRegistered)
{
    Run<CloseTask>(12345U);
    ExpectPlainAck(12345, 3);
}

TEST_F(TransferTasks, CloseAcknowledges3ForAHandleThatIsClosedAlready)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    Run<CloseTask>(handle);
    ExpectPlainAck(handle, 0);
    Run<CloseTask>(handle);
    ExpectPlainAck(handle, 3);
}

TEST_F(TransferTasks, CloseAcknowledges0ForAHandleThatWasNeverOpened)
{
    const unsigned int handle = Register(path);
    Run<CloseTask>(handle);
    ExpectPlainAck(handle, 0);
    EXPECT_FALSE(IsRegistered(handle));
}

TEST_F(TransferTasks, ATaskKeepsCopiesOfWhatItWasGiven)
{
    const unsigned int handle = Register(path);
    std::string given = path;
    auto data = Bytes("data");
    {
        const WorkerGate gate(behaviour);
        behaviour.EnqueueAsyncTask(std::make_shared<OpenWriteTask>(behaviour, handle, given, data));
        behaviour.EnqueueAsyncTask(
            std::make_shared<WriteCloseTask>(behaviour, handle, data, noTime, 0));
        given.assign(given.size(), '!');
        data.assign(data.size(), '!');
    }
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(ReadWholeFile(path), "datadata");
}

TEST_F(TransferTasks, OneHandleGoesThroughItsWholeTransferInOrder)
{
    const unsigned int handle = Register(path);
    {
        const WorkerGate gate(behaviour);
        behaviour.EnqueueAsyncTask(
            std::make_shared<OpenTask>(behaviour, handle, path, OpenModeEnum::CreateWrite));
        behaviour.EnqueueAsyncTask(std::make_shared<WriteTask>(behaviour, handle, Bytes("a")));
        behaviour.EnqueueAsyncTask(std::make_shared<WriteTask>(behaviour, handle, muchData));
        behaviour.EnqueueAsyncTask(
            std::make_shared<WriteCloseTask>(behaviour, handle, Bytes("z"), noTime, 0));
    }
    ExpectPlainAck(handle, 0);
    EXPECT_EQ(ReadWholeFile(path), "a" + std::string(muchData.begin(), muchData.end()) + "z");
}

TEST_F(TransferTasks, AFailedConditionInATransferIsLoggedByTheWorkerAndNotAcknowledged)
{
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    probe.SessionsMap().clear();
    Run<CloseTask>(handle);
    ExpectNoEvent();
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_TRUE(log.GetEntries()[0].message.starts_with(
        "Exception caught:  Condition 'sessionIt != sessionsMap.end()' failed in "));
}

} // namespace FileSystemTests
