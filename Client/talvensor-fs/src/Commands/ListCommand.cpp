#include "Commands/ServerCommands.h"

#include "Commands/Listing.h"
#include "Output/Json.h"
#include "Output/Text.h"
#include "Output/Times.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>

namespace Cli {

namespace {

/// One run of `ls`.
class ListRun
{
public:
    ListRun(const ListCommand& command, const Workplace& workplace)
        : command(command)
        , workplace(workplace)
        , output(workplace)
    {}

    /// Files come before directories, which have a title where there are several paths.
    ExitStatus Do()
    {
        std::vector<ListedPath> directories;
        for (const auto& path : command.paths) {
            auto rows = List(path);
            if (!rows)
                continue;
            if (rows->isFile)
                Print(*rows);
            else
                directories.push_back(std::move(*rows));
        }
        for (const auto& directory : directories) {
            PrintTitle(directory.shown);
            Print(directory);
        }
        output.Flush();
        return status;
    }

private:
    std::optional<ListedPath> List(const std::string& path)
    {
        try {
            auto rows = ListRows(path, command.isRecursive, workplace);
            if (command.hasSizes) {
                if (!AddSizes(rows, workplace))
                    status = ExitStatus::Failed;
            } else if (command.isLong || workplace.choice.isJson) {
                AddStates(rows, workplace);
            }
            return rows;
        } catch (const Client::OperationFailedException& error) {
            workplace.console.Report(error.what());
            status = ExitStatus::Failed;
            return std::nullopt;
        }
    }

    void Print(const ListedPath& rows)
    {
        widestSize = 1;
        hasSizes = command.hasSizes;
        hasPermissions = false;
        for (const auto& row : rows.rows) {
            widestSize = std::max(widestSize, FormatSize(row).size());
            hasSizes = hasSizes || (command.isLong && row.size);
            hasPermissions = hasPermissions || row.permissions;
        }
        for (const auto& row : rows.rows) {
            output.Write(workplace.choice.isJson ? FormatJson(rows, row) : FormatText(row));
            output.Write(std::string_view(command.endsWithZero ? "\0" : "\n", 1));
        }
        output.Flush();
        for (const auto& failure : rows.failures)
            Report(workplace.console, failure);
        if (!rows.failures.empty())
            status = ExitStatus::Failed;
        isFirst = false;
    }

    void PrintTitle(const std::string& path)
    {
        if (command.paths.size() == 1 || workplace.choice.isJson || command.endsWithZero)
            return;
        output.Write((isFirst ? "" : "\n") + ShowName(output, path) + ":\n");
    }

    /// Paths begin with that of the listing where there are several.
    [[nodiscard]] std::string FormatJson(const ListedPath& rows, ListRow row) const
    {
        if (command.paths.size() > 1)
            row.entry.path = rows.GetShownPath(row);
        return ToJson(row, command.hasSizes, GetReader(output));
    }

    [[nodiscard]] std::string FormatText(const ListRow& row) const
    {
        std::string text;
        if (command.isLong)
            text += fmt::format("{:{}}  ", FormatMode(row.entry.isDirectory, row.permissions),
                                hasPermissions ? 10 : 1);
        if (hasSizes)
            text += fmt::format("{:>{}}  ", FormatSize(row), widestSize);
        if (command.isLong)
            text += fmt::format("{:19}  ", row.entry.time ? FormatLocalTime(*row.entry.time) : "?");
        return text + (command.endsWithZero ? row.entry.path : ShowName(output, row.entry.path));
    }

    [[nodiscard]] std::string FormatSize(const ListRow& row) const
    {
        if (row.entry.isDirectory)
            return "-";
        return row.size ? Cli::FormatSize(*row.size, command.isHumanReadable) : "?";
    }

    const ListCommand& command;
    const Workplace& workplace;
    Output output;
    ExitStatus status = ExitStatus::Done;
    bool isFirst = true;
    // Of the path that is printed.
    std::size_t widestSize = 1;
    bool hasSizes = false;
    bool hasPermissions = false;
};

} // namespace

ExitStatus Run(const ListCommand& command, const Workplace& workplace)
{
    return ListRun(command, workplace).Do();
}

} // namespace Cli
