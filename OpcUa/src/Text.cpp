#include "OpcUa/Text.h"

#include <cstddef>
#include <cstdint>

namespace OpcUa {
namespace {

constexpr std::size_t escapeLength = 4;
constexpr std::uint32_t firstEscape = 0x10F780;
constexpr std::uint32_t lastEscape = 0x10F7FF;

unsigned char ByteAt(std::string_view text, std::size_t position)
{
    return static_cast<unsigned char>(text[position]);
}

/// A character at the start of a text; length 0 where there is no valid one (RFC 3629).
struct Character
{
    std::size_t length = 0;
    std::uint32_t codePoint = 0;
};

/// What the first byte of a sequence says: its length and the bits it carries.
Character ReadLead(unsigned char lead)
{
    if (lead < 0x80)
        return {1, lead};
    if (lead >= 0xC2 && lead <= 0xDF)
        return {2, lead & 0x1FU};
    if (lead >= 0xE0 && lead <= 0xEF)
        return {3, lead & 0x0FU};
    if (lead >= 0xF0 && lead <= 0xF4)
        return {4, lead & 0x07U};
    return {};
}

bool IsAllowed(const Character& character)
{
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = character.codePoint >= 0xD800 && character.codePoint <= 0xDFFF;
    return character.codePoint >= smallest[character.length] && character.codePoint <= 0x10FFFF &&
           !isSurrogate;
}

Character ReadCharacter(std::string_view text)
{
    Character character = ReadLead(ByteAt(text, 0));
    if (character.length == 0 || character.length > text.size())
        return {};
    for (std::size_t i = 1; i < character.length; ++i) {
        const unsigned char next = ByteAt(text, i);
        if ((next & 0xC0U) != 0x80U)
            return {};
        character.codePoint = (character.codePoint << 6U) | (next & 0x3FU);
    }
    return IsAllowed(character) ? character : Character{};
}

bool IsEscape(const Character& character)
{
    return character.codePoint >= firstEscape && character.codePoint <= lastEscape;
}

void AppendEscape(std::string& text, unsigned char byte)
{
    const std::uint32_t codePoint = firstEscape + (byte - 0x80U);
    text += static_cast<char>(0xF0U | (codePoint >> 18U));
    text += static_cast<char>(0x80U | ((codePoint >> 12U) & 0x3FU));
    text += static_cast<char>(0x80U | ((codePoint >> 6U) & 0x3FU));
    text += static_cast<char>(0x80U | (codePoint & 0x3FU));
}

} // namespace

std::string EscapeToUtf8(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Character character = ReadCharacter(bytes);
        if (character.length == 0 || IsEscape(character)) {
            AppendEscape(text, ByteAt(bytes, 0));
            bytes.remove_prefix(1);
        } else {
            text.append(bytes.substr(0, character.length));
            bytes.remove_prefix(character.length);
        }
    }
    return text;
}

std::string UnescapeFromUtf8(std::string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    while (!text.empty()) {
        const Character character = ReadCharacter(text);
        if (IsEscape(character)) {
            bytes += static_cast<char>(0x80U + (character.codePoint - firstEscape));
            text.remove_prefix(escapeLength);
        } else {
            const std::size_t length = character.length == 0 ? 1 : character.length;
            bytes.append(text.substr(0, length));
            text.remove_prefix(length);
        }
    }
    return bytes;
}

} // namespace OpcUa
