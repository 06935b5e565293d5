#pragma once

#include "Commands/CommandRunner.h"

#include "Client/FileSystem.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Cli {

/// An entry of a listing, as far as the server can tell.
struct ListRow
{
    Client::ListEntry entry;
    std::optional<std::uint64_t> size; ///< bytes, of a file
    std::optional<std::uint32_t> permissions;
};

/// The entries of one path. REQUIRES: they are in the order of `ListRows`.
struct ListedPath
{
    std::string shown; ///< the path as it was given
    std::string path;  ///< as the server has to be told it
    std::vector<ListRow> rows;
    std::vector<Client::Failure> failures;
    bool isFile = false; ///< the path is a file, and the one entry

    /// Returns the path of an entry, as the server has to be told it.
    [[nodiscard]] std::string GetPath(const ListRow& row) const;
    /// The same, as it is shown.
    [[nodiscard]] std::string GetShownPath(const ListRow& row) const;
};

/// Lists a path; a file is listed as itself. What is in a directory comes right behind it. Throws
/// OperationFailedException.
[[nodiscard]] ListedPath ListRows(const std::string& path, bool isRecursive,
                                  const Workplace& workplace);

/// Adds sizes and permissions where the server has file objects. Returns false where it has not.
bool AddStates(ListedPath& rows, const Workplace& workplace);

/// Adds the sizes of files; those that nobody knows yet are found by reading. Reports what cannot
/// be read, and returns false then.
[[nodiscard]] bool AddSizes(ListedPath& rows, const Workplace& workplace);

/// "drwxr-xr-x"; without permissions the kind alone.
[[nodiscard]] std::string FormatMode(bool isDirectory, std::optional<std::uint32_t> permissions);

/// Bytes as a number, or as "1.5K" with units of 1024.
[[nodiscard]] std::string FormatSize(std::uint64_t bytes, bool isHumanReadable);

/// Returns a name as an output shows it.
[[nodiscard]] std::string ShowName(const Output& output, const std::string& name);

} // namespace Cli
