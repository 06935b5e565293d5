#include "Support/PrivateFiles.h"

#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>

namespace {

using namespace Support;
using testing::HasSubstr;
namespace fs = std::filesystem;

mode_t GetMode(const fs::path& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

template <typename Exception, typename Operation>
std::string GetComplaint(const Operation& operation)
{
    try {
        operation();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return {};
}

class APrivateFile : public testing::Test
{
protected:
    std::string GetUnsafety(GroupMayRead groupMayRead = GroupMayRead::No) const
    {
        return GetComplaint<UnsafeFileException>(
            [&] { std::ignore = ReadPrivateFile(file, groupMayRead); });
    }

    TemporaryFolder folder;
    fs::path file = folder.GetPath() / "file";
};

TEST_F(APrivateFile, IsReadAsItWasWritten)
{
    const auto content = std::string(10'000, 'x') + std::string("\0\xFF\n", 3);
    WritePrivateFile(file, content);
    EXPECT_EQ(ReadPrivateFile(file, GroupMayRead::No), content);
    EXPECT_EQ(ReadFile(file), content);
}

TEST_F(APrivateFile, IsForItsOwnerAloneAlsoWhenTheReplacedOneWasNot)
{
    folder.MakeFile("file", "old");
    fs::permissions(file, fs::perms::all);
    WritePrivateFile(file, "new");
    EXPECT_EQ(GetMode(file), 0600U);
    EXPECT_EQ(ReadFile(file), "new");
}

TEST_F(APrivateFile, KeepsItsOwnerWhenRootReplacesIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "NOT TESTED, only root can";
    constexpr uid_t nobody = 65534;
    WritePrivateFile(file, "old");
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    WritePrivateFile(file, "new");
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(ReadFile(file), "new");
}

TEST_F(APrivateFile, BelongsToTheOwnerOfItsFolderWhenRootCreatesIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "NOT TESTED, only root can";
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(chown(folder.GetPath().c_str(), nobody, nobody), 0);
    WritePrivateFile(file, "new");
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
}

TEST_F(APrivateFile, IsWrittenWithoutLeavingAnotherFile)
{
    WritePrivateFile(file, "one");
    WritePrivateFile(file, "two");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.GetPath()), {}), 1);
}

TEST_F(APrivateFile, LeavesNothingWhenItCannotTakeItsName)
{
    fs::create_directory(file);
    EXPECT_THROW(WritePrivateFile(file, "one"), std::system_error);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.GetPath()), {}), 1);
}

TEST_F(APrivateFile, IsRefusedWhenOthersMayReadOrChangeIt)
{
    WritePrivateFile(file, "secret");
    for (const mode_t mode : {0640U, 0620U, 0604U, 0602U, 0601U}) {
        chmod(file.c_str(), mode);
        EXPECT_THAT(GetUnsafety(), HasSubstr("chmod 600 it")) << std::oct << mode;
    }
}

TEST_F(APrivateFile, MayBeReadByItsGroupWhereThatIsAllowed)
{
    WritePrivateFile(file, "secret");
    chmod(file.c_str(), 0640);
    EXPECT_EQ(ReadPrivateFile(file, GroupMayRead::Yes), "secret");
    chmod(file.c_str(), 0660);
    EXPECT_THAT(GetUnsafety(GroupMayRead::Yes), HasSubstr("chmod 600 it"));
}

TEST_F(APrivateFile, IsRefusedWhenItIsAFolderOrAPipe)
{
    fs::create_directory(file);
    EXPECT_THAT(GetUnsafety(), HasSubstr("is not a regular file"));
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_THAT(GetUnsafety(), HasSubstr("is not a regular file"));
}

TEST_F(APrivateFile, IsMissedWithItsNameAndTheSystemsReason)
{
    const auto complaint = GetComplaint<std::system_error>([&] { std::ignore = ReadFile(file); });
    EXPECT_EQ(complaint, "cannot read '" + file.string() + "': No such file or directory");
}

class APrivateFolder : public testing::Test
{
protected:
    TemporaryFolder parent;
    fs::path folder = parent.GetPath() / "above" / "folder";
};

TEST_F(APrivateFolder, IsMadeForItsOwnerAloneWithThoseAboveIt)
{
    MakePrivateFolder(folder);
    EXPECT_EQ(GetMode(folder), 0700U);
    RequirePrivateFolder(folder);
}

TEST_F(APrivateFolder, IsLeftAsItIsWhenItExists)
{
    fs::create_directories(folder);
    chmod(folder.c_str(), 0755);
    MakePrivateFolder(folder);
    EXPECT_EQ(GetMode(folder), 0755U);
    RequirePrivateFolder(folder);
}

TEST_F(APrivateFolder, CannotBeMadeBelowAFile)
{
    parent.MakeFile("above");
    EXPECT_THAT(GetComplaint<std::system_error>([&] { MakePrivateFolder(folder); }),
                HasSubstr("Not a directory"));
}

TEST_F(APrivateFolder, IsRefusedWhenOthersMayChangeIt)
{
    MakePrivateFolder(folder);
    for (const mode_t mode : {0720U, 0702U}) {
        chmod(folder.c_str(), mode);
        EXPECT_THAT(GetComplaint<UnsafeFileException>([&] { RequirePrivateFolder(folder); }),
                    HasSubstr("chmod 700 it"));
    }
}

TEST_F(APrivateFolder, IsRefusedWhenItIsAFileOrIsNotThere)
{
    const auto file = parent.MakeFile("file");
    EXPECT_THAT(GetComplaint<UnsafeFileException>([&] { RequirePrivateFolder(file); }),
                HasSubstr("is not a folder"));
    EXPECT_THROW(RequirePrivateFolder(folder), std::system_error);
}

} // namespace
