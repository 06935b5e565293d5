#pragma once

#include <algorithm>
#include <array>

namespace Support {

/// The first and the last of some code points that follow each other.
struct CharacterRange
{
    char32_t first;
    char32_t last;
};

/// The characters that a terminal acts on instead of showing them, that break a line, or that turn
/// the direction of writing, so that a name looks like another one. Everything that prints names
/// or log entries escapes them.
constexpr std::array unsafeCharacters{
    CharacterRange{0x00, 0x1F},     CharacterRange{0x7F, 0x9F},     // control characters
    CharacterRange{0x061C, 0x061C}, CharacterRange{0x200E, 0x200F}, // marks of direction
    CharacterRange{0x2028, 0x2029},                                 // separators of lines
    CharacterRange{0x202A, 0x202E}, CharacterRange{0x2066, 0x2069}, // embeddings, isolates
};

constexpr bool IsUnsafe(char32_t character) noexcept
{
    return std::any_of(unsafeCharacters.begin(), unsafeCharacters.end(),
                       [character](const CharacterRange& range) {
                           return character >= range.first && character <= range.last;
                       });
}

} // namespace Support
