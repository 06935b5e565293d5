#pragma once

#include <cstddef>
#include <string_view>

namespace Support {

/// A character of a UTF-8 text (RFC 3629).
struct Utf8Character
{
    char32_t codePoint = 0;
    std::size_t length = 0; ///< in bytes, 1 to 4; 0 if there is no valid character
};

/// Returns the character that a text begins with. Its length is 0 if the text is empty or does not
/// begin with valid UTF-8: overlong forms, surrogates and cut sequences are not valid.
[[nodiscard]] Utf8Character DecodeFirst(std::string_view text) noexcept;

/// Removes the first character of a text, which must not be empty, and returns its bytes. A byte
/// that is not valid UTF-8 counts as a character of its own.
std::string_view TakeFirst(std::string_view& text) noexcept;

/// Returns true if all of a text is valid UTF-8.
[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;

} // namespace Support
