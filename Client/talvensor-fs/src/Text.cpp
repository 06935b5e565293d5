#include "Text.h"

#include "Support/UnsafeCharacters.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cwchar>

namespace Cli {

namespace {

enum class Backslash
{
    Kept,
    Doubled,
};

constexpr std::string_view ellipsis = "...";

/// What fits of the ellipsis.
std::string FitDots(std::size_t columns)
{
    return std::string(ellipsis.substr(0, columns));
}

/// REQUIRES: `text` starts with a UTF-8 character of this length.
char32_t Decode(std::string_view text, std::size_t length)
{
    constexpr std::array<unsigned, 5> masks = {0, 0x7F, 0x1F, 0x0F, 0x07};
    auto code = static_cast<char32_t>(static_cast<unsigned char>(text.front()) & masks.at(length));
    for (const char more : text.substr(1, length - 1))
        code = (code << 6U) | (static_cast<unsigned char>(more) & 0x3FU);
    return code;
}

std::string EscapeBytes(std::string_view bytes)
{
    if (bytes == "\n")
        return "\\n";
    if (bytes == "\t")
        return "\\t";
    std::string escaped;
    for (const char byte : bytes)
        escaped += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
    return escaped;
}

std::string Escape(std::string_view text, Backslash backslash)
{
    std::string escaped;
    while (!text.empty()) {
        const auto length = GetCharacterLength(text);
        const auto character = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0 || ::Support::IsUnsafe(Decode(text, length)))
            escaped += EscapeBytes(character);
        else if (character == "\\" && backslash == Backslash::Doubled)
            escaped += "\\\\";
        else
            escaped += character;
        text.remove_prefix(character.size());
    }
    return escaped;
}

/// Of the character that the text starts with.
std::size_t GetColumns(std::string_view text, std::size_t length)
{
    if (length == 0)
        return 1;
    const int columns = wcwidth(static_cast<wchar_t>(Decode(text, length)));
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

} // namespace

std::size_t GetCharacterLength(std::string_view text) noexcept
{
    if (text.empty())
        return 0;
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80)
        return 1;
    std::size_t length = 0;
    if (first >= 0xC2 && first <= 0xDF)
        length = 2;
    else if (first >= 0xE0 && first <= 0xEF)
        length = 3;
    else if (first >= 0xF0 && first <= 0xF4)
        length = 4;
    if (length == 0 || text.size() < length)
        return 0;
    const auto isContinued = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
    };
    const auto rest = text.substr(1, length - 1);
    if (!std::all_of(rest.begin(), rest.end(), isContinued))
        return 0;
    const auto code = Decode(text, length);
    const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return isOverlong || isSurrogate || code > 0x10FFFF ? 0 : length;
}

bool IsUtf8(std::string_view text) noexcept
{
    while (!text.empty()) {
        const auto length = GetCharacterLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string EscapeName(std::string_view name)
{
    return Escape(name, Backslash::Doubled);
}

std::string EscapeText(std::string_view text)
{
    return Escape(text, Backslash::Kept);
}

std::size_t CountColumns(std::string_view text)
{
    std::size_t columns = 0;
    while (!text.empty()) {
        const auto length = GetCharacterLength(text);
        columns += GetColumns(text, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return columns;
}

std::string FitColumns(std::string_view text, std::size_t columns)
{
    if (CountColumns(text) <= columns)
        return std::string(text);
    if (columns < ellipsis.size())
        return FitDots(columns);
    std::size_t left = columns - ellipsis.size();
    std::string fitting;
    for (;;) {
        const auto length = std::max<std::size_t>(GetCharacterLength(text), 1);
        const auto width = GetColumns(text, GetCharacterLength(text));
        if (width > left)
            return fitting.append(ellipsis);
        left -= width;
        fitting += text.substr(0, length);
        text.remove_prefix(length);
    }
}

std::string FitColumnsFromEnd(std::string_view text, std::size_t columns)
{
    if (CountColumns(text) <= columns)
        return std::string(text);
    if (columns < ellipsis.size())
        return FitDots(columns);
    while (CountColumns(text) > columns - ellipsis.size())
        text.remove_prefix(std::max<std::size_t>(GetCharacterLength(text), 1));
    return std::string(ellipsis) + std::string(text);
}

std::string FormatBytes(std::uint64_t bytes)
{
    constexpr std::array units = {"kB", "MB", "GB", "TB", "PB", "EB"};
    if (bytes < 1'000)
        return fmt::format("{} B", bytes);
    auto number = static_cast<double>(bytes) / 1'000;
    std::size_t unit = 0;
    while (number >= 999.95 && unit + 1 < units.size()) {
        number /= 1'000;
        ++unit;
    }
    return fmt::format("{:.1f} {}", number, units.at(unit));
}

std::string FormatClock(std::chrono::seconds duration)
{
    const auto seconds = duration.count();
    const auto hours = seconds / 3'600;
    const auto minutes = seconds / 60 % 60;
    if (hours > 0)
        return fmt::format("{}:{:02}:{:02}", hours, minutes, seconds % 60);
    return fmt::format("{}:{:02}", minutes, seconds % 60);
}

std::string Count(std::uint64_t number, std::string_view one, std::string_view many)
{
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

} // namespace Cli
