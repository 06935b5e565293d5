#include "Support/Escape.h"

#include <gtest/gtest.h>

namespace {

using Support::Escape;
using Support::EscapeForm;

TEST(AnEscapedText, IsTheSameWhenNothingInItIsUnsafe)
{
    EXPECT_EQ(Escape("a b-\xC3\xA4\\\".txt", EscapeForm::Hexadecimal), "a b-\xC3\xA4\\\".txt");
    EXPECT_EQ(Escape("a b-\xC3\xA4\\\".txt", EscapeForm::Named), "a b-\xC3\xA4\\\".txt");
}

TEST(AnEscapedText, HasEachUnsafeByteInHexadecimalDigits)
{
    EXPECT_EQ(Escape("a\n\x1b[\x7f", EscapeForm::Hexadecimal), "a\\x0a\\x1b[\\x7f");
    EXPECT_EQ(Escape("\xE2\x80\xAE", EscapeForm::Hexadecimal), "\\xe2\\x80\\xae");
}

TEST(AnEscapedText, NamesLineEndsTabsAndBackslashes)
{
    EXPECT_EQ(Escape("a\nb\tc\x1b\\", EscapeForm::Named, "\\"), "a\\nb\\tc\\x1B\\\\");
}

TEST(AnEscapedText, HasTheGivenCharactersEscapedToo)
{
    EXPECT_EQ(Escape("a \"b\"\\", EscapeForm::Hexadecimal, "\\\" "), "a\\x20\\x22b\\x22\\x5c");
}

TEST(AnEscapedText, HasEachByteEscapedThatIsNotUtf8)
{
    EXPECT_EQ(Escape("\xFFz\xC3", EscapeForm::Named), "\\xFFz\\xC3");
    EXPECT_EQ(Escape("\xED\xA0\x80", EscapeForm::Named), "\\xED\\xA0\\x80");
}

TEST(ACharacter, IsUnsafeFromTheFirstToTheLastOfEachRange)
{
    for (const auto& range : Support::unsafeCharacters) {
        EXPECT_TRUE(Support::IsUnsafe(range.first));
        EXPECT_TRUE(Support::IsUnsafe(range.last));
    }
    for (const char32_t safe :
         {U' ', U'~', U'\u00A0', U'\u061B', U'\u200D', U'\u2027', U'\u202F', U'\u2065', U'\u206A'})
        EXPECT_FALSE(Support::IsUnsafe(safe)) << static_cast<unsigned>(safe);
}

} // namespace
