#include "UploadPlan.h"

#include "LocalFiles.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unordered_set>
#include <utility>

namespace Client {

namespace {

constexpr std::uint32_t modeBits = 0777;
/// The server's umask is not known; this is the usual one.
constexpr std::uint32_t newBits = modeBits & ~022U;
constexpr std::uint32_t ordinaryDirectory = 0755; // as the host makes it
constexpr std::uint32_t allForOwner = 0700;
constexpr std::size_t smallFile = std::size_t{256} << 10U;

struct DirectoryCloser
{
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

/// Returns the names in a local directory. Throws FileFailed.
std::vector<std::string> ReadNames(const std::string& local)
{
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(local.c_str()));
    if (!directory)
        FailLocally(local, Step::List);
    errno = 0;
    std::vector<std::string> names;
    while (const dirent* const entry = readdir(directory.get())) // NOLINT(concurrency-mt-unsafe)
        names.emplace_back(entry->d_name);
    if (errno != 0)
        FailLocally(local, Step::List);
    std::erase_if(names, [](const std::string& name) { return name == "." || name == ".."; });
    return names;
}

Failure SkipLocal(const std::string& local, std::string cause)
{
    return MakeLocalFailure(local, Step::Open, FailureKind::Skipped, std::move(cause));
}

class UploadPlanner
{
public:
    explicit UploadPlanner(Transfer& transfer)
        : transfer(transfer)
        , options(transfer.options)
    {}

    void Find(const std::string& local, const std::string& remote, bool isGiven)
    {
        try {
            CheckPath(local);
            CheckPath(remote);
            struct stat status = {};
            if ((isGiven ? stat(local.c_str(), &status) : lstat(local.c_str(), &status)) != 0)
                FailLocally(local, Step::Open);
            if (!isGiven && IsLeftOut(local, status))
                return;
            if (S_ISREG(status.st_mode))
                AddFile(local, remote, status);
            else if (S_ISDIR(status.st_mode))
                AddDirectory(local, remote, status);
            else
                throw FileFailed(SkipLocal(local, "it is neither a file nor a directory"));
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        } catch (const InvalidArgumentException& unusable) {
            transfer.tally.AddFailure(SkipLocal(local, unusable.what()));
        }
    }

    void FindAlone(const TreePart& part, const ListEntry& entry)
    {
        isAlone = true;
        plan.isPart = true;
        Find(Join(part.local, entry.path), Join(part.remote, entry.path), true);
    }

    [[nodiscard]] UploadPlan Take() { return std::move(plan); }

private:
    /// Notes what is in a tree and is not sent: links, unless they are followed, and what is
    /// neither a file nor a directory. `status` is its own, and becomes that of what a link leads
    /// to.
    bool IsLeftOut(const std::string& local, struct stat& status)
    {
        const bool isLink = S_ISLNK(status.st_mode);
        std::string why;
        if (isLink && !options.followsLinks)
            why = "it is a link (-L follows links)";
        else if (isLink && stat(local.c_str(), &status) != 0)
            why = "the link leads nowhere";
        else if (S_ISDIR(status.st_mode) && IsAbove(status))
            why = "the link leads to a directory above it";
        else if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
            why = "it is neither a file nor a directory";
        if (!why.empty())
            transfer.tally.AddNote(SkipLocal(local, why));
        return !why.empty();
    }

    [[nodiscard]] bool IsAbove(const struct stat& status) const
    {
        return std::any_of(above.begin(), above.end(), [&](const struct stat& directory) {
            return directory.st_dev == status.st_dev && directory.st_ino == status.st_ino;
        });
    }

    /// Others may read what goes to a server that cannot keep a private mode, or into a file in
    /// place.
    void NotePrivateMode(const std::string& local, const struct stat& status)
    {
        const bool isDirectory = S_ISDIR(status.st_mode);
        const bool isKept = transfer.node.OffersObjects() && (isDirectory || !options.isInPlace);
        if (isKept || (status.st_mode & S_IROTH) != 0)
            return;
        transfer.tally.AddNote(
            MakeLocalFailure(local, Step::SetPermissions, FailureKind::Skipped,
                             isDirectory ? "others cannot list it here, but may on the server"
                                         : "others cannot read it here, but may on the server"));
    }

    /// An ordinary directory gets the mode that the host gives it, whose umask decides. Its owner
    /// may do everything in it, or no later transfer could.
    void PlanDirectory(const std::string& local, const std::string& remote,
                       const struct stat& status)
    {
        UploadDirectory directory{remote, FileTime(std::chrono::seconds(status.st_mtim.tv_sec))};
        if (options.setsPermissions) {
            NotePrivateMode(local, status);
            const std::uint32_t mode =
                (status.st_mode & (isAlone ? modeBits : newBits)) | allForOwner;
            if (transfer.node.OffersObjects() && mode != ordinaryDirectory)
                directory.mode = mode;
        }
        plan.directories.push_back(std::move(directory));
    }

    void AddFile(const std::string& local, const std::string& remote, const struct stat& status)
    {
        if (!targets.insert(Normalize(remote)).second)
            throw FileFailed(SkipLocal(local, "another source has the same target: " + remote));
        UploadFile job;
        job.local = local;
        job.remote = remote;
        job.written = remote;
        job.size = static_cast<std::uint64_t>(status.st_size);
        job.time = FileTime(std::chrono::seconds(status.st_mtim.tv_sec));
        if (options.setsPermissions) {
            job.mode = status.st_mode & (isAlone ? modeBits : newBits);
            NotePrivateMode(local, status);
            job.permissions.executable = (status.st_mode & S_IXUSR) != 0;
            job.permissions.readOnly = (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
        }
        transfer.tally.Find(1, job.size);
        auto& jobs = job.size <= smallFile && options.setsTimes && !options.verifies ? plan.small
                                                                                     : plan.large;
        jobs.push_back(std::move(job));
    }

    void AddDirectory(const std::string& local, const std::string& remote,
                      const struct stat& status)
    {
        if (!options.isRecursive && !isAlone)
            throw FileFailed(SkipLocal(local, "is a directory (use -r)"));
        if (isAlone) {
            PlanDirectory(local, remote, status);
            return;
        }
        // Closed again before the directories below are opened.
        const auto names = ReadNames(local);
        PlanDirectory(local, remote, status);
        above.push_back(status);
        for (const auto& name : names)
            Find(Join(local, name), Join(remote, name), false);
        above.pop_back();
    }

    Transfer& transfer;
    const TransferOptions& options;
    std::unordered_set<std::string> targets; // of files
    std::vector<struct stat> above;          // the directories that are being listed
    bool isAlone = false;                    // directories stand for themselves
    UploadPlan plan;
};

} // namespace

void LookForReason(Transfer& transfer, const UploadFile& file, Step step) noexcept
{
    try {
        transfer.reasons.Look({file.remote, step, true, file.IsInPlace(), file.size});
    } catch (const std::exception&) {
        // No memory: the others are tried.
    }
}

UploadPlan PlanUpload(Transfer& transfer, const TreePart& part)
{
    UploadPlanner planner(transfer);
    for (const auto& entry : part.entries)
        planner.FindAlone(part, entry);
    transfer.tally.EndFinding();
    return planner.Take();
}

UploadPlan PlanUpload(Transfer& transfer, const std::vector<TransferItem>& items)
{
    UploadPlanner planner(transfer);
    for (const auto& item : items)
        planner.Find(item.local, item.remote, true);
    transfer.tally.EndFinding();
    return planner.Take();
}

} // namespace Client
