#pragma once

#include "Client/FileSystem.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Cli {

enum class EntryType
{
    File,
    Directory,
    Other, ///< a link, a pipe and so on: only ever replaced or deleted
};

/// An entry of a tree.
struct SyncEntry
{
    std::string path; ///< relative to the tree's top
    EntryType type = EntryType::File;
    std::optional<std::uint64_t> size; ///< of a file; none where it cannot be found
    std::optional<Client::FileTime> time;
    std::optional<std::uint32_t> permissions; ///< none where they cannot be read
};

/// All entries of one side that take part. A directory comes before what is in it.
struct SyncTree
{
    std::vector<SyncEntry> entries;
    /// Directories that hold something that takes no part, at any depth: they stay.
    std::set<std::string> keptDirectories;
    /// Entries that are there but take no part, such as links that are not followed: neither sent
    /// nor replaced nor deleted, with all that is below them on either side.
    std::set<std::string> left;
    bool isWhole = true; ///< otherwise some directories could not be listed
};

struct SyncRules
{
    bool deletes = false;
    bool keepsNewer = false;       ///< files that are newer at the target stay
    bool comparesContents = false; ///< rather than times
};

/// The steps that make a target like its source, in their order.
struct SyncPlan
{
    std::vector<std::string> replaced;  ///< of another type than the source: they give way
    std::vector<SyncEntry> directories; ///< missing ones, and those whose time is to be set
    std::vector<SyncEntry> files;       ///< new or changed
    std::vector<SyncEntry> compared;    ///< sent if their contents differ
    std::vector<SyncEntry> permissions; ///< of files and directories that are the same otherwise
    std::vector<SyncEntry> closed;    ///< directories of them, to be closed before they are filled
    std::vector<std::string> deleted; ///< with all that is in them
    std::vector<std::string> conflicts; ///< of another type, which stay: messages
    std::uint64_t made = 0;             ///< of `directories`: those that are missing
    std::uint64_t same = 0;             ///< files, `compared` not counted
    std::uint64_t newer = 0;            ///< files that stay since they are newer
};

/// Compares two trees.
[[nodiscard]] SyncPlan MakeSyncPlan(const SyncTree& source, const SyncTree& target,
                                    const SyncRules& rules);

} // namespace Cli
