#include "ServerCommands.h"

#include "Json.h"
#include "Text.h"
#include "Times.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>

namespace Cli {

namespace {

struct Row
{
    Client::ListEntry entry;
    std::optional<std::uint64_t> size;
};

/// Puts the entries of a directory right behind it, whatever characters names have.
bool IsBefore(const Row& left, const Row& right)
{
    const auto rank = [](char character) {
        return character == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(character)) + 1;
    };
    return std::lexicographical_compare(
        left.entry.path.begin(), left.entry.path.end(), right.entry.path.begin(),
        right.entry.path.end(), [rank](char one, char other) { return rank(one) < rank(other); });
}

/// Prints one path of `ls`.
class ListingPrinter
{
public:
    ListingPrinter(const ListCommand& command, std::string shownPath, const Workplace& workplace,
                   Output& output)
        : command(command)
        , shownPath(std::move(shownPath))
        , workplace(workplace)
        , files(workplace.remote.GetFiles())
        , path(workplace.remote.Resolve(this->shownPath))
        , output(output)
    {}

    /// Lists the path. A file is listed as itself. Throws OperationFailedException.
    void List()
    {
        auto listing = TryList();
        for (auto& entry : listing.entries)
            rows.push_back({.entry = std::move(entry), .size = std::nullopt});
        failures = std::move(listing.failures);
        std::sort(rows.begin(), rows.end(), IsBefore);
        if (command.hasSizes)
            FindSizes();
    }

    [[nodiscard]] bool IsFile() const noexcept { return isFile; }
    [[nodiscard]] const std::string& GetPath() const noexcept { return shownPath; }

    ExitStatus Print()
    {
        for (const auto& row : rows)
            Print(row);
        output.Flush();
        for (const auto& failure : failures)
            Report(workplace.console, failure);
        return failures.empty() && !hasUnknownSizes ? ExitStatus::Done : ExitStatus::Failed;
    }

private:
    Client::Listing TryList()
    {
        try {
            return files.List(path, command.isRecursive, &workplace.cancellation);
        } catch (const Client::OperationFailedException&) {
            if (files.GetKind(path, &workplace.cancellation) != Client::Kind::File)
                throw;
        }
        isFile = true;
        return {.entries = {{.path = shownPath,
                             .time = files.GetTime(path, &workplace.cancellation),
                             .isDirectory = false}},
                .failures = {}};
    }

    void FindSizes()
    {
        std::vector<Row*> measured;
        std::vector<std::string> paths;
        for (auto& row : rows) {
            if (row.entry.isDirectory)
                continue;
            measured.push_back(&row);
            paths.push_back(isFile ? path : JoinPath(path, row.entry.path));
        }
        const auto sizes = files.GetSizes(paths, &workplace.cancellation);
        for (std::size_t index = 0; index < measured.size(); ++index) {
            measured[index]->size = sizes.at(index);
            if (sizes[index])
                widestSize = std::max(widestSize, std::to_string(*sizes[index]).size());
            else
                ReportUnknownSize(paths[index]);
        }
    }

    void ReportUnknownSize(const std::string& file)
    {
        workplace.console.Report(file + ": cannot find the size: it cannot be opened");
        hasUnknownSizes = true;
    }

    void Print(const Row& row)
    {
        output.Write(workplace.choice.isJson ? FormatJson(row) : FormatText(row));
        output.Write(std::string_view(command.endsWithZero ? "\0" : "\n", 1));
    }

    [[nodiscard]] std::string FormatJson(const Row& row) const
    {
        const auto reader = output.IsTerminal() ? JsonReader::Terminal : JsonReader::Program;
        return command.hasSizes ? ToJson(row.entry, row.size, reader) : ToJson(row.entry, reader);
    }

    [[nodiscard]] std::string FormatText(const Row& row) const
    {
        std::string text;
        if (command.isLong)
            text += row.entry.isDirectory ? "d  " : "-  ";
        if (command.hasSizes)
            text += fmt::format("{:>{}}  ", FormatSize(row), widestSize);
        if (command.isLong)
            text += fmt::format("{:19}  ", row.entry.time ? FormatLocalTime(*row.entry.time) : "?");
        const bool isRaw = command.endsWithZero || !output.IsTerminal();
        return text + (isRaw ? row.entry.path : EscapeName(row.entry.path));
    }

    static std::string FormatSize(const Row& row)
    {
        if (row.entry.isDirectory)
            return "-";
        return row.size ? std::to_string(*row.size) : "?";
    }

    const ListCommand& command;
    const std::string shownPath;
    const Workplace& workplace;
    Client::FileSystem& files;
    const std::string path;
    Output& output;
    std::vector<Row> rows;
    std::vector<Client::Failure> failures;
    std::size_t widestSize = 1;
    bool isFile = false;
    bool hasUnknownSizes = false;
};

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
        std::vector<ListingPrinter> directories;
        for (const auto& path : command.paths) {
            ListingPrinter printer(command, path, workplace, output);
            if (!List(printer))
                continue;
            if (printer.IsFile())
                Print(printer);
            else
                directories.push_back(std::move(printer));
        }
        for (auto& directory : directories) {
            PrintTitle(directory.GetPath());
            Print(directory);
        }
        output.Flush();
        return status;
    }

private:
    bool List(ListingPrinter& printer)
    {
        try {
            printer.List();
            return true;
        } catch (const Client::OperationFailedException& error) {
            workplace.console.Report(error.what());
            status = ExitStatus::Failed;
            return false;
        }
    }

    void Print(ListingPrinter& printer)
    {
        if (printer.Print() != ExitStatus::Done)
            status = ExitStatus::Failed;
        isFirst = false;
    }

    void PrintTitle(const std::string& path)
    {
        if (command.paths.size() == 1 || workplace.choice.isJson || command.endsWithZero)
            return;
        output.Write((isFirst ? "" : "\n") + (output.IsTerminal() ? EscapeName(path) : path) +
                     ":\n");
    }

    const ListCommand& command;
    const Workplace& workplace;
    Output output;
    ExitStatus status = ExitStatus::Done;
    bool isFirst = true;
};

} // namespace

ExitStatus Run(const ListCommand& command, const Workplace& workplace)
{
    return ListRun(command, workplace).Do();
}

} // namespace Cli
