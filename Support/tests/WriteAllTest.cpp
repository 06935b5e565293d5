#include "Support/WriteAll.h"

#include "Support/Descriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace Support {
namespace {

TEST(WritingAll, WritesTheWholeText)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const Descriptor reader(ends[0]);
    const Descriptor writer(ends[1]);
    EXPECT_EQ(WriteAll(writer.Get(), "text"), 4U);
    std::array<char, 8> read{};
    ASSERT_EQ(::read(reader.Get(), read.data(), read.size()), 4);
    EXPECT_EQ(std::string(read.data()), "text");
}

TEST(WritingAll, TellsHowMuchThereWasRoomFor)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const Descriptor reader(ends[0]);
    const Descriptor writer(ends[1]);
    const std::string large(1U << 22U, 'x'); // more than a pipe holds
    const auto written = WriteAll(writer.Get(), large);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(written, 0U);
    EXPECT_LT(written, large.size());
}

} // namespace
} // namespace Support
