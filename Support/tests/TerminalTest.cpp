#include "Support/Terminal.h"

#include "Support/Descriptor.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <optional>
#include <pty.h>
#include <string>
#include <string_view>
#include <system_error>
#include <termios.h>
#include <tuple>
#include <unistd.h>

namespace {

using Support::Descriptor;
using Support::EchoOff;
using Support::StopKeys;

class ATerminal : public testing::Test
{
protected:
    ATerminal()
    {
        int ours = -1;
        int theirs = -1;
        if (openpty(&ours, &theirs, nullptr, nullptr, nullptr) != 0)
            throw std::system_error(errno, std::generic_category(), "openpty");
        screen = Descriptor(ours);
        terminal = Descriptor(theirs);
    }

    [[nodiscard]] termios GetSettings() const
    {
        termios settings = {};
        EXPECT_EQ(tcgetattr(terminal.Get(), &settings), 0);
        return settings;
    }
    [[nodiscard]] bool IsEchoing() const
    {
        return (GetSettings().c_lflag & static_cast<tcflag_t>(ECHO)) != 0;
    }

    Descriptor screen;
    Descriptor terminal;
};

TEST_F(ATerminal, DoesNotEchoUntilTheEndOfTheScope)
{
    EXPECT_TRUE(IsEchoing());
    {
        const EchoOff silence(terminal.Get(), StopKeys::Kept);
        EXPECT_FALSE(IsEchoing());
    }
    EXPECT_TRUE(IsEchoing());
}

TEST_F(ATerminal, KeepsItsStopKeysOnlyWhereThatIsAsked)
{
    const auto before = GetSettings();
    {
        const EchoOff silence(terminal.Get(), StopKeys::Kept);
        EXPECT_EQ(GetSettings().c_cc[VSUSP], before.c_cc[VSUSP]);
        EXPECT_EQ(GetSettings().c_cc[VQUIT], before.c_cc[VQUIT]);
    }
    {
        const EchoOff silence(terminal.Get(), StopKeys::Off);
        EXPECT_EQ(GetSettings().c_cc[VSUSP], _POSIX_VDISABLE);
        EXPECT_EQ(GetSettings().c_cc[VQUIT], _POSIX_VDISABLE);
    }
    EXPECT_EQ(GetSettings().c_cc[VSUSP], before.c_cc[VSUSP]);
    EXPECT_EQ(GetSettings().c_cc[VQUIT], before.c_cc[VQUIT]);
}

TEST(AnEchoOff, CannotBeHadWithoutATerminal)
{
    const Descriptor file(open("/dev/null", O_RDWR | O_CLOEXEC));
    EXPECT_THROW(EchoOff(file.Get(), StopKeys::Kept), std::system_error);
}

/// A pipe that holds a text, and ends after it.
class Input
{
public:
    explicit Input(std::string_view text)
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe2");
        readEnd = Descriptor(ends[0]);
        const Descriptor writeEnd(ends[1]);
        EXPECT_EQ(write(writeEnd.Get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    [[nodiscard]] std::optional<std::string> ReadLine(int most = 1'000) const
    {
        return Support::ReadLine(readEnd.Get(), [most]() mutable { return most-- > 0; });
    }

private:
    Descriptor readEnd;
};

TEST(ALine, IsReadWithoutItsEnd)
{
    const Input input("one two\nthree\n\n");
    EXPECT_EQ(input.ReadLine(), "one two");
    EXPECT_EQ(input.ReadLine(), "three");
    EXPECT_EQ(input.ReadLine(), "");
    EXPECT_EQ(input.ReadLine(), std::nullopt);
}

TEST(ALine, EndsWithTheInput)
{
    EXPECT_EQ(Input("cut").ReadLine(), "cut");
}

TEST(ALine, IsNotReadWhenTheWaitIsGivenUp)
{
    EXPECT_EQ(Input("one\n").ReadLine(2), std::nullopt);
}

TEST(ALine, CannotBeReadFromADescriptorThatIsNotOpen)
{
    EXPECT_THROW(std::ignore = Support::ReadLine(-1, [] { return true; }), std::system_error);
}

} // namespace
