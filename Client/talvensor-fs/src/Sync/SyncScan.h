#pragma once

#include "Commands/CommandRunner.h"
#include "Sync/SyncPlan.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// Globs of names that take no part. One without a slash is for names at any depth; one with a
/// slash is for the path from the top of the tree, and one with a slash at its end is for
/// directories.
class Exclusions
{
public:
    explicit Exclusions(std::vector<std::string> globs)
        : globs(std::move(globs))
    {}

    [[nodiscard]] bool Take(const std::string& path, bool isDirectory) const;

private:
    std::vector<std::string> globs;
};

/// Returns the rest of a path behind the top of a tree, with which the paths of failures begin;
/// empty for the top itself.
[[nodiscard]] std::string GetRelative(const std::string& top, const std::string& path);

/// Says what takes no part and is no failure, such as a link; and what could not be listed.
struct ScanReport
{
    std::function<void(const std::string&)> note;
    std::function<void(const std::string&)> fail;
    bool notesAside = false; ///< what an interrupted run set aside, as at a target
};

/// The links in a local tree.
enum class Links
{
    Skipped,  ///< noted
    Followed, ///< those that lead to a directory above them are skipped
    Shown,    ///< as EntryType::Other
};

/// Lists a local tree. Unfinished files of transfers take no part. Throws OperationFailedException
/// when its top cannot be listed, CancelledException.
[[nodiscard]] SyncTree ScanLocal(const std::string& top, const Exclusions& exclusions, Links links,
                                 const ScanReport& report,
                                 const Client::Cancellation& cancellation);

/// Lists a remote tree, with sizes and permissions where the server has file objects. Otherwise
/// throws as ScanLocal, and as FileSystem.
[[nodiscard]] SyncTree ScanRemote(const std::string& top, const Exclusions& exclusions,
                                  const ScanReport& report, const Workplace& workplace);

} // namespace Cli
