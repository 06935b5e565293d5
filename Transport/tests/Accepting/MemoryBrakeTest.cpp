#include "Transport/Accepting/MemoryBrake.h"

#include <gtest/gtest.h>

namespace Transport {
namespace {

class AMemoryBrake : public testing::Test
{
protected:
    static constexpr std::size_t allowance = 1000;
    static constexpr std::size_t refill = 30;

    MemoryBrake brake{allowance, refill};
};

TEST_F(AMemoryBrake, LetsEverybodyReadWhileItIsOff)
{
    brake.Add(1);
    brake.CountReceived(1, 10 * allowance);
    EXPECT_TRUE(brake.MayRead(1));
    EXPECT_FALSE(brake.IsOn());
}

TEST_F(AMemoryBrake, CountsFromWhenItCameOn)
{
    brake.Add(1);
    for (auto round = 0; round < 2; ++round) {
        brake.CountReceived(1, 10 * allowance);
        brake.Engage();
        EXPECT_TRUE(brake.MayRead(1));
        brake.CountReceived(1, allowance);
        EXPECT_FALSE(brake.MayRead(1));
        brake.Release();
        EXPECT_TRUE(brake.MayRead(1));
    }
}

TEST_F(AMemoryBrake, WorksWithNoConnectionLeft)
{
    brake.Engage();
    brake.Refill();
    EXPECT_TRUE(brake.IsOn());
    EXPECT_TRUE(brake.MayRead(1)) << "there is none";
    brake.CountReceived(1, 10);
    brake.Release();
}

TEST_F(AMemoryBrake, OutlivesTheLastClientAndIsThereForTheNext)
{
    brake.Add(1);
    brake.Engage();
    brake.CountReceived(1, allowance);
    brake.Remove(1);
    brake.Refill();
    EXPECT_TRUE(brake.IsOn());
    brake.Add(2);
    EXPECT_FALSE(brake.MayRead(2)) << "coming again gives no new share";
    brake.Refill();
    EXPECT_TRUE(brake.MayRead(2));
}

TEST_F(AMemoryBrake, StopsTheOneHeavyAmongManyClients)
{
    constexpr ConnectionId heavy = 1;
    constexpr std::size_t count = 10;
    for (ConnectionId id = heavy; id <= count; ++id)
        brake.Add(id);
    brake.Engage();
    brake.CountReceived(heavy, allowance / count);
    EXPECT_FALSE(brake.MayRead(heavy));
    for (ConnectionId id = heavy + 1; id <= count; ++id) {
        brake.CountReceived(id, allowance / count - 1);
        EXPECT_TRUE(brake.MayRead(id)) << id;
    }
}

TEST_F(AMemoryBrake, LetsEverybodyReadALittleAgainAndAgain)
{
    for (ConnectionId id = 1; id <= 3; ++id)
        brake.Add(id);
    brake.Engage();
    brake.CountReceived(1, allowance / 3 + refill / 3);
    brake.Refill();
    EXPECT_FALSE(brake.MayRead(1)) << "it was read for more than a refill above its share";
    brake.Refill();
    EXPECT_TRUE(brake.MayRead(1));
}

TEST_F(AMemoryBrake, RefillsByAByteAtLeast)
{
    constexpr ConnectionId count = 2 * refill;
    for (ConnectionId id = 1; id <= count; ++id)
        brake.Add(id);
    brake.Engage();
    brake.CountReceived(1, allowance / count);
    EXPECT_FALSE(brake.MayRead(1));
    brake.Refill();
    EXPECT_TRUE(brake.MayRead(1));
}

} // namespace
} // namespace Transport
