#include "Transport/Accepting/InputTurns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace Transport {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class InputTurn : public testing::Test
{
protected:
    void EnterSession(ConnectionId id) { turns.Enter(id, false); }
    void EnterStranger(ConnectionId id) { turns.Enter(id, true); }

    /// Gives so many turns to connections that all want more, each as long as its number says.
    std::vector<ConnectionId> TakeAll(std::size_t count, bool areStrangers = false)
    {
        std::vector<ConnectionId> taken;
        while (taken.size() < count) {
            taken.push_back(turns.TakeFirst());
            turns.Count(taken.back(), taken.back() * 1ms);
            turns.Enter(taken.back(), areStrangers);
        }
        return taken;
    }

    InputTurns turns;
};

TEST_F(InputTurn, ComesInTheOrderOfWaitingAtFirst)
{
    for (const ConnectionId id : {3U, 1U, 2U})
        EnterSession(id);
    EXPECT_THAT(TakeAll(3), ElementsAre(3, 1, 2));
}

TEST_F(InputTurn, ComesAgainAfterThoseThatHadLess)
{
    for (const ConnectionId id : {10U, 5U, 2U})
        EnterSession(id);
    EXPECT_THAT(TakeAll(9), ElementsAre(10, 5, 2, 2, 2, 5, 2, 2, 10));
}

TEST_F(InputTurn, ComesNextForOneThatSaysLittle)
{
    for (const ConnectionId id : {10U, 11U, 12U})
        EnterSession(id);
    TakeAll(30);
    EnterSession(1);
    EXPECT_EQ(turns.TakeFirst(), 1U);
}

TEST_F(InputTurn, IsNotSavedUp)
{
    EnterSession(1);
    EnterSession(2);
    EXPECT_EQ(turns.TakeFirst(), 1U); // and says nothing while the other one has its turns
    EXPECT_EQ(turns.TakeFirst(), 2U);
    turns.Count(2, 1h);
    EnterSession(2);
    EXPECT_EQ(turns.TakeFirst(), 2U);
    EnterSession(1);
    EnterSession(2);
    const auto taken = TakeAll(30);
    EXPECT_EQ(std::count(taken.begin(), taken.end(), 1), 20);
    EXPECT_EQ(std::count(taken.begin(), taken.end(), 2), 10);
}

TEST_F(InputTurn, IsOneHoweverOftenItIsAskedFor)
{
    EnterSession(1);
    EnterSession(1);
    EXPECT_EQ(turns.TakeFirst(), 1U);
    EXPECT_TRUE(turns.IsEmpty());
}

TEST_F(InputTurn, GoesWithItsConnection)
{
    EnterSession(1);
    EnterSession(2);
    EnterStranger(3);
    turns.Remove(1);
    turns.Remove(3);
    EXPECT_EQ(turns.TakeFirst(), 2U);
    turns.Remove(2);
    turns.Count(2, 1ms); // closed in its own turn
    EXPECT_TRUE(turns.IsEmpty());
}

TEST_F(InputTurn, IsForManyStrangersAsOftenAsForOneSession)
{
    for (ConnectionId id = 100; id < 150; ++id)
        EnterStranger(id);
    EnterSession(1);
    std::size_t ofSession = 0;
    for (auto i = 0; i < 100; ++i) {
        const auto id = turns.TakeFirst();
        turns.Count(id, 1ms);
        turns.Enter(id, id != 1);
        ofSession += id == 1 ? 1 : 0;
    }
    EXPECT_EQ(ofSession, 50U);
}

TEST_F(InputTurn, IsForOneStrangerAsOftenAsForManySessions)
{
    for (ConnectionId id = 100; id < 150; ++id)
        EnterSession(id);
    EnterStranger(1);
    std::size_t ofStranger = 0;
    for (auto i = 0; i < 100; ++i) {
        const auto id = turns.TakeFirst();
        turns.Count(id, 1ms);
        turns.Enter(id, id == 1);
        ofStranger += id == 1 ? 1 : 0;
    }
    EXPECT_EQ(ofStranger, 50U);
}

} // namespace
} // namespace Transport
