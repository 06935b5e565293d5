#include "Log/LogFile.h"

#include "Core/Exception.h"
#include "TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Host {
namespace {

using testing::HasSubstr;

constexpr uid_t nobody = 65534;

Core::LogEntry MakeEntry(const std::string& message)
{
    Core::LogEntry entry;
    entry.message = message;
    return entry;
}

class ALogFile : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::filesystem::path file = folder.GetPath() / "log";
};

TEST_F(ALogFile, CanBeReadByItsGroupAndByNobodyElse)
{
    const auto before = umask(0);
    std::ignore = OpenLogFile(file);
    umask(before);
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(ALogFile, IsAppendedToALineAtATime)
{
    LogFile(OpenLogFile(file)).Write(MakeEntry("one"));
    {
        LogFile sink(OpenLogFile(file));
        const auto write = [&sink] {
            for (int i = 0; i < 100; ++i)
                sink.Write(MakeEntry("more"));
        };
        const std::jthread first(write);
        const std::jthread second(write);
    }
    std::ifstream lines(file);
    std::string line;
    std::getline(lines, line);
    EXPECT_THAT(line, HasSubstr("\"one\""));
    int count = 0;
    for (; std::getline(lines, line); ++count)
        EXPECT_THAT(line, HasSubstr("\"more\""));
    EXPECT_EQ(count, 200);
}

TEST_F(ALogFile, IsNoPipeAndHasNoSecondName)
{
    ASSERT_EQ(mkfifo(file.c_str(), S_IRWXU), 0);
    EXPECT_ANY_THROW(std::ignore = OpenLogFile(file)); // at once, though nobody reads
    std::filesystem::remove(file);
    const auto other = folder.MakeFile("other", "precious");
    std::filesystem::create_hard_link(other, file);
    EXPECT_THROW(std::ignore = OpenLogFile(file), Core::InvalidArgumentException);
    EXPECT_THROW(CheckLogFile(file), Core::InvalidArgumentException);
    EXPECT_EQ(ReadWhole(other), "precious");
}

TEST_F(ALogFile, BelongsToNoOtherUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    folder.MakeFile("log");
    ASSERT_EQ(chown(file.c_str(), nobody, nobody), 0);
    EXPECT_THROW(std::ignore = OpenLogFile(file), Core::InvalidArgumentException);
}

TEST_F(ALogFile, IsCheckedWithoutBeingMade)
{
    EXPECT_NO_THROW(CheckLogFile(file));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_THROW(CheckLogFile(folder.GetPath() / "nowhere" / "log"), std::system_error);
}

} // namespace
} // namespace Host
