// The output on a terminal.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

constexpr std::uintmax_t longFile = 4ULL << 30U;

/// At a host that lets everybody in, unencrypted.
class AtATerminal : public testing::Test
{
protected:
    [[nodiscard]] std::vector<std::string> With(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--security", "plain"});
        return arguments;
    }

    Desk desk;
};

TEST_F(AtATerminal, ProgressIsDrawnOverItselfAndFits)
{
    constexpr unsigned short columns = 50;
    MakeSparseFile(desk.GetLocal("large-file-with-a-long-name-that-fits-nowhere"), longFile);
    Terminal terminal(desk, With({"put", "large-file-with-a-long-name-that-fits-nowhere", "l"}),
                      columns);
    ASSERT_TRUE(terminal.WaitFor("%")) << terminal.GetSeen();
    ASSERT_TRUE(terminal.WaitFor("\x1b[A")) << terminal.GetSeen();
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130);
    // Frames are lines of no more than the width, without what moves the cursor.
    const auto& seen = terminal.GetSeen();
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = seen.find('\r', begin);
        auto line = seen.substr(begin, end - begin);
        if (const auto erase = line.find("\x1b[K"); erase != std::string::npos) {
            EXPECT_LT(line.substr(0, erase).size(), columns) << line;
        }
    }
}

TEST_F(AtATerminal, AnInterruptedPutSaysWhatIsUnfinished)
{
    MakeSparseFile(desk.GetLocal("large"), longFile);
    Terminal terminal(desk, With({"put", "large", "there"}));
    ASSERT_TRUE(terminal.WaitFor("%")) << terminal.GetSeen();
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130) << terminal.GetSeen();
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("there (remote): unfinished"));
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("put --continue"));
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("interrupted"));
    EXPECT_LT(fs::file_size(desk.GetRemote("there")), longFile);
}

TEST_F(AtATerminal, AnInterruptedGetLeavesTheTargetAndKeepsThePart)
{
    MakeSparseFile(desk.GetRemote("large"), longFile);
    WriteFile(desk.GetLocal("here"), "old");
    Terminal terminal(desk, With({"get", "large", "here"}));
    ASSERT_TRUE(terminal.WaitFor("B/s")) << terminal.GetSeen();
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130) << terminal.GetSeen();
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("here (local): unfinished"));
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("get --continue"));
    EXPECT_EQ(ReadFile(desk.GetLocal("here")), "old");
}

TEST_F(AtATerminal, QuietTransfersShowNothing)
{
    WriteFile(desk.GetLocal("a"), std::string(1'000'000, 'x'));
    Terminal terminal(desk, With({"put", "-q", "a", "b"}));
    EXPECT_EQ(terminal.WaitForEnd(), 0);
    EXPECT_EQ(terminal.GetSeen(), "");
}

TEST_F(AtATerminal, TotalsComeAtTheEnd)
{
    WriteFile(desk.GetLocal("a"), std::string(1'000'000, 'x'));
    Terminal terminal(desk, With({"put", "a", "b"}));
    EXPECT_EQ(terminal.WaitForEnd(), 0);
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("1 file, 1.0 MB in "));
}

TEST_F(AtATerminal, NamesCannotActOnIt)
{
    WriteFile(desk.GetRemote("a\x1b[2J\xFF"), "");
    Terminal terminal(desk, With({"ls"}));
    EXPECT_EQ(terminal.WaitForEnd(), 0);
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("a\\x1B[2J\\xFF"));
    EXPECT_THAT(terminal.GetSeen(), Not(HasSubstr("\x1b[2J")));
    Terminal json(desk, With({"ls", "--json"}));
    EXPECT_EQ(json.WaitForEnd(), 0);
    EXPECT_TRUE(std::all_of(json.GetSeen().begin(), json.GetSeen().end(), [](unsigned char byte) {
        return byte == '\r' || byte == '\n' || (byte >= 0x20 && byte < 0x7F);
    }));
}

TEST_F(AtATerminal, EventsAreShownAsTheyCome)
{
    Terminal terminal(desk, With({"watch", "--json"}));
    ASSERT_TRUE(terminal.WaitFor("watching FileSystem")) << terminal.GetSeen();
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130);
}

TEST_F(AtATerminal, TheShellCompletesRemotePathsAndRemembersLines)
{
    fs::create_directories(desk.GetRemote("measurements"));
    WriteFile(desk.GetRemote("measurements/one two"), "content");
    Terminal terminal(desk, With({"shell"}));
    ASSERT_TRUE(terminal.WaitFor(":.> ")) << terminal.GetSeen();
    terminal.Type("cat mea\t");
    ASSERT_TRUE(terminal.WaitFor("surements/")) << terminal.GetSeen();
    terminal.Type("o\t\n");
    ASSERT_TRUE(terminal.WaitFor("content")) << terminal.GetSeen();
    ASSERT_TRUE(terminal.WaitFor(":.> ")) << terminal.GetSeen();
    terminal.Type("cd measurements\n");
    ASSERT_TRUE(terminal.WaitFor(":measurements> ")) << terminal.GetSeen();
    terminal.Type("rm half a line");
    ASSERT_TRUE(terminal.WaitFor("line")) << terminal.GetSeen();
    terminal.Type(controlC);
    ASSERT_TRUE(terminal.WaitFor(":measurements> ")) << terminal.GetSeen();
    terminal.Type("pwd\n");
    ASSERT_TRUE(terminal.WaitFor("\nmeasurements")) << terminal.GetSeen();
    // While a command runs the terminal itself takes this for an end, which is lost with its mode.
    ASSERT_TRUE(terminal.WaitFor(":measurements> ")) << terminal.GetSeen();
    terminal.Type("\x04");
    EXPECT_EQ(terminal.WaitForEnd(), 0) << terminal.GetSeen();
    EXPECT_TRUE(fs::exists(desk.GetRemote("measurements/one two")));
    const auto history = desk.GetHome() / ".local/state/talvensor/client/history";
    EXPECT_THAT(ReadFile(history), HasSubstr("pwd"));
    EXPECT_EQ(fs::status(history).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(AtATerminal, TheShellOutlivesAnInterruptedCommand)
{
    MakeSparseFile(desk.GetLocal("large"), longFile);
    Terminal terminal(desk, With({"shell"}));
    ASSERT_TRUE(terminal.WaitFor(":.> ")) << terminal.GetSeen();
    terminal.Type("put large there\n");
    ASSERT_TRUE(terminal.WaitFor("%")) << terminal.GetSeen();
    terminal.Type(controlC);
    ASSERT_TRUE(terminal.WaitFor("there (remote): unfinished")) << terminal.GetSeen();
    ASSERT_TRUE(terminal.WaitFor(":.> ")) << terminal.GetSeen();
    terminal.Type("rm there\nls\nexit\n");
    EXPECT_EQ(terminal.WaitForEnd(), 0) << terminal.GetSeen();
    EXPECT_FALSE(fs::exists(desk.GetRemote("there")));
}

TEST_F(AtATerminal, ThePromptNamesTheServerAndBeginsALineAfterAFileWithoutALineEnd)
{
    WriteFile(desk.GetRemote("a"), "no line end");
    Terminal terminal(desk, With({"shell"}));
    const auto prompt = desk.host.GetUrl().substr(std::string("opc.tcp://").size()) + ":.> ";
    ASSERT_TRUE(terminal.WaitFor(prompt)) << terminal.GetSeen();
    terminal.Type("cat a\n");
    ASSERT_TRUE(terminal.WaitFor("no line end\r\n")) << terminal.GetSeen();
    ASSERT_TRUE(terminal.WaitFor(prompt)) << terminal.GetSeen();
    terminal.Type("exit 7\n");
    EXPECT_EQ(terminal.WaitForEnd(), 7);
}

TEST_F(AtATerminal, AProgramOfThisMachineIsInterruptedAloneAndTheShellGoesOn)
{
    Terminal terminal(desk, With({"shell"}));
    ASSERT_TRUE(terminal.WaitFor(":.> ")) << terminal.GetSeen();
    terminal.Type("!echo begun; exec sleep 1000\n");
    ASSERT_TRUE(terminal.WaitFor("\nbegun")) << terminal.GetSeen();
    terminal.Type(controlC);
    ASSERT_TRUE(terminal.WaitFor(":.> ")) << terminal.GetSeen();
    terminal.Type("bye\n");
    EXPECT_EQ(terminal.WaitForEnd(), 0) << terminal.GetSeen();
}

TEST(ANewServerAtATerminal, IsShownAndTrustedOnAYes)
{
    const Desk desk;
    {
        Terminal terminal(desk, {"ls"});
        ASSERT_TRUE(terminal.WaitFor("is not known")) << terminal.GetSeen();
        ASSERT_TRUE(terminal.WaitFor("(yes/no)")) << terminal.GetSeen();
        terminal.Type("no\n");
        EXPECT_EQ(terminal.WaitForEnd(), 4) << terminal.GetSeen();
        EXPECT_THAT(terminal.GetSeen(), HasSubstr("is not trusted"));
    }
    {
        Terminal terminal(desk, {"info"});
        ASSERT_TRUE(terminal.WaitFor("(yes/no)")) << terminal.GetSeen();
        terminal.Type("yes\n");
        EXPECT_EQ(terminal.WaitForEnd(), 0) << terminal.GetSeen();
    }
    const auto result = desk.Run({"info", "--json"});
    EXPECT_EQ(result.status, 0);
    const std::string fingerprint = nlohmann::json::parse(result.output)["fingerprint"];
    Terminal again(desk, {"info"});
    EXPECT_EQ(again.WaitForEnd(), 0);
    EXPECT_THAT(again.GetSeen(), Not(HasSubstr("yes/no")));
    EXPECT_THAT(again.GetSeen(), HasSubstr(fingerprint));
}

class AUserAtATerminal : public testing::Test
{
protected:
    ClientTest::TemporaryFolder users;
    Desk desk{{"--users", Desk::MakeUserFile(users.GetPath()).string(), "--trust-any-client"}};
};

TEST_F(AUserAtATerminal, TypesThePasswordAndDoesNotSeeIt)
{
    Terminal terminal(desk, {"--accept-new", "-u", userName, "info"});
    ASSERT_TRUE(terminal.WaitFor("Password of ann")) << terminal.GetSeen();
    EXPECT_FALSE(terminal.IsEchoing());
    terminal.Type(std::string(password) + "\n");
    ASSERT_TRUE(terminal.WaitFor("user            ann")) << terminal.GetSeen();
    EXPECT_TRUE(terminal.IsEchoing());
    EXPECT_EQ(terminal.WaitForEnd(), 0);
    EXPECT_THAT(terminal.GetSeen(), Not(HasSubstr(password)));
}

TEST_F(AUserAtATerminal, GetsTheTerminalBackAfterAnInterruption)
{
    Terminal terminal(desk, {"--accept-new", "-u", userName, "info"});
    ASSERT_TRUE(terminal.WaitFor("Password of ann")) << terminal.GetSeen();
    terminal.Type(std::string("on") + controlC);
    ASSERT_TRUE(terminal.WaitFor("interrupted")) << terminal.GetSeen();
    EXPECT_TRUE(terminal.IsEchoing());
    EXPECT_EQ(terminal.WaitForEnd(), 130);
}

} // namespace
} // namespace CliTest
