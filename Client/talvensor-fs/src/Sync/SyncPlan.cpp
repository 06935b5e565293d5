#include "Sync/SyncPlan.h"

#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace Cli {

namespace {

using Index = std::unordered_map<std::string_view, const SyncEntry*>;

Index MakeIndex(const SyncTree& tree)
{
    Index index;
    for (const auto& entry : tree.entries)
        index.emplace(entry.path, &entry);
    return index;
}

std::string GetParent(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// Paths that stand for all that is below them.
class Covered
{
public:
    void Add(const std::string& path) { paths.insert(path); }

    /// Returns true for a path below one of them. REQUIRES: it is asked for directories before what
    /// is in them; those that are covered become so themselves.
    bool Takes(const std::string& path)
    {
        if (!paths.contains(GetParent(path)))
            return false;
        paths.insert(path);
        return true;
    }

private:
    std::unordered_set<std::string> paths;
};

class SyncPlanner
{
public:
    SyncPlanner(const SyncTree& source, const SyncTree& target, const SyncRules& rules)
        : source(source)
        , target(target)
        , rules(rules)
        , sources(MakeIndex(source))
        , targets(MakeIndex(target))
    {}

    SyncPlan Make()
    {
        for (const auto& entry : source.entries)
            if (!skipped.Takes(entry.path))
                Add(entry);
        if (rules.deletes && source.isWhole)
            AddDeleted();
        AddDirectories();
        return std::move(plan);
    }

private:
    void Add(const SyncEntry& entry)
    {
        if (target.left.contains(entry.path)) {
            plan.conflicts.push_back(entry.path + ": is a link or a special file at the target, "
                                                  "so it stays");
            skipped.Add(entry.path);
            return;
        }
        const auto found = targets.find(entry.path);
        if (found == targets.end())
            AddNew(entry);
        else if (entry.type == EntryType::Directory && found->second->type == EntryType::Directory)
            CompareDirectories(entry, *found->second);
        else if (entry.type == EntryType::Directory || found->second->type == EntryType::Directory)
            AddReplaced(entry, *found->second);
        else
            CompareFiles(entry, *found->second);
    }

    void AddNew(const SyncEntry& entry)
    {
        changed.insert(GetParent(entry.path));
        if (entry.type == EntryType::Directory) {
            changed.insert(entry.path);
            ++plan.made;
        } else
            plan.files.push_back(entry);
    }

    void CompareDirectories(const SyncEntry& entry, const SyncEntry& old)
    {
        if (entry.time && old.time != entry.time)
            changed.insert(entry.path);
        ComparePermissions(entry, old);
        CompareOpenness(entry, old);
    }

    /// Closes a directory before anything goes into it. Opening it waits until all in it has its
    /// own permissions.
    void CompareOpenness(const SyncEntry& entry, const SyncEntry& old)
    {
        constexpr std::uint32_t others = 0077;
        constexpr std::uint32_t allForOwner = 0700;
        if (!entry.permissions || !old.permissions ||
            (*old.permissions & ~*entry.permissions & others) == 0)
            return;
        plan.closed.push_back(entry);
        plan.closed.back().permissions = (*old.permissions & *entry.permissions) | allForOwner;
    }

    void CompareFiles(const SyncEntry& entry, const SyncEntry& old)
    {
        const bool isSameSize = old.type == EntryType::File && old.size && old.size == entry.size;
        const bool isSameTime = old.time && old.time == entry.time;
        if (rules.keepsNewer && old.time && entry.time && *old.time > *entry.time)
            ++plan.newer;
        else if (rules.comparesContents && isSameSize)
            plan.compared.push_back(entry);
        else if (isSameSize && isSameTime) {
            ++plan.same;
            ComparePermissions(entry, old);
        } else {
            plan.files.push_back(entry);
            changed.insert(GetParent(entry.path));
        }
    }

    void ComparePermissions(const SyncEntry& entry, const SyncEntry& old)
    {
        if (entry.permissions && old.permissions && entry.permissions != old.permissions)
            plan.permissions.push_back(entry);
    }

    /// A file takes the place of a directory, or the other way round.
    void AddReplaced(const SyncEntry& entry, const SyncEntry& old)
    {
        const bool isDirectory = old.type == EntryType::Directory;
        const std::string kinds = isDirectory
                                      ? "is a directory at the target and a file at the source"
                                      : "is a directory at the source and none at the target";
        std::string why;
        if (!rules.deletes)
            why = " (--delete replaces it)";
        else if (!source.isWhole)
            why = "; the source could not be listed whole, so it stays";
        else if (isDirectory && target.keptDirectories.contains(old.path))
            why = "; it holds files that are left out, so it stays";
        if (why.empty()) {
            plan.replaced.push_back(old.path);
            deleted.Add(old.path);
            AddNew(entry);
            return;
        }
        plan.conflicts.push_back(entry.path + ": " + kinds + why);
        skipped.Add(entry.path);
        deleted.Add(old.path); // as if it were
    }

    void AddDeleted()
    {
        for (const auto& entry : target.entries) {
            if (deleted.Takes(entry.path) || sources.contains(entry.path))
                continue;
            if (source.left.contains(entry.path)) {
                deleted.Add(entry.path); // as if it were
                continue;
            }
            if (target.keptDirectories.contains(entry.path) ||
                source.keptDirectories.contains(entry.path))
                continue; // what is in it goes one by one
            plan.deleted.push_back(entry.path);
            deleted.Add(entry.path);
            changed.insert(GetParent(entry.path));
        }
    }

    /// Whatever is done in a directory changes its time.
    void AddDirectories()
    {
        for (const auto& entry : source.entries)
            if (entry.type == EntryType::Directory && changed.contains(entry.path))
                plan.directories.push_back(entry);
    }

    const SyncTree& source;
    const SyncTree& target;
    const SyncRules& rules;
    const Index sources;
    const Index targets;
    Covered skipped;                         // at the source
    Covered deleted;                         // at the target
    std::unordered_set<std::string> changed; // directories
    SyncPlan plan;
};

} // namespace

SyncPlan MakeSyncPlan(const SyncTree& source, const SyncTree& target, const SyncRules& rules)
{
    return SyncPlanner(source, target, rules).Make();
}

} // namespace Cli
