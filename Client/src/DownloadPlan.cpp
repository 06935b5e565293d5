#include "DownloadPlan.h"

#include "ObjectCaller.h"
#include "Sizes.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace Client {

namespace {

Failure SkipRemote(const std::string& remote, std::string cause)
{
    Failure failure = MakeUnknownFailure(remote, Step::Open, std::move(cause));
    failure.kind = FailureKind::Skipped;
    return failure;
}

/// Returns true for a path in or of a copy that the host has not finished.
bool IsHostPart(std::string_view path)
{
    while (!path.empty()) {
        const auto name = path.substr(0, path.find('/'));
        if (IsHostPartName(name))
            return true;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return false;
}

/// The permissions that fetched files may have: a part of a tree becomes exactly as it is at the
/// source.
std::uint32_t GetAllowedModes(const TreePart& /*sources*/)
{
    return ~std::uint32_t{0};
}

std::uint32_t GetAllowedModes(const std::vector<TransferItem>& /*sources*/)
{
    return ~GetUmask();
}

/// Asks for sizes and permissions at once. Files get no other permissions than those.
void AskStates(const Transfer& transfer, const std::vector<std::string>& paths,
               std::uint32_t allowed, std::vector<DownloadFile>& files)
{
    if (!transfer.options.progress && !transfer.options.setsPermissions)
        return;
    const auto states =
        transfer.node.MakeObjectCaller(transfer.options.cancellation).GetStates(paths);
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i].size = states[i].size;
        if (transfer.options.setsPermissions && states[i].kind == Kind::File &&
            !states[i].isSpecial)
            files[i].mode = states[i].permissions & allowed;
    }
}

/// Without file objects only for a few files: it takes a while.
void AskSizes(const Transfer& transfer, const std::vector<std::string>& paths,
              std::vector<DownloadFile>& files)
{
    constexpr std::size_t fewFiles = 16;
    if (!transfer.options.progress || files.size() > fewFiles)
        return;
    Caller caller = transfer.node.MakeCaller(transfer.options.cancellation);
    const auto sizes = FindSizes(caller, paths);
    for (std::size_t i = 0; i < files.size(); ++i)
        files[i].size = sizes[i].value_or(0); // one that cannot be opened is not fetched
}

class DownloadPlanner
{
public:
    /// `isPart`: of a tree; then others set all modes afterwards.
    DownloadPlanner(Transfer& transfer, FileSystem& fileSystem, std::uint32_t allowedModes,
                    bool isPart)
        : transfer(transfer)
        , options(transfer.options)
        , allowedModes(allowedModes)
        , isPart(isPart)
        , fileSystem(fileSystem)
    {}

    void Find(const TransferItem& item)
    {
        if (transfer.isOver)
            return;
        try {
            CheckPath(item.local);
            const Kind kind = fileSystem.GetKind(item.remote, options.cancellation);
            if (kind == Kind::Missing)
                throw FileFailed(
                    MakeUnknownFailure(item.remote, Step::Open, "No such file or directory"));
            if (kind == Kind::File)
                AddFile(item);
            else if (options.isRecursive)
                AddTree(item);
            else
                throw FileFailed(SkipRemote(item.remote, "is a directory (use -r)"));
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        } catch (const OperationFailedException& failed) {
            transfer.tally.AddFailure(MakeUnknownFailure(item.remote, Step::List, failed.what()));
        } catch (const InvalidArgumentException& failed) {
            transfer.tally.AddFailure(MakeUnknownFailure(item.remote, Step::Open, failed.what()));
        } catch (const CallRefusedException& refused) {
            transfer.tally.AddFailure(MakeUnknownFailure(item.remote, Step::Open, refused.what()));
        }
    }

    void Find(const TreePart& part)
    {
        try {
            CheckPath(part.local);
            const TransferItem tree{part.local, part.remote};
            AskModes(part.remote, part.entries);
            const auto local = std::make_shared<LocalTree>(part.local, FindMode(part.remote));
            std::unordered_set<std::string> seen;
            for (const auto& entry : part.entries)
                AddEntry(tree, local, entry, seen);
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        }
    }

    [[nodiscard]] DownloadPlan Take() { return std::move(plan); }

private:
    void AddFile(const TransferItem& item)
    {
        if (GetLeaf(item.local).empty())
            throw FileFailed(MakeLocalFailure(item.local, Step::Open, FailureKind::Skipped,
                                              "it is not the name of a file"));
        RequireOwnTarget(item.remote, item.local);
        DownloadFile job{item.remote, item.local, "", nullptr, std::nullopt};
        job.time = fileSystem.GetTime(item.remote, options.cancellation);
        plan.files.push_back(std::move(job));
    }

    void RequireOwnTarget(const std::string& remote, const std::string& local)
    {
        if (!plan.targets.insert(NormalizeLocal(local)).second)
            throw FileFailed(SkipRemote(remote, "another source has the same target: " + local));
    }

    void AddTree(const TransferItem& item)
    {
        const Listing listing = fileSystem.List(item.remote, true, options.cancellation);
        for (const auto& failure : listing.failures)
            transfer.tally.AddFailure(failure);
        AskModes(item.remote, listing.entries);
        const auto mode = FindMode(item.remote);
        const auto tree = std::make_shared<LocalTree>(item.local, mode);
        transfer.tally.AddDirectory();
        NoteOpen(tree->GetName(""), mode, tree->GetRootModeBefore());
        plan.directories.push_back(
            {"", tree, fileSystem.GetTime(item.remote, options.cancellation)});
        std::unordered_set<std::string> seen;
        for (const auto& entry : listing.entries)
            if (!IsHostPart(entry.path))
                AddEntry(item, tree, entry, seen);
    }

    void AddEntry(const TransferItem& item, const std::shared_ptr<LocalTree>& tree,
                  const ListEntry& entry, std::unordered_set<std::string>& seen)
    {
        const std::string remote = Join(item.remote, entry.path);
        if (!IsSafeRelativePath(entry.path)) {
            Failure failure = MakeUnknownFailure(remote, Step::List,
                                                 "its path leads out of the directory, as a link "
                                                 "may; nothing was written");
            failure.kind = FailureKind::Unsafe;
            transfer.tally.AddFailure(std::move(failure));
            return;
        }
        if (!seen.insert(entry.path).second)
            return; // what a link leads to has been there already
        try {
            if (!entry.isDirectory) {
                const std::string local = tree->GetName(entry.path);
                RequireOwnTarget(remote, local);
                plan.files.push_back({remote, local, entry.path, tree, entry.time});
                return;
            }
            plan.targets.insert(NormalizeLocal(tree->GetName(entry.path)));
            const auto mode = FindMode(remote);
            const auto before = tree->MakeDirectory(entry.path, mode);
            transfer.tally.AddDirectory();
            if (!isPart)
                NoteOpen(tree->GetName(entry.path), mode, before);
            plan.directories.push_back({entry.path, tree, entry.time});
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        }
    }

    /// Asks for the modes of a tree's directories at once, so that each can be made with its own.
    void AskModes(const std::string& top, const std::vector<ListEntry>& entries)
    {
        if (!options.setsPermissions || !transfer.node.OffersObjects())
            return;
        std::vector<std::string> paths{top};
        for (const auto& entry : entries)
            if (entry.isDirectory && IsSafeRelativePath(entry.path))
                paths.push_back(Join(top, entry.path));
        const auto states = transfer.node.MakeObjectCaller(options.cancellation).GetStates(paths);
        for (std::size_t i = 0; i < paths.size(); ++i)
            if (states[i].kind == Kind::Directory && states[i].status == 0)
                modes.insert_or_assign(paths[i], states[i].permissions & allowedModes);
    }

    /// Returns none where the server cannot tell.
    [[nodiscard]] LocalTree::Mode FindMode(const std::string& remote) const
    {
        const auto found = modes.find(remote);
        return found == modes.end() ? LocalTree::Mode() : found->second;
    }

    /// A directory that is there keeps its mode.
    void NoteOpen(const std::string& local, LocalTree::Mode mode, LocalTree::Mode before)
    {
        constexpr std::uint32_t listableByOthers = 0004;
        if (mode && before && (*before & ~*mode & listableByOthers) != 0)
            transfer.tally.AddNote(
                MakeLocalFailure(local, Step::SetPermissions, FailureKind::Skipped,
                                 "others cannot list it on the server, but may here"));
    }

    Transfer& transfer;
    const TransferOptions& options;
    const std::uint32_t allowedModes;
    const bool isPart;
    std::unordered_map<std::string, std::uint32_t> modes; // of remote directories
    FileSystem& fileSystem;
    DownloadPlan plan;
};

/// Tells the tally of the files of a plan, and returns it.
DownloadPlan Tell(Transfer& transfer, DownloadPlan plan, std::uint32_t allowedModes)
{
    std::vector<std::string> paths;
    for (const auto& file : plan.files)
        paths.push_back(file.remote);
    if (!transfer.isOver)
        DoStep(transfer, [&] {
            if (transfer.node.OffersObjects())
                AskStates(transfer, paths, allowedModes, plan.files);
            else
                AskSizes(transfer, paths, plan.files);
        });
    for (const auto& file : plan.files)
        transfer.tally.Find(1, file.size);
    transfer.tally.EndFinding();
    return plan;
}

} // namespace

DownloadPlan PlanDownload(Transfer& transfer, FileSystem& fileSystem, const TreePart& part)
{
    const auto allowedModes = GetAllowedModes(part);
    DownloadPlanner planner(transfer, fileSystem, allowedModes, true);
    DoStep(transfer, [&] { planner.Find(part); });
    return Tell(transfer, planner.Take(), allowedModes);
}

DownloadPlan PlanDownload(Transfer& transfer, FileSystem& fileSystem,
                          const std::vector<TransferItem>& items)
{
    const auto allowedModes = GetAllowedModes(items);
    DownloadPlanner planner(transfer, fileSystem, allowedModes, false);
    for (const auto& item : items)
        DoStep(transfer, [&] { planner.Find(item); });
    return Tell(transfer, planner.Take(), allowedModes);
}

} // namespace Client
