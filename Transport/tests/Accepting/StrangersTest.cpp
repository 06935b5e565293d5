#include "Transport/Accepting/Strangers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace Transport {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::string MakeChunk(char type, std::size_t size)
{
    std::string chunk(size, 'x');
    chunk.replace(0, 4, std::string("MSG") + type);
    for (std::size_t i = 0; i < 4; ++i)
        chunk.at(4 + i) = static_cast<char>(size >> 8 * i & 0xff);
    return chunk;
}

class AStranger : public testing::Test
{
protected:
    AStranger() { strangers.Add(id, "192.0.2.1", now); }

    std::optional<UA_StatusCode> Receive(const std::string& text)
    {
        const auto refusal = strangers.Receive(
            id, {reinterpret_cast<const unsigned char*>(text.data()), text.size()}, now);
        return refusal ? std::optional(refusal->status) : std::nullopt;
    }

    /// The connections that are closed when so much time has passed, looked at each second.
    std::vector<ConnectionId> PassTime(std::chrono::seconds time)
    {
        std::vector<ConnectionId> closed;
        for (const auto end = now + time; now < end;) {
            now += 1s;
            for (const auto& [overdue, refusal] : strangers.TakeOverdue(now)) {
                EXPECT_EQ(refusal.status, UA_STATUSCODE_BADTIMEOUT);
                closed.push_back(overdue);
                strangers.Remove(overdue);
            }
        }
        return closed;
    }

    static constexpr ConnectionId id = 1;

    static StrangerLimits MakeLimits()
    {
        StrangerLimits limits;
        limits.perAddress = 3;
        return limits;
    }

    const StrangerLimits limits = MakeLimits();
    Strangers::Time now = Strangers::Time() + 1000s;
    Strangers strangers{limits};
};

TEST_F(AStranger, MaySendMessagesOfOneChunkOfTheUsualSize)
{
    for (auto i = 0; i < 10; ++i)
        EXPECT_EQ(Receive(MakeChunk('F', 65535)), std::nullopt);
}

TEST_F(AStranger, IsRefusedAtTheHeaderOfALargeMessage)
{
    EXPECT_EQ(Receive(MakeChunk('F', limits.messageSize + 1).substr(0, 8)),
              UA_STATUSCODE_BADTCPMESSAGETOOLARGE);
}

TEST_F(AStranger, IsRefusedWhenSmallChunksMakeALargeMessage)
{
    EXPECT_EQ(Receive(MakeChunk('C', limits.messageSize - 10)), std::nullopt);
    EXPECT_EQ(Receive(MakeChunk('C', 11)), UA_STATUSCODE_BADTCPMESSAGETOOLARGE);
}

TEST_F(AStranger, IsRefusedWhenItsChunksDoNotEnd)
{
    for (std::size_t i = 0; i < limits.messageChunks; ++i)
        EXPECT_EQ(Receive(MakeChunk('C', 10)), std::nullopt);
    EXPECT_EQ(Receive(MakeChunk('C', 10)), UA_STATUSCODE_BADTCPMESSAGETOOLARGE);
}

TEST_F(AStranger, IsRefusedForWhatIsNoMessage)
{
    EXPECT_EQ(Receive("GET / HTTP/1.1\r\n\r\n"), UA_STATUSCODE_BADTCPMESSAGETYPEINVALID);
}

TEST_F(AStranger, MaySendLargeMessagesOnceASessionIsActive)
{
    strangers.SetAdmitted(id, true, now);
    for (auto i = 0; i < 300; ++i)
        EXPECT_EQ(Receive(MakeChunk('C', 65535)), std::nullopt);
    EXPECT_EQ(Receive(MakeChunk('F', 65535)), std::nullopt);
    EXPECT_TRUE(strangers.WasAdmitted(id));
}

TEST_F(AStranger, IsOneAgainWhenItsSessionHasEnded)
{
    strangers.SetAdmitted(id, true, now);
    EXPECT_THAT(PassTime(1000s), IsEmpty());
    strangers.SetAdmitted(id, false, now);
    EXPECT_EQ(Receive(MakeChunk('F', limits.messageSize)), std::nullopt);
    EXPECT_THAT(PassTime(14s), IsEmpty());
    EXPECT_THAT(PassTime(3s), ElementsAre(id));
    EXPECT_FALSE(strangers.WasAdmitted(id));
}

TEST_F(AStranger, IsClosedWhenItDoesNotSayHello)
{
    EXPECT_EQ(Receive(MakeChunk('F', 50).substr(0, 49)), std::nullopt) << "not the whole of it";
    EXPECT_THAT(PassTime(4s), IsEmpty());
    EXPECT_THAT(PassTime(3s), ElementsAre(id));
}

TEST_F(AStranger, IsClosedWhenItDoesNotLogIn)
{
    for (auto second = 0; second < 14; ++second) {
        EXPECT_EQ(Receive(MakeChunk('F', 50)), std::nullopt);
        EXPECT_THAT(PassTime(1s), IsEmpty());
    }
    EXPECT_THAT(PassTime(3s), ElementsAre(id));
}

TEST_F(AStranger, IsNotClosedAtTheFirstLookAfterTheHostWasHeldUp)
{
    now += 1000s;
    EXPECT_THAT(strangers.TakeOverdue(now), IsEmpty());
    strangers.SetAdmitted(id, true, now); // had sent all of it in time
    EXPECT_THAT(PassTime(100s), IsEmpty());
}

TEST_F(AStranger, WithASessionIsClosedWhenAMessageIsNotCarriedOn)
{
    strangers.SetAdmitted(id, true, now);
    EXPECT_EQ(Receive(MakeChunk('C', 50)), std::nullopt);
    EXPECT_THAT(PassTime(119s), IsEmpty());
    EXPECT_THAT(PassTime(3s), ElementsAre(id));
}

TEST_F(AStranger, WithASessionMayTakeItsTimeWithAMessage)
{
    strangers.SetAdmitted(id, true, now);
    for (const auto byte : MakeChunk('F', 100)) {
        EXPECT_THAT(PassTime(100s), IsEmpty());
        EXPECT_EQ(Receive({byte}), std::nullopt);
    }
    EXPECT_THAT(PassTime(1000s), IsEmpty()) << "between messages";
}

TEST_F(AStranger, WithASessionIsNotClosedForWhatTheHostDoesNotRead)
{
    strangers.SetAdmitted(id, true, now);
    EXPECT_EQ(Receive(MakeChunk('C', 50)), std::nullopt);
    for (auto i = 0; i < 10; ++i) {
        EXPECT_THAT(PassTime(100s), IsEmpty());
        strangers.ExcuseWaiting(id, now);
    }
    EXPECT_THAT(PassTime(119s), IsEmpty());
    EXPECT_THAT(PassTime(3s), ElementsAre(id));
}

TEST_F(AStranger, GivesWayToMoreFromItsAddress)
{
    EXPECT_EQ(strangers.FindSurplus("192.0.2.1"), std::nullopt);
    strangers.Add(2, "192.0.2.1", now);
    strangers.Add(3, "192.0.2.2", now);
    EXPECT_EQ(strangers.FindSurplus("192.0.2.1"), std::nullopt);
    strangers.Add(4, "192.0.2.1", now);
    EXPECT_EQ(strangers.FindSurplus("192.0.2.1"), id);
    EXPECT_EQ(strangers.FindSurplus("192.0.2.2"), std::nullopt);
    strangers.SetAdmitted(id, true, now);
    EXPECT_EQ(strangers.FindSurplus("192.0.2.1"), std::nullopt);
    strangers.Add(5, "192.0.2.1", now);
    EXPECT_EQ(strangers.FindSurplus("192.0.2.1"), 2U);
}

TEST_F(AStranger, ThatHasSaidSomethingGivesWayAfterThoseThatHaveNot)
{
    EXPECT_EQ(Receive(MakeChunk('F', 50)), std::nullopt);
    strangers.Add(2, "192.0.2.2", now + 1s);
    strangers.Add(3, "192.0.2.3", now + 2s);
    EXPECT_EQ(strangers.FindOldest(), 2U);
    strangers.Remove(2);
    EXPECT_EQ(strangers.FindOldest(), 3U);
    strangers.Remove(3);
    EXPECT_EQ(strangers.FindOldest(), id);
    strangers.SetAdmitted(id, true, now);
    EXPECT_EQ(strangers.FindOldest(), std::nullopt);
}

} // namespace
} // namespace Transport
