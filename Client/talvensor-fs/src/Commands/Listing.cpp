#include "Commands/Listing.h"

#include "Client/FileObjects.h"
#include "Output/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace Cli {

namespace {

/// Puts the entries of a directory right behind it, whatever characters names have.
bool IsBefore(const ListRow& left, const ListRow& right)
{
    const auto rank = [](char character) {
        return character == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(character)) + 1;
    };
    return std::lexicographical_compare(
        left.entry.path.begin(), left.entry.path.end(), right.entry.path.begin(),
        right.entry.path.end(), [rank](char one, char other) { return rank(one) < rank(other); });
}

/// Returns true for "/" where the server has its folders there and nothing else.
bool IsAboveFolders(const std::string& path, const Workplace& workplace)
{
    if (path.find_first_not_of('/') != std::string::npos)
        return false;
    Client::FileObjects objects(workplace.remote.GetConnection());
    return objects.AreOffered() &&
           objects.GetStates({path}, &workplace.cancellation).front().kind == Client::Kind::Missing;
}

/// Returns the folders of the server as entries of "/", which it may not list otherwise.
Client::Listing ListFolders(const Workplace& workplace)
{
    Client::Listing listing;
    Client::FileObjects objects(workplace.remote.GetConnection());
    for (auto& folder : objects.List("/", &workplace.cancellation))
        listing.entries.push_back(
            {.path = std::move(folder.name), .time = std::nullopt, .isDirectory = true});
    return listing;
}

Client::Listing ListPath(ListedPath& rows, bool isRecursive, const Workplace& workplace)
{
    if (!isRecursive && IsAboveFolders(rows.path, workplace))
        return ListFolders(workplace);
    auto& files = workplace.remote.GetFiles();
    try {
        return files.List(rows.path, isRecursive, &workplace.cancellation);
    } catch (const Client::OperationFailedException&) {
        if (files.GetKind(rows.path, &workplace.cancellation) != Client::Kind::File)
            throw;
    }
    rows.isFile = true;
    return {.entries = {{.path = rows.shown,
                         .time = files.GetTime(rows.path, &workplace.cancellation),
                         .isDirectory = false}},
            .failures = {}};
}

} // namespace

std::string ListedPath::GetPath(const ListRow& row) const
{
    if (isFile)
        return path;
    return row.entry.path.starts_with('/') ? row.entry.path : JoinPath(path, row.entry.path);
}

std::string ListedPath::GetShownPath(const ListRow& row) const
{
    if (isFile || row.entry.path.starts_with('/'))
        return row.entry.path;
    return shown == "." ? row.entry.path : JoinPath(shown, row.entry.path);
}

ListedPath ListRows(const std::string& path, bool isRecursive, const Workplace& workplace)
{
    ListedPath rows;
    rows.shown = path;
    rows.path = workplace.remote.Resolve(path);
    auto listing = ListPath(rows, isRecursive, workplace);
    for (auto& entry : listing.entries)
        rows.rows.push_back(
            {.entry = std::move(entry), .size = std::nullopt, .permissions = std::nullopt});
    rows.failures = std::move(listing.failures);
    std::sort(rows.rows.begin(), rows.rows.end(), IsBefore);
    return rows;
}

bool AddStates(ListedPath& rows, const Workplace& workplace)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    if (!objects.AreOffered())
        return false;
    std::vector<std::string> paths;
    for (const auto& row : rows.rows)
        paths.push_back(rows.GetPath(row));
    const auto states = objects.GetStates(paths, &workplace.cancellation);
    for (std::size_t i = 0; i < rows.rows.size(); ++i) {
        const auto& state = states.at(i);
        if (state.status != 0 || state.kind == Client::Kind::Missing)
            continue;
        auto& row = rows.rows[i];
        row.permissions = state.permissions;
        if (!row.entry.isDirectory)
            row.size = state.size;
        if (!row.entry.time)
            row.entry.time = state.time;
    }
    return true;
}

bool AddSizes(ListedPath& rows, const Workplace& workplace)
{
    AddStates(rows, workplace);
    std::vector<ListRow*> measured;
    std::vector<std::string> paths;
    for (auto& row : rows.rows) {
        if (row.entry.isDirectory || row.size)
            continue;
        measured.push_back(&row);
        paths.push_back(rows.GetPath(row));
    }
    bool areAllKnown = true;
    const auto sizes = workplace.remote.GetFiles().GetSizes(paths, &workplace.cancellation);
    for (std::size_t i = 0; i < measured.size(); ++i) {
        measured[i]->size = sizes.at(i);
        if (sizes[i])
            continue;
        workplace.console.Report(paths[i] + " (remote): cannot find the size: it cannot be opened");
        areAllKnown = false;
    }
    return areAllKnown;
}

std::string FormatMode(bool isDirectory, std::optional<std::uint32_t> permissions)
{
    std::string mode = isDirectory ? "d" : "-";
    if (!permissions)
        return mode;
    constexpr std::string_view all = "rwxrwxrwx";
    for (std::size_t i = 0; i < all.size(); ++i)
        mode += (*permissions >> (all.size() - 1 - i) & 1U) != 0 ? all[i] : '-';
    return mode;
}

std::string FormatSize(std::uint64_t bytes, bool isHumanReadable)
{
    constexpr double step = 1'024;
    constexpr std::string_view units = "KMGTPE";
    if (!isHumanReadable || bytes < 1'024)
        return std::to_string(bytes);
    auto number = static_cast<double>(bytes) / step;
    std::size_t unit = 0;
    while (number >= 999.5 && unit + 1 < units.size()) {
        number /= step;
        ++unit;
    }
    return fmt::format("{:.{}f}{}", number, number < 9.95 ? 1 : 0, units[unit]);
}

std::string ShowName(const Output& output, const std::string& name)
{
    return output.IsTerminal() ? EscapeName(name) : name;
}

} // namespace Cli
