#include "Support/Descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <utility>

namespace {

using Support::Descriptor;

int OpenNull()
{
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool IsOpen(int number)
{
    return fcntl(number, F_GETFD) >= 0 || errno != EBADF;
}

TEST(ADescriptor, IsClosedWithItsOwner)
{
    int number = -1;
    {
        const Descriptor descriptor(OpenNull());
        number = descriptor.Get();
        EXPECT_TRUE(descriptor.IsOpen());
        EXPECT_TRUE(IsOpen(number));
    }
    EXPECT_FALSE(IsOpen(number));
}

TEST(ADescriptor, IsNotOpenWithoutANumber)
{
    EXPECT_FALSE(Descriptor().IsOpen());
    EXPECT_FALSE(Descriptor(-1).IsOpen());
}

TEST(ADescriptor, StaysOpenWhenItIsMoved)
{
    Descriptor first(OpenNull());
    const int number = first.Get();
    const Descriptor second(std::move(first));
    EXPECT_EQ(second.Get(), number);
    EXPECT_TRUE(IsOpen(number));
    EXPECT_FALSE(first.IsOpen()); // NOLINT(bugprone-use-after-move): the state is promised
}

TEST(ADescriptor, IsClosedWhenAnotherIsAssigned)
{
    Descriptor kept(OpenNull());
    const int replaced = kept.Get();
    const int number = [&kept] {
        Descriptor other(OpenNull());
        const int otherNumber = other.Get();
        kept = std::move(other);
        return otherNumber;
    }();
    EXPECT_EQ(kept.Get(), number);
    EXPECT_TRUE(IsOpen(number));
    EXPECT_FALSE(IsOpen(replaced));
}

} // namespace
