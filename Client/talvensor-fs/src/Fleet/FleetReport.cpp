#include "Fleet/FleetReport.h"

#include "Output/Json.h"
#include "Output/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <string_view>
#include <utility>

namespace Cli {

namespace {

constexpr std::size_t columnCount = 6;
using Row = std::array<std::string, columnCount>;

/// Returns one word or two, as the table and JSON have them.
const char* GetStatusName(const HostResult& result)
{
    if (!result.isBegun)
        return "not begun";
    if (result.ending.isInterrupted)
        return "interrupted";
    switch (result.ending.status) {
    case ExitStatus::Done:
        return "done";
    case ExitStatus::Usage:
        return "wrong settings";
    case ExitStatus::NoConnection:
        return "no connection";
    case ExitStatus::Refused:
        return "refused";
    case ExitStatus::Failed:
    case ExitStatus::BrokenPipe:
        break;
    }
    return "failed";
}

std::string FormatSeconds(const HostResult& result)
{
    return fmt::format("{:.1f} s", result.time.count());
}

std::string DescribeEnd(const HostResult& result)
{
    auto text = result.name + ": " + GetStatusName(result);
    if (result.totals.files > 0)
        text += ", " + Count(result.totals.files, "file", "files") + ", " +
                FormatBytes(result.totals.bytes);
    text += " in " + FormatSeconds(result);
    // A reason that is a message was printed as one.
    return result.ending.reason.empty() || result.ending.isInterrupted
               ? text
               : text + ": " + result.ending.reason;
}

Row MakeRow(const HostResult& result)
{
    if (!result.isBegun)
        return {result.name, GetStatusName(result), "-", "-", "-", ""};
    return {result.name,
            GetStatusName(result),
            std::to_string(result.totals.files),
            FormatBytes(result.totals.bytes),
            FormatSeconds(result),
            result.reason};
}

/// Numbers stand at the right end of their column.
std::string RenderRow(const Row& row, const std::array<std::size_t, columnCount>& widths)
{
    constexpr std::size_t firstNumber = 2;
    constexpr std::size_t last = columnCount - 1;
    std::string line;
    for (std::size_t column = 0; column < last; ++column) {
        const auto& cell = row.at(column);
        const std::string space(widths.at(column) - CountColumns(cell), ' ');
        line += (column < firstNumber ? cell + space : space + cell) + "  ";
    }
    line += row.at(last);
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

/// The last column stays free: a terminal would begin a new line there.
std::size_t GetWidth()
{
    return std::max<std::size_t>(Console::GetColumns(), 2) - 1;
}

std::string JoinNames(const std::vector<HostResult>& results, bool (*isWanted)(const HostResult&))
{
    std::string names;
    for (const auto& result : results)
        if (isWanted(result))
            names += (names.empty() ? "" : ", ") + result.name;
    return names;
}

} // namespace

std::vector<std::string> RenderTable(const std::vector<HostResult>& results)
{
    std::vector<Row> rows{{"HOST", "STATUS", "FILES", "BYTES", "TIME", "REASON"}};
    rows.reserve(results.size() + 1);
    for (const auto& result : results)
        rows.push_back(MakeRow(result));
    std::array<std::size_t, columnCount> widths{};
    for (auto& row : rows)
        for (std::size_t column = 0; column < columnCount; ++column) {
            row.at(column) = EscapeText(row.at(column));
            widths.at(column) = std::max(widths.at(column), CountColumns(row.at(column)));
        }
    std::vector<std::string> lines;
    lines.reserve(rows.size());
    for (const auto& row : rows)
        lines.push_back(RenderRow(row, widths));
    return lines;
}

std::string CountEnds(const std::vector<HostResult>& results)
{
    std::map<std::string, std::size_t> counts;
    for (const auto& result : results)
        ++counts[GetStatusName(result)];
    auto text = Count(results.size(), "host", "hosts") + ": " +
                std::to_string(std::exchange(counts["done"], 0)) + " done";
    for (const auto& [status, count] : counts)
        if (count > 0)
            text += fmt::format(", {} {}", count, status);
    return text;
}

FleetReport::FleetReport(OutputChoice choice, Console& console)
    : choice(choice)
    , console(console)
    , output(none, nullptr)
{}

void FleetReport::ShowUnderWay(std::size_t ended, std::size_t all,
                               const std::vector<std::string>& names)
{
    if (choice.isQuiet || !console.CanDraw())
        return;
    auto line = fmt::format("{} of {} ended; under way:", ended, Count(all, "host", "hosts"));
    for (const auto& name : names)
        line += " " + EscapeName(name);
    console.Draw({FitColumns(line, GetWidth())});
}

void FleetReport::Add(const HostResult& result)
{
    if (!result.isBegun && !choice.isJson)
        return; // the table has it
    if (console.CanDraw())
        console.Draw({}); // standard output may be the same terminal
    for (const auto& message : result.messages)
        console.Say(result.name + ": " + message);
    WriteOutput(result);
    if (!IsBrief() || !result.IsGood())
        console.Say(DescribeEnd(result));
}

void FleetReport::WriteOutput(const HostResult& result)
{
    if (choice.isJson)
        WriteJson(result);
    else
        WriteText(result);
    output.Flush();
}

void FleetReport::WriteText(const HostResult& result)
{
    const auto name = output.IsTerminal() ? EscapeName(result.name) : result.name;
    std::string_view rest = result.output;
    while (!rest.empty()) {
        const auto end = std::min(rest.find('\n'), rest.size() - 1);
        output.Write(name + ": ");
        output.Write(rest.substr(0, end + 1));
        if (rest[end] != '\n')
            output.Write("\n");
        rest.remove_prefix(end + 1);
    }
}

void FleetReport::WriteJson(const HostResult& result)
{
    const auto reader = output.IsTerminal() ? JsonReader::Terminal : JsonReader::Program;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);)
        output.Write(AddHost(line, result.name, reader) + "\n");
    const HostSummary summary{.host = result.name,
                              .status = GetStatusName(result),
                              .files = result.totals.files,
                              .bytes = result.totals.bytes,
                              .seconds = result.time.count(),
                              .reason = result.reason};
    output.Write(ToJson(summary, reader) + "\n");
}

void FleetReport::Conclude(const std::vector<HostResult>& results)
{
    if (console.CanDraw())
        console.Draw({});
    if (!IsBrief()) {
        for (const auto& line : RenderTable(results))
            console.Say(console.CanDraw() ? FitColumns(line, GetWidth()) : line);
        console.Say(CountEnds(results));
    }
    SayUnfinished(results);
}

void FleetReport::SayUnfinished(const std::vector<HostResult>& results)
{
    const auto unfinished = JoinNames(results, [](const HostResult& result) {
        return result.isBegun && result.ending.isInterrupted;
    });
    const auto notBegun =
        JoinNames(results, [](const HostResult& result) { return !result.isBegun; });
    if (!unfinished.empty())
        console.Report("interrupted: unfinished: " + unfinished);
    if (!notBegun.empty())
        console.Report("interrupted: not begun: " + notBegun);
}

} // namespace Cli
