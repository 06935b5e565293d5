#include "Process/PathTrust.h"

#include "Core/Exception.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <grp.h>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

using Path = std::filesystem::path;

constexpr int mostLinks = 40; // as many as the kernel follows

// The host has one thread when it looks at its files.
// NOLINTBEGIN(concurrency-mt-unsafe)

std::string DescribeUser(uid_t user)
{
    const auto* const entry = getpwuid(user);
    const auto number = std::to_string(user);
    return entry == nullptr ? "user " + number : std::string(entry->pw_name) + " (" + number + ")";
}

/// Returns true for a group without other members, as many systems make one for each user.
bool HasOnlyItsOwner(gid_t group, uid_t owner)
{
    const auto* const user = getpwuid(owner);
    if (user == nullptr || user->pw_gid != group)
        return false;
    const std::string name = user->pw_name;
    const auto* const entry = getgrgid(group);
    if (entry == nullptr || name != entry->gr_name)
        return false;
    for (char* const* member = entry->gr_mem; *member != nullptr; ++member) {
        if (name != *member)
            return false;
    }
    return true;
}

// NOLINTEND(concurrency-mt-unsafe)

bool CanOthersWrite(const struct stat& status)
{
    const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    if (S_ISLNK(status.st_mode) || isSticky)
        return false;
    if ((status.st_mode & S_IWOTH) != 0)
        return true;
    return (status.st_mode & S_IWGRP) != 0 && !HasOnlyItsOwner(status.st_gid, status.st_uid);
}

} // namespace

/// Checks one path, component by component.
class PathTrust::Walk
{
public:
    Walk(const PathTrust& trust, const Path& path, FileUse use)
        : trust(trust)
        , path(path)
        , use(use)
    {}

    void Run()
    {
        Enter(path);
        while (!left.empty()) {
            const auto name = left.front();
            left.pop_front();
            if (name.empty() || name == ".")
                continue;
            if (name == "..")
                folder = folder.parent_path();
            else if (!Step(folder / name))
                return;
        }
    }

private:
    /// Returns false at the end of the path.
    bool Step(const Path& component)
    {
        struct stat status = {};
        if (lstat(component.c_str(), &status) != 0)
            return false;
        Examine(component, status);
        if (!S_ISLNK(status.st_mode)) {
            folder = component;
            return true;
        }
        std::error_code error;
        const auto target = std::filesystem::read_symlink(component, error);
        if (error || ++links > mostLinks)
            return false;
        Enter(target);
        return true;
    }

    /// Puts a path before the components that are left.
    void Enter(const Path& next)
    {
        const auto relative = next.relative_path();
        left.insert(left.begin(), relative.begin(), relative.end());
        if (next.is_relative())
            return;
        folder = next.root_path();
        struct stat status = {};
        if (lstat(folder.c_str(), &status) == 0)
            Examine(folder, status);
    }

    void Examine(const Path& component, const struct stat& status) const
    {
        if (const auto* const root = trust.FindRootAround(component, use); root != nullptr)
            RefuseRoot(component, *root);
        const bool isLink = S_ISLNK(status.st_mode);
        if (use == FileUse::Run || (use == FileUse::Append && !isLink))
            return;
        if (!trust.IsTrustedOwner(status.st_uid))
            Refuse(component, "belongs to " + DescribeUser(status.st_uid) +
                                  ", who could replace it: chown it to root or to the host's user, "
                                  "or use --trust-owner");
        if (CanOthersWrite(status))
            Refuse(component, "can be changed by others: chmod go-w it");
    }

    [[noreturn]] void RefuseRoot(const Path& component, const Root& root) const
    {
        const auto way =
            IsBelow(path, root.real) ? "" : "leads by way of '" + component.string() + "', which ";
        throw Core::InvalidArgumentException(
            "'" + path.string() + "' " + way + "lies inside the root '" + root.real.string() +
            "', where clients could " + (root.isReadOnly ? "read" : "change") + " it");
    }

    [[noreturn]] void Refuse(const Path& component, const std::string& reason) const
    {
        if (component == path)
            throw Core::InvalidArgumentException("'" + path.string() + "' " + reason);
        throw Core::InvalidArgumentException("'" + path.string() + "' cannot be trusted: '" +
                                             component.string() + "', on the way to it, " + reason);
    }

    const PathTrust& trust;
    const Path& path;
    FileUse use;
    Path folder = "/";
    std::deque<Path> left;
    int links = 0;
};

PathTrust::PathTrust(const std::vector<Root>& givenRoots, std::optional<uid_t> furtherOwner)
    : furtherOwner(furtherOwner)
    , mounts(ReadMounts())
    , roots(givenRoots)
{
    // If clients can reach a folder in several ways, a way that lets them change it counts.
    std::stable_sort(roots.begin(), roots.end(), [](const Root& left, const Root& right) {
        return !left.isReadOnly && right.isReadOnly;
    });
    for (const auto& root : roots) {
        if (auto place = FindPlace(root.real, mounts))
            reachable.push_back({root, std::move(*place)});
        for (const auto& mount : mounts) {
            if (IsBelow(mount.place, root.real))
                reachable.push_back({root, {.device = mount.device, .path = mount.top}});
        }
    }
}

bool PathTrust::IsTrustedOwner(uid_t user) const
{
    return user == 0 || user == geteuid() || user == furtherOwner;
}

const Root* PathTrust::FindRootAround(const Path& path, FileUse use) const
{
    const bool mayBeRead = use == FileUse::Read || use == FileUse::Run;
    const auto counts = [mayBeRead](const Root& root) {
        return !root.isReadOnly || !mayBeRead;
    };
    const auto root = std::find_if(roots.begin(), roots.end(), [&](const Root& each) {
        return counts(each) && IsBelow(path, each.real);
    });
    if (root != roots.end())
        return &*root;
    const auto place = FindPlace(path, mounts);
    const auto found = std::find_if(reachable.begin(), reachable.end(), [&](const Reachable& each) {
        return counts(each.root) && place && each.place.device == place->device &&
               IsBelow(place->path, each.place.path);
    });
    return found == reachable.end() ? nullptr : &found->root;
}

void PathTrust::Check(const Path& path, FileUse use) const
{
    Walk(*this, path, use).Run();
}

} // namespace Host
