#pragma once

#include "Sync/SyncTarget.h"

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Cli {

/// Entries of the target that give way to others of another type. Each has a name beside its own
/// (Client::IsAsideName) until the other one has come. One thread.
class SetAside
{
public:
    /// REQUIRES: target.CanRename. It must outlive this. `fail` is told where entries are kept
    /// that neither get their names back nor are deleted.
    SetAside(SyncTarget& target, SyncTarget::Fail fail)
        : target(target)
        , fail(std::move(fail))
    {}

    /// Gives the entries their other names. Those that cannot be renamed stay. After an exception
    /// none is set aside: those that were renamed by then have their names back, or were told.
    void Add(const std::vector<std::string>& paths);

    /// Deletes what has come to these places, in whatever part, and gives their names back.
    void PutBack(const std::function<bool(const std::string& path)>& isWanted);

    /// Deletes the entries. Returns how many.
    std::size_t Delete();

private:
    using Names = std::vector<SyncTarget::Names>;

    void GiveBack(const Names& renamed);
    [[nodiscard]] Names FindRenamed(const Names& wanted);
    void TellKept(const Names& kept, const char* how) const;

    SyncTarget& target;
    const SyncTarget::Fail fail;
    Names names; // a path and the name aside
};

} // namespace Cli
