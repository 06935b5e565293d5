#include "OpcUa/Text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using OpcUa::EscapeToUtf8;
using OpcUa::UnescapeFromUtf8;

TEST(Text, LeavesValidUtf8AsItIs)
{
    for (const std::string text : {"", "plain", "gr\xC3\xBC\xC3\x9F", "\xE6\x97\xA5\xE6\x9C\xAC",
                                   "\xF0\x9F\x98\x80", "a\nb\x01", "\xEF\xBF\xBD"})
        EXPECT_EQ(EscapeToUtf8(text), text);
}

TEST(Text, EscapesEachByteThatIsNoUtf8)
{
    EXPECT_EQ(EscapeToUtf8("a\xFF"
                           "b"),
              "a\xF4\x8F\x9F\xBF"
              "b");
    EXPECT_EQ(EscapeToUtf8("\x80"), "\xF4\x8F\x9E\x80");
    // Overlong, a surrogate, beyond the last code point, cut off: every byte by itself.
    EXPECT_EQ(EscapeToUtf8("\xC0\xAF").size(), 8U);
    EXPECT_EQ(EscapeToUtf8("\xED\xA0\x80").size(), 12U);
    EXPECT_EQ(EscapeToUtf8("\xF4\x90\x80\x80").size(), 16U);
    EXPECT_EQ(EscapeToUtf8("\xE6\x97").size(), 8U);
}

TEST(Text, EscapesTheEscapeItself)
{
    const std::string escape = "\xF4\x8F\x9F\xBF";
    EXPECT_EQ(EscapeToUtf8(escape).size(), 16U);
    EXPECT_EQ(UnescapeFromUtf8(EscapeToUtf8(escape)), escape);
    EXPECT_EQ(UnescapeFromUtf8(escape), "\xFF");
}

TEST(Text, CarriesAnyBytesThereAndBack)
{
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<std::size_t> length(0, 40);
    for (int round = 0; round < 20'000; ++round) {
        std::string bytes(length(random), '\0');
        for (char& each : bytes)
            each = static_cast<char>(byte(random));
        const std::string text = EscapeToUtf8(bytes);
        ASSERT_EQ(UnescapeFromUtf8(text), bytes);
        ASSERT_EQ(EscapeToUtf8(text).size() == text.size(), text == bytes);
    }
}

} // namespace
