#include "Support/Utf8.h"

#include <algorithm>
#include <array>

namespace Support {

namespace {

unsigned char ByteAt(std::string_view text, std::size_t position) noexcept
{
    return static_cast<unsigned char>(text[position]);
}

/// Returns the length that a first byte announces, and the bits of the code point that it carries.
Utf8Character ReadLead(unsigned char lead) noexcept
{
    if (lead < 0x80)
        return {lead, 1};
    if (lead >= 0xC2 && lead <= 0xDF)
        return {lead & 0x1FU, 2};
    if (lead >= 0xE0 && lead <= 0xEF)
        return {lead & 0x0FU, 3};
    if (lead >= 0xF0 && lead <= 0xF4)
        return {lead & 0x07U, 4};
    return {};
}

bool IsWellFormed(const Utf8Character& character) noexcept
{
    constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    const bool isOverlong = character.codePoint < smallest.at(character.length);
    const bool isSurrogate = character.codePoint >= 0xD800 && character.codePoint <= 0xDFFF;
    return !isOverlong && !isSurrogate && character.codePoint <= 0x10FFFF;
}

} // namespace

Utf8Character DecodeFirst(std::string_view text) noexcept
{
    if (text.empty())
        return {};
    auto character = ReadLead(ByteAt(text, 0));
    if (character.length > text.size())
        return {};
    for (std::size_t i = 1; i < character.length; ++i) {
        const auto next = ByteAt(text, i);
        if ((next & 0xC0U) != 0x80U)
            return {};
        character.codePoint = (character.codePoint << 6U) | (next & 0x3FU);
    }
    return IsWellFormed(character) ? character : Utf8Character{};
}

std::string_view TakeFirst(std::string_view& text) noexcept
{
    const auto length = std::max<std::size_t>(DecodeFirst(text).length, 1);
    const auto first = text.substr(0, length);
    text.remove_prefix(first.size());
    return first;
}

bool IsUtf8(std::string_view text) noexcept
{
    while (!text.empty()) {
        const auto length = DecodeFirst(text).length;
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

} // namespace Support
