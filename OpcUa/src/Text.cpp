#include "OpcUa/Text.h"

#include "Support/Utf8.h"

#include <cstddef>

namespace OpcUa {
namespace {

constexpr std::size_t escapeLength = 4;
constexpr char32_t firstEscape = 0x10F780;
constexpr char32_t lastEscape = 0x10F7FF;

bool IsEscape(const Support::Utf8Character& character)
{
    return character.codePoint >= firstEscape && character.codePoint <= lastEscape;
}

void AppendEscape(std::string& text, unsigned char byte)
{
    const char32_t codePoint = firstEscape + (byte - 0x80U);
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
        const auto character = Support::DecodeFirst(bytes);
        if (character.length == 0 || IsEscape(character)) {
            AppendEscape(text, static_cast<unsigned char>(bytes.front()));
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
        const auto character = Support::DecodeFirst(text);
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
