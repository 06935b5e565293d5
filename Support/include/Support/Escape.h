#pragma once

#include <array>
#include <string>
#include <string_view>

namespace Support {

/// A range of code points, both ends included.
struct CharacterRange
{
    char32_t first;
    char32_t last;
};

/// The characters that a terminal acts on instead of showing them, that break a line, or that turn
/// the direction of writing, so that a name looks like another one. Everything that prints names
/// or log entries escapes them.
inline constexpr std::array unsafeCharacters{
    CharacterRange{0x00, 0x1F},     CharacterRange{0x7F, 0x9F},     // control characters
    CharacterRange{0x061C, 0x061C}, CharacterRange{0x200E, 0x200F}, // marks of direction
    CharacterRange{0x2028, 0x2029},                                 // separators of lines
    CharacterRange{0x202A, 0x202E}, CharacterRange{0x2066, 0x2069}, // embeddings, isolates
};

[[nodiscard]] bool IsUnsafe(char32_t character) noexcept;

enum class EscapeForm
{
    Hexadecimal, ///< each byte as \xnn, with lower-case digits
    Named,       ///< \n, \t and \\; each other byte as \xNN, with upper-case digits
};

/// Returns a text that is safe to show: unsafe characters, bytes that are not valid UTF-8 and the
/// ASCII characters in `alsoEscaped` are escaped. To make the result unambiguous, put a backslash
/// into `alsoEscaped`.
[[nodiscard]] std::string Escape(std::string_view text, EscapeForm form,
                                 std::string_view alsoEscaped = {});

} // namespace Support
