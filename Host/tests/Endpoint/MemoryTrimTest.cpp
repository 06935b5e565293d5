#include "Endpoint/MemoryTrim.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

constexpr auto megabyte = MemoryTrim::megabyte;

class AMemoryTrim : public testing::Test
{
protected:
    MemoryTrim trim{30 * megabyte};
};

TEST_F(AMemoryTrim, WaitsForThePeakToEnd)
{
    for (std::uint64_t second = 1; second < 100; ++second)
        EXPECT_FALSE(trim.IsDue(300 * megabyte, second * megabyte));
    EXPECT_TRUE(trim.IsDue(300 * megabyte, 99 * megabyte + 1));
}

TEST_F(AMemoryTrim, IsDueThoughTheFirstLookFindsThePeak)
{
    EXPECT_FALSE(trim.IsDue(300 * megabyte, 100 * megabyte)) << "busy";
    EXPECT_TRUE(trim.IsDue(60 * megabyte, 100 * megabyte));
}

TEST_F(AMemoryTrim, LeavesALittleAlone)
{
    EXPECT_FALSE(trim.IsDue(46 * megabyte, 0));
    EXPECT_TRUE(trim.IsDue(46 * megabyte + 1, 0));
}

TEST_F(AMemoryTrim, IsOverOnceTheMemoryIsGivenBack)
{
    EXPECT_TRUE(trim.IsDue(300 * megabyte, 0));
    trim.NoteTrimmed(31 * megabyte);
    EXPECT_FALSE(trim.IsDue(31 * megabyte, 0));
    EXPECT_TRUE(trim.IsDue(200 * megabyte, 0)) << "another peak";
}

TEST_F(AMemoryTrim, IsTriedLessAndLessWhereTheMemoryIsInUse)
{
    auto attempts = 0;
    for (auto second = 0; second < 1000; ++second) {
        if (!trim.IsDue(300 * megabyte, 0))
            continue;
        ++attempts;
        trim.NoteTrimmed(299 * megabyte);
    }
    EXPECT_EQ(attempts, 20);
    EXPECT_FALSE(trim.IsDue(300 * megabyte, 10 * megabyte)) << "busy";
    EXPECT_TRUE(trim.IsDue(300 * megabyte, 10 * megabyte)) << "what was in use may be free now";
}

} // namespace
} // namespace Host
