#include "Diagnostics.h"
#include "Core/Exception.h"
#include "Host.h"
#include "HostDoubles.h"
#include "LogCapture.h"
#include "SecurityEnhancedUtils.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace FileSystemTests {

using FileSystem::FileSystemBehaviour;

namespace {

constexpr const char* behaviourFile = "FileSystem/FileSystem/src/FileSystemBehaviour.cpp";
constexpr const char* taskFile = "FileSystem/FileSystem/src/WorkerQueueTask.cpp";

const Core::DateTime noTime;
const Core::DateTime someTime = Core::DateTime::FromUnixEpochTime(1'000'000'000);

} // namespace

/// Every message, with all fields of its entry.
class Diagnostics : public FileSystemTest
{
protected:
    /// Expects one entry with these fields, by which operators filter.
    void ExpectEntry(Core::LogLevel level, std::uint32_t code, const char* file,
                     const char* function, std::int32_t line, const std::string& message,
                     const std::string& details = {})
    {
        ASSERT_EQ(log.GetEntries().size(), 1U);
        const auto entry = log.GetEntries()[0];
        EXPECT_EQ(entry.level, level);
        EXPECT_EQ(entry.category, "FileSystem");
        EXPECT_EQ(entry.code, code);
        EXPECT_EQ(entry.message, message);
        EXPECT_GE(entry.timestamp, begin);
        EXPECT_LE(entry.timestamp, Core::DateTime::Now());
        EXPECT_EQ(entry.file, file);
        EXPECT_EQ(entry.function, function);
        EXPECT_EQ(entry.line, line);
        EXPECT_EQ(entry.details, details);
        EXPECT_EQ(entry.origin, "");
        EXPECT_EQ(entry.attachment, nullptr);
    }

    template <typename Task, typename... Arguments>
    void ExpectTrace(std::int32_t line, const std::string& message, Arguments&&... arguments)
    {
        log.Clear();
        RunTask<Task>(behaviour, std::forward<Arguments>(arguments)...);
        ExpectEntry(Core::LogLevel::Trace, 535, taskFile, "DoWork", line, message);
    }

    void ExpectWorkerEntry(std::uint32_t code, const std::string& message,
                           const std::string& details = {})
    {
        FinishQueue(behaviour);
        ExpectEntry(Core::LogLevel::Error, code, behaviourFile, "operator()", 820, message,
                    details);
    }

    /// Returns the text of the exception that a call throws.
    template <typename Function>
    static std::string GetConditionError(Function&& function)
    {
        try {
            std::forward<Function>(function)();
        } catch (const std::logic_error& error) {
            return error.what();
        }
        return {};
    }

    static std::string MakeConditionText(const std::string& condition, int line)
    {
        return " Condition '" + condition + "' failed in " + behaviourFile + ":" +
               std::to_string(line);
    }

    const std::string path = folder / "x";
    const Core::DateTime begin = Core::DateTime::Now();
    LogCapture log{Core::LogLevel::Trace};
};

// The first line of each task

TEST_F(Diagnostics, WriteTaskTellsHandleAndSize)
{
    ExpectTrace<FileSystem::WriteTask>(46, "WriteTask, fileHandle = 4294967295, data size = 3",
                                       0xFFFFFFFFU, Bytes("abc"));
}

TEST_F(Diagnostics, WriteCloseTaskTellsHandleSizeTimeAndPermissionsAsACharacter)
{
    ExpectTrace<FileSystem::WriteCloseTask>(
        78,
        "WriteCloseTask, fileHandle = 7, data size = 3, set date/time = " +
            someTime.ToISO8601String() + ", file permissions = A",
        7U, Bytes("abc"), someTime, 'A');
    EXPECT_EQ(someTime.ToISO8601String(), "2001-09-09T01:46:40Z");
}

TEST_F(Diagnostics, WriteCloseTaskTellsAnEmptyTimeAsNone)
{
    ExpectTrace<FileSystem::WriteCloseTask>(
        78,
        std::string("WriteCloseTask, fileHandle = 7, data size = 0, set date/time = none, "
                    "file permissions = ") +
            '\0',
        7U, Bytes(""), noTime, 0);
}

TEST_F(Diagnostics, CloseTaskTellsItsHandle)
{
    ExpectTrace<FileSystem::CloseTask>(132, "CloseTask, fileHandle = 7", 7U);
}

TEST_F(Diagnostics, OpenTaskTellsHandlePathAndModeAsACharacter)
{
    for (const unsigned int mode : {0U, 5U, 65U, 0x141U}) {
        const unsigned int handle = Register(path);
        ExpectTrace<FileSystem::OpenTask>(159,
                                          "OpenTask, fileHandle = " + std::to_string(handle) +
                                              ", file path = " + path +
                                              ", open mode = " + static_cast<char>(mode),
                                          handle, path, static_cast<OpenModeEnum>(mode));
    }
}

TEST_F(Diagnostics, OpenWriteCloseTaskTellsHandlePathSizeTimeAndPermissionsAsACharacter)
{
    const unsigned int handle = Register(path);
    ExpectTrace<FileSystem::OpenWriteCloseTask>(
        189,
        "OpenWriteCloseTask, fileHandle = " + std::to_string(handle) + ", file path = " + path +
            ", data size = 3, set date/time = 2001-09-09T01:46:40Z, file permissions = \x04",
        handle, path, Bytes("abc"), someTime, 4);
}

TEST_F(Diagnostics, OpenWriteCloseTaskTellsAnEmptyTimeAsNone)
{
    const unsigned int handle = Register(path);
    ExpectTrace<FileSystem::OpenWriteCloseTask>(
        189,
        "OpenWriteCloseTask, fileHandle = " + std::to_string(handle) + ", file path = " + path +
            ", data size = 0, set date/time = none, file permissions = " + '\0',
        handle, path, Bytes(""), noTime, 0);
}

TEST_F(Diagnostics, OpenWriteTaskTellsHandlePathAndSize)
{
    const unsigned int handle = Register(path);
    ExpectTrace<FileSystem::OpenWriteTask>(259,
                                           "OpenWriteTask, fileHandle = " + std::to_string(handle) +
                                               ", file path = " + path + ", data size = 3",
                                           handle, path, Bytes("abc"));
}

TEST_F(Diagnostics, ExistsTaskTellsItsPath)
{
    ExpectTrace<FileSystem::ExistsTask>(292, "ExistsTask, file path = /data", "/data");
}

TEST_F(Diagnostics, DeleteTaskTellsTheNumberOfItsPaths)
{
    ExpectTrace<FileSystem::DeleteTask>(306, "DeleteTask, files: 3",
                                        std::vector<std::string>{path + "1", path + "2", path});
}

TEST_F(Diagnostics, CreateDirectoryTaskTellsItsPath)
{
    ExpectTrace<FileSystem::CreateDirectoryTask>(
        320, "CreateDirectoryTask, directory path = " + path, path);
}

TEST_F(Diagnostics, ListTaskTellsItsPathAndItsRecursionAsPublished)
{
    const std::string missing = folder / "data";
    ExpectTrace<FileSystem::ListTask>(
        337, "ListTask, rootDirectory = " + missing + " , recusrive = 1", missing, true);
    ExpectTrace<FileSystem::ListTask>(
        337, "ListTask, rootDirectory = " + missing + " , recusrive = 0", missing, false);
}

TEST_F(Diagnostics, TextsFromClientsAreLoggedByteForByte)
{
    const std::string odd("a\n\"\0\xff", 5);
    ExpectTrace<FileSystem::ExistsTask>(292, "ExistsTask, file path = " + odd, odd);
}

TEST_F(Diagnostics, WithoutTheTraceLevelNoTaskTellsAnything)
{
    Core::Embedding::LogControl::SetLevel("FileSystem", Core::LogLevel::Debug);
    const unsigned int handle = Register(path);
    RunTask<FileSystem::OpenTask>(behaviour, handle, path, OpenModeEnum::CreateWrite);
    RunTask<FileSystem::WriteTask>(behaviour, handle, Bytes("abc"));
    RunTask<FileSystem::WriteCloseTask>(behaviour, handle, Bytes("abc"), someTime, 0);
    RunTask<FileSystem::CloseTask>(behaviour, handle);
    const unsigned int upload = Register(path);
    RunTask<FileSystem::OpenWriteCloseTask>(behaviour, upload, path, Bytes(""), someTime, 0);
    const unsigned int other = Register(path);
    RunTask<FileSystem::OpenWriteTask>(behaviour, other, path, Bytes(""));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(Diagnostics, ATextThatNobodyKeepsIsNotBuilt)
{
    const FileSystem::LogStatement statement{Core::LogLevel::Trace, 535, "file", "function", 1};
    bool built = false;
    const auto writeText = [&built](std::ostream&) {
        built = true;
    };
    Core::Embedding::LogControl::SetLevel("FileSystem", Core::LogLevel::Debug);
    FileSystem::Log(statement, writeText);
    EXPECT_FALSE(built);
    Core::Embedding::LogControl::SetLevel("FileSystem", Core::LogLevel::Trace);
    FileSystem::Log(statement, writeText);
    EXPECT_TRUE(built);
}

// Exceptions that the worker catches

TEST_F(Diagnostics, AnExceptionOfTheHostThatATaskThrewIsTold)
{
    Enqueue(behaviour, [] { throw Core::NotFoundException("the message", "the details"); });
    ExpectWorkerEntry(535 + 65536 * 4, "Exception caught: the message", "the details");
}

TEST_F(Diagnostics, AStandardExceptionThatATaskThrewIsTold)
{
    Enqueue(behaviour, [] { throw std::out_of_range("too far"); });
    ExpectWorkerEntry(535, "Exception caught: too far");
}

TEST_F(Diagnostics, AnythingElseThatATaskThrewIsTold)
{
    Enqueue(behaviour, [] { throw std::string("no exception"); });
    ExpectWorkerEntry(535, "Unknown exception caught");
}

// Warnings

TEST_F(Diagnostics, AFailedCloseAtTheStopIsTold)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    host.GetRuntime().StopBehaviour(host.GetObject());
    ExpectEntry(Core::LogLevel::Warning, 66071, behaviourFile, "OnStop", 62,
                "Cannot close file handle");
}

TEST_F(Diagnostics, AFailedCloseAtASessionsEndIsTold)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    session->Close();
    ExpectEntry(Core::LogLevel::Warning, 66071, behaviourFile, "OnReferenceRemoved", 141,
                "Cannot close file handler");
}

TEST_F(Diagnostics, AReadThatIsTooLongIsTold)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x"), OpenModeEnum::Read);
    FileSystemBehaviour::Read(GetStream(handle), 61441);
    ExpectEntry(Core::LogLevel::Warning, 131607, behaviourFile, "Read", 542,
                "Read data length exceeded (Max 61440 bytes)");
}

TEST_F(Diagnostics, PermissionsThatCannotBeSetAreTold)
{
    FileSystemBehaviour::SetFilePermissions(path, 4);
    ExpectEntry(Core::LogLevel::Warning, 197143, behaviourFile, "SetFilePermissions", 770,
                "Cannot set permissions to file '" + path +
                    "' : boost::filesystem::permissions: No such file or directory: \"" + path +
                    "\"");
}

TEST_F(Diagnostics, WithoutTheWarningLevelNoWarningIsTold)
{
    Core::Embedding::LogControl::SetLevel("FileSystem", Core::LogLevel::Error);
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateReadWrite);
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    FileSystemBehaviour::SetFilePermissions(path, 4);
    FileSystemBehaviour::Read(GetStream(handle), 61441);
    session->Close();
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_TRUE(log.GetEntries().empty());
}

// Conditions

TEST_F(Diagnostics, ReadingANullStreamFailsItsCondition)
{
    EXPECT_EQ(GetConditionError([] { FileSystemBehaviour::Read(nullptr, 1); }),
              MakeConditionText("fileHandle != NULL", 537));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(Diagnostics, RegisteringHandleZeroFailsItsCondition)
{
    EXPECT_EQ(GetConditionError([this] { behaviour.RegisterFileHandle(0, path); }),
              MakeConditionText("handle != 0", 161));
}

TEST_F(Diagnostics, RegisteringWithoutASessionFailsItsCondition)
{
    const Core::Embedding::SessionScope none(nullptr);
    EXPECT_EQ(GetConditionError([this] { behaviour.RegisterFileHandle(5, path); }),
              MakeConditionText("currentSession != nullptr", 167));
}

TEST_F(Diagnostics, OpeningWithoutASessionFailsTheSameConditionAndDoesNothing)
{
    const Core::Embedding::SessionScope none(nullptr);
    std::vector<Core::Value> outputs;
    EXPECT_EQ(GetConditionError([&] {
                  behaviour.OnExecuteMethod(nullptr, "Open", {Core::Value(path), Core::Value(0U)},
                                            outputs);
              }),
              MakeConditionText("currentSession != nullptr", 167));
    EXPECT_TRUE(outputs.empty());
    ExpectNoEvent();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(Diagnostics, RegisteringInASessionWithAnEmptySetFailsItsCondition)
{
    probe.SessionsMap()[session->GetNodeId()];
    EXPECT_EQ(GetConditionError([this] { behaviour.RegisterFileHandle(5, path); }),
              MakeConditionText("!handles.empty()", 183));
    probe.SessionsMap().clear();
}

TEST_F(Diagnostics, RegisteringTheSameHandleTwiceFailsItsCondition)
{
    behaviour.RegisterFileHandle(5, path);
    EXPECT_EQ(GetConditionError([this] { behaviour.RegisterFileHandle(5, path); }),
              MakeConditionText("handles.find(handle) == handles.end()", 184));
}

TEST_F(Diagnostics, UnregisteringAHandleWithoutASessionEntryFailsItsCondition)
{
    behaviour.RegisterFileHandle(5, path);
    probe.SessionsMap().clear();
    EXPECT_EQ(GetConditionError([this] { behaviour.UnregisterAndCloseFile(5); }),
              MakeConditionText("sessionIt != sessionsMap.end()", 204));
}

TEST_F(Diagnostics, EndingASessionWhoseHandleHasNoRecordFailsItsCondition)
{
    behaviour.RegisterFileHandle(5, path);
    probe.HandlesMap().clear();
    EXPECT_EQ(GetConditionError([this] {
                  behaviour.OnReferenceRemoved(
                      {Core::NodeId(0, 35U), nullptr, session->GetSessionObject()});
              }),
              MakeConditionText("handlerIt != handlesMap.end()", 138));
    probe.SessionsMap().clear();
}

TEST_F(Diagnostics, AConditionThatHoldsDoesNothing)
{
    EXPECT_EQ(GetConditionError([] { FileSystem::CheckCondition(true, "x", "file", 1); }), "");
    EXPECT_EQ(GetConditionError([] { FileSystem::CheckCondition(false, "x", "file", 1); }),
              " Condition 'x' failed in file:1");
}

// Wrappers

TEST(DiagnosticsWrappers, StrncpyCopiesNothingFromASourceShorterThanTheCount)
{
    char destination[] = "------";
    EXPECT_EQ(SecurityEnhancedUtils::strncpy(destination, "abc", 5), nullptr);
    EXPECT_STREQ(destination, "------");
}

TEST(DiagnosticsWrappers, StrncpyCopiesExactlyTheCountFromALongerSourceWithoutAZero)
{
    char destination[] = "------";
    EXPECT_EQ(SecurityEnhancedUtils::strncpy(destination, "abcdef", 5), destination);
    EXPECT_STREQ(destination, "abcde-");
}

TEST(DiagnosticsWrappers, StrncpyCopiesASourceAsLongAsTheCount)
{
    char destination[] = "------";
    EXPECT_EQ(SecurityEnhancedUtils::strncpy(destination, "abcde", 5), destination);
    EXPECT_STREQ(destination, "abcde-");
}

TEST(DiagnosticsWrappers, StrncpyOfNothingGivesTheDestination)
{
    char destination[] = "-";
    EXPECT_EQ(SecurityEnhancedUtils::strncpy(destination, "", 0), destination);
    EXPECT_STREQ(destination, "-");
}

TEST(DiagnosticsWrappers, StrncpyGivesNullForANullPointer)
{
    char destination[] = "-";
    EXPECT_EQ(SecurityEnhancedUtils::strncpy(nullptr, "abc", 1), nullptr);
    EXPECT_EQ(SecurityEnhancedUtils::strncpy(destination, nullptr, 1), nullptr);
    EXPECT_STREQ(destination, "-");
}

TEST(DiagnosticsWrappers, MemcpyCopiesNothingIntoADestinationThatIsTooSmallAndGivesTheSource)
{
    char destination[] = "-----";
    const char source[] = "abcde";
    EXPECT_EQ(SecurityEnhancedUtils::memcpy(destination, 4, source, 5), source);
    EXPECT_STREQ(destination, "-----");
}

TEST(DiagnosticsWrappers, MemcpyFillsADestinationOfExactlyTheCount)
{
    char destination[] = "------";
    EXPECT_EQ(SecurityEnhancedUtils::memcpy(destination, 5, "abcde", 5), destination);
    EXPECT_STREQ(destination, "abcde-");
}

TEST(DiagnosticsWrappers, MemcpyGivesTheSourceForANullDestination)
{
    const char source[] = "abcde";
    EXPECT_EQ(SecurityEnhancedUtils::memcpy(nullptr, 8, source, 4), source);
}

TEST(DiagnosticsWrappers, MemcpyGivesNullForANullSource)
{
    char destination[] = "-";
    EXPECT_EQ(SecurityEnhancedUtils::memcpy(destination, 1, nullptr, 1), nullptr);
    EXPECT_STREQ(destination, "-");
}

TEST(DiagnosticsWrappers, FopenGivesNullForAMissingFileAndLeavesTheReason)
{
    const TemporaryFolder folder;
    errno = 0;
    EXPECT_EQ(SecurityEnhancedUtils::fopen(folder / "missing", "rb"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(DiagnosticsWrappers, FopenOpensAFileInItsMode)
{
    const TemporaryFolder folder;
    FILE* const file = SecurityEnhancedUtils::fopen(folder / "x", "wb");
    ASSERT_NE(file, nullptr);
    EXPECT_NE(std::fputs("content", file), EOF);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(ReadWholeFile(folder / "x"), "content");
}

} // namespace FileSystemTests
