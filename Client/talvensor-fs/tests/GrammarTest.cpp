#include "Grammar/Grammar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

template <typename CommandType>
CommandType ParseAs(const std::vector<std::string>& arguments)
{
    return std::get<CommandType>(std::get<Invocation>(ParseArguments(arguments)).command);
}

std::string GetHelp(const std::vector<std::string>& arguments)
{
    return std::get<ShowText>(ParseArguments(arguments)).text;
}

TEST(TheCommandLine, TakesPathsOfAnyBytes)
{
    const auto put =
        ParseAs<PutCommand>({"put", "[a,b]", "{}", "%%", "ls", "\xFF\n", "", "\x01x", "to"});
    EXPECT_THAT(put.sources, ElementsAre("[a,b]", "{}", "%%", "ls", "\xFF\n", "", "\x01x"));
    EXPECT_EQ(put.target, "to");
    EXPECT_EQ(ParseAs<ListCommand>({"ls", "[x]"}).paths.front(), "[x]");
    EXPECT_THAT(ParseAs<RemoveCommand>({"rm", "a", "--", "-r", "--json", "--", "[x]"}).paths,
                ElementsAre("a", "-r", "--json", "--", "[x]"));
}

TEST(TheCommandLine, TakesConnectionOptionsAnywhere)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"-e", "opc.tcp://h", "-q", "info"},
          std::vector<std::string>{"info", "-q", "-e", "opc.tcp://h"}}) {
        const auto invocation = std::get<Invocation>(ParseArguments(arguments));
        EXPECT_EQ(invocation.connection.endpoint, "opc.tcp://h");
        EXPECT_TRUE(invocation.choice.isQuiet);
    }
}

TEST(TheCommandLine, TakesTheFlagsOfTransfers)
{
    const auto get = ParseAs<GetCommand>({"get", "-rc", "--verify", "-j8", "a", "b"});
    EXPECT_TRUE(get.isRecursive);
    EXPECT_TRUE(get.resumes);
    EXPECT_TRUE(get.verifies);
    EXPECT_EQ(get.jobs, 8U);
}

TEST(TheCommandLine, TakesModes)
{
    const auto both = ParseAs<PermissionsCommand>({"chmod", "+x,readonly", "a"});
    EXPECT_TRUE(both.permissions.executable);
    EXPECT_TRUE(both.permissions.readOnly);
    EXPECT_FALSE(ParseAs<PermissionsCommand>({"chmod", "+x", "a"}).permissions.readOnly);
}

class AWrongCommandLine : public testing::TestWithParam<std::vector<std::string>>
{};

TEST_P(AWrongCommandLine, IsRefused)
{
    EXPECT_THROW(std::ignore = ParseArguments(GetParam()), Client::InvalidArgumentException);
}

using Arguments = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(
    All, AWrongCommandLine,
    testing::Values(Arguments{}, Arguments{"fly"}, Arguments{"put", "a"}, Arguments{"get"},
                    Arguments{"rm"}, Arguments{"ls", "--fast"},
                    Arguments{"put", "-j", "0", "a", "b"}, Arguments{"put", "-j", "65", "a", "b"},
                    Arguments{"chmod", "+x"}, Arguments{"chmod", "789", "a"},
                    Arguments{"put", "--bwlimit", "fast", "a", "b"},
                    Arguments{"touch", "-d", "soon", "a"},
                    Arguments{"info", "--trust-fingerprint", "12:34"},
                    Arguments{"info", "--security", "some"}, Arguments{"info", "--password", "x"}));

TEST(TheHelp, NamesCommandsAndExitStatuses)
{
    const auto help = GetHelp({"--help"});
    for (const auto* const part : {"ls", "shell", "--trust-fingerprint", "130", "client.toml"})
        EXPECT_THAT(help, HasSubstr(part));
}

TEST(TheHelp, SaysHowPutReplacesFilesAndWhatAnInterruptionLeaves)
{
    const auto help = GetHelp({"put", "--help"});
    EXPECT_THAT(help, HasSubstr("LOCAL... REMOTE"));
    EXPECT_THAT(help, HasSubstr("written beside its target"));
    EXPECT_THAT(help, HasSubstr("--in-place"));
    EXPECT_THAT(help, HasSubstr("interruption"));
}

TEST(TheHelp, HasLinesThatFitATerminal)
{
    for (const auto* const command :
         {"ls", "put", "get", "rm", "mv", "cp", "touch", "chmod", "watch", "info"}) {
        std::istringstream lines(GetHelp({command, "--help"}));
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 100U) << line;
    }
}

TEST(TheCommandLine, TakesATimeoutInSeconds)
{
    const auto invocation = std::get<Invocation>(ParseArguments({"--timeout", "5", "info"}));
    EXPECT_EQ(invocation.connection.timeout, std::chrono::seconds(5));
    for (const std::string wrong : {"0", "-1", "5s", "", "100000"})
        EXPECT_THROW((void)ParseArguments({"--timeout", wrong, "info"}),
                     Client::InvalidArgumentException)
            << wrong;
}

TEST(TheCommandLine, TakesTheTimesOfConnectingAndARate)
{
    const auto invocation =
        std::get<Invocation>(ParseArguments({"--connect-timeout", "3", "--reconnect-timeout", "0",
                                             "put", "--bwlimit", "2M", "a", "b"}));
    EXPECT_EQ(invocation.connection.connectTimeout, std::chrono::seconds(3));
    EXPECT_EQ(invocation.connection.reconnectTimeout, std::chrono::seconds(0));
    EXPECT_EQ(std::get<PutCommand>(invocation.command).bytesPerSecond, 2'097'152U);
    EXPECT_THROW((void)ParseArguments({"--connect-timeout", "0", "info"}),
                 Client::InvalidArgumentException);
}

TEST(ANameWithANul, IsRefusedOnTheCommandLineAndInTheShell)
{
    const std::string cut("keep\0x", 6);
    EXPECT_THROW((void)ParseArguments({"rm", cut}), Client::InvalidArgumentException);
    EXPECT_THROW((void)ParseShellLine({"rm", "-r", cut}), Client::InvalidArgumentException);
    EXPECT_THROW((void)ParseShellLine({"lcd", cut}), Client::InvalidArgumentException);
}

TEST(AShellLine, MayLeaveTheTargetOut)
{
    const auto line = ParseShellLine({"get", "a"});
    EXPECT_EQ(std::get<GetCommand>(line.command).target, ".");
}

TEST(AShellLine, HasCommandsOfItsOwn)
{
    EXPECT_EQ(std::get<ChangeFolderCommand>(ParseShellLine({"cd", "a"}).command).path, "a");
    EXPECT_THAT(std::get<HelpCommand>(ParseShellLine({"help", "put"}).command).text,
                HasSubstr("LOCAL"));
    EXPECT_THAT(std::get<HelpCommand>(ParseShellLine({"help"}).command).text, HasSubstr("lcd"));
    EXPECT_THROW(std::ignore = ParseShellLine({"shell"}), Client::InvalidArgumentException);
}

TEST(AFingerprint, IsReadInTheFormsThatPeopleHave)
{
    const std::string digits(64, 'a');
    std::string wanted = "AA";
    for (int byte = 1; byte < 32; ++byte)
        wanted += ":AA";
    EXPECT_EQ(ParseFingerprint(digits), wanted);
    EXPECT_EQ(ParseFingerprint("sha256:" + wanted), wanted);
    EXPECT_THROW(std::ignore = ParseFingerprint(digits + "aa"), Client::InvalidArgumentException);
    EXPECT_THROW(std::ignore = ParseFingerprint(std::string(64, 'g')),
                 Client::InvalidArgumentException);
}

} // namespace
} // namespace Cli
