#include "Output/Text.h"

#include "Client/Exceptions.h"
#include "Support/Escape.h"
#include "Support/Utf8.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cwchar>

namespace Cli {

namespace {

constexpr std::string_view ellipsis = "...";

/// Returns as much of the ellipsis as fits.
std::string FitDots(std::size_t columns)
{
    return std::string(ellipsis.substr(0, columns));
}

/// Returns the columns that a character takes.
std::size_t GetColumns(std::string_view character)
{
    const auto decoded = Support::DecodeFirst(character);
    if (decoded.length == 0)
        return 1;
    const int columns = wcwidth(static_cast<wchar_t>(decoded.codePoint));
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

} // namespace

std::string EscapeName(std::string_view name)
{
    return Support::Escape(name, Support::EscapeForm::Named, "\\");
}

std::string EscapeText(std::string_view text)
{
    return Support::Escape(text, Support::EscapeForm::Named);
}

std::size_t CountColumns(std::string_view text)
{
    std::size_t columns = 0;
    while (!text.empty())
        columns += GetColumns(Support::TakeFirst(text));
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
        const auto character = Support::TakeFirst(text);
        const auto width = GetColumns(character);
        if (width > left)
            return fitting.append(ellipsis);
        left -= width;
        fitting += character;
    }
}

std::string FitColumnsFromEnd(std::string_view text, std::size_t columns)
{
    if (CountColumns(text) <= columns)
        return std::string(text);
    if (columns < ellipsis.size())
        return FitDots(columns);
    while (CountColumns(text) > columns - ellipsis.size())
        Support::TakeFirst(text);
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

std::uint64_t ParseRate(const std::string& text)
{
    constexpr double largest = 1e15;
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string_view unit(parsed.ptr, static_cast<std::size_t>(end - parsed.ptr));
    double factor = 1'024;
    if (unit == "M" || unit == "m")
        factor *= 1'024;
    else if (unit == "G" || unit == "g")
        factor *= 1'024 * 1'024;
    const bool isUnit =
        unit.size() <= 1 && std::string_view("KkMmGg").find(unit) != std::string_view::npos;
    const double bytes = number * factor;
    if (parsed.ec != std::errc() || !isUnit || !(bytes >= 0) || bytes > largest)
        throw Client::InvalidArgumentException(
            "'" + text + "' is not a rate: a number of KiB a second, or one with K, M or G");
    return static_cast<std::uint64_t>(std::ceil(bytes));
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
