#pragma once

#include "Client/FileObjects.h"
#include "Commands/CommandRunner.h"
#include "Sync/SyncPlan.h"

#include <cstddef>
#include <functional>
#include <string>
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

    /// Deletes files, and directories with all that is in them. Returns how many.
    std::size_t Delete(const std::vector<std::string>& paths);

    /// Sets them as they are at the source, where both sides can tell.
    void SetPermissions(const std::vector<SyncEntry>& entries);

    /// Returns the whole path.
    [[nodiscard]] std::string GetPath(const std::string& path) const;

private:
    [[nodiscard]] bool IsLocal() const noexcept { return side == Client::Side::Local; }
    [[nodiscard]] bool DeleteLocal(const std::string& path);
    void SetLocalPermissions(const SyncEntry& entry);

    const Client::Side side;
    const std::string top;
    const Workplace& workplace;
    Client::FileObjects objects;
    const Fail fail;
};

} // namespace Cli
