#include "Paths.h"

#include "Attributes.h"
#include "Core/Exception.h"
#include "Statuses.h"
#include "Times.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace FileObjects {

namespace {

void RequireCount(std::size_t count, std::size_t ofOther)
{
    if (count > Paths::maximumCount)
        Refuse(Status::invalidArgument, "",
               "a call takes at most " + std::to_string(Paths::maximumCount) + " paths");
    if (count != ofOther)
        Refuse(Status::invalidArgument, "", "the arrays have different lengths");
}

/// Does one of many operations and adds its result.
template <typename Work>
void Add(Results& results, Work&& work)
{
    unsigned int status = 0;
    std::string reason;
    try {
        work();
    } catch (const Core::StatusException& refusal) {
        status = refusal.GetStatus();
        reason = refusal.GetMessage();
    }
    results.statuses.push_back(status);
    results.reasons.push_back(std::move(reason));
}

unsigned char GetKind(mode_t mode)
{
    if (S_ISREG(mode))
        return States::file;
    return S_ISDIR(mode) ? States::directory : States::special;
}

unsigned char GetAccess(const Descriptor& path, bool isReadOnly)
{
    const auto may = [&path](int use) {
        return faccessat(path.Get(), "", use, AT_EMPTY_PATH | AT_EACCESS) == 0;
    };
    unsigned int access = may(R_OK) ? States::readable : 0U;
    if (isReadOnly)
        access |= States::inReadOnlyFolder;
    else if (may(W_OK))
        access |= States::writable;
    return static_cast<unsigned char>(access);
}

/// Does something. If it fails, its reason begins with a name instead of another one.
template <typename Work>
auto Name(const std::string& name, const std::string& instead, Work&& work)
{
    try {
        return work();
    } catch (const Core::StatusException& refusal) {
        const auto& message = refusal.GetMessage();
        if (!message.starts_with(instead))
            throw;
        throw Core::StatusException(refusal.GetStatus(), name + message.substr(instead.size()));
    }
}

/// Returns the names of a path with one slash between them. Throws for a path that leads upwards.
std::string Join(const std::string& path)
{
    std::string joined;
    for (std::size_t begin = 0; begin < path.size();) {
        const auto end = std::min(path.find('/', begin), path.size());
        const auto name = path.substr(begin, end - begin);
        begin = end + 1;
        if (name.empty() || name == ".")
            continue;
        if (!IsFileName(name))
            Refuse(Status::invalidArgument, "", "paths with '..' are not taken");
        joined += (joined.empty() ? "" : "/") + name;
    }
    return joined;
}

} // namespace

Paths::Paths(const Folders& folders, OpenFiles& openFiles, Directories& directories)
    : folders(folders)
    , openFiles(openFiles)
    , directories(directories)
{}

/// Throws Bad_NotFound for a path that is above or beside the folders.
Place Paths::Resolve(const std::string& path) const
{
    const std::string joined = Join(path);
    std::optional<Place> place;
    if (path.starts_with('/'))
        place = folders.Find("/" + joined);
    else if (!path.empty() && folders.GetSize() > 0)
        place = folders.Find(folders.GetPath(0) + (joined.empty() ? "" : "/") + joined);
    if (!place)
        RefuseWithErrno("", ENOENT);
    return *place;
}

/// Returns the node of a file or directory that is there. Throws Bad_NotFound.
Key Paths::Require(const Place& place) const
{
    const bool isDirectory = S_ISDIR(folders.GetState(place).st_mode);
    return {isDirectory ? NodeKind::Directory : NodeKind::File, place, {}};
}

/// Does something with the place of a path. Leaves the path out of the reason of a failure: the
/// caller knows it.
template <typename Work>
auto Paths::At(const std::string& path, Work&& work) const
{
    const Place place = Resolve(path);
    return Name("", folders.Show(place) + ": ", [&] { return work(place); });
}

/// Does something with a node and its new place, in folders where that is allowed.
template <typename Work>
auto Paths::Between(const std::string& source, const std::string& target, const Placing& placing,
                    Work&& work) const
{
    return At(source, [&](const Place& from) {
        const Place to = Name(target + ": ", "", [&] { return Resolve(target); });
        if (to.path.empty() || (from.path.empty() && !placing.isCopied))
            Refuse(Status::userAccessDenied, folders.Show(to.path.empty() ? to : from),
                   "the folders are those of the host's configuration");
        if (!placing.isCopied)
            folders.RequireWritableAround(from);
        return Name(target + ": ", folders.Show(to) + ": ", [&] {
            folders.RequireWritableAround(to);
            return work(Require(from), to);
        });
    });
}

States Paths::GetStates(const Texts& paths, const Caller& caller) const
{
    RequireCount(paths.size(), paths.size());
    States states;
    for (const auto& path : paths) {
        caller.CheckGoesOn();
        AddState(path, states);
    }
    return states;
}

void Paths::AddState(const std::string& path, States& states) const
{
    struct stat state
    {};
    unsigned char kind = States::missing;
    unsigned char access = 0;
    Results result;
    Add(result, [&] {
        At(path, [&](const Place& place) {
            const auto file = folders.OpenPath(place);
            state = GetState(file, folders.Show(place));
            kind = GetKind(state.st_mode);
            access = GetAccess(file, folders.IsReadOnly(place));
        });
    });
    const bool hasSize = kind == States::file;
    states.kinds.push_back(kind);
    states.sizes.push_back(hasSize ? static_cast<unsigned long>(state.st_size) : 0);
    states.times.push_back(kind == States::missing ? Core::DateTime() : ToDateTime(state.st_mtim));
    states.permissions.push_back(state.st_mode & permissionBits);
    states.access.push_back(access);
    states.statuses.push_back(result.statuses.front());
    states.reasons.push_back(std::move(result.reasons.front()));
}

Listing Paths::List(const std::string& path, std::uint64_t start, std::size_t maximum,
                    const Caller& caller) const
{
    if (path.starts_with('/') && Join(path).empty() && !folders.Find("/"))
        return ListFolders(caller);
    return At(path, [&](const Place& place) {
        return directories.List({NodeKind::Directory, place, {}}, start, maximum,
                                Listed::Everything, caller);
    });
}

/// Returns the folders, named by their whole paths.
Listing Paths::ListFolders(const Caller& caller) const
{
    auto listing =
        directories.List({NodeKind::FileSystem, {}, {}}, 0, 0, Listed::Everything, caller);
    for (std::size_t i = 0; i < folders.GetSize(); ++i)
        listing.names[i] = folders.GetPath(i);
    return listing;
}

Results Paths::Move(const Texts& sources, const Texts& targets, bool replaces, const Caller& caller)
{
    // More are synced with all else that is to be written to the disk: it takes no longer than one.
    constexpr std::size_t fewFiles = 8;
    RequireCount(sources.size(), targets.size());
    Placing placing{.isCopied = false, .replaces = replaces};
    std::vector<bool> areSynced(sources.size(), false);
    if (replaces && sources.size() > fewFiles)
        areSynced = SyncTogether(sources, targets, placing, caller);
    Results results;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        caller.CheckGoesOn();
        placing.syncs = replaces && !areSynced[i];
        Add(results, [&] { Put(sources[i], targets[i], placing, caller); });
    }
    return results;
}

/// Brings the files that can be moved to their disks. Returns for each path if that was done; what
/// is against it is found again when it is moved.
std::vector<bool> Paths::SyncTogether(const Texts& sources, const Texts& targets,
                                      const Placing& placing, const Caller& caller) const
{
    struct Disk
    {
        Descriptor file; // one of them
        std::vector<std::size_t> paths;
    };
    std::map<dev_t, Disk> disks;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        caller.CheckGoesOn();
        Results ignored;
        Add(ignored, [&] {
            auto file =
                Between(sources[i], targets[i], placing, [&](const Key& from, const Place& to) {
                    return directories.OpenForSync(from, to, placing);
                });
            if (!file.IsOpen())
                return;
            auto& disk = disks[GetState(file, "").st_dev];
            disk.file = std::move(file);
            disk.paths.push_back(i);
        });
    }
    std::vector<bool> areSynced(sources.size(), false);
    for (const auto& [number, disk] : disks) {
        caller.CheckGoesOn();
        if (syncfs(disk.file.Get()) == 0)
            for (const auto path : disk.paths)
                areSynced[path] = true;
    }
    return areSynced;
}

void Paths::Copy(const std::string& source, const std::string& target, bool replaces,
                 const Caller& caller)
{
    Put(source, target, {.isCopied = true, .replaces = replaces}, caller);
}

void Paths::Put(const std::string& source, const std::string& target, const Placing& placing,
                const Caller& caller)
{
    Between(source, target, placing,
            [&](const Key& from, const Place& to) { directories.Put(from, to, placing, caller); });
}

Space Paths::GetSpace(const std::string& path) const
{
    return At(path, [this](const Place& place) { return directories.GetSpace(Require(place)); });
}

Checksum Paths::GetChecksum(const std::string& path, std::uint64_t start, std::uint64_t length,
                            const Caller& caller) const
{
    return At(path, [&](const Place& place) {
        const Key node = Require(place);
        if (node.kind == NodeKind::Directory)
            return Checksum{ComputeTreeChecksum(folders, place, caller), 0};
        return ComputeFileChecksum(folders, place, openFiles, start, length, caller);
    });
}

Results Paths::SetPermissions(const Texts& paths, const std::vector<unsigned int>& permissions,
                              const Caller& caller) const
{
    RequireCount(paths.size(), permissions.size());
    Results results;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        caller.CheckGoesOn();
        Add(results, [&] {
            At(paths[i], [&](const Place& place) {
                FileObjects::SetPermissions(folders, Require(place), permissions[i]);
            });
        });
    }
    return results;
}

} // namespace FileObjects
