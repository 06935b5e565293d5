#pragma once

#include "Client/FileObjects.h"
#include "Commands/CommandRunner.h"
#include "Sync/SyncPlan.h"

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Cli {

/// The side that sync changes. Paths are relative to its top. Operations tell `fail` what failed of
/// a single path, and throw as FileSystem. One thread.
class SyncTarget
{
public:
    using Fail = std::function<void(const std::string&)>;

    /// The workplace must outlive it.
    SyncTarget(Client::Side side, std::string top, const Workplace& workplace, Fail fail);

    /// Returns false for a server without file objects.
    [[nodiscard]] bool CanRename() const noexcept;

    /// Deletes files, and directories with all that is in them. Returns how many.
    std::size_t Delete(const std::vector<std::string>& paths);

    /// An old and a new name, which is free.
    using Names = std::pair<std::string, std::string>;
    /// Returns those that were renamed. REQUIRES: CanRename.
    [[nodiscard]] std::vector<Names> Rename(const std::vector<Names>& names);

    /// Returns those of which the new name is there. For names whose renaming was broken off.
    /// REQUIRES: CanRename.
    [[nodiscard]] std::vector<Names> FindRenamed(const std::vector<Names>& names);

    /// Sets those of the entries, where the target can. Returns the paths where that failed.
    std::vector<std::string> SetPermissions(const std::vector<SyncEntry>& entries);

    /// From now on an interruption does not keep it from working. A connection is closed soon
    /// after it in any case.
    void IgnoreInterruption() noexcept { cancellation = nullptr; }

    /// Returns the whole path.
    [[nodiscard]] std::string GetPath(const std::string& path) const;

private:
    [[nodiscard]] bool IsLocal() const noexcept { return side == Client::Side::Local; }
    [[nodiscard]] bool DeleteLocal(const std::string& path);
    [[nodiscard]] bool RenameLocal(const Names& names);
    [[nodiscard]] bool SetLocalPermissions(const SyncEntry& entry);

    const Client::Side side;
    const std::string top;
    const Workplace& workplace;
    Client::FileObjects objects;
    const Fail fail;
    const Client::Cancellation* cancellation;
};

} // namespace Cli
