#include "Folders.h"

#include "Statuses.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <system_error>
#include <utility>

namespace FileObjects {

namespace {

/// True for a path, and for those below it.
bool IsInside(const std::string& path, const std::string& directory)
{
    return path.starts_with(directory) &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}

bool AreNested(const std::vector<Core::Folder>& folders)
{
    return std::ranges::any_of(folders, [&folders](const Core::Folder& inner) {
        return std::ranges::any_of(folders, [&inner](const Core::Folder& outer) {
            return inner.path != outer.path && IsInside(inner.path, outer.path);
        });
    });
}

} // namespace

Folders::Folders(std::vector<Core::Folder> folders)
    : folders(std::move(folders))
    , areNested(AreNested(this->folders))
{}

std::vector<std::string> Folders::GetNames() const
{
    std::vector<std::string> names;
    for (const auto& folder : folders)
        names.push_back(folder.name);
    return names;
}

const std::string& Folders::GetPath(std::size_t folder) const
{
    return folders.at(folder).path;
}

bool Folders::IsReadOnly(const Place& place) const
{
    const Core::Folder* innermost = &folders.at(place.folder);
    if (!areNested)
        return innermost->isReadOnly;
    const std::string path = FindRealPath(place);
    for (const auto& folder : folders)
        if (IsInside(path, folder.path) && IsInside(folder.path, innermost->path))
            innermost = &folder;
    return innermost->isReadOnly;
}

void Folders::RequireWritable(const Place& place) const
{
    if (IsReadOnly(place))
        RefuseWithErrno(Show(place), EROFS);
}

void Folders::RequireWritableAround(const Place& place) const
{
    if (IsReadOnly(GetParent(place)))
        RefuseWithErrno(Show(place), EROFS);
}

void Folders::RequireWritableBelow(const Place& place) const
{
    if (!areNested)
        return;
    const std::string path = FindRealPath(GetParent(place)) + "/" + GetName(place.path);
    for (const auto& folder : folders)
        if (folder.isReadOnly && IsInside(folder.path, path))
            RefuseWithErrno(Show(place), EROFS);
}

/// Returns the path without links, or that of the directory in which something is to be made.
std::string Folders::FindRealPath(const Place& place) const
{
    Descriptor opened(TryOpen(place, O_PATH));
    if (!opened.IsOpen() && !place.path.empty())
        opened = Descriptor(TryOpen(GetParent(place), O_PATH));
    std::error_code error;
    auto path = std::filesystem::read_symlink(
        std::filesystem::path("/proc/self/fd") / std::to_string(opened.Get()), error);
    // In a sandbox there is no /proc, but its mounts hold for all ways.
    return error ? folders.at(place.folder).path + "/" + place.path : path.string();
}

std::optional<Place> Folders::Find(const std::string& path) const
{
    const auto split = [&path](std::size_t folder, std::size_t length) {
        return Place{folder, path.substr(std::min(length + 1, path.size()))};
    };
    for (auto end = path.size(); end > 0 && end != std::string::npos;
         end = path.rfind('/', end - 1))
        if (const auto folder = FindFolder(path.substr(0, end)))
            return split(*folder, end);
    // A folder may have been configured by the name of a link.
    std::error_code none;
    for (auto end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const auto length = std::min(end, path.size());
        const auto real = std::filesystem::canonical(path.substr(0, length), none);
        if (const auto folder = FindFolder(real.string()))
            return split(*folder, length);
        if (end == std::string::npos)
            return std::nullopt;
    }
}

std::optional<std::size_t> Folders::FindFolder(const std::string& path) const
{
    const auto found = std::ranges::find(folders, path, &Core::Folder::path);
    if (path.empty() || found == folders.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - folders.begin());
}

std::string Folders::Show(const Place& place) const
{
    const auto& name = folders.at(place.folder).name;
    return place.path.empty() ? name : name + "/" + place.path;
}

Descriptor Folders::OpenPath(const Place& place) const
{
    return Open(place, O_PATH);
}

Descriptor Folders::OpenPath(NodeKind kind, const Place& place) const
{
    Descriptor path = OpenPath(place);
    const auto mode = FileObjects::GetState(path, Show(place)).st_mode;
    if (kind == NodeKind::Directory ? !S_ISDIR(mode) : !S_ISREG(mode))
        RefuseWithErrno(Show(place), ENOENT);
    return path;
}

Descriptor Folders::OpenDirectoryPath(const Place& place) const
{
    return Open(place, O_PATH | O_DIRECTORY);
}

Descriptor Folders::OpenDirectory(const Place& place) const
{
    return Open(place, O_RDONLY | O_DIRECTORY);
}

Descriptor Folders::OpenFile(const Place& place, int flags) const
{
    static_cast<void>(GetState(NodeKind::File, place)); // opening a device can have effects
    Descriptor file = Open(place, flags | O_NONBLOCK | O_NOCTTY);
    if (!S_ISREG(FileObjects::GetState(file, Show(place)).st_mode))
        RefuseWithErrno(Show(place), ENOENT);
    return file;
}

struct stat Folders::GetState(const Place& place) const
{
    const auto state = FileObjects::GetState(OpenPath(place), Show(place));
    if (!S_ISREG(state.st_mode) && !S_ISDIR(state.st_mode))
        RefuseWithErrno(Show(place), ENOENT);
    return state;
}

struct stat Folders::GetState(NodeKind kind, const Place& place) const
{
    return FileObjects::GetState(OpenPath(kind, place), Show(place));
}

bool Folders::Exists(NodeKind kind, const Place& place) const noexcept
{
    const Descriptor path(TryOpen(place, O_PATH));
    struct stat state
    {};
    if (!path.IsOpen() || fstat(path.Get(), &state) != 0)
        return false;
    return kind == NodeKind::Directory ? S_ISDIR(state.st_mode) : S_ISREG(state.st_mode);
}

Descriptor Folders::Open(const Place& place, int flags) const
{
    Descriptor file(TryOpen(place, flags));
    if (!file.IsOpen())
        RefuseWithErrno(Show(place), errno);
    return file;
}

int Folders::TryOpen(const Place& place, int flags) const noexcept
{
    const Descriptor folder(
        open(folders[place.folder].path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen())
        return -1;
    open_how how{};
    how.flags = static_cast<unsigned int>(flags) | unsigned{O_CLOEXEC};
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    const char* const path = place.path.empty() ? "." : place.path.c_str();
    // The kernel gives up with EAGAIN when somebody moves a directory on the path meanwhile.
    int attempts = 100;
    int number = -1;
    do
        number = static_cast<int>(syscall(SYS_openat2, folder.Get(), path, &how, sizeof(how)));
    while (number < 0 && (errno == EAGAIN || errno == EINTR) && --attempts > 0);
    return number;
}

int CheckOpening() noexcept
{
    open_how how{};
    how.flags = unsigned{O_PATH} | unsigned{O_CLOEXEC};
    const Descriptor root(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, "/", &how, sizeof(how))));
    return root.IsOpen() ? 0 : errno;
}

struct stat GetState(const Descriptor& file, const std::string& subject)
{
    struct stat state
    {};
    if (fstat(file.Get(), &state) != 0)
        RefuseWithErrno(subject, errno);
    return state;
}

Descriptor OpenEntry(const Descriptor& directory, const std::string& name, int flags, mode_t mode)
{
    return Descriptor(openat(directory.Get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode));
}

} // namespace FileObjects
