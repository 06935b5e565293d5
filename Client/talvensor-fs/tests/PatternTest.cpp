// Paths with wildcards.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

class APattern : public testing::Test
{
protected:
    APattern()
    {
        fs::create_directories(desk.GetRemote("logs/2025/old"));
        fs::create_directories(desk.GetRemote("logs/.hidden"));
        for (const std::string name :
             {"a.log", "b.log", "c.txt", ".d.log", "logs/e.log", "logs/2025/f.log",
              "logs/2025/old/g.log", "logs/.hidden/h.log", "\xFF.log"})
            WriteFile(desk.GetRemote(name), name);
    }

    [[nodiscard]] Result Run(std::vector<std::string> arguments, const std::string& input = "")
    {
        arguments.insert(arguments.begin(), {"--security", "plain", "-q"});
        return desk.Run(arguments, input);
    }

    [[nodiscard]] std::string List(const std::string& pattern)
    {
        const auto result = Run({"ls", pattern});
        EXPECT_EQ(result.status, 0) << result.error;
        return result.output;
    }

    Desk desk;
};

TEST_F(APattern, MatchesNamesAsTheShellsOfTheWorldDo)
{
    EXPECT_EQ(List("*.log"), "a.log\nb.log\n\xFF.log\n");
    EXPECT_EQ(List("[!b].log"), "a.log\n\xFF.log\n");
    EXPECT_EQ(List("?.txt"), "c.txt\n");
    EXPECT_EQ(List(".*.log"), ".d.log\n");
    EXPECT_EQ(List("l*/202?/*.log"), "logs/2025/f.log\n");
    EXPECT_EQ(List("*/e.log"), "logs/e.log\n");
    EXPECT_EQ(List("./a*"), "./a.log\n");
    EXPECT_EQ(List(desk.GetRemote("a.*")), desk.GetRemote("a.log").string() + "\n");
}

TEST_F(APattern, MatchesAnyDirectoriesWithTwoStars)
{
    EXPECT_EQ(List("**/*.log"),
              "a.log\nb.log\nlogs/2025/f.log\nlogs/2025/old/g.log\nlogs/e.log\n\xFF.log\n");
    EXPECT_EQ(List("logs/**/g.log"), "logs/2025/old/g.log\n");
    EXPECT_EQ(List("l*/**/f.*"), "logs/2025/f.log\n");
}

TEST_F(APattern, OfDirectoriesAloneEndsWithASlash)
{
    EXPECT_EQ(List("logs/*/"), "f.log\nold\n");
}

TEST_F(APattern, ThatNothingMatchesIsAnErrorThatNamesIt)
{
    const auto result = Run({"cat", "z*", "c.txt"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("z*: no match"));
    EXPECT_EQ(result.output, "c.txt");
    EXPECT_EQ(Run({"rm", "--glob", "*/z*"}).status, 1);
    EXPECT_EQ(Run({"rm", "-f", "--glob", "*/z*"}).status, 0);
}

TEST_F(APattern, ChoosesTheFilesToDelete)
{
    WriteFile(desk.GetRemote("*.log"), "");
    // A name that is there is no pattern.
    EXPECT_EQ(Run({"rm", "--glob", "*.log"}).status, 0);
    EXPECT_TRUE(fs::exists(desk.GetRemote("a.log")));
    EXPECT_FALSE(fs::exists(desk.GetRemote("*.log")));
    EXPECT_EQ(Run({"rm", "--glob", "*.log"}).status, 0);
    EXPECT_FALSE(fs::exists(desk.GetRemote("a.log")));
    EXPECT_TRUE(fs::exists(desk.GetRemote(".d.log")));
    EXPECT_TRUE(fs::exists(desk.GetRemote("c.txt")));
}

TEST_F(APattern, ChangesNothingOnTheCommandLineWithoutAFlag)
{
    WriteFile(desk.GetRemote("a1"), "kept");
    fs::permissions(desk.GetRemote("a1"), fs::perms(0640));
    const auto time = fs::last_write_time(desk.GetRemote("a1"));
    EXPECT_EQ(Run({"rm", "a[1]"}).status, 1);
    EXPECT_EQ(Run({"rm", "-f", "a[1]", "remote:a?"}).status, 0);
    EXPECT_EQ(Run({"mv", "a[1]", "b1"}).status, 1);
    EXPECT_EQ(Run({"touch", "-d", "@60", "a[1]"}).status, 1);
    EXPECT_EQ(Run({"chmod", "readonly", "a[1]"}).status, 1);
    EXPECT_EQ(fs::last_write_time(desk.GetRemote("a1")), time);
    EXPECT_EQ(fs::status(desk.GetRemote("a1")).permissions(), fs::perms(0640));
    EXPECT_EQ(List("a[1]"), "a1\n");
    EXPECT_EQ(Run({"touch", "--glob", "-d", "@60", "a[1]"}).status, 0);
    EXPECT_NE(fs::last_write_time(desk.GetRemote("a1")), time);
    EXPECT_EQ(Run({"shell"}, "rm a[1]\n").status, 0);
    EXPECT_FALSE(fs::exists(desk.GetRemote("a1")));
}

TEST_F(APattern, IsEscapedByBackslashes)
{
    WriteFile(desk.GetRemote("x*1"), "");
    WriteFile(desk.GetRemote("x-1"), "");
    WriteFile(desk.GetRemote("back\\slash"), "");
    EXPECT_EQ(List("x\\*?"), "x*1\n");
    EXPECT_EQ(List("back\\slash"), "back\\slash\n");
}

TEST_F(APattern, IsNoneInQuotesInTheShell)
{
    WriteFile(desk.GetRemote("*.log"), "");
    const auto result =
        Run({"shell"}, "rm '*.log'\nls *.log\n-rm \"*.txt\" \\*.txt\nls ?.txt\nls 'a.'*\n");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output, "a.log\nb.log\n\xFF.log\nc.txt\na.log\n");
}

TEST_F(APattern, ChoosesTheFilesToFetchAndToSend)
{
    EXPECT_EQ(Run({"get", "logs/**/*.log", "."}).status, 0);
    EXPECT_TRUE(fs::exists(desk.GetLocal("g.log")));
    EXPECT_TRUE(fs::exists(desk.GetLocal("e.log")));
    WriteFile(desk.GetLocal("-"), "dash");
    const auto result = Run({"shell"}, "mkdir to\nput [eg].log to\nput ? to\nls to\n");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output, "-\ne.log\ng.log\n");
    const auto nothing = Run({"shell"}, "put nothing* to\n");
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.error, HasSubstr("nothing*: no match"));
}

TEST_F(APattern, KnowsTheServersSideByItsPrefix)
{
    WriteFile(desk.GetRemote("remote:x"), "x");
    EXPECT_EQ(List("remote:*.txt"), "c.txt\n");
    EXPECT_EQ(Run({"cat", "./remote:x"}).output, "x");
    EXPECT_EQ(Run({"get", "remote:c.txt", "."}).status, 0);
    EXPECT_EQ(Run({"put", "c.txt", "remote:copy"}).status, 0);
    EXPECT_TRUE(fs::exists(desk.GetRemote("copy")));
    const auto wrong = Run({"put", "remote:c.txt", "copy"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.error, HasSubstr("./remote:c.txt"));
}

TEST_F(APattern, ListsSeveralPaths)
{
    EXPECT_EQ(Run({"ls", "logs/2025", "c.txt", "logs/2025/old"}).output,
              "c.txt\n\nlogs/2025:\nf.log\nold\n\nlogs/2025/old:\ng.log\n");
    const auto partly = Run({"ls", "missing", "c.txt"});
    EXPECT_EQ(partly.status, 1);
    EXPECT_EQ(partly.output, "c.txt\n");
}

} // namespace
} // namespace CliTest
