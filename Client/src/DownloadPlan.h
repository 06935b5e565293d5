#pragma once

#include "Client/FileSystem.h"
#include "Jobs.h"
#include "LocalFiles.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace Client {

struct DownloadFile
{
    std::string remote;
    std::string local;    ///< as it is named
    std::string relative; ///< below the tree; the leaf otherwise
    std::shared_ptr<LocalTree> tree;
    std::optional<FileTime> time;
    std::optional<std::uint64_t> size = {}; ///< for the progress; where it was asked for
    std::optional<std::uint32_t> mode = {}; ///< at the source, where the server can tell
};

/// A directory whose time is set when all is in it.
struct DownloadDirectory
{
    std::string relative;
    std::shared_ptr<LocalTree> tree;
    std::optional<FileTime> time;
};

/// The files and directories of a download.
struct DownloadPlan
{
    std::vector<DownloadFile> files;
    std::vector<DownloadDirectory> directories; ///< a directory comes before what is in it
    std::unordered_set<std::string> targets;    ///< normalized
};

/// Finds those of a tree, and makes the directories, as below.
[[nodiscard]] DownloadPlan PlanDownload(Transfer& transfer, FileSystem& fileSystem,
                                        const TreePart& part);

/// Finds them at the sources, and makes the directories. Tells the tally of them, and of what is
/// left out.
[[nodiscard]] DownloadPlan PlanDownload(Transfer& transfer, FileSystem& fileSystem,
                                        const std::vector<TransferItem>& items);

} // namespace Client
