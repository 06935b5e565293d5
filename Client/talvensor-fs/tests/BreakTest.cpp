// Transfers while something breaks: the host, its disk, the user's patience.

#include "SmallDisk.h"
#include "Tool.h"

#include "Client/Transfer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <thread>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::HasSubstr;

constexpr std::uintmax_t mebibyte = std::uintmax_t{1} << 20U;
constexpr std::uintmax_t largeFile = 500 * mebibyte;

std::vector<std::string> With(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"--security", "plain"});
    return arguments;
}

class AHostThatIsKilled : public testing::Test
{
protected:
    /// Kills it in the middle of the command, which is given up then. What was seen.
    std::string Break(const std::vector<std::string>& command)
    {
        Terminal terminal(desk, With(command));
        EXPECT_TRUE(terminal.WaitFor(" MB")) << terminal.GetSeen();
        desk.host.Kill();
        EXPECT_TRUE(terminal.WaitFor("lost the connection")) << terminal.GetSeen();
        terminal.Type(controlC);
        EXPECT_EQ(terminal.WaitForEnd(), 130) << terminal.GetSeen();
        desk.host.Restart();
        return terminal.GetSeen();
    }

    /// Each byte goes once, in all.
    void ExpectContinued(const std::vector<std::string>& command, std::uintmax_t before)
    {
        EXPECT_GT(before, 0U);
        EXPECT_LT(before, largeFile);
        const auto result = desk.Run(With(command));
        ASSERT_EQ(result.status, 0) << result.error;
        const auto told = json::parse(result.output);
        EXPECT_EQ(told["resumedBytes"], before);
        EXPECT_EQ(told["bytes"], largeFile - before);
    }

    Desk desk;
};

TEST_F(AHostThatIsKilled, LetsAPutBeContinued)
{
    MakeMarkedFile(desk.GetLocal("large"), largeFile);
    EXPECT_THAT(Break({"put", "large", "there"}), HasSubstr("there (remote): unfinished"));
    ExpectContinued({"put", "--continue", "--json", "large", "there"},
                    fs::file_size(desk.GetRemote("there")));
    EXPECT_TRUE(AreSame(desk.GetLocal("large"), desk.GetRemote("there")));
}

TEST_F(AHostThatIsKilled, LetsAGetBeContinued)
{
    MakeMarkedFile(desk.GetRemote("large"), largeFile);
    // One that was just written could change without another time.
    fs::last_write_time(desk.GetRemote("large"),
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_THAT(Break({"get", "large", "here"}), HasSubstr("here (local): unfinished"));
    ExpectContinued({"get", "--continue", "--json", "large", "here"},
                    fs::file_size(Client::GetPartName(desk.GetLocal("here").string())));
    EXPECT_TRUE(AreSame(desk.GetLocal("here"), desk.GetRemote("large")));
}

TEST_F(AHostThatIsKilled, IsWaitedForUntilItIsBack)
{
    MakeMarkedFile(desk.GetLocal("large"), largeFile);
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"put", "large", "there"}, {"get", "there", "here"}}) {
        Terminal terminal(desk, With(command));
        ASSERT_TRUE(terminal.WaitFor(" MB")) << terminal.GetSeen();
        desk.host.Restart();
        EXPECT_EQ(terminal.WaitForEnd(), 0) << terminal.GetSeen();
        EXPECT_THAT(terminal.GetSeen(), HasSubstr("lost the connection"));
    }
    EXPECT_TRUE(AreSame(desk.GetLocal("large"), desk.GetRemote("there")));
    EXPECT_TRUE(AreSame(desk.GetLocal("large"), desk.GetLocal("here")));
}

TEST(AnImpatientUser, IsRidOfItWithTheSecondInterruption)
{
    Desk desk;
    MakeSparseFile(desk.GetLocal("large"), largeFile);
    Terminal terminal(desk, With({"put", "large", "there"}));
    ASSERT_TRUE(terminal.WaitFor(" MB")) << terminal.GetSeen();
    kill(desk.host.GetProcess(), SIGSTOP); // so that nothing can be closed in order
    EXPECT_EQ(terminal.TypeUntilEnd(controlC), 130);
    kill(desk.host.GetProcess(), SIGCONT);
    EXPECT_EQ(terminal.GetSeen().find("unfinished"), std::string::npos);
}

TEST(AnInterruptedTransfer, SaysWhatItWaitsForAndEndsThoughTheServerIsSilent)
{
    Desk desk;
    MakeSparseFile(desk.GetLocal("large"), largeFile);
    Terminal terminal(desk, With({"put", "large", "there"}));
    ASSERT_TRUE(terminal.WaitFor(" MB")) << terminal.GetSeen();
    kill(desk.host.GetProcess(), SIGSTOP); // as on a link over which nothing comes
    terminal.Type(controlC);
    EXPECT_TRUE(terminal.WaitFor("closing files on the server, for 2 s at most; a second "
                                 "Ctrl-C ends at once"))
        << terminal.GetSeen();
    EXPECT_TRUE(terminal.WaitFor("there (remote): unfinished")) << terminal.GetSeen();
    EXPECT_TRUE(terminal.WaitFor("interrupted")) << terminal.GetSeen();
    EXPECT_EQ(terminal.WaitForEnd(), 130);
    kill(desk.host.GetProcess(), SIGCONT);
}

void PutOntoAFullDisk()
{
    const SmallDisk disk;
    const Desk desk({"--root", disk.GetPath().string()});
    disk.Limit(desk.host.GetProcess());
    fs::create_directories(desk.GetRemote("tree"));
    fs::create_directory_symlink(disk.GetPath(), desk.GetRemote("tree/full"));
    fs::create_directories(desk.GetLocal("tree/full"));
    for (const std::string name : {"a", "z"})
        MakeMarkedFile(desk.GetLocal("tree/" + name), 2 * disk.size);
    MakeMarkedFile(desk.GetLocal("tree/full/large"), 2 * disk.size);
    if (desk.Run(With({"exists", "tree/full/"})).status != 0)
        GTEST_SKIP() << "the host does not see the disk";
    const auto result = desk.Run(With({"-q", "put", "-r", "tree", "."}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "talvensor-fs: ./tree/full/large (remote): cannot write: not "
                            "everything could be written; the server's disk may be full\n"
                            "talvensor-fs: ./tree/full/large (remote): unfinished: it holds a part "
                            "of the file; put --continue carries on\n");
    for (const std::string name : {"a", "z"})
        EXPECT_TRUE(AreSame(desk.GetLocal("tree/" + name), desk.GetRemote("tree/" + name)));
}

TEST(AFullDisk, FailsWhatGoesThereAndNothingElse)
{
    std::thread(&PutOntoAFullDisk).join(); // what is unshared goes with the thread
}

} // namespace
} // namespace CliTest
