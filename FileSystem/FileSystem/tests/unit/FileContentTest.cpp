#include "Descriptors.h"
#include "Host.h"
#include "LogCapture.h"
#include "ProcessLimits.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <sys/stat.h>

namespace FileSystemTests {

using FileSystem::FileSystemBehaviour;
using FileSystem::OpenModeEnum;

namespace {

constexpr unsigned int maximumBlock = FileSystemBehaviour::maximumBlock;

mode_t GetPermissions(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

std::int64_t GetModificationTime(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mtim.tv_sec;
}

/// A value that no constant of the enumeration has, as a client may send it.
OpenModeEnum MakeMode(unsigned int number)
{
    return static_cast<OpenModeEnum>(number);
}

} // namespace

class FileContent : public FileSystemTest
{
protected:
    std::vector<unsigned char> Read(unsigned int handle, unsigned int length)
    {
        return FileSystemBehaviour::Read(GetStream(handle), length);
    }
    bool Write(unsigned int handle, const std::string& text)
    {
        return FileSystemBehaviour::Write(GetStream(handle), Bytes(text));
    }
};

// Opening

struct ModeRow
{
    const char* name;
    unsigned int mode;
    int accessMode;
    bool appends;
    bool creates;
    bool truncates;
};

class FileContentOpenMode : public FileContent, public ::testing::WithParamInterface<ModeRow>
{
protected:
    OpenModeEnum mode = MakeMode(GetParam().mode);
    int GetFlags(unsigned int handle) { return ::fcntl(fileno(GetStream(handle)), F_GETFL); }
};

TEST_P(FileContentOpenMode, OpensAsItsModeStringSays)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "old"), mode);
    EXPECT_EQ(GetFlags(handle) & O_ACCMODE, GetParam().accessMode);
    EXPECT_EQ((GetFlags(handle) & O_APPEND) != 0, GetParam().appends);
}

TEST_P(FileContentOpenMode, CreatesAMissingFileOrFails)
{
    const unsigned int handle = Register(folder / "missing");
    EXPECT_EQ(behaviour.OpenFile(handle, folder / "missing", mode), GetParam().creates);
    EXPECT_EQ(std::filesystem::exists(folder / "missing"), GetParam().creates);
    EXPECT_EQ(GetStream(handle) != nullptr, GetParam().creates);
}

TEST_P(FileContentOpenMode, TruncatesAnExistingFileOrKeepsIt)
{
    const std::string path = folder.MakeFile("x", "old");
    OpenRegistered(path, mode);
    EXPECT_EQ(ReadWholeFile(path), GetParam().truncates ? "" : "old");
}

INSTANTIATE_TEST_SUITE_P(All, FileContentOpenMode,
                         ::testing::Values(ModeRow{"CreateWrite", 0, O_WRONLY, false, true, true},
                                           ModeRow{"Read", 1, O_RDONLY, false, false, false},
                                           ModeRow{"Append", 2, O_WRONLY, true, true, false},
                                           ModeRow{"CreateReadWrite", 3, O_RDWR, false, true, true},
                                           ModeRow{"ReadWrite", 4, O_RDWR, false, false, false},
                                           ModeRow{"ReadAppend", 5, O_RDWR, true, true, false},
                                           ModeRow{"Six", 6, O_WRONLY, false, true, true},
                                           ModeRow{"Seven", 7, O_WRONLY, false, true, true},
                                           ModeRow{"TheLargest", 0xFFFFFFFFU, O_WRONLY, false, true,
                                                   true}),
                         [](const auto& test) { return test.param.name; });

TEST_F(FileContent, AnEmptyPathIsNotOpened)
{
    const unsigned int handle = Register("");
    EXPECT_FALSE(behaviour.OpenFile(handle, "", OpenModeEnum::CreateWrite));
    EXPECT_EQ(GetStream(handle), nullptr);
}

TEST_F(FileContent, AFileInAMissingFolderIsNotOpenedAndItsHandleStaysRegistered)
{
    const std::string path = folder / "missing/x";
    const unsigned int handle = Register(path);
    EXPECT_FALSE(behaviour.OpenFile(handle, path, OpenModeEnum::CreateWrite));
    EXPECT_EQ(GetStream(handle), nullptr);
    EXPECT_TRUE(IsRegistered(handle));
}

TEST_F(FileContent, AFolderIsNotOpenedForWriting)
{
    const std::string path = folder.GetPath();
    EXPECT_FALSE(behaviour.OpenFile(Register(path), path, OpenModeEnum::CreateWrite));
}

TEST_F(FileContent, NothingIsOpenedOnceTheDescriptorsAreUsedUp)
{
    const std::string path = folder / "x";
    const unsigned int handle = Register(path);
    {
        const NoMoreDescriptors limit;
        EXPECT_FALSE(behaviour.OpenFile(handle, path, OpenModeEnum::CreateWrite));
    }
    EXPECT_TRUE(behaviour.OpenFile(handle, path, OpenModeEnum::CreateWrite));
}

TEST_F(FileContent, AnUnregisteredHandleOpensAndCreatesNothing)
{
    EXPECT_FALSE(behaviour.OpenFile(12345, folder / "x", OpenModeEnum::CreateWrite));
    EXPECT_FALSE(std::filesystem::exists(folder / "x"));
    EXPECT_FALSE(IsRegistered(12345));
}

TEST_F(FileContent, AnotherPathThanTheRegisteredOneIsCreatedButNotKept)
{
    const unsigned int handle = Register(folder / "registered");
    EXPECT_FALSE(behaviour.OpenFile(handle, folder / "other", OpenModeEnum::CreateWrite));
    EXPECT_TRUE(std::filesystem::exists(folder / "other"));
    EXPECT_EQ(CountDescriptors(folder / "other"), 0U);
    EXPECT_EQ(GetStream(handle), nullptr);
    EXPECT_EQ(behaviour.GetFileInfo(handle).path, folder / "registered");
}

TEST_F(FileContent, AnotherSpellingOfTheRegisteredPathIsAnotherPath)
{
    const std::string path = folder.MakeFile("x", "old");
    const unsigned int handle = Register(path);
    EXPECT_FALSE(behaviour.OpenFile(handle, folder / "./x", OpenModeEnum::Read));
    EXPECT_FALSE(behaviour.OpenFile(handle, path + "/", OpenModeEnum::Read));
    EXPECT_EQ(GetStream(handle), nullptr);
    EXPECT_EQ(CountDescriptors(path), 0U);
}

TEST_F(FileContent, ASecondOpeningReplacesTheStreamAndLeavesTheFirstOpen)
{
    const std::string path = folder / "x";
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    FILE* const first = GetStream(handle);
    ASSERT_TRUE(behaviour.OpenFile(handle, path, OpenModeEnum::CreateWrite));
    FILE* const second = GetStream(handle);
    EXPECT_NE(first, second);
    EXPECT_EQ(CountDescriptors(path), 2U);
    EXPECT_EQ(behaviour.UseStream(handle).GetFile(), second);
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(CountDescriptors(path), 1U);
    EXPECT_NE(std::fputc('x', first), EOF);
    EXPECT_EQ(std::fclose(first), 0);
}

TEST_F(FileContent, ASecondOpeningThatFailsKeepsTheFirstStream)
{
    const std::string path = folder / "x";
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    FILE* const first = GetStream(handle);
    EXPECT_FALSE(behaviour.OpenFile(handle, folder / "missing/x", OpenModeEnum::CreateWrite));
    EXPECT_EQ(GetStream(handle), first);
}

// Reading

TEST_F(FileContent, ReadingANullStreamIsRefused)
{
    EXPECT_THROW(FileSystemBehaviour::Read(nullptr, 1), std::logic_error);
}

TEST_F(FileContent, ReadingNothingGivesNothing)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abc"), OpenModeEnum::Read);
    EXPECT_TRUE(Read(handle, 0).empty());
    EXPECT_EQ(behaviour.GetPosition(handle), 0);
}

TEST_F(FileContent, ReadingGoesOnFromThePosition)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abcdef"), OpenModeEnum::Read);
    EXPECT_EQ(Read(handle, 2), Bytes("ab"));
    EXPECT_EQ(Read(handle, 2), Bytes("cd"));
    EXPECT_EQ(Read(handle, 100), Bytes("ef"));
}

TEST_F(FileContent, ReadingAtTheEndGivesNothing)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abc"), OpenModeEnum::Read);
    EXPECT_EQ(Read(handle, 3), Bytes("abc"));
    EXPECT_TRUE(Read(handle, 1).empty());
    EXPECT_TRUE(Read(handle, 1).empty());
}

TEST_F(FileContent, ReadingAStreamThatIsOnlyWrittenGivesNothing)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    EXPECT_TRUE(Read(handle, 1).empty());
}

TEST_F(FileContent, ReadingAStreamWhoseDescriptorIsGoneGivesNothing)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abc"), OpenModeEnum::Read);
    ::close(fileno(GetStream(handle)));
    EXPECT_TRUE(Read(handle, 1).empty());
}

TEST_F(FileContent, ReadingTheLargestBlockIsNotLogged)
{
    const std::string content(maximumBlock + 1, 'x');
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", content), OpenModeEnum::Read);
    const LogCapture log;
    EXPECT_EQ(Read(handle, maximumBlock).size(), maximumBlock);
    EXPECT_TRUE(log.GetEntries().empty());
    EXPECT_EQ(Read(handle, maximumBlock).size(), 1U);
}

TEST_F(FileContent, ReadingMoreThanTheLargestBlockGivesTheLargestBlockAndIsLoggedOnce)
{
    const std::string content(100'000, 'x');
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", content), OpenModeEnum::Read);
    for (const unsigned int length : {100'000U, maximumBlock + 1, 0xFFFFFFFFU}) {
        behaviour.SetPosition(handle, 0);
        const LogCapture log;
        EXPECT_EQ(Read(handle, length).size(), maximumBlock);
        EXPECT_EQ(log.GetEntries().size(), 1U);
    }
}

TEST_F(FileContent, ReadingIsCutAlsoWhenNobodyLogsIt)
{
    const std::string content(100'000, 'x');
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", content), OpenModeEnum::Read);
    const LogCapture log(Core::LogLevel::Error);
    EXPECT_EQ(Read(handle, 100'000).size(), maximumBlock);
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(FileContent, EveryByteIsReadAsItIs)
{
    std::string content;
    for (int byte = 0; byte < 256; ++byte)
        content += static_cast<char>(byte);
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", content), OpenModeEnum::Read);
    EXPECT_EQ(Read(handle, 1000), Bytes(content));
}

// Writing

TEST_F(FileContent, WritingNothingSucceeds)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x"), OpenModeEnum::Read);
    EXPECT_TRUE(Write(handle, ""));
}

TEST_F(FileContent, WritingToAStreamThatIsOnlyReadFails)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x"), OpenModeEnum::Read);
    EXPECT_FALSE(Write(handle, "a"));
}

TEST_F(FileContent, WritingMoreThanFitsFails)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    EXPECT_FALSE(Write(handle, std::string(100'000, 'x')));
}

// Reading and writing one stream without a move of the position in between

TEST_F(FileContent, WhatWasWrittenIsFollowedByWhatIsReadInReadWriteMode)
{
    const std::string path = folder.MakeFile("x", "abcdef");
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::ReadWrite);
    EXPECT_TRUE(Write(handle, "AB"));
    EXPECT_EQ(Read(handle, 2), Bytes("cd"));
    EXPECT_TRUE(Write(handle, "E"));
    EXPECT_EQ(Read(handle, 10), Bytes("f"));
    EXPECT_TRUE(Write(handle, "g"));
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(ReadWholeFile(path), "ABcdEfg");
}

TEST_F(FileContent, WhatWasReadIsFollowedByWhatIsWrittenInReadWriteMode)
{
    const std::string path = folder.MakeFile("x", "abcdef");
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::ReadWrite);
    EXPECT_EQ(Read(handle, 2), Bytes("ab"));
    EXPECT_TRUE(Write(handle, "CD"));
    EXPECT_EQ(behaviour.GetPosition(handle), 4);
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(ReadWholeFile(path), "abCDef");
}

TEST_F(FileContent, ReadingAfterWritingFindsTheEndInCreateReadWriteMode)
{
    const std::string path = folder / "x";
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateReadWrite);
    EXPECT_TRUE(Write(handle, "abc"));
    EXPECT_TRUE(Read(handle, 10).empty());
    EXPECT_TRUE(Write(handle, "def"));
    EXPECT_TRUE(behaviour.SetPosition(handle, 1));
    EXPECT_EQ(Read(handle, 2), Bytes("bc"));
    EXPECT_TRUE(Write(handle, "D"));
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(ReadWholeFile(path), "abcDef");
}

TEST_F(FileContent, WritingAfterReadingGoesToTheEndInReadAppendMode)
{
    const std::string path = folder.MakeFile("x", "abc");
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::ReadAppend);
    EXPECT_TRUE(behaviour.SetPosition(handle, 0));
    EXPECT_EQ(Read(handle, 1), Bytes("a"));
    EXPECT_TRUE(Write(handle, "def"));
    EXPECT_TRUE(Read(handle, 10).empty());
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(ReadWholeFile(path), "abcdef");
}

// Positions

TEST_F(FileContent, AHandleWithoutAStreamHasNoPosition)
{
    EXPECT_EQ(behaviour.GetPosition(12345), -1);
    EXPECT_FALSE(behaviour.SetPosition(12345, 0));
    const unsigned int handle = Register(folder / "x");
    EXPECT_EQ(behaviour.GetPosition(handle), -1);
    EXPECT_FALSE(behaviour.SetPosition(handle, 0));
}

TEST_F(FileContent, ThePositionFollowsReadingAndWriting)
{
    const unsigned int handle =
        OpenRegistered(folder.MakeFile("x", "abcdef"), OpenModeEnum::ReadWrite);
    EXPECT_EQ(behaviour.GetPosition(handle), 0);
    Read(handle, 2);
    EXPECT_EQ(behaviour.GetPosition(handle), 2);
    Write(handle, "CD");
    EXPECT_EQ(behaviour.GetPosition(handle), 4);
}

TEST_F(FileContent, AMovedPositionIsWhereReadingGoesOn)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abcdef"), OpenModeEnum::Read);
    EXPECT_TRUE(behaviour.SetPosition(handle, 4));
    EXPECT_EQ(Read(handle, 10), Bytes("ef"));
    EXPECT_TRUE(behaviour.SetPosition(handle, 0));
    EXPECT_EQ(Read(handle, 1), Bytes("a"));
}

TEST_F(FileContent, APositionBehindTheEndReadsNothing)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abc"), OpenModeEnum::Read);
    EXPECT_TRUE(behaviour.SetPosition(handle, 1'000'000));
    EXPECT_EQ(behaviour.GetPosition(handle), 1'000'000);
    EXPECT_TRUE(Read(handle, 1).empty());
}

TEST_F(FileContent, APositionBeyondTheRangeOfOffsetsIsRefusedAndTheOldOneStays)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "abc"), OpenModeEnum::Read);
    EXPECT_TRUE(behaviour.SetPosition(handle, 2));
    EXPECT_FALSE(behaviour.SetPosition(handle, std::uint64_t{1} << 63U));
    EXPECT_FALSE(behaviour.SetPosition(handle, std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(behaviour.GetPosition(handle), 2);
}

TEST_F(FileContent, APipeHasNoPosition)
{
    const Fifo pipe(folder / "pipe");
    const unsigned int handle = OpenRegistered(pipe.GetPath(), OpenModeEnum::ReadWrite);
    EXPECT_EQ(behaviour.GetPosition(handle), -1);
    EXPECT_FALSE(behaviour.SetPosition(handle, 0));
}

// Times

TEST_F(FileContent, AMissingPathHasNoTime)
{
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(folder / "missing"), -1);
    EXPECT_FALSE(FileSystemBehaviour::SetDateTime(folder / "missing", 1));
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST_F(FileContent, ALinkToNowhereHasNoTime)
{
    std::filesystem::create_symlink("nowhere", folder / "link");
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(folder / "link"), -1);
    EXPECT_FALSE(FileSystemBehaviour::SetDateTime(folder / "link", 1));
}

TEST_F(FileContent, ATimeIsReadAsTheSystemKeepsIt)
{
    const std::string path = folder.MakeFile("x");
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), GetModificationTime(path));
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(folder.GetPath()),
              GetModificationTime(folder.GetPath()));
}

TEST_F(FileContent, ATimeThatWasSetIsReadBack)
{
    const std::string file = folder.MakeFile("x");
    for (const std::int64_t time : {0L, 1L, 1'600'000'000L, -2L, -86'400L, -2'147'483'648L}) {
        EXPECT_TRUE(FileSystemBehaviour::SetDateTime(file, time)) << time;
        EXPECT_EQ(FileSystemBehaviour::GetDateTime(file), time);
        EXPECT_EQ(GetModificationTime(file), time);
    }
}

TEST_F(FileContent, TheTimeOfAFolderCanBeSet)
{
    const std::string path = folder.GetPath();
    EXPECT_TRUE(FileSystemBehaviour::SetDateTime(path, 12345));
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), 12345);
}

TEST_F(FileContent, TheSecondBefore1970CanBeSetButReadsAsNoTime)
{
    const std::string path = folder.MakeFile("x");
    EXPECT_TRUE(FileSystemBehaviour::SetDateTime(path, -1));
    EXPECT_EQ(GetModificationTime(path), -1);
    std::vector<Core::Value> outputs;
    EXPECT_TRUE(behaviour.OnExecuteMethod(nullptr, "GetDateTime", {Core::Value(path)}, outputs));
    EXPECT_TRUE(outputs.empty());
}

TEST_F(FileContent, TimesBeyondWhatTheFileSystemKeepsBecomeItsLimits)
{
    const std::string path = folder.MakeFile("x");
    EXPECT_TRUE(FileSystemBehaviour::SetDateTime(path, std::numeric_limits<std::int64_t>::max()));
    const std::int64_t latest = FileSystemBehaviour::GetDateTime(path);
    EXPECT_GE(latest, std::numeric_limits<std::int32_t>::max());
    EXPECT_TRUE(FileSystemBehaviour::SetDateTime(path, std::numeric_limits<std::int64_t>::min()));
    const std::int64_t earliest = FileSystemBehaviour::GetDateTime(path);
    EXPECT_LE(earliest, std::numeric_limits<std::int32_t>::min());
}

TEST_F(FileContent, ATimeThatIsNotOursToSetFails)
{
    ASSERT_EQ(::chmod(folder.GetPath().c_str(), 0755), 0);
    const std::string path = ::geteuid() == 0 ? folder.MakeFile("x") : "/";
    const std::int64_t before = FileSystemBehaviour::GetDateTime(path);
    {
        const WithoutRights ordinary;
        EXPECT_FALSE(FileSystemBehaviour::SetDateTime(path, 1));
    }
    EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), before);
}

TEST_F(FileContent, ATimeBehindAFolderThatCannotBeSearchedIsNone)
{
    const std::string path = folder.MakeFile("x");
    ASSERT_EQ(::chmod(folder.GetPath().c_str(), 0), 0);
    {
        const WithoutRights ordinary;
        EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), -1);
        EXPECT_FALSE(FileSystemBehaviour::SetDateTime(path, 1));
    }
    ASSERT_EQ(::chmod(folder.GetPath().c_str(), 0700), 0);
}

// Permissions

struct PermissionRow
{
    const char* name;
    unsigned char flags;
    mode_t before;
    mode_t after;
};

class FileContentPermissions : public FileContent,
                               public ::testing::WithParamInterface<PermissionRow>
{};

TEST_P(FileContentPermissions, DoWhatTheirBitsSay)
{
    const std::string path = folder.MakeFile("x");
    ASSERT_EQ(::chmod(path.c_str(), GetParam().before), 0);
    const LogCapture log;
    EXPECT_TRUE(FileSystemBehaviour::SetFilePermissions(path, GetParam().flags));
    EXPECT_EQ(GetPermissions(path), GetParam().after);
    EXPECT_TRUE(log.GetEntries().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Flags, FileContentPermissions,
    ::testing::Values(PermissionRow{"NoneChangesNothing", 0x00, 0640, 0640},
                      PermissionRow{"TheLowestBitChangesNothing", 0x01, 0640, 0640},
                      PermissionRow{"TheHigherBitsChangeNothing", 0xF8, 0640, 0640},
                      PermissionRow{"FourMakesExecutable", 0x04, 0640, 0751},
                      PermissionRow{"TwoMakesReadableAndNotWritable", 0x02, 0620, 0444},
                      PermissionRow{"SixMakesExecutableAndReadOnly", 0x06, 0666, 0555},
                      PermissionRow{"AllBitsAreLikeSix", 0xFF, 0666, 0555}),
    [](const auto& test) { return test.param.name; });

TEST_F(FileContent, NoPermissionsAreSetOnAMissingFileWithoutAskingForIt)
{
    const LogCapture log;
    EXPECT_TRUE(FileSystemBehaviour::SetFilePermissions(folder / "missing", 0));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(FileContent, ThePermissionsOfAMissingFileCannotBeSetWhichIsLoggedOnce)
{
    for (const auto flags : Bytes("\x02\x04\x06")) {
        const LogCapture log;
        EXPECT_FALSE(FileSystemBehaviour::SetFilePermissions(folder / "missing", flags));
        EXPECT_EQ(log.GetEntries().size(), 1U);
    }
}

TEST_F(FileContent, BitsThatMeanNothingDoNotTouchTheFile)
{
    const LogCapture log;
    EXPECT_TRUE(FileSystemBehaviour::SetFilePermissions(folder / "missing", 0x01));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(FileContent, ARefusedChangeOfPermissionsFailsAndIsLogged)
{
    const LogCapture log;
    // No user may change these, whatever the rights.
    EXPECT_FALSE(FileSystemBehaviour::SetFilePermissions("/proc/self/comm", 0x04));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_NE(log.GetEntries()[0].message.find("Operation not permitted"), std::string::npos);
}

} // namespace FileSystemTests
