#include "Output/Times.h"

#include <fmt/format.h>

#include <charconv>
#include <ctime>
#include <optional>
#include <regex>

namespace Cli {

namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

[[noreturn]] void Refuse(const std::string& text)
{
    throw Client::InvalidArgumentException(
        "'" + text +
        "' is not a time: YYYY-MM-DD HH:MM:SS in local time, with Z or +HH:MM behind it in that "
        "zone, or @SECONDS since 1970");
}

Client::FileTime ParseSeconds(const std::string& text)
{
    long long number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + 1, end, number);
    if (error != std::errc{} || rest != end || text.size() == 1)
        Refuse(text);
    return Client::FileTime(seconds(number));
}

int ToNumber(const std::ssub_match& match)
{
    return match.matched ? std::stoi(match.str()) : 0;
}

std::chrono::year_month_day GetDate(const std::smatch& parts)
{
    return {std::chrono::year(ToNumber(parts[1])),
            std::chrono::month(static_cast<unsigned>(ToNumber(parts[2]))),
            std::chrono::day(static_cast<unsigned>(ToNumber(parts[3])))};
}

Client::FileTime FromLocalTime(const std::smatch& parts, const std::string& text)
{
    std::tm fields = {};
    fields.tm_year = ToNumber(parts[1]) - 1900;
    fields.tm_mon = ToNumber(parts[2]) - 1;
    fields.tm_mday = ToNumber(parts[3]);
    fields.tm_hour = ToNumber(parts[4]);
    fields.tm_min = ToNumber(parts[5]);
    fields.tm_sec = ToNumber(parts[6]);
    fields.tm_isdst = -1;
    const int wantedHour = fields.tm_hour;
    const auto time = std::mktime(&fields);
    if (fields.tm_hour != wantedHour) // there is no such time on the day that clocks go forward
        Refuse(text);
    return Client::FileTime(seconds(time));
}

/// Nothing for local time.
std::optional<seconds> GetOffset(const std::smatch& parts)
{
    const auto zone = parts[7].str();
    if (zone.empty())
        return std::nullopt;
    if (zone == "Z")
        return seconds(0);
    const seconds offset =
        hours(std::stoi(zone.substr(1, 2))) + minutes(std::stoi(zone.substr(zone.size() - 2)));
    return zone.front() == '-' ? -offset : offset;
}

std::string Format(const std::tm& fields, char between)
{
    return fmt::format("{:04}-{:02}-{:02}{}{:02}:{:02}:{:02}", fields.tm_year + 1900,
                       fields.tm_mon + 1, fields.tm_mday, between, fields.tm_hour, fields.tm_min,
                       fields.tm_sec);
}

} // namespace

Client::FileTime ParseTime(const std::string& text)
{
    if (text.starts_with('@'))
        return ParseSeconds(text);
    static const std::regex form(R"((\d{4})-(\d\d)-(\d\d)(?:[ T](\d\d):(\d\d)(?::(\d\d))?)?)"
                                 R"( ?(Z|[+-]\d\d:?\d\d)?)");
    std::smatch parts;
    if (!std::regex_match(text, parts, form))
        Refuse(text);
    const auto date = GetDate(parts);
    if (!date.ok() || ToNumber(parts[4]) > 23 || ToNumber(parts[5]) > 59 || ToNumber(parts[6]) > 59)
        Refuse(text);
    const auto offset = GetOffset(parts);
    if (!offset)
        return FromLocalTime(parts, text);
    return std::chrono::sys_days(date) + hours(ToNumber(parts[4])) + minutes(ToNumber(parts[5])) +
           seconds(ToNumber(parts[6])) - *offset;
}

std::string FormatLocalTime(Client::FileTime time)
{
    const auto number = static_cast<std::time_t>(time.time_since_epoch().count());
    std::tm fields = {};
    if (localtime_r(&number, &fields) == nullptr)
        return fmt::format("@{}", number);
    return Format(fields, ' ');
}

std::string FormatUtcTime(Client::FileTime time)
{
    const auto number = static_cast<std::time_t>(time.time_since_epoch().count());
    std::tm fields = {};
    if (gmtime_r(&number, &fields) == nullptr)
        return fmt::format("@{}", number);
    return Format(fields, 'T') + "Z";
}

} // namespace Cli
