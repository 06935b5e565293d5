#include "Users/RandomNumbers.h"

#include <open62541/util.h>

#include <gtest/gtest.h>
#include <set>

namespace Host {
namespace {

TEST(RandomNumbersOfSessions, AreThisProgramsOwn)
{
    EXPECT_NO_THROW(RequireUnpredictableSessions());
}

TEST(RandomNumbersOfSessions, DoNotFollowFromTheTimeOfTheStart)
{
    const auto draw = [] {
        UA_random_seed(1);
        return UA_Guid_random();
    };
    const UA_Guid first = draw();
    const UA_Guid second = draw();
    EXPECT_FALSE(UA_Guid_equal(&first, &second));
}

TEST(RandomNumbersOfSessions, DoNotComeTwice)
{
    std::set<UA_UInt32> numbers;
    for (int i = 0; i < 100; ++i)
        numbers.insert(UA_UInt32_random());
    EXPECT_GT(numbers.size(), 95U);
}

} // namespace
} // namespace Host
