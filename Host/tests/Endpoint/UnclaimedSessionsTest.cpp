#include "Endpoint/UnclaimedSessions.h"

#include <gtest/gtest.h>
#include <vector>

namespace Host {
namespace {

using namespace std::chrono_literals;

class UnclaimedSessionsOfClients : public testing::Test
{
protected:
    /// Adds a session; returns the numbers of those that make room for it.
    std::vector<unsigned> Add(unsigned number, ConnectionId connection,
                              const std::string& address = "192.0.2.1")
    {
        now += 1s;
        return ToNumbers(sessions.Add({MakeId(number), connection, address, now}));
    }

    static UA_Guid MakeId(unsigned number)
    {
        UA_Guid id{};
        id.data1 = number;
        return id;
    }

    static std::vector<unsigned> ToNumbers(const std::vector<UA_Guid>& ids)
    {
        std::vector<unsigned> numbers;
        for (const auto& id : ids)
            numbers.push_back(id.data1);
        return numbers;
    }

    using Numbers = std::vector<unsigned>;

    UnclaimedSessions::Clock::time_point now{1h};
    UnclaimedSessions sessions{4};
};

TEST_F(UnclaimedSessionsOfClients, AreOneForEachConnection)
{
    EXPECT_EQ(Add(1, 10), Numbers());
    EXPECT_EQ(Add(2, 20), Numbers());
    EXPECT_EQ(Add(3, 10), Numbers{1});
    EXPECT_EQ(sessions.Count(), 2U);
}

TEST_F(UnclaimedSessionsOfClients, GiveWayToNewOnesTheOldestFirst)
{
    for (unsigned number = 1; number <= 4; ++number)
        EXPECT_EQ(Add(number, number), Numbers());
    EXPECT_EQ(Add(5, 5), Numbers{1});
    EXPECT_EQ(Add(6, 6), Numbers{2});
    EXPECT_EQ(sessions.Count(), 4U);
}

TEST_F(UnclaimedSessionsOfClients, StayWhileAnotherAddressFloods)
{
    EXPECT_EQ(Add(1, 1, "192.0.2.7"), Numbers());
    for (unsigned number = 2; number <= 4; ++number)
        EXPECT_EQ(Add(number, number), Numbers());
    for (unsigned number = 5; number <= 50; ++number)
        EXPECT_EQ(Add(number, number), Numbers{number - 3});
}

TEST_F(UnclaimedSessionsOfClients, NoLongerCountOnceActivated)
{
    for (unsigned number = 1; number <= 4; ++number)
        EXPECT_EQ(Add(number, number), Numbers());
    sessions.Remove(MakeId(2));
    sessions.Remove(MakeId(77));
    EXPECT_EQ(Add(5, 5), Numbers());
}

TEST_F(UnclaimedSessionsOfClients, GoWithTheirConnection)
{
    EXPECT_EQ(Add(1, 10), Numbers());
    EXPECT_EQ(Add(2, 20), Numbers());
    EXPECT_EQ(ToNumbers(sessions.TakeOf(10)), Numbers{1});
    EXPECT_EQ(ToNumbers(sessions.TakeOf(10)), Numbers());
    EXPECT_EQ(sessions.Count(), 1U);
}

TEST_F(UnclaimedSessionsOfClients, AreTakenWhenTheyAreTooOld)
{
    EXPECT_EQ(Add(1, 10), Numbers());
    EXPECT_EQ(Add(2, 20), Numbers());
    EXPECT_EQ(ToNumbers(sessions.TakeOlderThan(now)), Numbers{1});
    EXPECT_EQ(ToNumbers(sessions.TakeOlderThan(now + 1s)), Numbers{2});
}

TEST_F(UnclaimedSessionsOfClients, AreListenedToInTheirOrderAndThoseThatFailedLast)
{
    for (unsigned number = 1; number <= 4; ++number)
        EXPECT_EQ(Add(number, 10 * number), Numbers());
    sessions.NoteFailure(20, now + 2s);
    sessions.NoteFailure(10, now + 3s);
    EXPECT_EQ(sessions.GetConnections(), (std::vector<ConnectionId>{30, 40, 20, 10}));
}

} // namespace
} // namespace Host
