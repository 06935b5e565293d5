#pragma once

#include "Sync/SyncTarget.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Cli {

/// Entries of the target that give way to others of another type. Each has a name like that of an
/// unfinished transfer beside its own until the other one has come. One thread.
class SetAside
{
public:
    /// REQUIRES: target.CanRename. It must outlive this.
    explicit SetAside(SyncTarget& target) noexcept
        : target(target)
    {}

    /// Gives the entries their other names. Those that cannot be renamed stay.
    void Add(const std::vector<std::string>& paths);

    /// Deletes what has come to these places, in whatever part, and gives their names back. Tells
    /// `fail` where the others are kept.
    void PutBack(const std::function<bool(const std::string& path)>& isWanted,
                 const SyncTarget::Fail& fail);

    /// Deletes the entries. Returns how many.
    std::size_t Delete();

private:
    SyncTarget& target;
    std::vector<SyncTarget::Names> names; // a path and the name aside
};

} // namespace Cli
