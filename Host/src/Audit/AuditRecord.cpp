#include "Audit/AuditRecord.h"

#include "Support/Escape.h"

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <string_view>

namespace Host {
namespace {

constexpr std::size_t mostPaths = 100;
constexpr std::size_t mostBytesOfPaths = 16'384;

std::string_view NameOf(AuditResult result)
{
    constexpr std::array<std::string_view, 6> names{"begun",  "taken",   "done",
                                                    "failed", "refused", "ended"};
    return names.at(static_cast<std::size_t>(result));
}

std::string Quote(std::string_view text)
{
    return "'" + Support::Escape(text, Support::EscapeForm::Hexadecimal, "\\'") + "'";
}

std::string QuoteForJson(std::string_view text)
{
    std::string quoted = "\"";
    for (const char character : Support::Escape(text, Support::EscapeForm::Hexadecimal, "\\")) {
        if (character == '"' || character == '\\')
            quoted += '\\';
        quoted += character;
    }
    return quoted + '"';
}

} // namespace

void AuditRecord::AddPath(const std::string& path)
{
    std::size_t used = 0;
    for (const auto& each : paths)
        used += each.size();
    if (paths.size() >= mostPaths || used + path.size() > mostBytesOfPaths)
        ++morePaths;
    else
        paths.push_back(path);
}

std::size_t AuditRecord::GetSize() const noexcept
{
    std::size_t size =
        sizeof(*this) + caller.user.size() + caller.address.size() + method.size() + reason.size();
    for (const auto& path : paths)
        size += sizeof(path) + path.size();
    return size;
}

std::string FormatFields(const AuditRecord& record)
{
    const auto& caller = record.caller;
    auto line = fmt::format("user={} address={} session={} method={} result={}",
                            caller.user.empty() ? "-" : Quote(caller.user), caller.address,
                            caller.session, record.method, NameOf(record.result));
    const auto append = std::back_inserter(line);
    if (!record.reason.empty())
        fmt::format_to(append, " reason={}", Quote(record.reason));
    fmt::format_to(append, " calls={} bytes={}", record.calls, record.bytes);
    for (const auto& path : record.paths)
        fmt::format_to(append, " path={}", Quote(path));
    if (record.morePaths > 0)
        fmt::format_to(append, " more-paths={}", record.morePaths);
    return line;
}

std::string FormatJson(const AuditRecord& record)
{
    const auto& caller = record.caller;
    auto line = fmt::format(
        R"({{"time":"{}","user":{},"address":{},"session":{},"method":{},"result":"{}")",
        record.time.ToISO8601String(), caller.user.empty() ? "null" : QuoteForJson(caller.user),
        QuoteForJson(caller.address), caller.session, QuoteForJson(record.method),
        NameOf(record.result));
    const auto append = std::back_inserter(line);
    if (!record.reason.empty())
        fmt::format_to(append, R"(,"reason":{})", QuoteForJson(record.reason));
    fmt::format_to(append, R"(,"calls":{},"bytes":{},"paths":[)", record.calls, record.bytes);
    for (std::size_t i = 0; i < record.paths.size(); ++i)
        fmt::format_to(append, "{}{}", i == 0 ? "" : ",", QuoteForJson(record.paths[i]));
    line += ']';
    if (record.morePaths > 0)
        fmt::format_to(append, R"(,"morePaths":{})", record.morePaths);
    return line + '}';
}

} // namespace Host
