// Lines for the shell that nobody types.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class AScript : public testing::Test
{
protected:
    [[nodiscard]] Result Run(std::vector<std::string> arguments, const std::string& input = "")
    {
        arguments.insert(arguments.begin(), {"--security", "plain", "shell"});
        return desk.Run(arguments, input);
    }

    Desk desk;
};

TEST_F(AScript, StopsAtTheFirstLineThatFailsAndSaysWhichOne)
{
    const auto result = Run({}, "mkdir d\n\ncd nowhere\nmkdir unseen\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("nowhere: No such directory"));
    EXPECT_THAT(result.error, HasSubstr("standard input:3: stopped at 'cd nowhere'"));
    EXPECT_TRUE(fs::exists(desk.GetRemote("d")));
    EXPECT_FALSE(fs::exists(desk.GetRemote("unseen")));
}

TEST_F(AScript, GoesOnBehindALineWithADashThatFails)
{
    const auto result = Run({}, "-cd nowhere\n - rm 'open\n-pt\nmkdir d");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.error, HasSubstr("nowhere"));
    EXPECT_THAT(result.error, HasSubstr("a quote is not closed"));
    EXPECT_THAT(result.error, HasSubstr("unknown command 'pt'; did you mean 'put'?"));
    EXPECT_THAT(result.error, Not(HasSubstr("stopped")));
    EXPECT_TRUE(fs::exists(desk.GetRemote("d")));
}

TEST_F(AScript, EndsWithTheStatusThatExitIsGiven)
{
    EXPECT_EQ(Run({}, "mkdir d\nexit 42\nmkdir unseen\n").status, 42);
    EXPECT_FALSE(fs::exists(desk.GetRemote("unseen")));
    EXPECT_EQ(Run({}, "quit\nnonsense\n").status, 0);
    EXPECT_EQ(Run({}, "bye\nnonsense\n").status, 0);
    EXPECT_EQ(Run({}, "exit 256\n").status, 2);
}

TEST_F(AScript, ComesFromAFile)
{
    WriteFile(desk.GetLocal("script"), "# says where it is\nmkdir d\ncd d\npwd\nfly\npwd");
    const auto result = Run({"-b", "script"}, "mkdir unseen\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "d\n");
    EXPECT_THAT(result.error, HasSubstr("script:5: stopped at 'fly'"));
    EXPECT_FALSE(fs::exists(desk.GetRemote("unseen")));
    EXPECT_EQ(Run({"-b", "-"}, "pwd\n").output, ".\n");
    const auto missing = Run({"-b", "missing"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.error, HasSubstr("missing: No such file or directory"));
}

TEST_F(AScript, ComesFromTheCommandLine)
{
    const auto result = Run({"-c", "mkdir d", "-c", "cd d", "-c", "pwd"}, "fly\n");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output, "d\n");
    EXPECT_EQ(Run({"-c", "pwd", "-b", "script"}).status, 2);
}

TEST_F(AScript, RunsProgramsOfThisMachine)
{
    WriteFile(desk.GetLocal("a b"), "");
    WriteFile(desk.GetLocal("c"), "");
    const auto result = Run({}, "lls -1 [ab]*\n!echo $((6 * 7)); ls c\n-!exit 3\n!exit 3\npwd\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "a b\n42\nc\n");
    EXPECT_THAT(result.error, HasSubstr("standard input:4"));
}

TEST_F(AScript, GivesProgramsOfThisMachineTheStandardStreamsOnly)
{
    const auto result = Run({"-c", "pwd", "-c",
                             "!for fd in 3 4 5 6 7 8 9; do "
                             "test -e /proc/$$/fd/$fd && echo $fd; done; true"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output, ".\n");
}

TEST_F(AScript, TakesHarmlessHabits)
{
    WriteFile(desk.GetLocal("a"), "1");
    const auto result = Run({"-q"}, "mkdir -p d/e\nput -p a d/e\ncd d/e\nget -p a copy\n");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(ReadFile(desk.GetLocal("copy")), "1");
    EXPECT_THAT(Run({}, "help\n").output, HasSubstr("!COMMAND"));
    EXPECT_THAT(desk.Run({"help", "put"}).output, HasSubstr("LOCAL... REMOTE"));
}

TEST_F(AScript, NamesTheCommandThatIsMistaken)
{
    const std::string program = "talvensor-fs: ";
    EXPECT_EQ(desk.Run({"pt", "a", "b"}).error,
              program + "unknown command 'pt'; did you mean 'put'?\n");
    EXPECT_EQ(desk.Run({"xyzzy"}).error, program + "unknown command 'xyzzy'\n");
    EXPECT_EQ(desk.Run({"ls", "-e"}).error, program + "ls: --endpoint: needs a value\n");
    EXPECT_EQ(desk.Run({"--profile", "a", "--profile", "b", "ls"}).error,
              program + "ls: --profile: is given twice\n");
    EXPECT_EQ(desk.Run({"shell", "-b", "file", "-c", "ls"}).error,
              program + "shell: --batch: cannot be combined with --command\n");
    EXPECT_EQ(desk.Run({"find"}).error, program + "find: needs a name\n");
    EXPECT_EQ(desk.Run({"put", "--recusive", "a", "b"}).error,
              program + "put: unknown option '--recusive'; did you mean '--recursive'?\n");
    EXPECT_EQ(desk.Run({"info", "extra"}).error, program + "info: unexpected argument 'extra'\n");
    EXPECT_THAT(desk.Run({"put", "-j", "0", "a", "b"}).error, StartsWith(program + "put: "));
}

TEST_F(AScript, TakesAServerWithoutAScheme)
{
    auto url = desk.host.GetUrl();
    url.erase(0, std::string("opc.tcp://").size());
    EXPECT_EQ(desk.Run({"--security", "plain", "-e", url, "exists", "."}).status, 0);
}

} // namespace
} // namespace CliTest
