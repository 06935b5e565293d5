#include "Endpoint/CallBook.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

int here = 0;
int there = 0;

TEST(ACallBook, KnowsACallUntilItIsTakenOut)
{
    CallBook book;
    const auto number = book.Enter(&here);
    EXPECT_TRUE(book.Remove(&here, number));
    EXPECT_FALSE(book.Remove(&here, number));
    EXPECT_EQ(book.Count(), 0U);
}

TEST(ACallBook, OrphansTheOlderCallOfAnAddressThatIsUsedAgain)
{
    CallBook book;
    const auto cancelled = book.Enter(&here);
    const auto next = book.Enter(&here);
    EXPECT_FALSE(book.Remove(&here, cancelled));
    EXPECT_TRUE(book.Remove(&here, next));
}

TEST(ACallBook, LeavesACallAloneWhenTheOlderOneOfItsAddressComesLast)
{
    CallBook book;
    const auto cancelled = book.Enter(&here);
    const auto next = book.Enter(&here);
    EXPECT_TRUE(book.Remove(&here, next));
    EXPECT_FALSE(book.Remove(&here, cancelled));
}

TEST(ACallBook, NeverUsesANumberAgain)
{
    CallBook book;
    const auto first = book.Enter(&here);
    EXPECT_TRUE(book.Remove(&here, first));
    EXPECT_NE(book.Enter(&here), first);
    EXPECT_FALSE(book.Remove(&here, first));
}

TEST(ACallBook, KeepsCallsOfDifferentAddressesApart)
{
    CallBook book;
    const auto first = book.Enter(&here);
    const auto second = book.Enter(&there);
    EXPECT_FALSE(book.Remove(&here, second));
    EXPECT_EQ(book.Count(), 2U);
    EXPECT_TRUE(book.Remove(&there, second));
    EXPECT_TRUE(book.Remove(&here, first));
}

} // namespace
} // namespace Host
