#include "Grammar/Completion.h"
#include "Output/Words.h"

#include "Client/Exceptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ALine, IsSplitAtItsBlanks)
{
    EXPECT_THAT(SplitWords("  put a\tb "), ElementsAre("put", "a", "b"));
    EXPECT_THAT(SplitWords(" \t"), IsEmpty());
}

TEST(ALine, KeepsWhatIsQuotedTogether)
{
    EXPECT_THAT(SplitWords(R"(rm 'a \n b' "c 'd'" e\ f '')"),
                ElementsAre("rm", "a \\n b", "c 'd'", "e f", ""));
}

TEST(ALine, CanNameEveryByte)
{
    EXPECT_THAT(SplitWords(R"(\xFF\n\t\\ \xZZ)"), ElementsAre("\xFF\n\t\\", "xZZ"));
}

TEST(ALine, MakesNoPatternsOfWhatIsQuoted)
{
    std::vector<std::string> patterns;
    for (const auto& word : SplitMarkedWords(R"(a* 'b*' c\?"[d]"[e] \\ f\x02)"))
        patterns.push_back(ToPattern(word));
    EXPECT_THAT(patterns, ElementsAre("a*", "b\\*", "c\\?\\[d\\][e]", "\\\\", "f\x02"));
    EXPECT_EQ(RemoveMarks(SplitMarkedWords("'*'x").front()), "*x");
}

TEST(ALine, IsRefusedWithAnOpenQuote)
{
    EXPECT_THROW(std::ignore = SplitWords("rm 'a"), Client::InvalidArgumentException);
}

TEST(AWord, ComesBackFromItsQuotedForm)
{
    for (const std::string word :
         {"a", "a b", "it's", "\"", "a\\b", "*?[", "\xFF\n\x1b", "\xC3\xA4", ""})
        EXPECT_THAT(SplitWords(QuoteWord(word)), ElementsAre(word));
}

class ACompleter : public testing::Test
{
protected:
    static std::vector<Candidate> ListRemote(const std::string& directory)
    {
        if (directory == "logs/")
            return {{"a.log", false}, {"b.log", false}};
        return {{"logs", true}, {"a b", false}, {"a bc", false}, {"\xFFx", false}};
    }
    static std::vector<Candidate> ListLocal(const std::string&) { return {{"here", false}}; }
    const Completer completer{{"get", "lcd", "lpwd", "ls", "put"}, ListRemote, ListLocal};
};

TEST_F(ACompleter, CompletesCommands)
{
    const auto completion = completer.Complete("p");
    EXPECT_EQ(completion.begin, 0U);
    EXPECT_EQ(completion.replacement, "put ");
    EXPECT_THAT(completion.choices, IsEmpty());
    EXPECT_THAT(completer.Complete("l").choices, ElementsAre("lcd", "lpwd", "ls"));
}

TEST_F(ACompleter, GoesIntoDirectories)
{
    const auto completion = completer.Complete("ls -l lo");
    EXPECT_EQ(completion.begin, 6U);
    EXPECT_EQ(completion.replacement, "logs/");
    EXPECT_EQ(completer.Complete("ls logs/b").replacement, "logs/b.log ");
}

TEST_F(ACompleter, CompletesAsFarAsIsClearAndNamesTheChoices)
{
    const auto completion = completer.Complete("ls a");
    EXPECT_EQ(completion.replacement, "a\\ b");
    EXPECT_THAT(completion.choices, ElementsAre("a b", "a bc"));
}

TEST_F(ACompleter, WritesOddNamesSoThatTheyCanBeRead)
{
    EXPECT_EQ(completer.Complete("ls \\xFF").replacement, "\\xFFx ");
    EXPECT_EQ(completer.Complete("ls 'a bc").replacement, "a\\ bc ");
}

TEST_F(ACompleter, KnowsOnWhichSideAPathIs)
{
    EXPECT_EQ(completer.Complete("put h").replacement, "here ");
    EXPECT_EQ(completer.Complete("put here l").replacement, "logs/");
    EXPECT_EQ(completer.Complete("get l").replacement, "logs/");
    EXPECT_EQ(completer.Complete("get -r logs h").replacement, "here ");
    EXPECT_EQ(completer.Complete("lcd h").replacement, "here ");
}

TEST_F(ACompleter, LeavesWhatNothingFits)
{
    const auto completion = completer.Complete("ls zz");
    EXPECT_EQ(completion.replacement, "zz");
    EXPECT_THAT(completion.choices, IsEmpty());
}

} // namespace
} // namespace Cli
