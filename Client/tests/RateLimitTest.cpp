#include "RateLimit.h"
#include "Client/Exceptions.h"

#include <gtest/gtest.h>

namespace Client {
namespace {

using namespace std::chrono_literals;

/// Of a hundred bytes a second, at a time that the test sets.
class ARateLimit : public testing::Test
{
protected:
    RateLimit::Time now{1'000s};
    RateLimit limit{100, [this] {
                        return now;
                    }};
};

TEST_F(ARateLimit, SpacesWhatIsReservedByItsSize)
{
    EXPECT_EQ(limit.Reserve(50), now);
    EXPECT_EQ(limit.Reserve(200), now + 500ms);
    EXPECT_EQ(limit.Reserve(1), now + 2500ms);
    EXPECT_EQ(limit.Reserve(1), now + 2510ms);
}

TEST_F(ARateLimit, DoesNotMakeUpForAPause)
{
    EXPECT_EQ(limit.Reserve(100), now);
    now += 1h;
    EXPECT_EQ(limit.Reserve(100), now);
    EXPECT_EQ(limit.Reserve(100), now + 1s);
}

TEST_F(ARateLimit, KeepsTheRateOverManyBlocks)
{
    const auto start = now;
    for (int block = 0; block < 1'000; ++block)
        now = limit.Reserve(10);
    EXPECT_EQ(now, start + 99'900ms);
}

TEST(ARateLimitOfNothing, LetsEverythingThrough)
{
    RateLimit limit(0);
    EXPECT_FALSE(limit.IsLimiting());
    limit.Wait(~std::uint64_t{0}, nullptr);
}

TEST(AWaitForARateLimit, EndsWhenItIsCancelled)
{
    RateLimit limit(1);
    Cancellation cancellation;
    limit.Wait(1'000'000, &cancellation);
    cancellation.Cancel();
    EXPECT_THROW(limit.Wait(1, &cancellation), CancelledException);
}

} // namespace
} // namespace Client
