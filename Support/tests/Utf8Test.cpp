#include "Support/Utf8.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Support::DecodeFirst;
using Support::IsUtf8;
using Support::TakeFirst;

TEST(ACharacter, IsDecodedWithItsLength)
{
    const auto expect = [](std::string_view text, char32_t codePoint, std::size_t length) {
        EXPECT_EQ(DecodeFirst(text).codePoint, codePoint) << text;
        EXPECT_EQ(DecodeFirst(text).length, length) << text;
    };
    expect("ab", U'a', 1);
    expect(std::string_view("\0", 1), 0, 1);
    expect("\x7F", 0x7F, 1);
    expect("\xC2\x80", 0x80, 2);
    expect("\xDF\xBF", 0x7FF, 2);
    expect("\xE0\xA0\x80", 0x800, 3);
    expect("\xE2\x82\xAC rest", 0x20AC, 3);
    expect("\xEF\xBF\xBF", 0xFFFF, 3);
    expect("\xF0\x90\x80\x80", 0x10000, 4);
    expect("\xF4\x8F\xBF\xBF", 0x10FFFF, 4);
}

TEST(ACharacter, HasNoLengthWhereThereIsNoValidOne)
{
    for (const std::string_view text :
         {"", "\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
          "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3",
          "\xC3z", "\xE6\x97", "\xE6\x97z", "\xF0\x9F\x98", "\xF0\x9F\x98z"})
        EXPECT_EQ(DecodeFirst(text).length, 0U) << testing::PrintToString(text);
}

TEST(ACharacter, IsTakenFromATextByteByByteWhereItIsNotValid)
{
    std::string_view text = "a\xE2\x82\xAC\xE6\x97";
    std::vector<std::string_view> taken;
    while (!text.empty())
        taken.push_back(TakeFirst(text));
    EXPECT_EQ(taken, (std::vector<std::string_view>{"a", "\xE2\x82\xAC", "\xE6", "\x97"}));
}

/// Every code point that UTF-8 can carry, encoded by the rules of RFC 3629.
std::string Encode(char32_t codePoint)
{
    const auto tail = [codePoint](unsigned shift) {
        return static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU));
    };
    if (codePoint < 0x80)
        return {static_cast<char>(codePoint)};
    if (codePoint < 0x800)
        return {static_cast<char>(0xC0U | codePoint >> 6U), tail(0)};
    if (codePoint < 0x10000)
        return {static_cast<char>(0xE0U | codePoint >> 12U), tail(6), tail(0)};
    return {static_cast<char>(0xF0U | codePoint >> 18U), tail(12), tail(6), tail(0)};
}

TEST(ACharacter, IsDecodedWhateverItsCodePoint)
{
    for (char32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
        if (codePoint >= 0xD800 && codePoint <= 0xDFFF)
            continue;
        const auto text = Encode(codePoint);
        ASSERT_EQ(DecodeFirst(text).codePoint, codePoint);
        ASSERT_EQ(DecodeFirst(text).length, text.size());
    }
}

TEST(AText, IsUtf8WhenAllOfItsCharactersAre)
{
    EXPECT_TRUE(IsUtf8(""));
    EXPECT_TRUE(IsUtf8("a\xE2\x82\xAC"));
    EXPECT_FALSE(IsUtf8("a\xFF"));
    EXPECT_FALSE(IsUtf8("\xE2\x82\xAC\xE2\x82"));
}

TEST(AText, IsTakenApartWithoutLossWhateverItsBytes)
{
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 2'000; ++round) {
        std::string bytes(40, '\0');
        for (char& each : bytes)
            each = static_cast<char>(byte(random));
        std::string joined;
        for (std::string_view rest = bytes; !rest.empty();)
            joined += TakeFirst(rest);
        ASSERT_EQ(joined, bytes);
    }
}

} // namespace
