#include "Sync/SyncScan.h"

#include "Client/FileObjects.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

namespace Cli {

namespace {

constexpr std::uint32_t modeBits = 0777;
/// A server without file objects can tell every time but this one.
constexpr Client::FileTime untold{std::chrono::seconds(-1)};

std::string Below(const std::string& directory, const std::string& name)
{
    return directory.empty() ? name : directory + "/" + name;
}

/// Keeps all directories above a path, and itself if it is one.
void Keep(SyncTree& tree, std::string directory)
{
    while (!directory.empty() && tree.keptDirectories.insert(directory).second) {
        const auto slash = directory.rfind('/');
        directory.resize(slash == std::string::npos ? 0 : slash);
    }
}

/// Lets the entry be, on either side, and the directories above it.
void Leave(SyncTree& tree, const std::string& path)
{
    tree.left.insert(path);
    const auto slash = path.rfind('/');
    Keep(tree, path.substr(0, slash == std::string::npos ? 0 : slash));
}

/// Nobody else tells of what a run set aside that was ended by force.
void NoteAside(const ScanReport& report, const std::string& path, const char* side)
{
    if (report.notesAside &&
        Client::IsAsideName(std::string_view(path).substr(path.rfind('/') + 1)))
        report.note(path + " (" + side +
                    "): holds what an interrupted sync set aside; it is not deleted");
}

struct DirectoryCloser
{
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

class LocalScan
{
public:
    LocalScan(const std::string& top, const Exclusions& exclusions, Links links,
              const ScanReport& report, const Client::Cancellation& cancellation)
        : top(top)
        , exclusions(exclusions)
        , links(links)
        , report(report)
        , cancellation(cancellation)
    {}

    SyncTree Run()
    {
        struct stat status = {};
        if (stat(top.c_str(), &status) != 0)
            Fail(top, errno);
        if (!S_ISDIR(status.st_mode))
            Fail(top, ENOTDIR);
        if (!Scan("", status))
            Fail(top, errno);
        return std::move(tree);
    }

private:
    using Identity = std::pair<dev_t, ino_t>;

    [[noreturn]] static void Fail(const std::string& path, int error)
    {
        throw Client::OperationFailedException(
            path + " (local): cannot list: " + std::generic_category().message(error));
    }

    /// Returns false, with errno, when the directory cannot be listed.
    bool Scan(const std::string& directory, const struct stat& status)
    {
        if (cancellation.IsCancelled())
            throw Client::CancelledException();
        const std::unique_ptr<DIR, DirectoryCloser> opened(
            opendir(JoinPath(top, directory).c_str()));
        if (!opened)
            return false;
        above.emplace_back(status.st_dev, status.st_ino);
        errno = 0;
        while (const dirent* const entry = readdir(opened.get())) { // NOLINT(concurrency-mt-unsafe)
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                Add(directory, name, dirfd(opened.get()));
            errno = 0;
        }
        above.pop_back();
        return errno == 0;
    }

    void Add(const std::string& directory, const std::string& name, int descriptor)
    {
        const auto path = Below(directory, name);
        struct stat status = {};
        if (fstatat(descriptor, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) // deleted meanwhile
                FailEntry(path);
            return;
        }
        const bool isLink = S_ISLNK(status.st_mode);
        struct stat followed = status;
        const bool leadsSomewhere = !isLink || fstatat(descriptor, name.c_str(), &followed, 0) == 0;
        NoteAside(report, JoinPath(top, path), "local");
        // As the server sees it, which follows links.
        if (exclusions.Take(path, S_ISDIR(followed.st_mode)) || Client::IsPartName(name)) {
            Keep(tree, directory);
            return;
        }
        if (links == Links::Followed)
            status = followed;
        if (links == Links::Followed && !leadsSomewhere)
            Skip(path, "the link leads nowhere");
        else if (S_ISREG(status.st_mode))
            AddEntry(path, EntryType::File, status);
        else if (S_ISDIR(status.st_mode))
            AddDirectory(path, status);
        else if (links == Links::Shown)
            AddEntry(path, EntryType::Other, status);
        else
            Skip(path, isLink ? "it is a link (-L follows links)"
                              : "it is neither a file nor a directory");
    }

    void Skip(const std::string& path, const std::string& why)
    {
        report.note(JoinPath(top, path) + ": skipped: " + why);
        Leave(tree, path);
    }

    void AddEntry(const std::string& path, EntryType type, const struct stat& status)
    {
        tree.entries.push_back(
            {.path = path,
             .type = type,
             .size = static_cast<std::uint64_t>(status.st_size),
             .time = Client::FileTime(std::chrono::seconds(status.st_mtim.tv_sec)),
             .permissions = static_cast<std::uint32_t>(status.st_mode) & modeBits});
    }

    void AddDirectory(const std::string& path, const struct stat& status)
    {
        if (std::find(above.begin(), above.end(), Identity(status.st_dev, status.st_ino)) !=
            above.end()) {
            Skip(path, "the link leads to a directory above it");
            return;
        }
        AddEntry(path, EntryType::Directory, status);
        if (!Scan(path, status))
            FailEntry(path);
    }

    void FailEntry(const std::string& path)
    {
        report.fail(JoinPath(top, path) +
                    " (local): cannot list: " + std::generic_category().message(errno));
        tree.isWhole = false;
        Keep(tree, path); // what is in it is not known
    }

    const std::string& top;
    const Exclusions& exclusions;
    const Links links;
    const ScanReport& report;
    const Client::Cancellation& cancellation;
    std::vector<Identity> above; // the directories that are being listed
    SyncTree tree;
};

class RemoteScan
{
public:
    RemoteScan(const std::string& top, const Exclusions& exclusions, const ScanReport& report,
               const Workplace& workplace)
        : top(top)
        , exclusions(exclusions)
        , report(report)
        , workplace(workplace)
    {}

    SyncTree Run()
    {
        Client::FileObjects objects(workplace.remote.GetConnection());
        if (objects.AreOffered())
            ListByObjects(objects);
        else
            ListByEvents();
        return std::move(tree);
    }

private:
    /// Level by level.
    void ListByObjects(Client::FileObjects& objects)
    {
        std::vector<std::string> level{""};
        while (!level.empty()) {
            std::vector<std::string> paths;
            for (const auto& directory : level)
                paths.push_back(directory.empty() ? top : JoinPath(top, directory));
            const auto listings = objects.ListAll(paths, &workplace.cancellation);
            std::vector<std::string> next;
            for (std::size_t i = 0; i < level.size(); ++i)
                AddListing(level[i], listings.at(i), next);
            level = std::move(next);
        }
    }

    void AddListing(const std::string& directory, const Client::DirectoryListing& listing,
                    std::vector<std::string>& next)
    {
        if (!listing.result.IsGood()) {
            const auto& reason = listing.result.reason;
            if (directory.empty())
                throw Client::OperationFailedException(top + " (remote): cannot list: " + reason);
            FailListing(directory, reason);
            return;
        }
        for (const auto& entry : listing.entries) {
            const auto path = Below(directory, entry.name);
            if (!IsWanted(path, entry.isDirectory))
                continue;
            if (entry.isOther || (entry.isDirectory && entry.isLink)) {
                Skip(path, entry.isOther ? "it is neither a file nor a directory"
                                         : "it is a link to a directory");
                continue;
            }
            Add({.path = path,
                 .type = entry.isDirectory ? EntryType::Directory : EntryType::File,
                 .size = entry.size,
                 .time = entry.time,
                 .permissions = entry.permissions});
            if (entry.isDirectory)
                next.push_back(path);
        }
    }

    void ListByEvents()
    {
        const auto listing = workplace.remote.GetFiles().List(top, true, &workplace.cancellation);
        for (const auto& failure : listing.failures)
            FailListing(GetRelative(top, failure.path), failure.cause);
        std::set<std::string> seen; // links may lead to what was listed before
        std::set<std::string> excluded;
        for (const auto& entry : listing.entries) {
            const auto slash = entry.path.rfind('/');
            const auto parent =
                slash == std::string::npos ? std::string() : entry.path.substr(0, slash);
            if (excluded.contains(parent) || !IsWanted(entry.path, entry.isDirectory))
                excluded.insert(entry.path);
            else if (seen.insert(entry.path).second)
                Add({.path = entry.path,
                     .type = entry.isDirectory ? EntryType::Directory : EntryType::File,
                     .size = std::nullopt,
                     .time = entry.time.value_or(untold),
                     .permissions = std::nullopt});
        }
    }

    bool IsWanted(const std::string& path, bool isDirectory)
    {
        const auto slash = path.rfind('/');
        const auto begin = slash == std::string::npos ? 0 : slash + 1;
        if (!Client::IsSafeRelativePath(path)) {
            FailListing(path, "its path leads out of the directory");
            return false;
        }
        NoteAside(report, JoinPath(top, path), "remote");
        if (!exclusions.Take(path, isDirectory) &&
            !Client::IsPartName(std::string_view(path).substr(begin)))
            return true;
        Keep(tree, path.substr(0, begin == 0 ? 0 : slash));
        return false;
    }

    void Skip(const std::string& path, const std::string& why)
    {
        report.note(JoinPath(top, path) + ": skipped: " + why);
        Leave(tree, path);
    }

    void Add(SyncEntry entry) { tree.entries.push_back(std::move(entry)); }

    void FailListing(const std::string& path, const std::string& reason)
    {
        report.fail(JoinPath(top, path) + " (remote): cannot list: " + reason);
        tree.isWhole = false;
        Keep(tree, path);
    }

    const std::string& top;
    const Exclusions& exclusions;
    const ScanReport& report;
    const Workplace& workplace;
    SyncTree tree;
};

} // namespace

std::string GetRelative(const std::string& top, const std::string& path)
{
    const auto end = top.find_last_not_of('/') + 1; // 0 for "/"
    if (path.compare(0, end, top, 0, end) != 0)
        return {};
    const auto begin = path.find_first_not_of('/', end);
    return begin == std::string::npos ? std::string() : path.substr(begin);
}

bool Exclusions::Take(const std::string& path, bool isDirectory) const
{
    return std::any_of(globs.begin(), globs.end(), [&](std::string glob) {
        if (glob.ends_with('/')) {
            if (!isDirectory)
                return false;
            glob.pop_back();
        }
        if (glob.find('/') == std::string::npos)
            return fnmatch(glob.c_str(), path.substr(path.rfind('/') + 1).c_str(), 0) == 0;
        if (glob.starts_with('/'))
            glob.erase(0, 1);
        return fnmatch(glob.c_str(), path.c_str(), FNM_PATHNAME) == 0;
    });
}

SyncTree ScanLocal(const std::string& top, const Exclusions& exclusions, Links links,
                   const ScanReport& report, const Client::Cancellation& cancellation)
{
    return LocalScan(top, exclusions, links, report, cancellation).Run();
}

SyncTree ScanRemote(const std::string& top, const Exclusions& exclusions, const ScanReport& report,
                    const Workplace& workplace)
{
    return RemoteScan(top, exclusions, report, workplace).Run();
}

} // namespace Cli
