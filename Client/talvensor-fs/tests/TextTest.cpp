#include "Output/Text.h"
#include "Output/Times.h"

#include "Client/Exceptions.h"

#include "Support/Escape.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

namespace Cli {
namespace {

TEST(AName, IsShownAsItIsWhenNothingInItCanActOnATerminal)
{
    EXPECT_EQ(EscapeName("a b-\xC3\xA4.txt"), "a b-\xC3\xA4.txt");
}

TEST(AName, IsShownWithItsControlCharactersWritten)
{
    EXPECT_EQ(EscapeName("a\nb\tc\x1b[2Jd\x7f"), "a\\nb\\tc\\x1B[2Jd\\x7F");
    EXPECT_EQ(EscapeName("\xC2\x9B"), "\\xC2\\x9B") << "a control character of 8 bits";
    EXPECT_EQ(EscapeName("\xE2\x80\xAEtxt"), "\\xE2\\x80\\xAEtxt") << "turns the direction";
}

/// REQUIRES: it takes two or three bytes.
std::string Encode(char32_t character)
{
    const auto tail = [](char32_t bits) {
        return static_cast<char>(0x80U | (bits & 0x3FU));
    };
    if (character < 0x800)
        return {static_cast<char>(0xC0U | character >> 6U), tail(character)};
    return {static_cast<char>(0xE0U | character >> 12U), tail(character >> 6U), tail(character)};
}

TEST(AName, IsShownWithEveryUnsafeCharacterWritten)
{
    EXPECT_EQ(EscapeName("\xD8\x9Ctxt"), "\\xD8\\x9Ctxt") << "U+061C turns the direction";
    for (const auto& range : Support::unsafeCharacters)
        for (auto character = std::max(range.first, U'\x80'); character <= range.last; ++character)
            EXPECT_EQ(EscapeName(Encode(character)).front(), '\\')
                << std::hex << static_cast<unsigned>(character);
}

TEST(AName, ThatIsNotUtf8IsShownByteByByte)
{
    EXPECT_EQ(EscapeName("\xFFz\xC3"), "\\xFFz\\xC3");
    EXPECT_EQ(EscapeName("\xC0\x80"), "\\xC0\\x80") << "an overlong form";
    EXPECT_EQ(EscapeName("\xED\xA0\x80"), "\\xED\\xA0\\x80") << "half of a pair";
}

TEST(AName, HasAFormOfItsOwn)
{
    EXPECT_NE(EscapeName("\n"), EscapeName("\\n"));
    EXPECT_EQ(EscapeText("\\n"), "\\n") << "texts keep their backslashes";
}

TEST(AText, IsFittedIntoColumns)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_EQ(CountColumns("\xE4\xB8\xAD"), 2U);
    EXPECT_EQ(FitColumns("abcdef", 6), "abcdef");
    EXPECT_EQ(FitColumns("abcdefg", 6), "abc...");
    EXPECT_EQ(FitColumnsFromEnd("abcdefg", 6), "...efg");
    EXPECT_EQ(FitColumns("\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xAD", 5), "\xE4\xB8\xAD...");
    EXPECT_EQ(FitColumns("abc", 2), "..");
}

TEST(BytesAreFormatted, WithUnitsOf1000)
{
    EXPECT_EQ(FormatBytes(0), "0 B");
    EXPECT_EQ(FormatBytes(999), "999 B");
    EXPECT_EQ(FormatBytes(1'000), "1.0 kB");
    EXPECT_EQ(FormatBytes(999'999), "1.0 MB");
    EXPECT_EQ(FormatBytes(4'294'967'296), "4.3 GB");
}

TEST(ClocksAreFormatted, WithHoursWhereThereAreSome)
{
    EXPECT_EQ(FormatClock(std::chrono::seconds(65)), "1:05");
    EXPECT_EQ(FormatClock(std::chrono::seconds(3'725)), "1:02:05");
}

class ATime : public testing::Test
{
protected:
    ATime()
    {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
};

TEST_F(ATime, IsReadInLocalTime)
{
    EXPECT_EQ(FormatUtcTime(ParseTime("2026-01-02 03:04:05")), "2026-01-02T02:04:05Z");
    EXPECT_EQ(FormatUtcTime(ParseTime("2026-07-02 03:04")), "2026-07-02T01:04:00Z");
    EXPECT_EQ(FormatLocalTime(ParseTime("2026-07-02")), "2026-07-02 00:00:00");
}

TEST_F(ATime, IsReadInTheZoneThatItNames)
{
    EXPECT_EQ(FormatUtcTime(ParseTime("2026-07-02T03:04:05Z")), "2026-07-02T03:04:05Z");
    EXPECT_EQ(FormatUtcTime(ParseTime("2026-07-02 03:04:05 -02:30")), "2026-07-02T05:34:05Z");
    EXPECT_EQ(ParseTime("@86400").time_since_epoch().count(), 86'400);
}

TEST_F(ATime, IsRefusedWhenThereIsNoSuchTime)
{
    for (const auto* const text : {"", "@", "@1x", "tomorrow", "2026-02-30", "2026-01-01 24:00",
                                   "2026-01-01 12:60", "2026-03-29 02:30:00", "26-1-1"})
        EXPECT_THROW(std::ignore = ParseTime(text), Client::InvalidArgumentException) << text;
}

TEST(ARate, IsReadAsRsyncReadsIt)
{
    EXPECT_EQ(ParseRate("100"), 102'400U);
    EXPECT_EQ(ParseRate("1k"), 1'024U);
    EXPECT_EQ(ParseRate("1.5M"), 1'572'864U);
    EXPECT_EQ(ParseRate("2G"), 2'147'483'648U);
    EXPECT_EQ(ParseRate("0"), 0U);
    for (const std::string wrong : {"", "M", "-1", "1T", "1KB", "1 M", "inf", "nan", "1e30"})
        EXPECT_THROW((void)ParseRate(wrong), Client::InvalidArgumentException) << wrong;
}

} // namespace
} // namespace Cli
