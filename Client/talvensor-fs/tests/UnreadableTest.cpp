// Directories that the host's user may not read. Root may read all, so the host is another user's.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

class AnUnreadableDirectory : public testing::TestWithParam<fs::perms>
{
protected:
    AnUnreadableDirectory()
    {
        fs::create_directories(desk.GetRemote("closed/below"));
        fs::permissions(desk.GetRemote("closed"), GetParam());
        if (geteuid() == 0) {
            EXPECT_EQ(chown(desk.GetRemote("closed").c_str(), 65534, 65534), 0);
        }
    }
    ~AnUnreadableDirectory() override
    {
        fs::permissions(desk.GetRemote("closed"), fs::perms::owner_all);
    }

    Desk desk{{}, ClientTest::StartUnprivileged()};
};

TEST_P(AnUnreadableDirectory, IsNotListedAsAFile)
{
    for (const std::string path : {"closed", "closed/"}) {
        const auto result = desk.Run({"--security", "plain", "ls", path});
        EXPECT_EQ(result.status, 1) << path;
        EXPECT_EQ(result.output, "") << path;
        EXPECT_THAT(result.error, HasSubstr("it cannot be read")) << path;
    }
}

TEST_P(AnUnreadableDirectory, IsToldAsADirectory)
{
    const auto result = desk.Run({"--security", "plain", "exists", "closed"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output, "directory  closed\n");
}

TEST_P(AnUnreadableDirectory, IsReportedBelowAnother)
{
    const auto result = desk.Run({"--security", "plain", "ls", "-R", "."});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("closed\n"));
    EXPECT_THAT(result.error, HasSubstr("closed"));
}

INSTANTIATE_TEST_SUITE_P(Modes, AnUnreadableDirectory,
                         testing::Values(fs::perms::none, fs::perms::owner_exec),
                         [](const auto& mode) {
                             return "Mode" + std::to_string(static_cast<unsigned>(mode.param));
                         });

} // namespace
} // namespace CliTest
