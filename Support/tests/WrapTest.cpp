#include "Support/Wrap.h"

#include <gtest/gtest.h>

namespace {

using Support::Wrap;

TEST(AWrappedText, BreaksAtBlanksBeforeTheWidthIsExceeded)
{
    EXPECT_EQ(Wrap("one two three", 7), "one two\nthree");
    EXPECT_EQ(Wrap("one two three", 6), "one\ntwo\nthree");
    EXPECT_EQ(Wrap("one two three", 13), "one two three");
}

TEST(AWrappedText, KeepsAWordWholeThatIsLongerThanALine)
{
    EXPECT_EQ(Wrap("a longest b", 3), "a\nlongest\nb");
}

TEST(AWrappedText, TakesAnyWhiteSpaceForOneBlank)
{
    EXPECT_EQ(Wrap("  one\n\n two ", 20), "one two");
    EXPECT_EQ(Wrap("", 20), "");
}

} // namespace
