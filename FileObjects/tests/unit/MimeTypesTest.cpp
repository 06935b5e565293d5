#include "MimeTypes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace {

using FileObjects::MimeTypes;

class AMimeType : public testing::Test
{
protected:
    std::istringstream globs{"# a comment\n"
                             "50:text/plain:*.txt\n"
                             "50:application/gzip:*.gz\n"
                             "50:application/x-compressed-tar:*.tar.gz\n"
                             "60:text/x-python:*.py\n"
                             "50:text/plain:*.py\n"
                             "50:text/x-makefile:makefile\n"
                             "10:text/x-readme:readme*\n"
                             "50:text/x-c++src:*.C:cs\n"
                             "50:text/x-csrc:*.c:cs\n"
                             "50:application/x-troff-man:*.[1-9]\n"
                             "nonsense\n"
                             "x:y\n"};
    MimeTypes types{globs};
};

TEST_F(AMimeType, IsThatOfTheLongestPatternWithTheGreatestWeight)
{
    EXPECT_EQ(types.Find("a.txt"), "text/plain");
    EXPECT_EQ(types.Find("a.tar.gz"), "application/x-compressed-tar");
    EXPECT_EQ(types.Find("a.b.gz"), "application/gzip");
    EXPECT_EQ(types.Find("a.py"), "text/x-python");
    EXPECT_EQ(types.Find("readme.txt"), "text/plain");
    EXPECT_EQ(types.Find("readme.first"), "text/x-readme");
    EXPECT_EQ(types.Find("man.3"), "application/x-troff-man");
}

TEST_F(AMimeType, LooksAtTheCaseOfLettersWhereThePatternDoes)
{
    EXPECT_EQ(types.Find("A.TXT"), "text/plain");
    EXPECT_EQ(types.Find("Makefile"), "text/x-makefile");
    EXPECT_EQ(types.Find("a.C"), "text/x-c++src");
    EXPECT_EQ(types.Find("a.c"), "text/x-csrc");
}

TEST_F(AMimeType, IsUnspecificForOtherNames)
{
    EXPECT_EQ(types.Find("a.unknown"), "application/octet-stream");
    EXPECT_EQ(types.Find("txt"), "application/octet-stream");
    EXPECT_EQ(MimeTypes().Find("a.txt"), "application/octet-stream");
}

TEST_F(AMimeType, ComesFromTheMachinesDatabase)
{
    if (!std::filesystem::exists("/usr/share/mime/globs2"))
        GTEST_SKIP() << "shared-mime-info is not installed";
    EXPECT_EQ(MimeTypes::Load().Find("a.png"), "image/png");
}

} // namespace
