// Trees below a directory: du, find, tree.

#include "Commands/ServerCommands.h"

#include "Commands/Listing.h"
#include "Output/Json.h"
#include "Output/Text.h"

#include <fnmatch.h>

#include <algorithm>
#include <functional>
#include <map>

namespace Cli {

namespace {

/// Lists all below each path, and reports what fails.
ExitStatus ForEachTree(const std::vector<std::string>& paths, const Workplace& workplace,
                       const std::function<ExitStatus(ListedPath&)>& operation)
{
    auto status = ExitStatus::Done;
    for (const auto& path : paths) {
        try {
            auto rows = ListRows(path, true, workplace);
            for (const auto& failure : rows.failures)
                Report(workplace.console, failure);
            if (operation(rows) != ExitStatus::Done || !rows.failures.empty())
                status = ExitStatus::Failed;
        } catch (const Client::OperationFailedException& error) {
            workplace.console.Report(error.what());
            status = ExitStatus::Failed;
        }
    }
    return status;
}

struct Usage
{
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
};

/// Orders directories behind what is in them.
struct IsBelowOrBefore
{
    static std::string MakeKey(std::string path)
    {
        path += '/';
        std::replace(path.begin(), path.end(), '/', '\x01'); // before all other characters
        return path + '\xFF';                                // behind them
    }
    bool operator()(const std::string& left, const std::string& right) const
    {
        return MakeKey(left) < MakeKey(right);
    }
};

using Usages = std::map<std::string, Usage, IsBelowOrBefore>;

/// Returns the usage of each directory, by its path in the listing; the empty one is the path
/// itself.
Usages SumUp(const ListedPath& rows)
{
    Usages usages;
    usages[""] = {};
    for (const auto& row : rows.rows) {
        if (row.entry.isDirectory) {
            usages[row.entry.path];
            continue;
        }
        for (auto end = row.entry.path.size(); end != std::string::npos && end > 0;) {
            end = rows.isFile ? 0 : row.entry.path.rfind('/', end - 1);
            auto& usage = usages[end == std::string::npos ? "" : row.entry.path.substr(0, end)];
            usage.bytes += row.size.value_or(0);
            ++usage.files;
        }
    }
    return usages;
}

/// Returns the branches before a name: of the directories above it, those that go on.
std::string DrawBranches(const std::vector<bool>& isLast)
{
    std::string text;
    for (std::size_t level = 0; level < isLast.size(); ++level) {
        const bool isOwn = level + 1 == isLast.size();
        if (isOwn)
            text += isLast[level] ? "`-- " : "|-- ";
        else
            text += isLast[level] ? "    " : "|   ";
    }
    return text;
}

/// Returns true when no entry of the same directory follows.
bool IsLast(const std::vector<ListRow>& rows, std::size_t index)
{
    const auto& path = rows[index].entry.path;
    const auto directory = path.substr(0, path.rfind('/') + 1);
    const auto level = std::count(path.begin(), path.end(), '/');
    for (std::size_t next = index + 1; next < rows.size(); ++next) {
        const auto& other = rows[next].entry.path;
        if (!other.starts_with(directory))
            return true;
        if (std::count(other.begin(), other.end(), '/') == level)
            return false;
    }
    return true;
}

void DrawTree(const ListedPath& rows, Output& output)
{
    output.Write(ShowName(output, rows.shown) + "\n");
    std::vector<bool> isLast;
    std::size_t directories = 0;
    for (std::size_t index = 0; index < rows.rows.size(); ++index) {
        const auto& entry = rows.rows[index].entry;
        const auto level =
            static_cast<std::size_t>(std::count(entry.path.begin(), entry.path.end(), '/'));
        isLast.resize(level);
        isLast.push_back(IsLast(rows.rows, index));
        output.Write(DrawBranches(isLast) +
                     ShowName(output, entry.path.substr(entry.path.rfind('/') + 1)) + "\n");
        directories += entry.isDirectory ? 1U : 0U;
    }
    output.Write("\n" + Count(directories, "directory", "directories") + ", " +
                 Count(rows.rows.size() - directories, "file", "files") + "\n");
}

/// A pattern with a slash is for the whole path, another one for the last name.
bool IsFound(const std::string& pattern, const std::string& path)
{
    const bool isForPath = pattern.find('/') != std::string::npos;
    const auto matched = isForPath ? path : path.substr(path.rfind('/') + 1);
    return fnmatch(pattern.c_str(), matched.c_str(), 0) == 0;
}

void WriteJson(ListedPath& rows, const Workplace& workplace, Output& output)
{
    AddStates(rows, workplace);
    for (auto row : rows.rows) {
        row.entry.path = rows.GetShownPath(row);
        output.Write(ToJson(row, false, GetReader(output)) + "\n");
    }
}

} // namespace

ExitStatus Run(const UsageCommand& command, const Workplace& workplace)
{
    Output output(workplace);
    const auto status = ForEachTree(command.paths, workplace, [&](ListedPath& rows) {
        const bool areAllKnown = AddSizes(rows, workplace);
        const auto usages = SumUp(rows);
        const auto print = [&](const std::string& path, const Usage& usage) {
            output.Write(workplace.choice.isJson
                             ? ToJson(path, usage.bytes, usage.files, GetReader(output)) + "\n"
                             : FormatSize(usage.bytes, command.isHumanReadable) + "\t" +
                                   ShowName(output, path) + "\n");
        };
        for (const auto& [path, usage] : usages)
            if (!path.empty() && !command.isSummary)
                print(rows.shown == "." ? path : JoinPath(rows.shown, path), usage);
        print(rows.shown, usages.at(""));
        return areAllKnown ? ExitStatus::Done : ExitStatus::Failed;
    });
    output.Flush();
    return status;
}

ExitStatus Run(const FindCommand& command, const Workplace& workplace)
{
    Output output(workplace);
    const auto status = ForEachTree(command.paths, workplace, [&](ListedPath& rows) {
        std::erase_if(rows.rows, [&](const ListRow& row) {
            return !IsFound(command.name, rows.GetShownPath(row));
        });
        if (workplace.choice.isJson)
            WriteJson(rows, workplace, output);
        else
            for (const auto& row : rows.rows)
                output.Write(ShowName(output, rows.GetShownPath(row)) + "\n");
        return ExitStatus::Done;
    });
    output.Flush();
    return status;
}

ExitStatus Run(const TreeCommand& command, const Workplace& workplace)
{
    Output output(workplace);
    const auto status = ForEachTree(command.paths, workplace, [&](ListedPath& rows) {
        if (workplace.choice.isJson)
            WriteJson(rows, workplace, output);
        else
            DrawTree(rows, output);
        return ExitStatus::Done;
    });
    output.Flush();
    return status;
}

} // namespace Cli
