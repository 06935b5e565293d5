#include "Support/Escape.h"

#include "Support/Utf8.h"

#include <algorithm>

namespace Support {

namespace {

constexpr std::string_view lowerDigits = "0123456789abcdef";
constexpr std::string_view upperDigits = "0123456789ABCDEF";

/// Returns an empty text for a character without a name.
std::string_view FindName(std::string_view character) noexcept
{
    if (character == "\n")
        return "\\n";
    if (character == "\t")
        return "\\t";
    return character == "\\" ? "\\\\" : "";
}

void AppendEscaped(std::string& target, std::string_view character, EscapeForm form)
{
    const auto name = form == EscapeForm::Named ? FindName(character) : std::string_view();
    target += name;
    if (!name.empty())
        return;
    const auto digits = form == EscapeForm::Named ? upperDigits : lowerDigits;
    for (const char byte : character) {
        const auto value = static_cast<unsigned char>(byte);
        target += "\\x";
        target += digits[value / 16U];
        target += digits[value % 16U];
    }
}

} // namespace

bool IsUnsafe(char32_t character) noexcept
{
    return std::any_of(unsafeCharacters.begin(), unsafeCharacters.end(),
                       [character](const CharacterRange& range) {
                           return character >= range.first && character <= range.last;
                       });
}

std::string Escape(std::string_view text, EscapeForm form, std::string_view alsoEscaped)
{
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        const auto decoded = DecodeFirst(text);
        const auto character = TakeFirst(text);
        if (decoded.length == 0 || IsUnsafe(decoded.codePoint) ||
            alsoEscaped.find(character) != std::string_view::npos)
            AppendEscaped(escaped, character, form);
        else
            escaped += character;
    }
    return escaped;
}

} // namespace Support
