#include "Users/RefusedClients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

namespace Host {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class ClientsThatAreRefused : public testing::Test
{
protected:
    void Add(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            clients.Add({.certificate = {1, 2}, .address = "192.0.2.1"});
    }

    bool IsReadable() const
    {
        pollfd waiting{clients.GetDescriptor(), POLLIN, 0};
        return poll(&waiting, 1, 0) == 1;
    }

    RefusedClients::Clock::time_point now = RefusedClients::Clock::now();
    RefusedClients clients{[this] {
        return now;
    }};
};

TEST_F(ClientsThatAreRefused, AreAnnouncedUntilTheyAreTaken)
{
    EXPECT_FALSE(IsReadable());
    Add(2);
    EXPECT_TRUE(IsReadable());
    const auto taken = clients.TakeAll();
    ASSERT_THAT(taken, SizeIs(2));
    EXPECT_EQ(taken.front().address, "192.0.2.1");
    EXPECT_FALSE(IsReadable());
    EXPECT_THAT(clients.TakeAll(), IsEmpty());
}

TEST_F(ClientsThatAreRefused, AreForgottenWhenTooManyCome)
{
    Add(10 * RefusedClients::atOnce);
    EXPECT_THAT(clients.TakeAll(), SizeIs(RefusedClients::atOnce));
    Add(10);
    EXPECT_THAT(clients.TakeAll(), IsEmpty());
    now += 2 * RefusedClients::interval;
    Add(10);
    EXPECT_THAT(clients.TakeAll(), SizeIs(2));
}

TEST_F(ClientsThatAreRefused, DoNotPileUpWhenNobodyTakesThem)
{
    for (int i = 0; i < 100; ++i) {
        Add(1);
        now += RefusedClients::interval;
    }
    EXPECT_THAT(clients.TakeAll(), SizeIs(RefusedClients::atOnce));
}

} // namespace
} // namespace Host
